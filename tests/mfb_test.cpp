// The modulated filter bank against its definition, and what a chain of analysis and synthesis promises.
#include <korla/dsp/mfb.h>
#include <korla/dsp/qmf.h>

#include <gtest/gtest.h>

#include <complex>
#include <deque>
#include <limits>

#include "guarded_buffer.h"
#include "reference/modulated_bank.h"
#include "signals.h"

namespace {

using korla_test::GuardedBuffer;
using korla_test::Random;
using Signal = std::vector<float>; // one channel, slot after slot
using Channels = std::vector<Signal>;

struct Tables {
    const float *prototype, *twiddle;
};
constexpr Tables design{KRL_MFB_P10KM_P64KVX301, KRL_MFB_TWID64E};

// slots[slot][channel] of buffers with so many floats per slot, one buffer for each channel.
template <class T>
struct Rows {
    std::vector<std::vector<T*>> channels;
    std::vector<T* const*> slots;
    template <class Buffers>
    Rows(Buffers& buffers, size_t count, size_t floats) : channels(count) {
        for (size_t slot = 0; slot < count; slot++) {
            for (auto& buffer : buffers)
                channels[slot].push_back(buffer.data() + slot * floats);
            slots.push_back(channels[slot].data());
        }
    }
};

// One direction of the bank in memory of exactly the queried size at an awkward address.
template <auto query_mem, auto query_scratch, auto init, size_t in_per_band, size_t out_per_band>
struct Bank {
    static constexpr size_t in_floats = in_per_band, out_floats = out_per_band; // per band and slot
    uint32_t m;
    Tables tables;
    GuardedBuffer<uint8_t> memory, scratch;
    decltype(init(0, 0, 0, nullptr)) instance;

    Bank(uint32_t m, size_t channels, Tables tables, size_t misalignment = 5)
        : m(m), tables(tables), memory(query_mem(uint32_t(channels), 99, m), misalignment),
          scratch(query_scratch(99, 99, m), misalignment), instance(init(uint32_t(channels), 99, m, memory.data())) {}

    // Cuts the signals into calls of so many slots, round and round.
    template <class Function>
    Channels process(Function function, const Channels& in, const std::vector<size_t>& slots_per_call = {1}) {
        const size_t slots = in[0].size() / (m * in_floats);
        std::deque<GuardedBuffer<float>> out;
        for (size_t c = 0; c < in.size(); c++)
            out.emplace_back(slots * m * out_floats, c + 1);
        const Rows<float> to(out, slots, m * out_floats);
        const Rows<const float> from(in, slots, m * in_floats);
        for (size_t slot = 0, call = 0; slot < slots; call++) {
            const size_t count = std::min(slots_per_call[call % slots_per_call.size()], slots - slot);
            function(instance, tables.prototype, tables.twiddle, scratch.data(), uint32_t(in.size()), uint32_t(count),
                     m, &to.slots[slot], &from.slots[slot]);
            slot += count;
        }
        Channels result;
        for (const auto& channel : out)
            result.push_back(channel.values());
        return result;
    }
};
using Analysis = Bank<KRL_mfb_p10km_analysisL_query_mem, KRL_mfb_p10km_analysisL_query_scratch,
                      KRL_CLmfb_p10km_analysisL_init, 1, 2>;
using Synthesis = Bank<KRL_mfb_p10km_synthesisCL_query_mem, KRL_mfb_p10km_synthesisCL_query_scratch,
                       KRL_Lmfb_p10km_synthesisCL_init, 2, 1>;

// ---- tables in groups of four bands ---------------------------------------------------------------------------------

Signal grouped_prototype(const std::vector<double>& c) {
    const size_t m = c.size() / 10;
    Signal table(c.size());
    for (size_t n = 0; n < c.size(); n++)
        table[n % m / 4 * 40 + n / m * 4 + n % 4] = static_cast<float>(c[n]);
    return table;
}
size_t real_part(size_t k) { return k / 4 * 8 + k % 4; } // in the layout of twiddles; the imaginary part 4 further on
// scale * e^(-i pi (2k + offset) / (4 quarters)), k = 0..m-1
Signal grouped_twiddle(size_t m, int offset, size_t quarters, double scale = 1) {
    Signal table(2 * m);
    for (size_t k = 0; k < m; k++) {
        const double angle = std::numbers::pi * static_cast<double>(2 * k + offset) / static_cast<double>(4 * quarters);
        table[real_part(k)] = static_cast<float>(scale * std::cos(angle));
        table[real_part(k) + 4] = static_cast<float>(-scale * std::sin(angle));
    }
    return table;
}

// The legacy analysis with a further rotation by e, as a process function.
template <const Signal& e>
void legacy_twiddle(krl_mfb_analysis* instance, const float* prototype, const float* twiddle, void* scratch,
                    uint32_t channels, uint32_t slots, uint32_t m, float* const* const* out,
                    const float* const* const* in) {
    KRL_CLmfb_p10km_analysisL_legacy_twiddle(instance, prototype, twiddle, scratch, e.empty() ? nullptr : e.data(),
                                             channels, slots, m, out, in);
}
const Signal no_rotation, any_rotation = Random(6).vector(128), qmf_rotation = grouped_twiddle(64, 1, 64, -1);

// A synthesis with its analysis: which phases, whether the bands are handed over conjugated, the delay of the chain.
struct Form {
    const char* name;
    decltype(&KRL_CLmfb_p10km_analysisL) analysis;
    decltype(&KRL_Lmfb_p10km_synthesisCL_symmetric) synthesis;
    bool legacy, conjugated;
    uint32_t delay_blocks, delay_samples;
    size_t delay(size_t m) const { return delay_blocks * m + delay_samples; }
    Signal handed_over(Signal bands) const {
        for (size_t i = 1; conjugated && i < bands.size(); i += 2)
            bands[i] = -bands[i];
        return bands;
    }
};
const Form forms[] = {
    {"symmetric", KRL_CLmfb_p10km_analysisL, KRL_Lmfb_p10km_synthesisCL_symmetric, false, false, 9, 0},
    {"legacy", KRL_CLmfb_p10km_analysisL_legacy, KRL_Lmfb_p10km_synthesisCL_legacy, true, false, 9, 0},
    {"extra", KRL_CLmfb_p10km_analysisL_legacy, KRL_Lmfb_p10km_synthesisCL_legacy_extra_latency, true, false, 9, 1},
    {"even_0", KRL_CLmfb_p10km_analysisL, KRL_Lmfb_p10km_synthesisCL_even_0, false, false, 4, 0},
    {"even_1", KRL_CLmfb_p10km_analysisL_legacy, KRL_Lmfb_p10km_synthesisCL_even_1, true, false, 4, 0},
    {"even_2", KRL_CLmfb_p10km_analysisL, KRL_Lmfb_p10km_synthesisCL_even_2, false, true, 4, 0},
    {"even_3", KRL_CLmfb_p10km_analysisL_legacy, KRL_Lmfb_p10km_synthesisCL_even_3, true, true, 4, 0},
    {"rotated", legacy_twiddle<any_rotation>, KRL_Lmfb_p10km_synthesisCL_legacy, true, false, 9, 0}};

// Of the error, relative to what is expected; NaN when a value is not finite.
struct Error {
    double rms, peak;
};
template <class Actual, class Expected>
Error error(const Actual& actual, const Expected& expected) {
    double square = 0, expected_square = 0, peak = 0, expected_peak = 0;
    for (size_t i = 0; i < expected.size(); i++) {
        const double value = expected[i], e = actual[i] - value;
        square += e * e, expected_square += value * value;
        peak = std::max(peak, std::abs(e)), expected_peak = std::max(expected_peak, std::abs(value));
    }
    return {std::sqrt(square / expected_square), peak / expected_peak};
}

// ---- both directions against the definition, with prototypes that no symmetry can hide behind -----------------------

template <class BankType, class Function, class Model>
void expect_definition(Function function, uint32_t m, Tables tables, Model model) {
    const size_t slots = 23; // twice round the ring and more
    const Channels in{Random(m).vector(slots * m * BankType::in_floats),
                      Random(m + 1).vector(slots * m * BankType::in_floats)};
    const Channels out = BankType(m, 2, tables).process(function, in, {3, 1, 5, 2});
    for (size_t c = 0; c < 2; c++) {
        EXPECT_LT(error(out[c], model(in[c])).rms, 1e-6);
        BankType alone(m, 1, tables, 17 * c); // calls, channels and addresses do not change a bit
        EXPECT_BITS_EQ(alone.process(function, {in[c]}, {slots})[0], out[c], out[c].size());
    }
}
TEST(ModulatedBank, HoldsItsDefinitionForAnyPrototype) {
    for (const Form& form : forms)
        for (uint32_t m : {8u, 40u, 64u})
            for (int offset : {0, 1}) {
                if (offset == 1 && form.delay_samples == 1) // the extra latency is tied to the twiddle without offset
                    continue;
                SCOPED_TRACE(std::string(form.name) + " " + std::to_string(m) + (offset ? "E" : "O"));
                const Signal taps = Random(m + 17).vector(10 * m), twiddle = grouped_twiddle(m, offset, m);
                const std::vector<double> c(taps.begin(), taps.end());
                const Signal prototype = grouped_prototype(c);
                const Tables tables{prototype.data(), twiddle.data()};
                const korla_test::ModulatedBank model(m, c, form.legacy, offset, form.delay(m));
                expect_definition<Analysis>(form.analysis, m, tables, [&](const Signal& x) {
                    auto bands = model.analyse(x);
                    for (size_t i = 0; form.analysis == legacy_twiddle<any_rotation> && i < bands.size(); i += 2) {
                        const size_t re = real_part(i / 2 % m);
                        const std::complex<double> e(any_rotation[re], any_rotation[re + 4]),
                            band = e * std::complex(bands[i], bands[i + 1]);
                        bands[i] = band.real(), bands[i + 1] = band.imag();
                    }
                    return bands;
                });
                expect_definition<Synthesis>(form.synthesis, m, tables, [&](const Signal& bands) {
                    return model.synthesise(form.handed_over(bands));
                });
            }
}

// ---- chains ---------------------------------------------------------------------------------------------------------

Channels run_chain(const Form& form, uint32_t m, Tables tables, const Channels& in) {
    Channels bands = Analysis(m, in.size(), tables).process(form.analysis, in, {7, 2});
    for (Signal& channel : bands)
        channel = form.handed_over(channel);
    return Synthesis(m, in.size(), tables, 11).process(form.synthesis, bands, {1, 6});
}

// White noise, a sine sweep over all bands, and impulses at every phase of a block (7 is prime to M).
TEST(ModulatedBank, ChainReconstructsWithUnitGainAtItsDelay) {
    const struct {
        const float* table;
        uint32_t m;
        size_t first_form, last_form;
    } prototypes[] = {{KRL_MFB_P10KM_P64KVX301, 64, 0, 1},
                      {KRL_MFB_P10KM_P64KVX301_LEGACY, 64, 1, 2},
                      {KRL_MFB_P10KM_P4_319SC, 64, 3, 6},
                      {KRL_MFB_P10KM_P4_319SC_128M, 128, 3, 6},
                      {KRL_MFB_P10KM_P4_319SC_256M, 256, 3, 6}};
    const struct {
        const float* table;
        uint32_t m;
        int offset;
    } twiddles[] = {
        {KRL_MFB_TWID64O, 64, 0}, {KRL_MFB_TWID64E, 64, 1}, {KRL_MFB_TWID128E, 128, 1}, {KRL_MFB_TWID256E, 256, 1}};
    for (const auto& twiddle : twiddles) {
        const uint32_t m = twiddle.m;
        const size_t samples = 25600;
        Channels in{Random(3).vector(samples), Signal(samples), Signal(samples)};
        for (size_t n = 0; n < samples; n++) {
            in[1][n] = static_cast<float>(std::sin(std::numbers::pi / 2 * double(n * n) / double(samples)));
            in[2][n] = n % (15 * m + 7) == 0 ? 1.0f : 0.0f;
        }
        const Signal formula = grouped_twiddle(m, twiddle.offset, m);
        for (size_t i = 0; i < formula.size(); i++)
            ASSERT_FLOAT_EQ(twiddle.table[i], formula[i]) << m << " at " << i;
        for (const auto& prototype : prototypes)
            for (size_t f = prototype.first_form; prototype.m == m && f <= prototype.last_form; f++) {
                const Form& form = forms[f];
                if (form.delay_samples == 1 && twiddle.offset == 1)
                    continue;
                const Channels out = run_chain(form, m, {prototype.table, twiddle.table}, in);
                for (size_t c = 0; c < in.size(); c++) {
                    Signal expected = in[c];
                    expected.insert(expected.begin(), form.delay(m), 0.0f);
                    expected.resize(samples);
                    EXPECT_LT(error(out[c], expected).rms, 5e-7) << form.name << " " << m << " signal " << c;
                    EXPECT_LT(error(out[c], expected).peak, 2e-6) << form.name << " " << m << " signal " << c;
                }
            }
    }
}

TEST(ModulatedBank, ForgetsNaNAfterTenSlots) {
    Channels in{Signal(40 * 64, 0.25f)};
    const Channels clean = run_chain(forms[0], 64, design, in);
    in[0][5 * 64 + 3] = std::numeric_limits<float>::quiet_NaN();
    const Channels out = run_chain(forms[0], 64, design, in);
    EXPECT_TRUE(std::isnan(out[0][10 * 64]));
    EXPECT_BITS_EQ(&out[0][25 * 64], &clean[0][25 * 64], 15 * 64);
}

// The legacy convention was made to continue the QMF banks: with their prototype and the twiddle without offset it is
// the complex QMF bank, analysis and synthesis, with and without its full twiddles.
TEST(ModulatedBank, LegacyFormsAreTheComplexQmfBank) {
    const uint32_t slots = 40;
    const Channels in{Random(9).vector(slots * 64)};
    std::vector<char> state(1 << 14), scratch(1 << 14), instance(1 << 14);
    for (const uint32_t mode : {1u, 0u}) {
        Channels bands{Signal(2 * slots * 64)};
        std::vector<float*> rows;
        for (uint32_t slot = 0; slot < slots; slot++)
            rows.push_back(&bands[0][128 * slot]);
        KRL_CLqmf_analysisL(krl_qmf_analysisL_open(64, slots, mode, 5, krl_qmf_filter_coeff_P5_p64kvx301_vec_ana,
                                                   state.data(), scratch.data(), instance.data()),
                            rows.data(), in[0].data());
        const Tables tables{KRL_MFB_P10KM_P64KVX301_LEGACY, KRL_MFB_TWID64O};
        const auto analysis = mode == 1 ? legacy_twiddle<qmf_rotation> : KRL_CLmfb_p10km_analysisL_legacy;
        EXPECT_LT(error(Analysis(64, 1, tables).process(analysis, in)[0], bands[0]).rms, 5e-7);
        if (mode == 1)
            continue;
        Signal time(slots * 64);
        KRL_Lqmf_synthesisCL(krl_qmf_synthesisL_open(64, slots, mode, 5, krl_qmf_filter_coeff_P5_p64kvx301_vec_syn,
                                                     state.data(), scratch.data(), instance.data()),
                             time.data(), rows.data());
        const auto synthesis = KRL_Lmfb_p10km_synthesisCL_legacy_extra_latency;
        EXPECT_LT(error(Synthesis(64, 1, tables).process(synthesis, bands)[0], time).rms, 5e-7);
    }
}

// ---- state, memory, refusals ----------------------------------------------------------------------------------------

TEST(ModulatedBank, ResetClearsOneChannelAtAnyRingPhase) {
    for (size_t slots : {1u, 9u, 14u}) {
        const Channels before{Random(4).vector(slots * 64), Random(5).vector(slots * 64)}, silence(2, Signal(12 * 64));
        Analysis analysis(64, 2, design), untouched(64, 2, design);
        analysis.process(KRL_CLmfb_p10km_analysisL, before);
        untouched.process(KRL_CLmfb_p10km_analysisL, before);
        KRL_mfb_p10km_analysisL_reset_channel(analysis.instance, 64, 1);
        KRL_mfb_p10km_analysisL_reset_channel(analysis.instance, 64, 2);  // no such channel
        KRL_mfb_p10km_analysisL_reset_channel(analysis.instance, 128, 0); // not its size
        KRL_mfb_p10km_analysisL_reset_channel(nullptr, 64, 0);
        KRL_load_mfb_p10km_analysisL_filter_state(analysis.instance, before[0].data()); // these do nothing
        KRL_unload_mfb_p10km_analysisL_filter_state(analysis.instance, nullptr);
        KRL_CLmfb_p10km_analysisL_close(analysis.instance);
        const Channels out = analysis.process(KRL_CLmfb_p10km_analysisL, silence);
        EXPECT_BITS_EQ(out[0], untouched.process(KRL_CLmfb_p10km_analysisL, silence)[0], out[0].size());
        EXPECT_NE(out[0], Signal(out[0].size()));
        EXPECT_EQ(out[1], Signal(out[1].size()));
    }
}

TEST(ModulatedBank, MemorySizesAndRefusedSizes) {
    EXPECT_EQ(KRL_mfb_p10km_analysisL_query_mem(2, 99, 64), 4772u);
    EXPECT_EQ(KRL_mfb_p10km_synthesisCL_query_mem(2, 99, 64), 4764u);
    EXPECT_EQ(KRL_mfb_p10km_analysisL_query_scratch(7, 7, 64), 1055u);
    EXPECT_EQ(KRL_mfb_p10km_synthesisCL_query_scratch(7, 7, 64), 1055u);
    EXPECT_EQ(KRL_mfb_p10km_analysisL_query_mem(100000, 0, 4096), (39 + size_t{36} * 4096) * 100000 + 86);
    EXPECT_EQ(KRL_mfb_p10km_synthesisCL_query_mem(UINT32_MAX, 0, UINT32_MAX), SIZE_MAX);
    for (size_t misalignment = 0; misalignment < 32; misalignment++) // the canaries watch
        for (uint32_t channels : {0u, 1u, 3u})
            EXPECT_TRUE(Analysis(64, channels, design, misalignment).instance &&
                        Synthesis(64, channels, design, misalignment).instance);
    GuardedBuffer<uint8_t> memory(1 << 16);
    for (uint32_t m : {0u, 1u, 4u, 12u, 20u, 56u, 60u, 65u, 8192u, 0x80000000u, UINT32_MAX}) {
        EXPECT_EQ(KRL_CLmfb_p10km_analysisL_init(1, 0, m, memory.data()), nullptr) << m;
        EXPECT_EQ(KRL_Lmfb_p10km_synthesisCL_init(1, 0, m, memory.data()), nullptr) << m;
    }
    EXPECT_EQ(KRL_CLmfb_p10km_analysisL_init(1, 0, 64, nullptr), nullptr);
    EXPECT_EQ(KRL_Lmfb_p10km_synthesisCL_init(1, 0, 64, nullptr), nullptr);
    EXPECT_EQ(memory.values(), std::vector<uint8_t>(memory.size()));
}

// Every way to spoil a call, on a bank with history: it writes nothing and the next good call goes on as if it had not
// been.
template <class BankType, class Function>
void expect_bad_calls_change_nothing(Function function) {
    const Channels in{Random(12).vector(12 * 64 * BankType::in_floats),
                      Random(13).vector(12 * 64 * BankType::in_floats)};
    BankType bank(64, 2, design), untouched(64, 2, design);
    bank.process(function, in);
    untouched.process(function, in);

    GuardedBuffer<float> target(64 * 2), work(64 * 4 + 8);
    float *to[] = {target.data(), target.data(), target.data()}, *to_null[] = {target.data(), nullptr, nullptr};
    const float *from[] = {in[0].data(), in[1].data(), in[1].data()}, *from_null[] = {in[0].data(), nullptr, nullptr};
    float* const* outs[][2] = {{to, to}, {to, nullptr}, {to, to_null}};
    const float* const* ins[][2] = {{from, from}, {from, nullptr}, {from, from_null}};
    const auto call = [&](int null, uint32_t channels, uint32_t slots, uint32_t m, int out = 0, int source = 0) {
        function(null == 1 ? nullptr : bank.instance, null == 2 ? nullptr : design.prototype,
                 null == 3 ? nullptr : design.twiddle, null == 4 ? nullptr : work.data(), channels, slots, m,
                 null == 5 ? nullptr : outs[out], null == 6 ? nullptr : ins[source]);
    };
    for (int null = 1; null <= 6; null++)
        call(null, 2, 2, 64);
    call(0, 3, 2, 64);  // more channels than it has
    call(0, 2, 2, 128); // other sizes
    call(0, 2, 2, 56);
    for (int null_in_array : {1, 2}) {
        call(0, 2, 2, 64, null_in_array, 0);
        call(0, 2, 2, 64, 0, null_in_array);
    }
    function(nullptr, nullptr, nullptr, nullptr, 2, 0, 64, nullptr, nullptr); // nothing to do
    function(nullptr, nullptr, nullptr, nullptr, 0, 2, 64, nullptr, nullptr);
    if constexpr (std::is_same_v<BankType, Analysis>)
        legacy_twiddle<no_rotation>(bank.instance, design.prototype, design.twiddle, work.data(), 2, 2, 64, outs[0],
                                    ins[0]);
    EXPECT_EQ(target.values(), Signal(target.size()));
    EXPECT_EQ(work.values(), Signal(work.size()));
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
