// The 90-degree phase shifter against its model, its coefficients and its purpose.
#include <korla/dsp/phase90_hilbert.h>

#include <complex>
#include <numbers>

#include "guarded_buffer.h"
#include "reference/phase90_model.h"
#include "signals.h"

using namespace korla_test;

namespace {

class Phase90 : public ::testing::TestWithParam<uint32_t> {
protected:
    size_t n = GetParam(), sizes[3];
    GuardedBuffer<uint64_t> memory{104 / 8};
    GuardedBuffer<float> work{n + 1280}, history{1280};
    Phase90Hilbert* filter = nullptr;

    void SetUp() override {
        ASSERT_EQ(getRequiredBufferSize_Phase90Hilbert(GetParam(), &sizes[0], &sizes[1], &sizes[2]), 0);
        EXPECT_TRUE(sizes[0] == 104 && sizes[1] == (n + 1280) * 4 && sizes[2] == 1280 * 4);
        std::fill_n(memory.data(), memory.size(), ~uint64_t{0}); // init has to set what it relies on
        std::fill_n(history.data(), history.size(), 9.0f);
        std::fill_n(work.data(), work.size(), 9.0f);
        ASSERT_EQ(init_Phase90Hilbert(&filter, GetParam(), memory.data(), work.data(), history.data()), 0);
    }
    std::vector<float> process(const std::vector<float>& x, size_t misalignment = 0) {
        GuardedBuffer<float> samples(x, misalignment);
        EXPECT_EQ(process_Phase90Hilbert(filter, samples.data()), 0);
        return samples.values();
    }
};

TEST_P(Phase90, FollowsTheDoublePrecisionModelAgainAfterAReset) {
    Random random(n);
    for (int run = 0; run < 2; run++) {
        Phase90Model model(n);
        for (size_t block = 0; block < 20; block++) {
            const float loudness = block < 2 ? 0.0f : block % 10 < 6 ? 1e-4f : 1.0f;
            const auto x = random.vector(n, -loudness, loudness);
            const float boundary = filter->boundary;
            const auto y = process(x, block % 8);
            const auto expected = model.process(x);
            EXPECT_EQ(y[0], boundary); // no step between two blocks
            for (int j = 0; j < 8; j++)
                ASSERT_NEAR(filter->backward[j / 2][j % 2], model.backward[j / 2][j % 2], block < 2 ? 0.0 : 5e-6);
            for (size_t i = 0; i < n; i++)
                ASSERT_NEAR(y[i], expected[i], block < 2 ? 0.0 : 5e-6) << "block " << block << ", sample " << i;
        }
        process(std::vector<float>(n, INFINITY)); // poisons the states
        ASSERT_EQ(reset_Phase90Hilbert(filter), 0);
        for (const auto& pair : filter->backward)
            EXPECT_TRUE(pair[0] == 0.0f && pair[1] == 0.0f);
    }
}

// How far each coefficient is off, as the outputs tell: their errors, projected on what a step of it would change.
// Steady noise shows the poles; noise at the very end of what was heard shows the weights of the start values.
TEST_P(Phase90, HasTheDesignedCoefficientsWithinAFractionOfAMillionth) {
    const size_t count = Phase90Model(n).coefficients.size();
    for (bool steady : {true, false}) {
        std::vector<double> product(count), square(count);
        Random random(5);
        std::vector<Phase90Model> fresh(count + 1, Phase90Model(n)), models;
        for (size_t j = 0; j < count; j++)
            fresh[j].coefficients[j] += 1e-6;
        for (int block = 0; block < 40; block++) {
            auto x = random.vector(n);
            if (!steady)
                std::fill(x.begin(), x.end() - 64, 0.0f);
            if (!steady || block == 0) {
                reset_Phase90Hilbert(filter);
                models = fresh;
            }
            const auto y = process(x);
            const auto expected = models[count].process(x);
            for (size_t j = 0; j < count; j++) {
                const auto varied = models[j].process(x);
                for (size_t i = 0; i < n; i++) {
                    product[j] += (varied[i] - expected[i]) * (y[i] - expected[i]);
                    square[j] += (varied[i] - expected[i]) * (varied[i] - expected[i]);
                }
            }
        }
        for (size_t j = steady ? 0 : 8; j < (steady ? 8 : count); j++)
            EXPECT_NEAR(product[j] / square[j], 0.0, 0.3) << "millionths, coefficient " << j;
    }
}

// Gain and phase of a steady sine against its copy of 1280 samples earlier; 48 kHz.
TEST_P(Phase90, TurnsThePhaseByNinetyDegrees) {
    for (auto [frequency, gain_db] : {std::pair{20.0, -3.03}, {50.0, -0.65}, {1000.0, 0.0}, {23900.0, -0.17}}) {
        reset_Phase90Hilbert(filter);
        const double turn = 2.0 * std::numbers::pi * frequency / 48000.0, settled = 16384.0, measured = 98304.0;
        std::complex<double> out = 0.0, reference = 0.0;
        for (double t = 0.0; t < settled + measured;) {
            std::vector<float> x(n);
            for (size_t i = 0; i < n; i++)
                x[i] = static_cast<float>(0.5 * std::cos(turn * (t + static_cast<double>(i))));
            for (const float y : process(x)) {
                const double window =
                    t < settled ? 0.0 : 1.0 - std::cos(2.0 * std::numbers::pi * (t - settled) / measured);
                const auto carrier = std::polar(window, -turn * (t - 1280.0));
                out += double(y) * carrier;
                reference += 0.5 * std::cos(turn * (t - 1280.0)) * carrier;
                t += 1.0;
            }
        }
        EXPECT_NEAR(std::arg(out / reference) * 180.0 / std::numbers::pi, -90.0, 2.3) << frequency;
        EXPECT_NEAR(20.0 * std::log10(std::abs(out / reference)), gain_db, 0.02) << frequency;
    }
}

TEST_P(Phase90, RefusalsAreCodeTwoAndTouchNothing) {
    void* const m = memory.data();
    float *const w = work.data(), *const h = history.data();
    auto misaligned = [](auto* p) { return reinterpret_cast<decltype(p)>(reinterpret_cast<uintptr_t>(p) + 2); };
    const auto before = memory.values();
    auto refuses = [&](uint32_t length, void* memory_at, float* work_at, float* history_at, bool refused_size = true) {
        Phase90Hilbert* refused = filter;
        EXPECT_EQ(init_Phase90Hilbert(&refused, length, memory_at, work_at, history_at), 2);
        EXPECT_TRUE(refused == nullptr && memory.values() == before);
        EXPECT_EQ(getRequiredBufferSize_Phase90Hilbert(length, memory_at ? &sizes[0] : nullptr,
                                                       work_at ? &sizes[1] : nullptr, history_at ? &sizes[2] : nullptr),
                  refused_size ? 2 : 0);
    };
    for (uint32_t length : {0u, 1u, 256u, 511u, 513u, 4096u, 65536u + 512u, UINT32_MAX})
        refuses(length, m, w, h);
    EXPECT_EQ(sizes[0] + sizes[1] + sizes[2], 0u);
    refuses(GetParam(), nullptr, w, h);
    refuses(GetParam(), m, nullptr, h);
    refuses(GetParam(), m, w, nullptr);
    refuses(GetParam(), misaligned(m), w, h, false);
    refuses(GetParam(), m, misaligned(w), h, false);
    refuses(GetParam(), m, w, misaligned(h), false);
    EXPECT_EQ(init_Phase90Hilbert(nullptr, GetParam(), m, w, h), 2);
    EXPECT_TRUE(process_Phase90Hilbert(filter, nullptr) == 2 && process_Phase90Hilbert(nullptr, w) == 2);
    EXPECT_EQ(process_Phase90Hilbert(filter, misaligned(w)), 2);
    EXPECT_EQ(reset_Phase90Hilbert(nullptr), 2);
}

INSTANTIATE_TEST_SUITE_P(BlockLengths, Phase90, ::testing::Values(512, 1024, 2048));

} // namespace
