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
    size_t n = GetParam();
    GuardedBuffer<uint64_t> memory{104 / 8};
    GuardedBuffer<float> work{n + 1280}, history{1280};
    Phase90Hilbert* filter = nullptr;

    void SetUp() override {
        std::fill_n(memory.data(), memory.size(), ~uint64_t{0}); // init has to set what it relies on
        std::fill_n(history.data(), history.size(), 9.0f);
        std::fill_n(work.data(), work.size(), 9.0f);
        ASSERT_EQ(init_Phase90Hilbert(&filter, GetParam(), memory.data(), work.data(), history.data()), 0);
        ASSERT_EQ(static_cast<void*>(filter), memory.data());
    }
    std::vector<float> process(const std::vector<float>& x, size_t misalignment = 0) {
        GuardedBuffer<float> samples(x, misalignment);
        EXPECT_EQ(process_Phase90Hilbert(filter, samples.data()), 0);
        return samples.values();
    }
};

TEST_P(Phase90, FollowsTheDoublePrecisionModelOverManyBlocks) {
    Phase90Model model(n);
    Random random(n);
    for (size_t block = 0; block < 40; block++) {
        const auto x = random.vector(n);
        const auto y = process(x, block % 8);
        const auto expected = model.process(x);
        for (size_t i = 0; i < n; i++)
            ASSERT_NEAR(y[i], expected[i], 2e-5) << "block " << block << ", sample " << i;
    }
}

TEST_P(Phase90, EveryBlockBeginsWithTheBoundaryValueOfTheOneBefore) {
    Random random(3);
    float boundary = 0.0f;
    for (int block = 0; block < 20; block++) {
        EXPECT_EQ(process(random.vector(n))[0], boundary);
        boundary = filter->boundary;
    }
    EXPECT_NE(boundary, 0.0f);
}

// Gain and phase of a steady sine against its copy of 1280 samples earlier; 48 kHz.
TEST_P(Phase90, TurnsThePhaseByNinetyDegrees) {
    struct {
        double frequency, gain_db;
    } points[] = {{20.0, -3.03}, {50.0, -0.65}, {100.0, -0.17}, {441.0, -0.01},
                  {1000.0, 0.0}, {9000.0, 0.0}, {16000.0, 0.0}, {23900.0, -0.17}};
    for (auto [frequency, gain_db] : points) {
        reset_Phase90Hilbert(filter);
        const double turn = 2.0 * std::numbers::pi * frequency / 48000.0;
        std::complex<double> out = 0.0, reference = 0.0;
        size_t t = 0;
        for (size_t block = 0; block < (16384 + 98304) / n;
             block++) { // settle for a third of a second, measure for two
            std::vector<float> x(n);
            for (size_t i = 0; i < n; i++)
                x[i] = static_cast<float>(0.5 * std::cos(turn * static_cast<double>(t + i)));
            const auto y = process(x);
            for (size_t i = 0; i < n; i++, t++) {
                if (t < 16384)
                    continue;
                const double window = 1.0 - std::cos(2.0 * std::numbers::pi * static_cast<double>(t - 16384) / 98304.0);
                const double phase = turn * (static_cast<double>(t) - 1280.0);
                out += window * y[i] * std::polar(1.0, -phase);
                reference += window * 0.5 * std::cos(phase) * std::polar(1.0, -phase);
            }
        }
        const auto gain = out / reference;
        EXPECT_NEAR(std::arg(gain) * 180.0 / std::numbers::pi, -90.0, 2.3) << frequency;
        EXPECT_NEAR(20.0 * std::log10(std::abs(gain)), gain_db, 0.02) << frequency;
    }
}

TEST_P(Phase90, SilenceAfterInitAndAfterReset) {
    const std::vector<float> silence(n, 0.0f);
    EXPECT_EQ(process(silence), silence);
    process(Random(1).vector(n));
    process(std::vector<float>(n, INFINITY)); // poisons the states
    ASSERT_EQ(reset_Phase90Hilbert(filter), 0);
    EXPECT_EQ(filter->block_length, n);
    for (int block = 0; block < 5; block++)
        EXPECT_EQ(process(silence), silence);
}

TEST_P(Phase90, AnImpulseComesOutAround1280SamplesLater) {
    std::vector<float> x(n), y;
    x[0] = 1.0f;
    for (size_t block = 0; block < 4096 / n; block++) {
        const auto out = process(x);
        y.insert(y.end(), out.begin(), out.end());
        x[0] = 0.0f;
    }
    double energy = 0.0, before = 0.0, near = 0.0;
    for (size_t i = 0; i < y.size(); i++) {
        const double e = double(y[i]) * y[i];
        energy += e;
        before += i < 1280 ? e : 0.0;
        near += i >= 1280 - 40 && i < 1280 + 40 ? e : 0.0;
    }
    EXPECT_NEAR(energy, 1.0, 0.02); // all-pass but for the high-pass
    EXPECT_GT(near, 0.95);
    EXPECT_GT(before, 0.2); // it rings before the main lobe
}

INSTANTIATE_TEST_SUITE_P(BlockLengths, Phase90, ::testing::Values(512, 1024, 2048));

TEST(Phase90Sizes, ArePublishedForThreeBlockLengths) {
    for (uint32_t n : {512u, 1024u, 2048u}) {
        size_t instance = 1, work = 1, history = 1;
        EXPECT_EQ(getRequiredBufferSize_Phase90Hilbert(n, &instance, &work, &history), 0);
        EXPECT_EQ(instance, 104u);
        EXPECT_EQ(work, (n + 1280) * 4);
        EXPECT_EQ(history, 5120u);
    }
    for (uint32_t n : {0u, 1u, 256u, 511u, 4096u, 65536u + 512u, UINT32_MAX}) {
        size_t instance = 1, work = 1, history = 1;
        EXPECT_EQ(getRequiredBufferSize_Phase90Hilbert(n, &instance, &work, &history), 2);
        EXPECT_EQ(instance + work + history, 0u);
    }
}

TEST(Phase90Refusals, AreCodeTwoAndTouchNothing) {
    GuardedBuffer<uint64_t> memory(13);
    GuardedBuffer<float> work(2048 + 1280), history(1280);
    Phase90Hilbert* filter = nullptr;
    size_t size = 1, other = 1;
    EXPECT_EQ(getRequiredBufferSize_Phase90Hilbert(512, nullptr, &size, &other), 2);
    EXPECT_EQ(getRequiredBufferSize_Phase90Hilbert(512, &size, nullptr, &other), 2);
    EXPECT_EQ(getRequiredBufferSize_Phase90Hilbert(512, &size, &other, nullptr), 2);
    EXPECT_EQ(size + other, 0u);
    auto refuses = [&](uint32_t n, void* m, float* w, float* h) {
        filter = reinterpret_cast<Phase90Hilbert*>(memory.data());
        EXPECT_EQ(init_Phase90Hilbert(&filter, n, m, w, h), 2);
        EXPECT_EQ(filter, nullptr);
    };
    EXPECT_EQ(init_Phase90Hilbert(nullptr, 512, memory.data(), work.data(), history.data()), 2);
    refuses(513, memory.data(), work.data(), history.data());
    refuses(512, nullptr, work.data(), history.data());
    refuses(512, memory.data(), nullptr, history.data());
    refuses(512, memory.data(), work.data(), nullptr);
    refuses(512, reinterpret_cast<char*>(memory.data()) + 4, work.data(), history.data());
    EXPECT_EQ(memory.values(), std::vector<uint64_t>(13, 0));
    ASSERT_EQ(init_Phase90Hilbert(&filter, 2048, memory.data(), work.data(), history.data()), 0);
    EXPECT_EQ(process_Phase90Hilbert(filter, nullptr), 2);
    EXPECT_EQ(process_Phase90Hilbert(nullptr, work.data()), 2);
    EXPECT_EQ(reset_Phase90Hilbert(nullptr), 2);
}

} // namespace
