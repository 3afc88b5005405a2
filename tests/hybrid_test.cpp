// The hybrid bank against direct convolution, in every configuration.
#include <korla/dsp/hybrid.h>
#include <korla/dsp/vector.h>

#include <gtest/gtest.h>

#include <limits>

#include "guarded_buffer.h"
#include "reference/hybrid_bank.h"
#include "signals.h"

namespace {

using korla_test::GuardedBuffer;
using korla_test::Random;

size_t outputs(int32_t config) { return (config & 3) == 0 ? 10 : 16; }

// An analysis and a synthesis in memory of exactly the queried sizes at an awkward address.
struct Banks {
    explicit Banks(int32_t config, size_t misalignment = 3)
        : state(343, misalignment), analysis_memory(39, misalignment), synthesis_memory(15, misalignment),
          analysis(KRL_hybrid_analysisCL_open(config, state.data(), nullptr, analysis_memory.data())),
          synthesis(KRL_hybrid_synthesisCL_open(config, nullptr, nullptr, synthesis_memory.data())),
          bands(2 * outputs(config)) {}

    std::vector<float> analyse(const float* in) {
        KRL_CLhybrid_analysisCL(analysis, bands.data(), in);
        return bands.values();
    }
    GuardedBuffer<uint8_t> state, analysis_memory, synthesis_memory;
    krl_hybrid_analysis* analysis;
    krl_hybrid_synthesis* synthesis;
    GuardedBuffer<float> bands;
};

class HybridBank : public testing::TestWithParam<int32_t> {};
INSTANTIATE_TEST_SUITE_P(Configurations, HybridBank, testing::Values(0, 1, 4, 5));

TEST_P(HybridBank, AnalysisIsTheDirectConvolution) {
    Banks banks(GetParam());
    korla_test::HybridBank model(GetParam());
    Random random(2);
    for (int slot = 0; slot < 100; slot++) {
        GuardedBuffer<float> in(random.vector(6), 1);
        const auto bands = banks.analyse(in.data());
        const auto expected = model.analyse(in.data());
        ASSERT_EQ(expected.size(), outputs(GetParam()));
        for (size_t q = 0; q < expected.size(); q++) {
            ASSERT_NEAR(bands[2 * q], expected[q].real(), 4e-7) << "slot " << slot << " output " << q;
            ASSERT_NEAR(bands[2 * q + 1], expected[q].imag(), 4e-7) << "slot " << slot << " output " << q;
        }
    }
}

TEST_P(HybridBank, SynthesisOfTheAnalysisIsADelayOfSixSlots) {
    Banks banks(GetParam());
    ASSERT_EQ(KRL_hybrid_analysisCL_get_delay(banks.analysis), 6u);
    ASSERT_EQ(KRL_hybrid_synthesisCL_get_delay(banks.synthesis), 6u);
    const std::vector<float> in = Random(5).vector(6 * 200);
    GuardedBuffer<float> out(6, 1);
    for (size_t slot = 0; slot < 200; slot++) {
        banks.analyse(in.data() + 6 * slot);
        KRL_hybrid_synthesisCL_init(banks.synthesis);
        KRL_CLhybrid_synthesisCL(banks.synthesis, out.data(), banks.bands.data());
        for (size_t i = 0; i < 6; i++)
            ASSERT_NEAR(out[i], slot < 6 ? 0.0f : in[6 * (slot - 6) + i], 1e-6) << "slot " << slot;
    }
}

// One impulse in each of the outputs in turn: the synthesis adds it to the right QMF band, conjugated where it came in
// so.
TEST_P(HybridBank, SynthesisAddsWhatCameFromEachBand) {
    Banks banks(GetParam());
    const std::vector<float> unit[3] = {{1, 2, 0, 0, 0, 0}, {0, 0, 1, 2, 0, 0}, {0, 0, 0, 0, 1, 2}};
    std::vector<size_t> band_of(outputs(GetParam()), 3);
    for (size_t b = 0; b < 3; b++) {
        korla_test::HybridBank model(GetParam());
        model.analyse(unit[b].data());
        const auto response = model.analyse(unit[b].data()); // the half-band filters have no outermost tap
        for (size_t q = 0; q < response.size(); q++)
            if (std::abs(response[q]) > 0)
                band_of[q] = b;
    }
    for (size_t q = 0; q < outputs(GetParam()); q++) {
        GuardedBuffer<float> in(2 * outputs(GetParam()), 1), out(6, 1);
        in[2 * q] = 0.5f;
        in[2 * q + 1] = 0.25f;
        KRL_CLhybrid_synthesisCL(banks.synthesis, out.data(), in.data());
        std::vector<float> expected(6);
        ASSERT_LT(band_of[q], 3u);
        expected[2 * band_of[q]] = 0.5f;
        expected[2 * band_of[q] + 1] = GetParam() == 5 && (q == 1 || q == 3) ? -0.25f : 0.25f;
        EXPECT_EQ(out.values(), expected) << "input " << q;
    }
}

TEST_P(HybridBank, BuffersMayCoincide) {
    Banks banks(GetParam()), apart(GetParam(), 8);
    Random random(8);
    for (int slot = 0; slot < 20; slot++) {
        const std::vector<float> in = random.vector(6);
        GuardedBuffer<float> shared(2 * outputs(GetParam())), out(6);
        std::memcpy(shared.data(), in.data(), 6 * sizeof(float));
        const auto bands = apart.analyse(in.data());
        KRL_CLhybrid_synthesisCL(apart.synthesis, out.data(), bands.data());
        KRL_CLhybrid_analysisCL(banks.analysis, shared.data(), shared.data());
        EXPECT_BITS_EQ(shared.data(), bands, bands.size());
        KRL_CLhybrid_synthesisCL(banks.synthesis, shared.data(), shared.data());
        EXPECT_BITS_EQ(shared.data(), out.data(), 6u);
    }
}

TEST_P(HybridBank, InitClearsAndNullChangesNothing) {
    Banks banks(GetParam());
    Random random(3);
    for (int slot = 0; slot < 13; slot++)
        banks.analyse(random.vector(6).data());
    KRL_CLhybrid_analysisCL(nullptr, banks.bands.data(), banks.bands.data());
    KRL_CLhybrid_analysisCL(banks.analysis, nullptr, banks.bands.data());
    KRL_CLhybrid_analysisCL(banks.analysis, banks.bands.data(), nullptr);
    KRL_CLhybrid_synthesisCL(nullptr, banks.bands.data(), banks.bands.data());
    KRL_CLhybrid_synthesisCL(banks.synthesis, nullptr, banks.bands.data());
    KRL_CLhybrid_synthesisCL(banks.synthesis, banks.bands.data(), nullptr);
    KRL_hybrid_analysisCL_init(nullptr);
    KRL_hybrid_analysisCL_shl(nullptr, 1);
    KRL_hybrid_analysisCL_close(banks.analysis);
    KRL_hybrid_synthesisCL_close(banks.synthesis);
    const std::vector<float> silence(6);
    EXPECT_NE(banks.analyse(silence.data()), std::vector<float>(banks.bands.size()));
    KRL_hybrid_analysisCL_init(banks.analysis);
    EXPECT_EQ(banks.analyse(silence.data()), std::vector<float>(banks.bands.size()));
}

TEST(HybridBank, ScaleIsTheHeadroomOfTheState) {
    Banks banks(1);
    EXPECT_EQ(KRL_hybrid_analysisCL_get_scale(banks.analysis), 60u); // silence
    const float in[6] = {0.01f, 0.0f, 0.0f, -0.2f, 0.0f, 0.3f};
    banks.analyse(in);
    EXPECT_EQ(KRL_hybrid_analysisCL_get_scale(banks.analysis), krl_vec_UnormLU_flex(in, 6));
    Banks doubled(1), same(1);
    doubled.analyse(in);
    same.analyse(in);
    KRL_hybrid_analysisCL_shl(doubled.analysis, 3);
    KRL_hybrid_analysisCL_shl(same.analysis, 0);
    const std::vector<float> silence(6);
    for (int slot = 0; slot < 14; slot++) {
        const auto bands = banks.analyse(silence.data()), times8 = doubled.analyse(silence.data());
        EXPECT_BITS_EQ(same.analyse(silence.data()), bands, bands.size());
        for (size_t i = 0; i < bands.size(); i++)
            ASSERT_EQ(times8[i], 8 * bands[i]);
    }
}

// The 4-way split gives two samples no weight: what they are does not matter, even if it is not a number.
TEST(HybridBank, NaNCountsOnlyWhereItHasWeightAndLeavesAfterThirteenSlots) {
    Banks banks(1);
    const std::vector<float> silence(6);
    const float nan = std::numeric_limits<float>::quiet_NaN();
    const float in[6] = {0, 0, nan, nan, 0, 0};
    for (int slot = 0; slot < 14; slot++) {
        const auto bands = banks.analyse(slot == 0 ? in : silence.data());
        const bool in_band1 = slot < 13 && slot != 2 && slot != 10;
        for (size_t q = 0; q < 16; q++)
            ASSERT_EQ(std::isnan(bands[2 * q]), in_band1 && q >= 8 && q < 12) << "slot " << slot << " output " << q;
    }
}

TEST(HybridBank, MemorySizesAndRefusedConfigurations) {
    uint32_t state = 1, scratch = 1, instance = 1;
    EXPECT_EQ(KRL_hybrid_analysisCL_query_mem(1, &state, &scratch, &instance), 39u);
    EXPECT_EQ(state, 343u);
    EXPECT_EQ(scratch, 0u);
    EXPECT_EQ(instance, 39u);
    EXPECT_EQ(KRL_hybrid_synthesisCL_query_mem(1, &state, &scratch, &instance), 15u);
    EXPECT_EQ(state, 0u);
    EXPECT_EQ(scratch, 0u);
    EXPECT_EQ(instance, 15u);
    EXPECT_EQ(KRL_hybrid_analysisCL_query_mem(0, nullptr, nullptr, nullptr), 39u);
    EXPECT_EQ(KRL_hybrid_synthesisCL_query_mem(0, nullptr, nullptr, nullptr), 15u);

    GuardedBuffer<uint8_t> a(343), b(39);
    for (int32_t config : {2, 3, 6, 7, -1}) {
        EXPECT_EQ(KRL_hybrid_analysisCL_open(config, a.data(), nullptr, b.data()), nullptr);
        EXPECT_EQ(KRL_hybrid_synthesisCL_open(config, nullptr, nullptr, b.data()), nullptr);
    }
    EXPECT_EQ(KRL_hybrid_analysisCL_open(1, nullptr, nullptr, b.data()), nullptr);
    EXPECT_EQ(KRL_hybrid_analysisCL_open(1, a.data(), nullptr, nullptr), nullptr);
    EXPECT_EQ(KRL_hybrid_synthesisCL_open(1, nullptr, nullptr, nullptr), nullptr);
    EXPECT_EQ(b.values(), std::vector<uint8_t>(39));
    for (size_t misalignment = 0; misalignment < 32; misalignment++)
        for (int32_t config : {0, 1, 4, 5}) { // the canaries watch
            Banks banks(config, misalignment);
            ASSERT_TRUE(banks.analysis && banks.synthesis);
            banks.analyse(std::vector<float>(6, 1.0f).data());
        }
}

TEST(HybridBank, PrototypesAreSymmetricUpToTheirSigns) {
    for (int n = 0; n < 7; n++) {
        EXPECT_EQ(std::abs(krl_hyb_p8_13[n]), std::abs(krl_hyb_p8_13[12 - n]));
        EXPECT_EQ(std::abs(krl_hyb_p4_13[n]), std::abs(krl_hyb_p4_13[12 - n]));
    }
    for (int i = 0; i < 3; i++)
        EXPECT_EQ(krl_hyb_p2_6[i], krl_hyb_p2_6[5 - i]);
    EXPECT_EQ(8 * krl_hyb_p8_13[6], 1.0f);
    EXPECT_EQ(4 * krl_hyb_p4_13[6], 1.0f);
}

} // namespace
