// The hybrid bank against direct convolution, in every configuration.
#include <korla/dsp/hybrid.h>
#include <korla/dsp/vector.h>

#include <gtest/gtest.h>

#include <algorithm>

#include "guarded_buffer.h"
#include "reference/hybrid_bank.h"
#include "rows.h"

namespace {

using korla_test::expect_rows;
using korla_test::GuardedBuffer;
using korla_test::Random;
const std::vector<float> silence(6);

// An analysis and a synthesis in memory of exactly the queried sizes at an awkward address.
struct Banks {
    const int32_t config;
    const size_t shift = 3;
    GuardedBuffer<uint8_t> state{343, shift}, analysis_memory{39, shift}, synthesis_memory{15, shift};
    GuardedBuffer<float> bands{config & 1 ? 32u : 20u};
    krl_hybrid_analysis* analysis = KRL_hybrid_analysisCL_open(config, state.data(), nullptr, analysis_memory.data());
    krl_hybrid_synthesis* synthesis = KRL_hybrid_synthesisCL_open(config, nullptr, nullptr, synthesis_memory.data());
    std::vector<float> analyse(const float* in) {
        KRL_CLhybrid_analysisCL(analysis, bands.data(), in);
        return bands.values();
    }
};

class HybridBank : public testing::TestWithParam<int32_t> {};
INSTANTIATE_TEST_SUITE_P(Configurations, HybridBank, testing::Values(0, 1, 4, 5));

TEST_P(HybridBank, IsTheDirectConvolutionAndReconstructsAfterSixSlots) {
    std::vector<float> in(36), noise = Random(5).vector(600); // six silent slots before the first
    in.insert(in.end(), noise.begin(), noise.end());
    for (bool in_place : {false, true}) {
        Banks banks{GetParam(), in_place ? 8u : 3u};
        korla_test::HybridBank model{GetParam()};
        const size_t floats = banks.bands.size();
        std::vector<float> analysed, restored;
        std::vector<double> expected;
        for (size_t slot = 6; slot < 106; slot++) {
            GuardedBuffer<float> shared(floats, 2), out(6, 1);
            float *bands = in_place ? shared.data() : banks.bands.data(), *back = in_place ? bands : out.data();
            std::copy_n(&in[6 * slot], 6, shared.data());
            for (const auto& band : model.analyse(shared.data()))
                expected.insert(expected.end(), {band.real(), band.imag()});
            KRL_CLhybrid_analysisCL(banks.analysis, bands, shared.data());
            analysed.insert(analysed.end(), bands, bands + floats);
            KRL_CLhybrid_synthesisCL(banks.synthesis, back, bands);
            restored.insert(restored.end(), back, back + 6);
        }
        const std::string how = ", configuration " + std::to_string(GetParam()) + (in_place ? ", in place" : "");
        expect_rows("hybrid analysis" + how, floats / 2, 2, analysed, expected, 5e-7);
        expect_rows("hybrid analysis and synthesis" + how, 3, 2, restored, std::vector(&in[0], &in[600]), 1e-6);
        EXPECT_EQ(KRL_hybrid_analysisCL_get_delay(banks.analysis), 6u);
        EXPECT_EQ(KRL_hybrid_synthesisCL_get_delay(banks.synthesis), 6u);
    }
}

TEST_P(HybridBank, StateIsMeasuredShiftedAndClearedAndKeptByRefusedCalls) {
    Banks banks{GetParam()}, shifted{GetParam()};
    EXPECT_EQ(KRL_hybrid_analysisCL_get_scale(banks.analysis), 60u); // silence
    const float in[6] = {0.01f, 0.0f, 0.0f, -0.2f, 0.0f, 0.3f};
    const auto before = banks.analyse(in);
    shifted.analyse(in);
    EXPECT_EQ(KRL_hybrid_analysisCL_get_scale(banks.analysis), krl_vec_UnormLU_flex(in, 6));
    for (int null : {0, 1, 2}) {
        float* out = null == 1 ? nullptr : banks.bands.data();
        KRL_CLhybrid_analysisCL(null == 0 ? nullptr : banks.analysis, out, null == 2 ? nullptr : in);
        KRL_CLhybrid_synthesisCL(null == 0 ? nullptr : banks.synthesis, out, null == 2 ? nullptr : in);
    }
    KRL_hybrid_analysisCL_init(nullptr);
    KRL_hybrid_analysisCL_shl(nullptr, 1);
    EXPECT_EQ(banks.bands.values(), before);
    KRL_hybrid_analysisCL_shl(shifted.analysis, 3);
    for (int slot = 0; slot < 14; slot++) {
        const auto bands = banks.analyse(silence.data()), times8 = shifted.analyse(silence.data());
        for (size_t i = 0; i < bands.size(); i++)
            ASSERT_EQ(times8[i], 8 * bands[i]);
    }
    banks.analyse(in);
    KRL_hybrid_analysisCL_init(banks.analysis);
    EXPECT_EQ(banks.state.values(), std::vector<uint8_t>(343));
}

// The 4-way split gives two samples no weight: what they are does not matter, even if it is not a number.
TEST(HybridBank, NaNCountsOnlyWhereItHasWeightAndLeavesAfterThirteenSlots) {
    Banks banks{1};
    const float in[6] = {0, 0, NAN, NAN, 0, 0};
    for (int slot = 0; slot < 14; slot++) {
        const auto bands = banks.analyse(slot == 0 ? in : silence.data());
        const bool in_band1 = slot < 13 && slot != 2 && slot != 10;
        for (size_t q = 0; q < 16; q++)
            ASSERT_EQ(std::isnan(bands[2 * q]), in_band1 && q >= 8 && q < 12) << "slot " << slot << " output " << q;
    }
}

TEST(HybridBank, MemorySizesAndRefusedConfigurations) {
    uint32_t sizes[] = {1, 1, 1, 1, 1, 1};
    EXPECT_EQ(KRL_hybrid_analysisCL_query_mem(1, &sizes[0], &sizes[1], &sizes[2]), 39u);
    EXPECT_EQ(KRL_hybrid_synthesisCL_query_mem(1, &sizes[3], &sizes[4], &sizes[5]), 15u);
    EXPECT_EQ(std::vector(sizes, sizes + 6), (std::vector<uint32_t>{343, 0, 39, 0, 0, 15}));
    EXPECT_EQ(KRL_hybrid_analysisCL_query_mem(0, nullptr, nullptr, nullptr), 39u);
    std::vector<uint8_t> state(343), instance(39);
    for (int32_t config : {2, 3, 6, 7, -1, 1}) {
        void* memory = config == 1 ? nullptr : instance.data();
        EXPECT_EQ(KRL_hybrid_analysisCL_open(config, state.data(), nullptr, memory), nullptr);
        EXPECT_EQ(KRL_hybrid_synthesisCL_open(config, nullptr, nullptr, memory), nullptr);
    }
    EXPECT_EQ(KRL_hybrid_analysisCL_open(1, nullptr, nullptr, instance.data()), nullptr);
    EXPECT_EQ(instance, std::vector<uint8_t>(39));
}

} // namespace
