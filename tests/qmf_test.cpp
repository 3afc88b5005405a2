// The QMF banks against their definition, what a chain of analysis and synthesis promises, and what is refused.
#include <korla/dsp/dct.h>
#include <korla/dsp/qmf.h>

#include "guarded_buffer.h"
#include "reference/modulated_bank.h"
#include "rows.h"

#include <array>
#include <tuple>

using namespace korla_test;

namespace {

using Samples = std::vector<float>;
Samples noise(uint32_t M, size_t slots) { return Random(M + slots).vector(M * slots); }
Samples times(float gain, Samples x) {
    for (float& v : x)
        v *= gain;
    return x;
}

// ---- both families through one interface, in memory of exactly the stated size -------------------------------------

enum Family { L, S };
std::vector<Family> families(uint32_t M) { return M == 48 ? std::vector{L} : std::vector{L, S}; }

const std::array query_analysis{KRL_qmf_analysisL_query_mem, KRL_qmf_analysisS_query_mem};
const std::array open_analysis{krl_qmf_analysisL_open, krl_qmf_analysisS_open};
const std::array reconfig{krl_qmf_analysisL_reconfig, krl_qmf_analysisS_reconfig};
const std::array init_analysis{KRL_qmf_analysisL_init, KRL_qmf_analysisS_init};
const std::array set_analysis_increment{KRL_qmf_analysisL_set_slot_increment, KRL_qmf_analysisS_set_slot_increment};
const std::array analysis_delay{KRL_qmf_analysisL_get_delay, KRL_qmf_analysisS_get_delay};
const std::array state_length{KRL_qmf_analysisL_get_filter_state_length, KRL_qmf_analysisS_get_filter_state_length};
const std::array longest{KRL_qmf_analysisL_get_max_filter_state_length, KRL_qmf_analysisS_get_max_filter_state_length};
const std::array load{KRL_load_CLqmf_analysisL_filter_stateL, KRL_load_CLqmf_analysisS_filter_stateL};
const std::array unload{KRL_Lunload_CLqmf_analysisL_filter_state, KRL_Lunload_CLqmf_analysisS_filter_state};
const std::array analyse_real{KRL_Lqmf_analysisL, KRL_Lqmf_analysisS};
const std::array analyse_complex{KRL_CLqmf_analysisL, KRL_CLqmf_analysisS};
const std::array close_analysis{KRL_qmf_analysisL_close, KRL_qmf_analysisS_close};
const std::array query_synthesis{KRL_qmf_synthesisL_query_mem, KRL_qmf_synthesisS_query_mem};
const std::array open_synthesis{krl_qmf_synthesisL_open, krl_qmf_synthesisS_open};
const std::array init_synthesis{KRL_qmf_synthesisL_init, KRL_qmf_synthesisS_init};
const std::array set_synthesis_increment{KRL_qmf_synthesisL_set_slot_increment, KRL_qmf_synthesisS_set_slot_increment};
const std::array synthesis_delay{KRL_qmf_synthesisL_get_delay, KRL_qmf_synthesisS_get_delay};
const std::array copy_states{KRL_qmf_synthesisL_copy_states, KRL_qmf_synthesisS_copy_states};
const std::array synthesise_real{KRL_Lqmf_synthesisL, KRL_Sqmf_synthesisL};
const std::array synthesise_complex{KRL_Lqmf_synthesisCL, KRL_Sqmf_synthesisCL};
const std::array close_synthesis{KRL_qmf_synthesisL_close, KRL_qmf_synthesisS_close};

const Samples prototype = Random(7).vector(640); // hides nothing behind symmetry or small taps

struct Configuration {
    uint32_t M, P, mode;
    Family family = L;
    uint32_t slots = 1, gap = 0; // slots of a call; floats between its rows of sub-bands
    const float *forward = prototype.data(), *backward = prototype.data();

    std::string what(const char* direction, bool real) const {
        std::ostringstream text;
        text << "QMF " << direction << ", " << M << " bands, "
             << (real        ? "real sub-bands"
                 : mode == 0 ? "no twiddle"
                 : mode == 8 ? "short twiddles"
                             : "full twiddles")
             << ", P=" << P << ", family "
             << "LS"[family] << ", " << slots << " slots a call";
        return text.str();
    }
    size_t width(bool real) const { return real ? M : 2 * M; }
};

// An analysis and a synthesis. Their blocks are guarded and at odd addresses, with a pattern that open must not depend
// on.
struct Banks : Configuration {
    explicit Banks(const Configuration& c) : Configuration(c) {
        analysis = place(query_analysis[family], open_analysis[family], forward);
        synthesis = place(query_synthesis[family], open_synthesis[family], backward);
        if (gap)
            set_analysis_increment[family](analysis, M + gap), set_synthesis_increment[family](synthesis, M + gap);
    }
    ~Banks() { close_analysis[family](analysis), close_synthesis[family](synthesis); }

    template <class Handle>
    Handle* place(decltype(&KRL_qmf_analysisL_query_mem) query,
                  Handle* (*open)(uint32_t, uint32_t, uint32_t, uint32_t, const float*, void*, void*, void*),
                  const float* table) {
        uint32_t bytes[3];
        void* block[3];
        query(M, P, &bytes[0], &bytes[1], &bytes[2]);
        for (size_t i = 0; i < 3; i++) {
            const std::vector<uint8_t> pattern(bytes[i], 0x5a);
            memory.push_back(std::make_unique<GuardedBuffer<uint8_t>>(pattern, 1 + 10 * i));
            block[i] = memory.back()->data();
        }
        return open(M, slots, mode, P, table, block[0], block[1], block[2]);
    }

    // Where the rows of sub-bands start.
    std::vector<float*> rows(GuardedBuffer<float>& subbands, bool real) const {
        std::vector<float*> rows;
        for (size_t at = 0; at < subbands.size(); at += width(real) + gap)
            rows.push_back(&subbands[at]);
        return rows;
    }
    Samples analyse(bool real, const Samples& x) {
        GuardedBuffer<float> out(x.size() / M * (width(real) + gap), 1);
        const auto to = rows(out, real);
        for (size_t s = 0; s < to.size(); s += slots)
            real ? analyse_real[family](analysis, to[s], &x[s * M])
                 : analyse_complex[family](analysis, &to[s], &x[s * M]);
        Samples X;
        for (const float* row : to) {
            X.insert(X.end(), row, row + width(real));
            EXPECT_EQ(Samples(row + width(real), row + width(real) + gap), Samples(gap)) << "written between rows";
        }
        return X;
    }
    Samples synthesise(bool real, const Samples& X, decltype(&KRL_Lqmf_synthesisCL) complex_call = nullptr) {
        GuardedBuffer<float> in(X.size() / width(real) * (width(real) + gap), 1);
        const auto from = rows(in, real);
        GuardedBuffer<float> y(from.size() * M, 3);
        for (size_t s = 0; s < from.size(); s++)
            std::copy_n(&X[s * width(real)], width(real), from[s]);
        for (size_t s = 0; s < from.size(); s += slots)
            real ? synthesise_real[family](synthesis, &y[s * M], from[s])
                 : (complex_call ? complex_call : synthesise_complex[family])(synthesis, &y[s * M], &from[s]);
        return y.values();
    }
    // The bits of X and y, from x and Z.
    void expect(bool real, const Samples& x, const Samples& X, const Samples& Z, const Samples& y) {
        expect_rows(what("analysis", real), M, real ? 1 : 2, analyse(real, x), X);
        expect_rows(what("synthesis", real), M, 1, synthesise(real, Z), y);
    }

    krl_qmf_analysis* analysis;
    krl_qmf_synthesis* synthesis;
    std::vector<std::unique_ptr<GuardedBuffer<uint8_t>>> memory;
};

// ---- every configuration -------------------------------------------------------------------------------------------

class Qmf : public testing::TestWithParam<std::tuple<uint32_t, uint32_t, uint32_t>> {}; // M, P, mode
using testing::Combine, testing::Values;
INSTANTIATE_TEST_SUITE_P(Banks, Qmf, Combine(Values(8, 16, 32, 64), Values(4, 5), Values(0, 8, 1)));
INSTANTIATE_TEST_SUITE_P(BanksOf48, Qmf, Combine(Values(48), Values(4, 5), Values(0, 8)));

TEST_P(Qmf, EveryFormOfCallEqualsTheDefinition) {
    const auto [M, P, mode] = GetParam();
    const Configuration single{M, P, mode};
    for (bool real : {true, false}) {
        const auto model = qmf_model(M, P, prototype.data(), mode, real);
        const auto x = noise(M, 18), Z = noise(static_cast<uint32_t>(single.width(real)), 18);
        const auto X = Banks(single).analyse(real, x), y = Banks(single).synthesise(real, Z);
        expect_rows(single.what("analysis", real), M, real ? 1 : 2, X, model.analyse(x), 1.5e-6);
        expect_rows(single.what("synthesis", real), M, 1, y, model.synthesise(Z), 2e-6 * std::sqrt(2.0 * P * M));
        for (Family f : families(M)) {
            Banks many({M, P, mode, f, 9, f == L ? 13u : 0u}), reconfigured({64, 5, 0, f, 1, 7});
            many.expect(real, x, X, Z, y);
            EXPECT_EQ(analysis_delay[f](many.analysis), P * M - M / 2);
            EXPECT_EQ(synthesis_delay[f](many.synthesis), P * M - M / 2 + 1);

            reconfigured.analyse(real, noise(64, 6)); // history and increment must not shine through
            EXPECT_EQ(reconfig[f](reconfigured.analysis, M, 9, mode, P, prototype.data()), 0);
            reconfigured.M = M, reconfigured.slots = 9, reconfigured.gap = 0;
            expect_rows(many.what("analysis, reconfigured", real), M, real ? 1 : 2, reconfigured.analyse(real, x), X);
        }
        if (!real)
            expect_rows(single.what("synthesis, Head1Bit", real), M, 1,
                        Banks(single).synthesise(real, Z, KRL_Lqmf_synthesisCL_Head1Bit), times(2.0f, y));
    }
}

TEST_P(Qmf, HistoryTravelsAndIsForgotten) {
    const auto [M, P, mode] = GetParam();
    for (Family f : families(M)) {
        const Configuration setup{M, P, mode, f};
        SCOPED_TRACE(setup.what("history", true));
        const auto x = noise(M, 2 * P), silence = Samples(M);
        Banks source(setup), target(setup), twin(setup);
        source.analyse(true, x), source.synthesise(true, x);
        target.analyse(true, noise(M, 3)); // another phase of the ring
        twin.analyse(true, P == 5 ? x : noise(M, 3)), twin.synthesise(true, x);
        GuardedBuffer<float> state(Random(3).vector(9 * M), 1); // stays as it is for P = 4
        const auto expected = P == 5 ? Samples(x.end() - 9 * M, x.end()) : state.values();
        unload[f](source.analysis, state.data());
        EXPECT_EQ(state.values(), expected) << "unloaded";
        load[f](target.analysis, state.data());
        copy_states[f](target.synthesis, source.synthesis);
        Banks periods({M, 9 - P, mode, f}), bands({M == 8 ? 16u : 8u, P, 0, f}); // refused
        for (const krl_qmf_synthesis* other : {periods.synthesis, bands.synthesis, decltype(bands.synthesis){}})
            copy_states[f](target.synthesis, other);
        target.expect(true, x, twin.analyse(true, x), x, twin.synthesise(true, x));

        for (float bad : {NAN, INFINITY}) { // gone after 2P slots
            for (const Samples& in : {Samples(M, bad), x})
                target.analyse(true, in), target.synthesise(true, in);
            target.expect(true, x, twin.analyse(true, x), x, twin.synthesise(true, x));
        }
        init_analysis[f](target.analysis), init_synthesis[f](target.synthesis);
        EXPECT_EQ(target.analyse(true, silence), silence); // of either sign
        EXPECT_EQ(target.synthesise(true, silence), silence);
    }
}

TEST(QmfDesigns, SynthesisUndoesAnalysisWithUnitGainAtTheStatedDelay) {
    const auto check = [](const char* name, uint32_t M, uint32_t P, const float* forward, const float* backward) {
        for (const Samples& x : stimuli(300 * M)) {
            Samples delayed((2 * P - 1) * M + 1);
            delayed.insert(delayed.end(), x.begin(), x.end() - static_cast<ptrdiff_t>(delayed.size()));
            for (const auto& [mode, real] :
                 {std::pair{0u, true}, {0u, false}, {8u, false}, {1u, false}, {77u, true}, {77u, false}}) {
                if (M == 48 && mode % 8 != 0)
                    continue;
                Banks banks({M, P, mode, L, 1, 0, forward, backward});
                const auto y = banks.synthesise(real, banks.analyse(real, x));
                const auto what = banks.what("analysis and synthesis", real) + ", design " + name;
                expect_rows(what, M, 1, y, delayed, 2e-6);
                EXPECT_LT(relative_error(y, delayed, y.size()), 7e-7) << what;
            }
        }
    };
#define DESIGN(name, M, P)                                                                                             \
    check(#name, M, P, krl_qmf_filter_coeff_##name##_vec_ana, krl_qmf_filter_coeff_##name##_vec_syn)
    DESIGN(P5, 64, 5), DESIGN(P4, 64, 4), DESIGN(P5_32, 32, 5), DESIGN(P4_32, 32, 4), DESIGN(P5_p64kvx301, 64, 5),
        DESIGN(P5_p64kvx301_48, 48, 5), DESIGN(P5_p64kvx301_32, 32, 5), DESIGN(P5_p64kvx301_16, 16, 5),
        DESIGN(P5_p64kvx301_8, 8, 5);
}

// ---- refusals and memory -------------------------------------------------------------------------------------------

TEST(QmfRefusal, HostileParametersTouchNothing) {
    for (Family f : {L, S}) {
        Banks banks({32, 5, 0, f}), twin({32, 5, 0, f});
        banks.analyse(true, prototype), twin.analyse(true, prototype); // a history that refusals keep
        const auto refused = [&](uint32_t M, uint32_t P, uint32_t mode, const float* table, int null_block = -1) {
            const Configuration setup{M, P, mode, f};
            SCOPED_TRACE(setup.what("refusal", false));
            GuardedBuffer<float> memory(noise(64, 40));
            const auto at = [&](int i) { return i == null_block ? nullptr : memory.data() + 800 * i; };
            EXPECT_EQ(open_analysis[f](M, 1, mode, P, table, at(0), at(1), at(2)), nullptr);
            EXPECT_EQ(open_synthesis[f](M, 1, mode, P, table, at(0), at(1), at(2)), nullptr);
            EXPECT_EQ(memory.values(), noise(64, 40));
            EXPECT_EQ(reconfig[f](null_block < 0 ? banks.analysis : nullptr, M, 1, mode, P, table), -1);
        };
        for (uint32_t M : {0u, 1u, 4u, 24u, 40u, 63u, 65u, 96u, 128u, 4096u, UINT32_MAX})
            refused(M, 5, 0, prototype.data());
        for (uint32_t P : {0u, 1u, 3u, 6u, 8u, UINT32_MAX})
            refused(32, P, 0, prototype.data());
        for (int i = 0; i < 3; i++)
            refused(32, 5, 0, prototype.data(), i);
        refused(32, 5, 0, nullptr);
        refused(48, 5, f == L ? 1 : 0, prototype.data()); // the full twiddle has too few pairs; S has no 48 bands
        banks.expect(true, prototype, twin.analyse(true, prototype), prototype, twin.synthesise(true, prototype));
    }
}

TEST(QmfRefusal, NullInstancesAndLengthsWithoutTablesDoNothing) {
    GuardedBuffer<float> buffer(noise(64, 2));
    float *x = buffer.data(), *rows[] = {x};
    for (Family f : {L, S}) {
        EXPECT_EQ(analysis_delay[f](nullptr) + synthesis_delay[f](nullptr), 0u);
        init_analysis[f](nullptr), init_synthesis[f](nullptr), copy_states[f](nullptr, nullptr);
        set_analysis_increment[f](nullptr, 1), set_synthesis_increment[f](nullptr, 1);
        load[f](nullptr, x), unload[f](nullptr, x), close_analysis[f](nullptr), close_synthesis[f](nullptr);
        analyse_real[f](nullptr, x, x), analyse_complex[f](nullptr, rows, x);
        synthesise_real[f](nullptr, x, x), synthesise_complex[f](nullptr, x, rows);
    }
    KRL_Lqmf_synthesisCL_Head1Bit(nullptr, x, rows);
    for (uint32_t M : {0u, 4u, 12u, 20u, 56u, 63u}) { // 56: a multiple of 8 without kernels
        krl_forwardModulationReal(x, x, M, nullptr, x, x), krl_inverseModulationReal(x, x, M, nullptr, x);
        krl_forwardModulationComplex(x, x, x, M, 0, nullptr, nullptr);
        krl_inverseModulationComplex(x, x, x, M, 0, nullptr, nullptr);
    }
    EXPECT_EQ(buffer.values(), noise(64, 2));
}

TEST(QmfMemory, QueriesAnswerTheStatedSizes) {
    // Per row: bands, selector, state bytes of an analysis and a synthesis of L, of S, scratch bytes of L and S.
    for (const std::array<uint32_t, 8>& row : {std::array<uint32_t, 8>{8, 5, 391, 319, 1255, 1183, 159, 543},
                                               {8, 4, 311, 255, 983, 927, 159, 543},
                                               {48, 1, 1831, 1759, 1255, 1183, 799, 543},
                                               {64, 7, 2407, 2335, 2407, 2335, 1055, 1055},
                                               {64, 8, 1879, 1823, 1879, 1823, 1055, 1055},
                                               {65, 5, 1255, 1183, 1255, 1183, 543, 543},
                                               {UINT32_MAX, 0, 983, 927, 983, 927, 543, 543}})
        for (Family f : {L, S})
            for (bool synthesis : {false, true}) {
                const auto query = (synthesis ? query_synthesis : query_analysis)[f];
                std::array<uint32_t, 3> sizes, stated{row[2 + 2 * f + synthesis], row[6 + f], f == L ? 127u : 119u};
                EXPECT_EQ(query(row[0], row[1], &sizes[0], &sizes[1], &sizes[2]), f == L ? 127u : 1024u);
                EXPECT_EQ(sizes, stated) << "family " << f << ", " << row[0] << " bands, selector " << row[1];
                EXPECT_EQ(query(row[0], row[1], nullptr, nullptr, nullptr), f == L ? 127u : 1024u);
                EXPECT_EQ(state_length[f](row[1], row[0]), (row[1] ? 9 : 7) * row[0]);
                EXPECT_EQ(longest[f](row[1]), row[1] ? 576u : 448u);
            }
}

// ---- modulation steps and tables -----------------------------------------------------------------------------------

TEST(QmfModulation, StepsEqualTheirSumsAndUndoEachOther) {
    for (uint32_t M : {8u, 16u, 24u, 32u, 48u, 64u, 96u, 120u}) {
        const std::string bands = "QMF modulation, " + std::to_string(M) + " bands, ";
        const uint32_t h = M / 2;
        const auto x = Random(M).vector(2 * M), X = Random(M + 1).vector(M);
        Samples table(M);
        std::vector<double> subbands(M), samples(2 * M);
        for (uint32_t q = 0; q < M; q++) {
            table[q] = static_cast<float>(phasor(q, M).imag());
            for (uint32_t r = 0; r < 2 * M; r++) {
                subbands[q] += x[r] * phasor((2 * q + 1) * (r + 4 * M - 3 * h), M).real() / (2 * M);
                samples[r] += 2 * X[q] * phasor((2 * q + 1) * (r + 4 * M - h), M).real();
            }
        }
        for (bool in_place : {false, true}) {
            const krl_fft_pair* pair = in_place ? nullptr : KRL_r4_cplx_fwd_pair(h);
            GuardedBuffer<float> f(x, 1), out(M, 3), tmp(M, 2), g(2 * M, 1);
            krl_forwardModulationReal(f.data(), out.data(), M, pair, table.data(), in_place ? out.data() : tmp.data());
            expect_rows(bands + "real, forward", M, 1, out.values(), subbands, 2e-7);
            EXPECT_EQ(f.values(), x) << bands << "the input is kept";
            std::copy_n(X.data(), M, g.data());
            krl_inverseModulationReal(g.data(), g.data() + (in_place ? 0 : M), M, pair, table.data());
            expect_rows(bands + "real, inverse", 2 * M, 1, g.values(), samples, 4e-6 * std::sqrt(M));
        }

        // Without a table the complex steps undo each other but for an FFT each: M times the input, reversed in time.
        GuardedBuffer<float> v(x, 1), scratch(2 * M, 2), V(2 * M, 3), reversed(2 * M, 1);
        krl_forwardModulationComplex(v.data(), V.data(), scratch.data(), M, 8, nullptr, nullptr);
        krl_inverseModulationComplex(V.data(), reversed.data(), scratch.data(), M, 8, nullptr, KRL_r4_cplx_fwd_pair(M));
        std::vector<double> expected;
        for (uint32_t i = 0; i < 2 * M; i++)
            expected.push_back(static_cast<float>(M) * x[(2 * M - i / 2 * 2) % (2 * M) + i % 2]);
        expect_rows(bands + "complex, both", M, 2, reversed.values(), expected, 2e-6 * M);
    }
}

// Groups of four sine * sin(pi (2m + offset) ratio) and four cosine * cos of the same.
TEST(QmfTables, HoldTheirFormulasToTheBit) {
    const auto check = [](const char* name, const float* table, uint32_t pairs, double sine, double cosine,
                          double offset, double ratio) {
        EXPECT_EQ(reinterpret_cast<uintptr_t>(table) % 32, 0u) << name;
        for (uint32_t m = 0; m < pairs; m++) {
            const double angle = std::numbers::pi * (2 * m + offset) * ratio;
            const float* at = table + m / 4 * 8 + m % 4;
            EXPECT_EQ(at[0], static_cast<float>(sine * std::sin(angle))) << name << ", pair " << m;
            EXPECT_EQ(at[4], static_cast<float>(cosine * std::cos(angle))) << name << ", pair " << m;
        }
    };
#define CHECK(table, ...) check(#table, table, __VA_ARGS__)
#define ROTATIONS(M)                                                                                                   \
    CHECK(krl_cos_##M##_full, M, 0.5, 0.5, 0, 0.25 / M), CHECK(krl_cos_##M##_full_scl, M, 0.5 / M, 0.5 / M, 0, 0.25 / M)
#define FULL(T) CHECK(krl_cos_##T##_full_twiddle, T / 2, 1, -1, 1, 0.25 / T)
#define SHORT(M, ratio) CHECK(krl_cos_##M##_ast_mini_twiddle, M, 1, 1, 1, ratio)
    ROTATIONS(8), ROTATIONS(16), ROTATIONS(32), ROTATIONS(48), ROTATIONS(64), FULL(64), FULL(32);
    SHORT(8, 7.0 / 256), SHORT(16, 3.0 / 256), SHORT(32, 1.0 / 256), SHORT(48, 1.0 / 768);
}

} // namespace
