// The modulated filter bank against its definition, and what a chain of analysis and synthesis promises.
#include <korla/dsp/mfb.h>
#include <korla/dsp/qmf.h>

#include <gtest/gtest.h>

#include <complex>
#include <limits>

#include "guarded_buffer.h"
#include "reference/modulated_bank.h"
#include "signals.h"

namespace {

using korla_test::GuardedBuffer;
using korla_test::Random;
using Signal = std::vector<float>; // one channel, slot after slot
using Channels = std::vector<Signal>;
using AnalysisFunction = decltype(&KRL_CLmfb_p10km_analysisL);
using SynthesisFunction = decltype(&KRL_Lmfb_p10km_synthesisCL_symmetric);

struct Tables {
    const float* prototype;
    const float* twiddle;
};

// One direction of the bank in memory of exactly the queried size at an awkward address. process() cuts the signals
// into calls of `slots_per_call` slots.
template <class Instance, class Function>
class Bank {
public:
    static constexpr bool is_analysis = std::is_same_v<Instance, krl_mfb_analysis>;
    static constexpr size_t in_floats = is_analysis ? 1 : 2, out_floats = is_analysis ? 2 : 1; // per band and slot

    Bank(uint32_t m, size_t channels, Tables tables, size_t misalignment = 5)
        : m_(m), tables_(tables), memory_(query(m, channels), misalignment),
          scratch_(is_analysis ? KRL_mfb_p10km_analysisL_query_scratch(0, 0, m)
                               : KRL_mfb_p10km_synthesisCL_query_scratch(0, 0, m),
                   misalignment) {
        if constexpr (is_analysis)
            instance = KRL_CLmfb_p10km_analysisL_init(static_cast<uint32_t>(channels), 0, m, memory_.data());
        else
            instance = KRL_Lmfb_p10km_synthesisCL_init(static_cast<uint32_t>(channels), 0, m, memory_.data());
    }

    Channels process(Function function, const Channels& in, const std::vector<size_t>& slots_per_call = {1}) {
        const size_t slots = in[0].size() / (m_ * in_floats);
        std::vector<std::unique_ptr<GuardedBuffer<float>>> out;
        for (size_t c = 0; c < in.size(); c++)
            out.push_back(std::make_unique<GuardedBuffer<float>>(slots * m_ * out_floats, c + 1));
        for (size_t slot = 0, call = 0; slot < slots; call++) {
            const size_t count = std::min(slots_per_call[call % slots_per_call.size()], slots - slot);
            std::vector<std::vector<float*>> to(count);
            std::vector<std::vector<const float*>> from(count);
            std::vector<float* const*> to_slots;
            std::vector<const float* const*> from_slots;
            for (size_t s = 0; s < count; s++) {
                for (size_t c = 0; c < in.size(); c++) {
                    to[s].push_back(out[c]->data() + (slot + s) * m_ * out_floats);
                    from[s].push_back(in[c].data() + (slot + s) * m_ * in_floats);
                }
                to_slots.push_back(to[s].data());
                from_slots.push_back(from[s].data());
            }
            function(instance, tables_.prototype, tables_.twiddle, scratch_.data(), static_cast<uint32_t>(in.size()),
                     static_cast<uint32_t>(count), m_, to_slots.data(), from_slots.data());
            slot += count;
        }
        Channels result;
        for (const auto& channel : out)
            result.push_back(channel->values());
        return result;
    }

    Instance* instance;

private:
    static size_t query(uint32_t m, size_t channels) {
        const auto count = static_cast<uint32_t>(channels);
        return is_analysis ? KRL_mfb_p10km_analysisL_query_mem(count, 0, m)
                           : KRL_mfb_p10km_synthesisCL_query_mem(count, 0, m);
    }
    uint32_t m_;
    Tables tables_;
    GuardedBuffer<uint8_t> memory_, scratch_;
};
using Analysis = Bank<krl_mfb_analysis, AnalysisFunction>;
using Synthesis = Bank<krl_mfb_synthesis, SynthesisFunction>;

// A synthesis with its analysis: which phases, whether the bands are handed over conjugated, the delay of the chain.
struct Form {
    const char* name;
    AnalysisFunction analysis;
    SynthesisFunction synthesis;
    bool legacy, conjugated;
    uint32_t delay_blocks, delay_samples;
    size_t delay(size_t m) const { return delay_blocks * m + delay_samples; }
};
constexpr Form symmetric{
    "symmetric", KRL_CLmfb_p10km_analysisL, KRL_Lmfb_p10km_synthesisCL_symmetric, false, false, 9, 0};
constexpr Form legacy{"legacy", KRL_CLmfb_p10km_analysisL_legacy, KRL_Lmfb_p10km_synthesisCL_legacy, true, false, 9, 0};
constexpr Form legacy_extra_latency{"legacy_extra_latency",
                                    KRL_CLmfb_p10km_analysisL_legacy,
                                    KRL_Lmfb_p10km_synthesisCL_legacy_extra_latency,
                                    true,
                                    false,
                                    9,
                                    1};
constexpr Form even_0{"even_0", KRL_CLmfb_p10km_analysisL, KRL_Lmfb_p10km_synthesisCL_even_0, false, false, 4, 0};
constexpr Form even_1{"even_1", KRL_CLmfb_p10km_analysisL_legacy, KRL_Lmfb_p10km_synthesisCL_even_1, true, false, 4, 0};
constexpr Form even_2{"even_2", KRL_CLmfb_p10km_analysisL, KRL_Lmfb_p10km_synthesisCL_even_2, false, true, 4, 0};
constexpr Form even_3{"even_3", KRL_CLmfb_p10km_analysisL_legacy, KRL_Lmfb_p10km_synthesisCL_even_3, true, true, 4, 0};
constexpr Form forms[] = {symmetric, legacy, legacy_extra_latency, even_0, even_1, even_2, even_3};

std::vector<float> grouped_prototype(const std::vector<double>& c) {
    const size_t m = c.size() / 10;
    std::vector<float> table(c.size());
    for (size_t n = 0; n < c.size(); n++)
        table[n % m / 4 * 40 + n / m * 4 + n % 4] = static_cast<float>(c[n]);
    return table;
}
std::vector<float> grouped_twiddle(size_t m, int offset) {
    std::vector<float> table(2 * m);
    for (size_t k = 0; k < m; k++) {
        const double angle = std::numbers::pi * static_cast<double>(2 * k + offset) / static_cast<double>(4 * m);
        table[k / 4 * 8 + k % 4] = static_cast<float>(std::cos(angle));
        table[k / 4 * 8 + 4 + k % 4] = static_cast<float>(-std::sin(angle));
    }
    return table;
}
void conjugate(Channels& bands) {
    for (Signal& channel : bands)
        for (size_t i = 1; i < channel.size(); i += 2)
            channel[i] = -channel[i];
}

struct Error {
    double square = 0, reference_square = 0, peak = 0, reference_peak = 0;
    void add(double value, double reference) {
        const double e = value - reference;
        square += e * e;
        reference_square += reference * reference;
        peak = std::max(peak, std::abs(e));
        reference_peak = std::max(reference_peak, std::abs(reference));
        finite = finite && std::isfinite(value);
    }
    double rms() const { return finite ? std::sqrt(square / reference_square) : INFINITY; }
    double relative_peak() const { return finite ? peak / reference_peak : INFINITY; }
    bool finite = true;
};

// ---- both directions against the definition, with prototypes that no symmetry can hide behind -----------------------

struct DefinitionCase {
    Form form;
    uint32_t m;
    int offset;
};
class Definition : public testing::TestWithParam<DefinitionCase> {};
std::vector<DefinitionCase> definition_cases() {
    std::vector<DefinitionCase> cases;
    for (const Form& form : forms)
        for (uint32_t m : {8u, 40u, 64u})
            for (int offset : {0, 1})
                if (offset == 0 || form.delay_samples == 0) // the extra latency is tied to the twiddle without offset
                    cases.push_back({form, m, offset});
    cases.push_back({symmetric, 256, 1});
    return cases;
}
std::string case_name(const DefinitionCase& c) {
    return std::string(c.form.name) + "_" + std::to_string(c.m) + (c.offset ? "E" : "O");
}

TEST_P(Definition, HoldsForAnyPrototype) {
    const auto [form, m, offset] = GetParam();
    Random random(m + 17);
    const std::vector<float> taps = random.vector(10 * m);
    const std::vector<double> c(taps.begin(), taps.end());
    const std::vector<float> prototype = grouped_prototype(c), twiddle = grouped_twiddle(m, offset);
    const size_t slots = 23; // twice round the ring and more

    const Channels time{random.vector(slots * m), random.vector(slots * m)};
    const Channels bands{random.vector(2 * slots * m), random.vector(2 * slots * m)};
    Analysis analysis(m, 2, {prototype.data(), twiddle.data()});
    Synthesis synthesis(m, 2, {prototype.data(), twiddle.data()});
    const Channels analysed = analysis.process(form.analysis, time, {3, 1, 5, 2});
    Channels handed_over = bands;
    if (form.conjugated)
        conjugate(handed_over);
    const Channels synthesised = synthesis.process(form.synthesis, handed_over, {4, 1, 2});

    for (size_t channel = 0; channel < 2; channel++) {
        korla_test::ModulatedBank model(m, c, form.legacy, offset, form.delay(m));
        Error analysis_error, synthesis_error;
        for (size_t slot = 0; slot < slots; slot++) {
            const auto expected_bands = model.analyse(time[channel].data() + slot * m);
            const auto expected_time = model.synthesise(bands[channel].data() + 2 * slot * m);
            for (size_t k = 0; k < m; k++) {
                analysis_error.add(analysed[channel][2 * (slot * m + k)], expected_bands[k].real());
                analysis_error.add(analysed[channel][2 * (slot * m + k) + 1], expected_bands[k].imag());
                synthesis_error.add(synthesised[channel][slot * m + k], expected_time[k]);
            }
        }
        EXPECT_LT(analysis_error.rms(), 1e-6);
        EXPECT_LT(synthesis_error.rms(), 1e-6);
    }
}
INSTANTIATE_TEST_SUITE_P(ModulatedBank, Definition, testing::ValuesIn(definition_cases()),
                         [](const auto& info) { return case_name(info.param); });

// ---- chains ---------------------------------------------------------------------------------------------------------

struct ChainCase {
    Form form;
    const char* table_name;
    uint32_t m;
    Tables tables;
    double rms, peak; // relative to the input
};
class Chain : public testing::TestWithParam<ChainCase> {};
std::vector<ChainCase> chain_cases() {
    std::vector<ChainCase> cases;
    for (const float* twiddle : {KRL_MFB_TWID64E, KRL_MFB_TWID64O}) {
        cases.push_back({symmetric, "P64KVX301", 64, {KRL_MFB_P10KM_P64KVX301, twiddle}, 3e-7, 1e-6});
        cases.push_back({legacy, "P64KVX301", 64, {KRL_MFB_P10KM_P64KVX301, twiddle}, 3e-7, 1e-6});
        cases.push_back({legacy, "P64KVX301_LEGACY", 64, {KRL_MFB_P10KM_P64KVX301_LEGACY, twiddle}, 5e-7, 2e-6});
        for (const Form& form : {even_0, even_1, even_2, even_3})
            cases.push_back({form, "P4_319SC", 64, {KRL_MFB_P10KM_P4_319SC, twiddle}, 5e-7, 2e-6});
    }
    cases.push_back(
        {legacy_extra_latency, "P64KVX301_LEGACY", 64, {KRL_MFB_P10KM_P64KVX301_LEGACY, KRL_MFB_TWID64O}, 5e-7, 2e-6});
    for (const Form& form : {even_0, even_1, even_2, even_3}) {
        cases.push_back({form, "P4_319SC_128M", 128, {KRL_MFB_P10KM_P4_319SC_128M, KRL_MFB_TWID128E}, 5e-7, 2e-6});
        cases.push_back({form, "P4_319SC_256M", 256, {KRL_MFB_P10KM_P4_319SC_256M, KRL_MFB_TWID256E}, 5e-7, 2e-6});
    }
    return cases;
}

// White noise, a sine sweep over all bands, and impulses at every phase of a block (7 is prime to M).
Channels test_signals(size_t samples, uint32_t m) {
    Channels signals(3, Signal(samples));
    signals[0] = Random(3).vector(samples);
    for (size_t n = 0; n < samples; n++) {
        const auto t = static_cast<double>(n);
        signals[1][n] = static_cast<float>(std::sin(std::numbers::pi / 2 * t * t / static_cast<double>(samples)));
        signals[2][n] = n % (15 * m + 7) == 0 ? 1.0f : 0.0f;
    }
    return signals;
}
Error chain_error(const Signal& in, const Signal& out, size_t delay) {
    Error error;
    for (size_t n = 0; n < out.size(); n++)
        error.add(out[n], n < delay ? 0.0 : static_cast<double>(in[n - delay]));
    return error;
}
Channels run_chain(const ChainCase& chain, const Channels& in) {
    Analysis analysis(chain.m, in.size(), chain.tables);
    Synthesis synthesis(chain.m, in.size(), chain.tables, 11);
    Channels bands = analysis.process(chain.form.analysis, in, {7, 2});
    if (chain.form.conjugated)
        conjugate(bands);
    return synthesis.process(chain.form.synthesis, bands, {1, 6});
}

TEST_P(Chain, ReconstructsWithUnitGainAtItsDelay) {
    const ChainCase& chain = GetParam();
    const Channels in = test_signals(400 * 64, chain.m);
    const Channels out = run_chain(chain, in);
    for (size_t channel = 0; channel < in.size(); channel++) {
        const Error error = chain_error(in[channel], out[channel], chain.form.delay(chain.m));
        EXPECT_LT(error.rms(), chain.rms) << "signal " << channel;
        EXPECT_LT(error.relative_peak(), chain.peak) << "signal " << channel;
    }
}
INSTANTIATE_TEST_SUITE_P(ModulatedBank, Chain, testing::ValuesIn(chain_cases()), [](const auto& info) {
    const bool odd_table = info.param.tables.twiddle == KRL_MFB_TWID64O;
    return std::string(info.param.form.name) + "_" + info.param.table_name + (odd_table ? "_O" : "_E");
});

TEST(ModulatedBank, ChainFailsWithAPrototypeMadeForAnotherSynthesis) {
    const ChainCase chain{symmetric, "", 64, {KRL_MFB_P10KM_P4_319SC, KRL_MFB_TWID64E}, 0, 0};
    const Channels in = test_signals(200 * 64, 64);
    EXPECT_GT(chain_error(in[0], run_chain(chain, in)[0], 9 * 64).rms(), 0.01);
}

// ---- state ----------------------------------------------------------------------------------------------------------

template <class BankType, class Function>
void expect_calls_and_channels_do_not_matter(Function function) {
    const Tables tables{KRL_MFB_P10KM_P4_319SC, KRL_MFB_TWID64E};
    const size_t slots = 31;
    Random random(9);
    Channels in;
    for (int c = 0; c < 3; c++)
        in.push_back(random.vector(slots * 64 * BankType::in_floats));
    BankType together(64, 3, tables);
    const Channels out = together.process(function, in, {slots});
    for (size_t c = 0; c < 3; c++) {
        BankType alone(64, 1, tables, 16 * c + c); // at other addresses too
        const Channels single = alone.process(function, {in[c]}, {1, 4, 9, 2});
        EXPECT_BITS_EQ(single[0], out[c], out[c].size());
    }
}
TEST(ModulatedBank, CallsChannelsAndAddressesDoNotChangeABit) {
    for (const Form& form : forms) {
        SCOPED_TRACE(form.name);
        expect_calls_and_channels_do_not_matter<Analysis>(form.analysis);
        expect_calls_and_channels_do_not_matter<Synthesis>(form.synthesis);
    }
}

TEST(ModulatedBank, ResetClearsOneChannelAtAnyRingPhase) {
    const Tables tables{KRL_MFB_P10KM_P64KVX301, KRL_MFB_TWID64E};
    Random random(4);
    for (size_t slots_before : {1u, 9u, 14u}) {
        const Channels before{random.vector(slots_before * 64), random.vector(slots_before * 64)};
        const Channels after{Signal(12 * 64), Signal(12 * 64)};
        Analysis analysis(64, 2, tables), untouched(64, 2, tables);
        analysis.process(KRL_CLmfb_p10km_analysisL, before);
        untouched.process(KRL_CLmfb_p10km_analysisL, before);
        KRL_mfb_p10km_analysisL_reset_channel(analysis.instance, 64, 1);
        KRL_mfb_p10km_analysisL_reset_channel(analysis.instance, 64, 2);  // no such channel
        KRL_mfb_p10km_analysisL_reset_channel(analysis.instance, 128, 0); // not its size
        KRL_mfb_p10km_analysisL_reset_channel(nullptr, 64, 0);
        KRL_load_mfb_p10km_analysisL_filter_state(analysis.instance, before[0].data()); // all of these do nothing
        KRL_unload_mfb_p10km_analysisL_filter_state(analysis.instance, nullptr);
        KRL_CLmfb_p10km_analysisL_close(analysis.instance);
        const Channels out = analysis.process(KRL_CLmfb_p10km_analysisL, after);
        const Channels expected = untouched.process(KRL_CLmfb_p10km_analysisL, after);
        EXPECT_BITS_EQ(out[0], expected[0], out[0].size());
        EXPECT_NE(out[0], Signal(out[0].size()));
        EXPECT_EQ(out[1], Signal(out[1].size()));
    }
}

TEST(ModulatedBank, ForgetsNaNAfterTenSlots) {
    const ChainCase chain{symmetric, "", 64, {KRL_MFB_P10KM_P64KVX301, KRL_MFB_TWID64E}, 0, 0};
    Channels in{Signal(40 * 64, 0.25f)};
    const Channels clean = run_chain(chain, in);
    in[0][5 * 64 + 3] = std::numeric_limits<float>::quiet_NaN();
    const Channels out = run_chain(chain, in);
    EXPECT_TRUE(std::isnan(out[0][10 * 64]));
    for (size_t n = 25 * 64; n < out[0].size(); n++)
        ASSERT_EQ(out[0][n], clean[0][n]);
}

// ---- the further rotation, tables, memory, refusals -----------------------------------------------------------------

// The legacy analysis with the further rotation by e, as a process function.
template <const std::vector<float>& e>
void legacy_twiddle(krl_mfb_analysis* instance, const float* prototype, const float* twiddle, void* scratch,
                    uint32_t channels, uint32_t slots, uint32_t m, float* const* const* out,
                    const float* const* const* in) {
    KRL_CLmfb_p10km_analysisL_legacy_twiddle(instance, prototype, twiddle, scratch, e.data(), channels, slots, m, out,
                                             in);
}
const std::vector<float> arbitrary_rotation = Random(6).vector(128);
const std::vector<float> full_qmf_rotation = [] {
    std::vector<float> e(128);
    for (size_t m = 0; m < 64; m++) {
        const double angle = std::numbers::pi * static_cast<double>(2 * m + 1) / 256;
        e[m / 4 * 8 + m % 4] = static_cast<float>(-std::cos(angle));
        e[m / 4 * 8 + 4 + m % 4] = static_cast<float>(std::sin(angle));
    }
    return e;
}();
constexpr Tables qmf_like{KRL_MFB_P10KM_P64KVX301_LEGACY, KRL_MFB_TWID64O};

TEST(ModulatedBank, LegacyTwiddleRotatesEveryBand) {
    const Channels in{Random(7).vector(20 * 64), Random(8).vector(20 * 64)};
    Analysis plain(64, 2, qmf_like), rotated(64, 2, qmf_like);
    const Channels bands = plain.process(KRL_CLmfb_p10km_analysisL_legacy, in);
    const Channels out = rotated.process(legacy_twiddle<arbitrary_rotation>, in, {3});
    const std::vector<float>& e = arbitrary_rotation; // four real parts, four imaginary parts, and so on
    for (size_t c = 0; c < 2; c++)
        for (size_t i = 0; i < bands[c].size() / 2; i++) {
            const size_t m = i % 64;
            const std::complex<double> factor(e[m / 4 * 8 + m % 4], e[m / 4 * 8 + 4 + m % 4]);
            const std::complex<double> expected = factor * std::complex<double>(bands[c][2 * i], bands[c][2 * i + 1]);
            ASSERT_NEAR(out[c][2 * i], expected.real(), 1e-7);
            ASSERT_NEAR(out[c][2 * i + 1], expected.imag(), 1e-7);
        }
}

// The legacy convention was made to continue the QMF banks: with their prototype and the twiddle without offset it is
// the complex QMF bank, analysis and synthesis, with and without its full twiddles.
TEST(ModulatedBank, LegacyFormsAreTheComplexQmfBank) {
    constexpr uint32_t slots = 40;
    const Channels in{Random(9).vector(slots * 64)};
    for (const bool twiddled : {false, true}) {
        const uint32_t mode = twiddled ? 1 : 0;
        uint32_t state_bytes, scratch_bytes, instance_bytes;
        KRL_qmf_analysisL_query_mem(64, 1, &state_bytes, &scratch_bytes, &instance_bytes);
        std::vector<char> state(state_bytes), scratch(scratch_bytes), instance(instance_bytes);
        auto* qmf_analysis = krl_qmf_analysisL_open(64, slots, mode, 5, krl_qmf_filter_coeff_P5_p64kvx301_vec_ana,
                                                    state.data(), scratch.data(), instance.data());
        ASSERT_TRUE(qmf_analysis);
        Signal qmf_bands(in[0].size() * 2);
        std::vector<float*> rows;
        std::vector<const float*> const_rows;
        for (uint32_t slot = 0; slot < slots; slot++) {
            rows.push_back(qmf_bands.data() + 128 * slot);
            const_rows.push_back(rows.back());
        }
        KRL_CLqmf_analysisL(qmf_analysis, rows.data(), in[0].data());

        Analysis analysis(64, 1, qmf_like);
        const Channels bands = analysis.process(
            twiddled ? legacy_twiddle<full_qmf_rotation> : KRL_CLmfb_p10km_analysisL_legacy, in, {slots});
        Error analysis_error;
        for (size_t i = 0; i < bands[0].size(); i++)
            analysis_error.add(bands[0][i], qmf_bands[i]);
        EXPECT_LT(analysis_error.rms(), 5e-7);
        if (twiddled)
            continue;

        KRL_qmf_synthesisL_query_mem(64, 1, &state_bytes, &scratch_bytes, &instance_bytes);
        std::vector<char> state2(state_bytes), scratch2(scratch_bytes), instance2(instance_bytes);
        auto* qmf_synthesis = krl_qmf_synthesisL_open(64, slots, mode, 5, krl_qmf_filter_coeff_P5_p64kvx301_vec_syn,
                                                      state2.data(), scratch2.data(), instance2.data());
        ASSERT_TRUE(qmf_synthesis);
        Signal qmf_time(in[0].size());
        KRL_Lqmf_synthesisCL(qmf_synthesis, qmf_time.data(), const_rows.data());
        Synthesis synthesis(64, 1, qmf_like);
        const Channels time = synthesis.process(KRL_Lmfb_p10km_synthesisCL_legacy_extra_latency, {qmf_bands}, {slots});
        Error synthesis_error;
        for (size_t i = 0; i < time[0].size(); i++)
            synthesis_error.add(time[0][i], qmf_time[i]);
        EXPECT_LT(synthesis_error.rms(), 5e-7);
    }
}

TEST(ModulatedBank, TwiddleTablesAreTheRoundedFormula) {
    const struct {
        const float* table;
        size_t m;
        int offset;
    } tables[] = {
        {KRL_MFB_TWID64E, 64, 1}, {KRL_MFB_TWID128E, 128, 1}, {KRL_MFB_TWID256E, 256, 1}, {KRL_MFB_TWID64O, 64, 0}};
    for (const auto& [table, m, offset] : tables) {
        const std::vector<float> expected = grouped_twiddle(m, offset);
        for (size_t i = 0; i < expected.size(); i++)
            ASSERT_FLOAT_EQ(table[i], expected[i]) << i;
        EXPECT_EQ(reinterpret_cast<uintptr_t>(table) % 32, 0u);
    }
    EXPECT_EQ(KRL_MFB_TWID64O[0], 1.0f);
    EXPECT_EQ(KRL_MFB_TWID64O[4], 0.0f);
    EXPECT_EQ(KRL_MFB_TWID64O[64], KRL_MFB_TWID64O[64 + 4] * -1.0f); // an eighth of a turn
}

TEST(ModulatedBank, MemorySizes) {
    EXPECT_EQ(KRL_mfb_p10km_analysisL_query_mem(2, 99, 64), 4772u);
    EXPECT_EQ(KRL_mfb_p10km_synthesisCL_query_mem(2, 99, 64), 4764u);
    EXPECT_EQ(KRL_mfb_p10km_analysisL_query_scratch(7, 7, 64), 1055u);
    EXPECT_EQ(KRL_mfb_p10km_synthesisCL_query_scratch(7, 7, 64), 1055u);
    EXPECT_EQ(KRL_mfb_p10km_analysisL_query_mem(100000, 0, 4096), (39 + size_t{36} * 4096) * 100000 + 86);
    EXPECT_EQ(KRL_mfb_p10km_synthesisCL_query_mem(UINT32_MAX, 0, UINT32_MAX), SIZE_MAX);
    const Tables tables{KRL_MFB_P10KM_P64KVX301, KRL_MFB_TWID64E};
    for (size_t misalignment = 0; misalignment < 32; misalignment++) // the canaries watch
        for (uint32_t channels : {0u, 1u, 3u}) {
            Analysis analysis(64, channels, tables, misalignment);
            Synthesis synthesis(64, channels, tables, misalignment);
            ASSERT_TRUE(analysis.instance && synthesis.instance);
        }
}

TEST(ModulatedBank, RefusesWhatNoBankCanBeMadeOf) {
    GuardedBuffer<uint8_t> memory(1 << 16);
    std::memset(memory.data(), 0x5a, memory.size());
    for (uint32_t m : {0u, 1u, 4u, 12u, 20u, 56u, 60u, 65u, 8192u, 0x80000000u, UINT32_MAX}) {
        EXPECT_EQ(KRL_CLmfb_p10km_analysisL_init(1, 0, m, memory.data()), nullptr) << m;
        EXPECT_EQ(KRL_Lmfb_p10km_synthesisCL_init(1, 0, m, memory.data()), nullptr) << m;
    }
    EXPECT_EQ(KRL_CLmfb_p10km_analysisL_init(1, 0, 64, nullptr), nullptr);
    EXPECT_EQ(KRL_Lmfb_p10km_synthesisCL_init(1, 0, 64, nullptr), nullptr);
    EXPECT_EQ(memory.values(), std::vector<uint8_t>(memory.size(), 0x5a));
}

// Every way to spoil a call, on a bank with history: it writes nothing and the next good call goes on as if it had not
// been.
template <class BankType, class Function>
void expect_bad_calls_change_nothing(Function function) {
    const Tables tables{KRL_MFB_P10KM_P64KVX301, KRL_MFB_TWID64E};
    Random random(12);
    const Channels in{random.vector(12 * 64 * BankType::in_floats), random.vector(12 * 64 * BankType::in_floats)};
    BankType bank(64, 2, tables), untouched(64, 2, tables);
    bank.process(function, in);
    untouched.process(function, in);

    GuardedBuffer<float> target(64 * BankType::out_floats), scratch(64 * 4 + 8);
    float* to[] = {target.data(), target.data(), target.data()};
    float* to_null[] = {target.data(), nullptr, nullptr};
    const float* from[] = {in[0].data(), in[1].data(), in[1].data()};
    const float* from_null[] = {in[0].data(), nullptr, nullptr};
    float* const* out[] = {to, to};
    float* const* out_null[] = {to, nullptr};
    float* const* out_null_channel[] = {to, to_null};
    const float* const* source[] = {from, from};
    const float* const* source_null[] = {from, nullptr};
    const float* const* source_null_channel[] = {from, from_null};
    const auto call = [&](auto* instance, const float* prototype, const float* twiddle, void* work, uint32_t channels,
                          uint32_t slots, uint32_t m, float* const* const* o, const float* const* const* i) {
        function(instance, prototype, twiddle, work, channels, slots, m, o, i);
    };
    auto* good = bank.instance;
    decltype(good) none = nullptr;
    const float *p = tables.prototype, *t = tables.twiddle;
    call(none, p, t, scratch.data(), 2, 2, 64, out, source);
    call(good, nullptr, t, scratch.data(), 2, 2, 64, out, source);
    call(good, p, nullptr, scratch.data(), 2, 2, 64, out, source);
    call(good, p, t, nullptr, 2, 2, 64, out, source);
    call(good, p, t, scratch.data(), 3, 2, 64, out, source);  // more channels than it has
    call(good, p, t, scratch.data(), 2, 2, 128, out, source); // another size
    call(good, p, t, scratch.data(), 2, 2, 56, out, source);
    call(good, p, t, scratch.data(), 2, 2, 64, nullptr, source);
    call(good, p, t, scratch.data(), 2, 2, 64, out, nullptr);
    call(good, p, t, scratch.data(), 2, 2, 64, out_null, source);
    call(good, p, t, scratch.data(), 2, 2, 64, out_null_channel, source);
    call(good, p, t, scratch.data(), 2, 2, 64, out, source_null);
    call(good, p, t, scratch.data(), 2, 2, 64, out, source_null_channel);
    call(none, nullptr, nullptr, nullptr, 2, 0, 64, nullptr, nullptr); // nothing to do
    call(none, nullptr, nullptr, nullptr, 0, 2, 64, nullptr, nullptr);
    EXPECT_EQ(target.values(), std::vector<float>(target.size()));
    EXPECT_EQ(scratch.values(), std::vector<float>(scratch.size()));

    const Channels next = bank.process(function, in), expected = untouched.process(function, in);
    for (size_t c = 0; c < 2; c++)
        EXPECT_BITS_EQ(next[c], expected[c], next[c].size());
}
TEST(ModulatedBank, BadCallsChangeNothing) {
    for (const Form& form : forms) {
        SCOPED_TRACE(form.name);
        expect_bad_calls_change_nothing<Analysis>(form.analysis);
        expect_bad_calls_change_nothing<Synthesis>(form.synthesis);
    }
    KRL_Lmfb_p10km_synthesisCL_close(nullptr);
}

} // namespace
