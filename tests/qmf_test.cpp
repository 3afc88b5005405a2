#include <korla/dsp/dct.h>
#include <korla/dsp/qmf.h>

#include "guarded_buffer.h"
#include "reference/qmf_model.h"
#include "signals.h"

#include <array>
#include <tuple>

using namespace korla_test;

namespace {

using Samples = std::vector<float>;

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

struct BankSetup {
    uint32_t M, P, mode;
    const Samples& prototype;
    Family family = L;
    uint32_t slots = 1, gap = 0; // slots of a call; floats between its rows of sub-bands
};

// The three blocks are guarded and at odd addresses, with a pattern that open must not depend on.
template <class Handle> struct Bank : BankSetup {
    template <class Query, class Open> Bank(const BankSetup& setup, Query query, Open open) : BankSetup(setup) {
        uint32_t bytes[3];
        query(M, P, &bytes[0], &bytes[1], &bytes[2]);
        for (size_t i = 0; i < 3; i++)
            memory[i] = std::make_unique<GuardedBuffer<uint8_t>>(std::vector<uint8_t>(bytes[i], 0x5a), 1 + 10 * i);
        handle = open(M, slots, mode, P, prototype.data(), memory[0]->data(), memory[1]->data(), memory[2]->data());
        EXPECT_NE(handle, nullptr);
    }

    std::vector<float*> rows(GuardedBuffer<float>& subbands, bool real) const {
        std::vector<float*> rows;
        for (size_t at = 0; at < subbands.size(); at += (real ? M : 2 * M) + gap)
            rows.push_back(subbands.data() + at);
        return rows;
    }
    Handle* handle;
    std::unique_ptr<GuardedBuffer<uint8_t>> memory[3];
};

struct Analysis : Bank<krl_qmf_analysis> {
    explicit Analysis(const BankSetup& s) : Bank(s, query_analysis[s.family], open_analysis[s.family]) {}

    Samples run(bool real, const Samples& x) {
        GuardedBuffer<float> out(x.size() / M * ((real ? M : 2 * M) + gap), 1);
        const auto to = rows(out, real);
        for (size_t s = 0; s < to.size(); s += slots)
            real ? analyse_real[family](handle, to[s], &x[s * M]) : analyse_complex[family](handle, &to[s], &x[s * M]);
        return out.values();
    }
};

struct Synthesis : Bank<krl_qmf_synthesis> {
    explicit Synthesis(const BankSetup& s) : Bank(s, query_synthesis[s.family], open_synthesis[s.family]) {}

    Samples run(bool real, const Samples& X, decltype(&KRL_Lqmf_synthesisCL) headroom = nullptr) {
        GuardedBuffer<float> in(X, 1);
        const auto from = rows(in, real);
        GuardedBuffer<float> y(from.size() * M, 3);
        for (size_t s = 0; s < from.size(); s += slots)
            real ? synthesise_real[family](handle, &y[s * M], from[s])
                 : (headroom ? headroom : synthesise_complex[family])(handle, &y[s * M], &from[s]);
        return y.values();
    }
};

Samples noise(uint32_t M, size_t slots) { return Random(M + slots).vector(M * slots); }

// Rows with a gap of zeros behind each.
Samples spaced(const Samples& rows, size_t width, size_t gap) {
    Samples all(rows.size() / width * (width + gap));
    for (size_t i = 0; i < rows.size(); i++)
        all[i + i / width * gap] = rows[i];
    return all;
}

void expect_near(const Samples& actual, const std::vector<double>& expected, double tolerance) {
    ASSERT_EQ(actual.size(), expected.size());
    for (size_t i = 0; i < actual.size(); i++)
        ASSERT_NEAR(actual[i], expected[i], tolerance) << "at " << i;
}
void expect_same(const Samples& actual, const Samples& expected) {
    ASSERT_EQ(actual.size(), expected.size());
    EXPECT_BITS_EQ(actual, expected, expected.size());
}

// ---- every configuration, with a random prototype, which hides nothing behind symmetry or small taps ---------------

const Samples prototype = Random(7).vector(640);

class Qmf : public testing::TestWithParam<std::tuple<uint32_t, uint32_t, uint32_t>> {}; // M, P, mode
using testing::Combine, testing::Values;
INSTANTIATE_TEST_SUITE_P(Banks, Qmf, Combine(Values(8, 16, 32, 64), Values(4, 5), Values(0, 8, 1)));
INSTANTIATE_TEST_SUITE_P(BanksOf48, Qmf, Combine(Values(48), Values(4, 5), Values(0, 8)));

TEST_P(Qmf, EveryFormOfCallEqualsTheDefinition) {
    const auto [M, P, mode] = GetParam();
    const BankSetup single{M, P, mode, prototype};
    for (bool real : {true, false}) {
        const QmfModel model(M, P, prototype, mode, real);
        const uint32_t width = real ? M : 2 * M, gap = 13;
        const auto x = noise(M, 18), Z = noise(width, 18);
        auto X = Analysis(single).run(real, x), y = Synthesis(single).run(real, Z);
        expect_near(X, model.analyse(x), 1.5e-6);
        expect_near(y, model.synthesise(Z), 2e-6 * std::sqrt(2.0 * P * M));
        for (Family f : families(M)) {
            const BankSetup many{M, P, mode, prototype, f, 9, gap};
            Analysis analysis(many), reconfigured({64, 5, 0, prototype, f});
            Synthesis synthesis(many);
            set_analysis_increment[f](analysis.handle, M + gap);
            set_synthesis_increment[f](synthesis.handle, M + gap);
            expect_same(analysis.run(real, x), spaced(X, width, gap));
            expect_same(synthesis.run(real, spaced(Z, width, gap)), y);
            EXPECT_EQ(analysis_delay[f](analysis.handle), P * M - M / 2);
            EXPECT_EQ(synthesis_delay[f](synthesis.handle), P * M - M / 2 + 1);

            reconfigured.run(real, noise(64, 6)); // history and increment must not shine through
            set_analysis_increment[f](reconfigured.handle, 7);
            EXPECT_EQ(reconfig[f](reconfigured.handle, M, 9, mode, P, prototype.data()), 0);
            reconfigured.M = M, reconfigured.slots = 9;
            expect_same(reconfigured.run(real, x), X);
            close_analysis[f](analysis.handle), close_synthesis[f](synthesis.handle);
        }
        for (float& v : y)
            v *= 2.0f;
        if (!real)
            expect_same(Synthesis(single).run(real, Z, KRL_Lqmf_synthesisCL_Head1Bit), y);
    }
}

TEST_P(Qmf, HistoryTravelsAndIsForgotten) {
    const auto [M, P, mode] = GetParam();
    for (Family f : families(M)) {
        const BankSetup setup{M, P, mode, prototype, f};
        const auto x = noise(M, 2 * P), other = noise(M, 3), silence = Samples(M); // another phase of the ring
        Analysis source(setup), target(setup), twin(setup);
        source.run(true, x), target.run(true, other), twin.run(true, P == 5 ? x : other);
        GuardedBuffer<float> state(Random(3).vector(9 * M), 1); // stays as it is for P = 4
        const auto expected = P == 5 ? Samples(x.end() - 9 * M, x.end()) : state.values();
        unload[f](source.handle, state.data());
        expect_same(state.values(), expected);
        load[f](target.handle, state.data());
        expect_same(target.run(true, x), twin.run(true, x));

        Synthesis a(setup), b(setup), periods({M, 9 - P, mode, prototype, f});
        Synthesis bands({M == 8 ? 16u : 8u, P, 0, prototype, f});
        a.run(true, x);
        copy_states[f](b.handle, a.handle);
        for (const krl_qmf_synthesis* refused : {periods.handle, bands.handle, decltype(a.handle){}})
            copy_states[f](b.handle, refused);
        expect_same(b.run(true, x), a.run(true, x));

        for (float bad : {NAN, INFINITY}) { // gone after 2P slots
            target.run(true, Samples(M, bad)), target.run(true, x), a.run(true, Samples(M, bad)), a.run(true, x);
            expect_same(target.run(true, x), twin.run(true, x));
            expect_same(a.run(true, x), b.run(true, x));
        }
        init_analysis[f](target.handle), init_synthesis[f](a.handle);
        EXPECT_EQ(target.run(true, silence), silence); // of either sign
        EXPECT_EQ(a.run(true, silence), silence);
    }
}

TEST(QmfDesigns, SynthesisUndoesAnalysisWithUnitGainAtTheStatedDelay) {
    const auto check = [](uint32_t M, uint32_t P, const float* analysis, const float* synthesis) {
        const Samples forward(analysis, analysis + 2 * P * M), backward(synthesis, synthesis + 2 * P * M);
        for (const Samples& x : stimuli(300 * M)) {
            std::vector<double> delayed((2 * P - 1) * M + 1);
            delayed.insert(delayed.end(), x.begin(), x.end() - static_cast<ptrdiff_t>(delayed.size()));
            for (bool real : {true, false})
                for (uint32_t mode : {0u, 8u, 1u, 77u}) {
                    if (M == 48 && mode % 8 != 0)
                        continue;
                    const auto y =
                        Synthesis({M, P, mode, backward}).run(real, Analysis({M, P, mode, forward}).run(real, x));
                    expect_near(y, delayed, 2e-6);
                    double squares = 0.0;
                    for (size_t i = 0; i < y.size(); i++)
                        squares += (y[i] - delayed[i]) * (y[i] - delayed[i]);
                    EXPECT_LT(std::sqrt(squares / y.size()), M == 48 ? 1e-6 : 5e-7) << M << ", " << P << ", " << mode;
                }
        }
    };
#define DESIGN(name, M, P) check(M, P, krl_qmf_filter_coeff_##name##_vec_ana, krl_qmf_filter_coeff_##name##_vec_syn)
    DESIGN(P5, 64, 5), DESIGN(P4, 64, 4), DESIGN(P5_32, 32, 5), DESIGN(P4_32, 32, 4), DESIGN(P5_p64kvx301, 64, 5),
        DESIGN(P5_p64kvx301_48, 48, 5), DESIGN(P5_p64kvx301_32, 32, 5), DESIGN(P5_p64kvx301_16, 16, 5),
        DESIGN(P5_p64kvx301_8, 8, 5);
}

// ---- refusals and memory -------------------------------------------------------------------------------------------

TEST(QmfRefusal, HostileParametersTouchNothing) {
    for (Family f : {L, S}) {
        Analysis bank({32, 5, 0, prototype, f}), twin({32, 5, 0, prototype, f});
        bank.run(true, prototype), twin.run(true, prototype);
        const auto refused = [&](uint32_t M, uint32_t P, uint32_t mode, const float* table, int null_block = -1) {
            GuardedBuffer<float> memory(noise(64, 40));
            const auto at = [&](int i) { return i == null_block ? nullptr : memory.data() + 800 * i; };
            EXPECT_EQ(open_analysis[f](M, 1, mode, P, table, at(0), at(1), at(2)), nullptr) << M << ", " << P;
            EXPECT_EQ(open_synthesis[f](M, 1, mode, P, table, at(0), at(1), at(2)), nullptr) << M << ", " << P;
            expect_same(memory.values(), noise(64, 40));
            EXPECT_EQ(reconfig[f](null_block < 0 ? bank.handle : nullptr, M, 1, mode, P, table), -1) << M << ", " << P;
        };
        for (uint32_t M : {0u, 1u, 4u, 24u, 40u, 63u, 65u, 96u, 128u, 4096u, UINT32_MAX})
            refused(M, 5, 0, prototype.data());
        for (uint32_t P : {0u, 1u, 3u, 6u, 8u, UINT32_MAX})
            refused(32, P, 0, prototype.data());
        for (int i = 0; i < 3; i++)
            refused(32, 5, 0, prototype.data(), i);
        refused(32, 5, 0, nullptr);
        refused(48, 5, f == L ? 1 : 0, prototype.data()); // the full twiddle has too few pairs; S has no 48 bands
        expect_same(bank.run(true, prototype), twin.run(true, prototype));
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
    expect_same(buffer.values(), noise(64, 2));
}

TEST(QmfMemory, QueriesAnswerTheStatedSizes) {
    const auto check = [](auto query, uint32_t M, uint32_t selector, const std::array<uint32_t, 4>& expected) {
        std::array<uint32_t, 4> answer;
        answer[3] = query(M, selector, &answer[0], &answer[1], &answer[2]);
        EXPECT_EQ(answer, expected) << M << ", " << selector;
        EXPECT_EQ(query(M, selector, nullptr, nullptr, nullptr), expected[3]);
    };
    for (Family f : {L, S})
        for (uint32_t M : {8u, 16u, 32u, 48u, 64u, 65u, 128u, UINT32_MAX})
            for (uint32_t selector : {0u, 1u, 4u, 5u, 7u, 8u}) {
                const bool five = selector % 4 != 0;
                const uint32_t bands = M <= 64 && (f == L || M == 64) ? M : 32, taps = (five ? 36 : 28) * bands;
                const uint32_t scratch = 31 + 16 * bands, instance = f == L ? 127 : 119, result = f == L ? 127 : 1024;
                check(query_analysis[f], M, selector, {23 + (five ? 80 : 64) + taps, scratch, instance, result});
                check(query_synthesis[f], M, selector, {31 + taps, scratch, instance, result});
                EXPECT_EQ(state_length[f](selector, M), (selector ? 9 : 7) * M);
                EXPECT_EQ(longest[f](selector), selector ? 576u : 448u);
            }
}

// ---- modulation steps and tables -----------------------------------------------------------------------------------

TEST(QmfModulation, StepsEqualTheirSumsAndUndoEachOther) {
    for (uint32_t M : {8u, 16u, 24u, 32u, 48u, 64u, 96u, 120u}) {
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
        GuardedBuffer<float> f(x, 1), tmp(M, 2), apart(M, 3), together(M, 1);
        krl_forwardModulationReal(f.data(), apart.data(), M, KRL_r4_cplx_fwd_pair(h), table.data(), tmp.data());
        krl_forwardModulationReal(f.data(), together.data(), M, nullptr, table.data(), together.data());
        expect_same(f.values(), x);
        expect_near(apart.values(), subbands, 2e-7);
        expect_near(together.values(), subbands, 2e-7);

        GuardedBuffer<float> first(X, 1), second(M, 3), both(spaced(X, M, M), 1);
        krl_inverseModulationReal(first.data(), second.data(), M, nullptr, table.data());
        krl_inverseModulationReal(both.data(), both.data(), M, KRL_r4_cplx_fwd_pair(h), table.data());
        EXPECT_BITS_EQ(both.data(), first.data(), M);
        EXPECT_BITS_EQ(both.data() + M, second.data(), M);
        expect_near(both.values(), samples, 4e-6 * std::sqrt(M));

        // Without a table the complex steps undo each other but for an FFT each: M times the input, reversed in time.
        GuardedBuffer<float> v(x, 1), scratch(2 * M, 2), V(2 * M, 3), reversed(2 * M, 1);
        krl_forwardModulationComplex(v.data(), V.data(), scratch.data(), M, 8, nullptr, nullptr);
        krl_inverseModulationComplex(V.data(), reversed.data(), scratch.data(), M, 8, nullptr, KRL_r4_cplx_fwd_pair(M));
        for (uint32_t i = 0; i < 2 * M; i++)
            ASSERT_NEAR(reversed[i], M * x[(2 * M - i / 2 * 2) % (2 * M) + i % 2], 2e-6 * M) << M;
    }
}

// Groups of four sine * sin(pi (2m + offset) ratio) and four cosine * cos of the same.
TEST(QmfTables, HoldTheirFormulasToTheBit) {
    const auto check = [](const float* table, uint32_t pairs, double sine, double cosine, double offset, double ratio) {
        EXPECT_EQ(reinterpret_cast<uintptr_t>(table) % 32, 0u) << ratio;
        for (uint32_t m = 0; m < pairs; m++) {
            const double angle = std::numbers::pi * (2 * m + offset) * ratio;
            const float* at = table + m / 4 * 8 + m % 4;
            EXPECT_EQ(at[0], static_cast<float>(sine * std::sin(angle))) << ratio << ", pair " << m;
            EXPECT_EQ(at[4], static_cast<float>(cosine * std::cos(angle))) << ratio << ", pair " << m;
        }
    };
#define ROTATIONS(M)                                                                                                   \
    check(krl_cos_##M##_full, M, 0.5, 0.5, 0, 0.25 / M), check(krl_cos_##M##_full_scl, M, 0.5 / M, 0.5 / M, 0, 0.25 / M)
#define FULL(T) check(krl_cos_##T##_full_twiddle, T / 2, 1, -1, 1, 0.25 / T)
#define SHORT(M, ratio) check(krl_cos_##M##_ast_mini_twiddle, M, 1, 1, 1, ratio)
    ROTATIONS(8), ROTATIONS(16), ROTATIONS(32), ROTATIONS(48), ROTATIONS(64), FULL(64), FULL(32);
    SHORT(8, 7.0 / 256), SHORT(16, 3.0 / 256), SHORT(32, 1.0 / 256), SHORT(48, 1.0 / 768);
}

} // namespace
