// The modulated filter bank against its definition, and what a chain of analysis and synthesis promises.
#include <korla/dsp/mfb.h>
#include <korla/dsp/qmf_tables.h>

#include <gtest/gtest.h>

#include <complex>
#include <tuple>

#include "guarded_buffer.h"
#include "reference/modulated_bank.h"
#include "rows.h"

namespace {

using korla_test::expect_rows, korla_test::relative_error;
using korla_test::GuardedBuffer;
using Signal = std::vector<float>; // channel after channel, slot after slot
struct Tables {
    const float *prototype, *twiddle;
};
constexpr Tables design{KRL_MFB_P10KM_P64KVX301, KRL_MFB_TWID64E};
Signal noise(size_t n, uint64_t seed = 3) { return korla_test::Random(seed).vector(n); }

// One direction of the bank in memory of exactly the queried size at an awkward address.
template <auto query_mem, auto query_scratch, auto init, size_t in_per_band, size_t out_per_band> struct Bank {
    static constexpr size_t in_floats = in_per_band, out_floats = out_per_band; // per band and slot
    uint32_t m, channels;
    Tables tables;
    GuardedBuffer<uint8_t> memory, scratch;
    decltype(init(0, 0, 0, nullptr)) bank;

    Bank(uint32_t bands, uint32_t signals, Tables of = design, size_t misalignment = 5)
        : m(bands), channels(signals), tables(of), memory(query_mem(channels, 99, m), misalignment),
          scratch(query_scratch(99, 99, m), misalignment), bank(init(channels, 99, m, memory.data())) {}

    // In calls of so many slots, then one more each time, up to 5 and round again.
    template <class Function> Signal process(Function function, const Signal& in, size_t count = 1) {
        const size_t slots = in.size() / (channels * m * in_floats);
        GuardedBuffer<float> out(channels * slots * m * out_floats, 1);
        std::vector<const float*> from(slots * channels);
        std::vector<float*> to(slots * channels);
        std::vector<const float* const*> from_slots;
        std::vector<float* const*> to_slots;
        for (size_t i = 0; i < slots * channels; i++) {
            const size_t place = (i % channels * slots + i / channels) * m;
            from[i] = &in[place * in_floats], to[i] = &out[place * out_floats];
            if (i % channels == 0)
                from_slots.push_back(&from[i]), to_slots.push_back(&to[i]);
        }
        for (size_t slot = 0; slot < slots; slot += count, count = std::min(count % 5 + 1, slots - slot))
            function(bank, tables.prototype, tables.twiddle, scratch.data(), channels, uint32_t(count), m,
                     &to_slots[slot], &from_slots[slot]);
        return out.values();
    }
};
using Analysis = Bank<KRL_mfb_p10km_analysisL_query_mem, KRL_mfb_p10km_analysisL_query_scratch,
                      KRL_CLmfb_p10km_analysisL_init, 1, 2>;
using Synthesis = Bank<KRL_mfb_p10km_synthesisCL_query_mem, KRL_mfb_p10km_synthesisCL_query_scratch,
                       KRL_Lmfb_p10km_synthesisCL_init, 2, 1>;

size_t real_part(size_t k) { return k / 4 * 8 + k % 4; } // in the layout of twiddles; the imaginary part 4 further on
// e^(-i pi (2k + offset) / (4m)), k = 0..m-1
Signal twiddle_formula(size_t m, int offset) {
    Signal table(2 * m);
    for (size_t k = 0; k < m; k++) {
        const double angle = std::numbers::pi * (2 * static_cast<double>(k) + offset) / (4 * static_cast<double>(m));
        table[real_part(k)] = static_cast<float>(std::cos(angle));
        table[real_part(k) + 4] = static_cast<float>(-std::sin(angle));
    }
    return table;
}

const Signal extra_twiddle = noise(128);
void legacy_twiddle(krl_mfb_analysis* bank, const float* prototype, const float* twiddle, void* scratch,
                    uint32_t channels, uint32_t slots, uint32_t m, float* const* const* out,
                    const float* const* const* in) {
    KRL_CLmfb_p10km_analysisL_legacy_twiddle(bank, prototype, twiddle, scratch, extra_twiddle.data(), channels, slots,
                                             m, out, in);
}

// A synthesis with its analysis: which phases, whether the bands are handed over conjugated, the delay of the chain.
struct Form {
    const char* name;
    decltype(&KRL_CLmfb_p10km_analysisL) analysis;
    decltype(&KRL_Lmfb_p10km_synthesisCL_symmetric) synthesis;
    bool legacy;
    float sign; // of the imaginary parts
    size_t delay_blocks, delay_samples;
    size_t delay(size_t m) const { return delay_blocks * m + delay_samples; }
    std::string what(const char* direction, size_t m, size_t channel = 0) const {
        return "modulated bank " + std::string(direction) + ", " + name + ", " + std::to_string(m) +
               " bands, channel " + std::to_string(channel);
    }
};
const Form forms[] = {
    {"symmetric", KRL_CLmfb_p10km_analysisL, KRL_Lmfb_p10km_synthesisCL_symmetric, false, 1, 9, 0},
    {"legacy", KRL_CLmfb_p10km_analysisL_legacy, KRL_Lmfb_p10km_synthesisCL_legacy, true, 1, 9, 0},
    {"extra latency", KRL_CLmfb_p10km_analysisL_legacy, KRL_Lmfb_p10km_synthesisCL_legacy_extra_latency, true, 1, 9, 1},
    {"even_0", KRL_CLmfb_p10km_analysisL, KRL_Lmfb_p10km_synthesisCL_even_0, false, 1, 4, 0},
    {"even_1", KRL_CLmfb_p10km_analysisL_legacy, KRL_Lmfb_p10km_synthesisCL_even_1, true, 1, 4, 0},
    {"even_2", KRL_CLmfb_p10km_analysisL, KRL_Lmfb_p10km_synthesisCL_even_2, false, -1, 4, 0},
    {"even_3", KRL_CLmfb_p10km_analysisL_legacy, KRL_Lmfb_p10km_synthesisCL_even_3, true, -1, 4, 0},
    {"legacy twiddle", legacy_twiddle, KRL_Lmfb_p10km_synthesisCL_legacy, true, 1, 9, 0}};

// With prototypes that no symmetry can hide behind.
TEST(ModulatedBank, HoldsItsDefinitionForAnyPrototypeChannelsAndCutIntoCalls) {
    const size_t slots = 23; // twice round the ring and more
    for (const Form& form : forms)
        for (const auto& [m, offset] : {std::pair{8u, 0}, {8u, 1}, {40u, 0}, {40u, 1}, {64u, 0}, {64u, 1}}) {
            if (offset == 1 && form.delay_samples == 1) // the extra latency is tied to the twiddle without offset
                continue;
            const Signal prototype = noise(10 * m, m), twiddle = twiddle_formula(m, offset);
            const Tables tables{prototype.data(), twiddle.data()};
            std::vector<double> c(10 * m); // in time order
            for (size_t n = 0; n < 10 * m; n++)
                c[n] = prototype[n % m / 4 * 40 + n / m * 4 + n % 4];
            auto model = korla_test::mfb_model(m, c, form.legacy, offset, form.delay(m));
            const Signal time = noise(2 * slots * m), bands = noise(4 * slots * m);
            const Signal analysed = Analysis(m, 2, tables).process(form.analysis, time);
            const Signal synthesised = Synthesis(m, 2, tables).process(form.synthesis, bands);
            for (size_t channel : {0, 1}) {
                const auto part = [&](const Signal& all) { // of a channel
                    return Signal(&all[channel * all.size() / 2], &all[channel * all.size() / 2] + all.size() / 2);
                };
                const Signal Y = Analysis(m, 1, tables, 17 * channel).process(form.analysis, part(time), slots);
                const Signal y = Synthesis(m, 1, tables, 17 * channel).process(form.synthesis, part(bands), slots);
                const auto expected_time = model.synthesise(part(bands), form.sign);
                auto expected_bands = model.analyse(part(time));
                for (size_t i = 0; form.analysis == legacy_twiddle && i < expected_bands.size(); i += 2) {
                    const size_t re = real_part(i / 2 % m);
                    const auto turned = std::complex(expected_bands[i], expected_bands[i + 1]) *
                                        std::complex<double>(extra_twiddle[re], extra_twiddle[re + 4]);
                    expected_bands[i] = turned.real(), expected_bands[i + 1] = turned.imag();
                }
                expect_rows(form.what("analysis", m, channel), m, 2, Y, expected_bands, 5e-7);
                // The transform of 20 points behind 40 bands has twiddles of six decimals.
                expect_rows(form.what("synthesis", m, channel), m, 1, y, expected_time,
                            (m == 40 ? 2e-6 : 1e-6) * std::sqrt(10.0 * m));
                expect_rows(form.what("analysis of two channels", m, channel), m, 2, part(analysed), Y);
                expect_rows(form.what("synthesis of two channels", m, channel), m, 1, part(synthesised), y);
            }
        }
}

TEST(ModulatedBank, ChainForgetsNaNAndReconstructsWithUnitGainAtItsDelay) {
    using Case = std::tuple<const float*, const float*, uint32_t, size_t, size_t>;
    for (const auto& [prototype, twiddle, m, first_form, last_form] :
         {Case{KRL_MFB_P10KM_P64KVX301, KRL_MFB_TWID64E, 64, 0, 1},
          {KRL_MFB_P10KM_P64KVX301_LEGACY, KRL_MFB_TWID64O, 64, 1, 2},
          {KRL_MFB_P10KM_P4_319SC, KRL_MFB_TWID64E, 64, 3, 6},
          {KRL_MFB_P10KM_P4_319SC, KRL_MFB_TWID64O, 64, 3, 6},
          {KRL_MFB_P10KM_P4_319SC_128M, KRL_MFB_TWID128E, 128, 3, 6},
          {KRL_MFB_P10KM_P4_319SC_256M, KRL_MFB_TWID256E, 256, 3, 6}}) {
        EXPECT_LT(relative_error(twiddle, twiddle_formula(m, twiddle != KRL_MFB_TWID64O), 2 * m), 1e-7) << m;
        for (size_t f = first_form; f <= last_form; f++)
            for (Signal expected : korla_test::stimuli(200 * m)) {
                expected[3] = NAN; // for ten slots in each direction
                Signal bands = Analysis(m, 1, {prototype, twiddle}).process(forms[f].analysis, expected);
                for (size_t i = 1; i < bands.size(); i += 2)
                    bands[i] *= forms[f].sign;
                const Signal out = Synthesis(m, 1, {prototype, twiddle}).process(forms[f].synthesis, bands, 4);
                EXPECT_TRUE(std::isnan(out[4 * m]));
                expected.insert(expected.begin(), forms[f].delay(m), 0.0f);
                EXPECT_LT(relative_error(&out[19 * m], &expected[19 * m], 181 * m), 5e-7) << forms[f].what("chain", m);
            }
    }
}

TEST(ModulatedBank, LegacyAnalysisIsTheComplexQmfAnalysisOfTheSamePrototype) {
    const Signal x = noise(60 * 64);
    Analysis legacy(64, 1, {KRL_MFB_P10KM_P64KVX301_LEGACY, KRL_MFB_TWID64O});
    const auto qmf = korla_test::qmf_model(64, 5, krl_qmf_filter_coeff_P5_p64kvx301_vec_ana, 0, false).analyse(x);
    expect_rows("legacy analysis as QMF analysis", 64, 2, legacy.process(KRL_CLmfb_p10km_analysisL_legacy, x), qmf,
                5e-7);
}

TEST(ModulatedBank, ResetClearsOneChannelAtAnyRingPhase) {
    for (size_t slots : {1u, 9u, 14u}) {
        Analysis analysis(64, 2), alone(64, 1);
        const Signal before = noise(slots * 128), silence(12 * 128), zeros(2 * 12 * 64);
        analysis.process(forms[0].analysis, before);
        alone.process(forms[0].analysis, Signal(&before[0], &before[slots * 64]));
        KRL_mfb_p10km_analysisL_reset_channel(analysis.bank, 64, 1);
        KRL_mfb_p10km_analysisL_reset_channel(analysis.bank, 64, 2);  // no such channel
        KRL_mfb_p10km_analysisL_reset_channel(analysis.bank, 128, 0); // not its size
        KRL_mfb_p10km_analysisL_reset_channel(nullptr, 64, 0);
        Signal expected = alone.process(forms[0].analysis, Signal(12 * 64));
        EXPECT_NE(expected, zeros);
        expected.insert(expected.end(), zeros.begin(), zeros.end());
        EXPECT_EQ(analysis.process(forms[0].analysis, silence), expected);
    }
}

TEST(ModulatedBank, MemorySizesAndRefusedSizes) {
    EXPECT_EQ(KRL_mfb_p10km_analysisL_query_mem(2, 99, 64), 4772u);
    EXPECT_EQ(KRL_mfb_p10km_synthesisCL_query_mem(2, 99, 64), 4764u);
    EXPECT_EQ(KRL_mfb_p10km_synthesisCL_query_mem(UINT32_MAX, 0, UINT32_MAX), SIZE_MAX);
    std::vector<uint8_t> memory(1 << 16);
    for (uint32_t m : {0u, 1u, 4u, 12u, 20u, 56u, 60u, 65u, 8192u, 0x80000000u, UINT32_MAX, 64u}) {
        void* place = m == 64 ? nullptr : memory.data();
        EXPECT_EQ(KRL_CLmfb_p10km_analysisL_init(1, 0, m, place), nullptr) << m;
        EXPECT_EQ(KRL_Lmfb_p10km_synthesisCL_init(1, 0, m, place), nullptr) << m;
    }
    EXPECT_EQ(memory, std::vector<uint8_t>(memory.size()));
}

// Every way to spoil a call, on a bank with history: it writes nothing and the next good call goes on as if it had not
// been.
template <class BankType, class Function> void expect_bad_calls_change_nothing(Function function) {
    const Signal in = noise(2 * 12 * 64 * BankType::in_floats);
    BankType bank(64, 2), untouched(64, 2);
    EXPECT_EQ(bank.process(function, in), untouched.process(function, in));
    GuardedBuffer<float> target(64 * 2), work(64 * 4 + 8);
    const auto call = [&](int null, uint32_t channels = 2, uint32_t slots = 2, uint32_t m = 64) {
        float *t = target.data(), *to[] = {t, t, t}, *to_last[] = {t, null == 1 ? nullptr : t, t};
        const float *f = in.data(), *from[] = {f, f, f}, *from_last[] = {f, null == 2 ? nullptr : f, f};
        float* const* out[] = {to, null == 3 ? nullptr : to_last};
        const float* const* source[] = {from, null == 4 ? nullptr : from_last};
        function(null == 5 ? nullptr : bank.bank, null == 6 ? nullptr : design.prototype,
                 null == 7 ? nullptr : design.twiddle, null == 8 ? nullptr : work.data(), channels, slots, m,
                 null == 9 ? nullptr : out, null == 10 ? nullptr : source);
        if constexpr (std::is_same_v<BankType, Analysis>)
            KRL_CLmfb_p10km_analysisL_legacy_twiddle(bank.bank, design.prototype, design.twiddle, work.data(), nullptr,
                                                     2, 1, 64, out, source);
    };
    for (int null = 1; null <= 10; null++)
        call(null);
    call(0, 3);         // more channels than it has
    call(0, 2, 2, 128); // another size
    call(0, 0);         // nothing to do
    call(0, 2, 0);
    EXPECT_EQ(target.values(), Signal(target.size()));
    EXPECT_EQ(work.values(), Signal(work.size()));
    EXPECT_EQ(bank.process(function, in), untouched.process(function, in));
}
TEST(ModulatedBank, BadCallsChangeNothing) {
    for (const Form& form : forms) {
        SCOPED_TRACE(form.what("refusal", 64));
        expect_bad_calls_change_nothing<Analysis>(form.analysis);
        expect_bad_calls_change_nothing<Synthesis>(form.synthesis);
    }
}

} // namespace
