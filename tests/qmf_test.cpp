#include <korla/dsp/dct.h>
#include <korla/dsp/qmf.h>

#include "guarded_buffer.h"
#include "reference/qmf_model.h"
#include "signals.h"

#include <array>
#include <functional>
#include <string>

using namespace korla_test;

namespace {

using Samples = std::vector<float>;
constexpr double pi = std::numbers::pi;

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
const std::array max_length{KRL_qmf_analysisL_get_max_filter_state_length,
                            KRL_qmf_analysisS_get_max_filter_state_length};
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

// The three blocks, each guarded and at an odd address, filled with a pattern that open must not depend on.
struct Memory {
    template <class Query>
    Memory(Query query, uint32_t M, uint32_t P) {
        uint32_t bytes[3];
        query(M, P, &bytes[0], &bytes[1], &bytes[2]);
        for (size_t i = 0; i < 3; i++)
            block[i] = std::make_unique<GuardedBuffer<uint8_t>>(std::vector<uint8_t>(bytes[i], 0x5a), 1 + 10 * i);
    }
    bool is_untouched() const {
        return std::all_of(std::begin(block), std::end(block),
                           [](const auto& b) { return b->values() == std::vector<uint8_t>(b->size(), 0x5a); });
    }
    std::unique_ptr<GuardedBuffer<uint8_t>> block[3];
};

struct BankSetup {
    uint32_t M, P, mode;
    const float* prototype;
    Family family = L;
    uint32_t slots = 1, gap = 0; // slots of a call; floats between its rows of sub-bands
    uint32_t width(bool real) const { return real ? M : 2 * M; }
};

template <class Handle>
struct Bank : BankSetup {
    template <class Query, class Open>
    Bank(const BankSetup& setup, Query query, Open open)
        : BankSetup(setup), memory(query, M, P), handle(open(M, slots, mode, P, prototype, memory.block[0]->data(),
                                                             memory.block[1]->data(), memory.block[2]->data())) {
        EXPECT_NE(handle, nullptr);
    }
    std::vector<float*> rows(GuardedBuffer<float>& buffer, uint32_t distance) const {
        std::vector<float*> p;
        for (uint32_t s = 0; s < slots; s++)
            p.push_back(buffer.data() + s * distance);
        return p;
    }
    Memory memory;
    Handle* handle;
};

struct Analysis : Bank<krl_qmf_analysis> {
    explicit Analysis(const BankSetup& s) : Bank(s, query_analysis[s.family], open_analysis[s.family]) {
        if (gap)
            set_analysis_increment[family](handle, M + gap);
    }
    ~Analysis() { close_analysis[family](handle); }

    Samples run(bool real, const Samples& x) {
        const uint32_t distance = width(real) + gap;
        Samples X;
        for (size_t at = 0; at < x.size(); at += slots * M) {
            GuardedBuffer<float> out(slots * distance, 1);
            const auto to = rows(out, distance);
            real ? analyse_real[family](handle, out.data(), x.data() + at)
                 : analyse_complex[family](handle, to.data(), x.data() + at);
            for (float* row : to) {
                X.insert(X.end(), row, row + width(real));
                EXPECT_EQ(Samples(row + width(real), row + distance), Samples(gap)) << "between the rows";
            }
        }
        return X;
    }
};

struct Synthesis : Bank<krl_qmf_synthesis> {
    explicit Synthesis(const BankSetup& s) : Bank(s, query_synthesis[s.family], open_synthesis[s.family]) {
        if (gap)
            set_synthesis_increment[family](handle, M + gap);
    }
    ~Synthesis() { close_synthesis[family](handle); }

    Samples run(bool real, const Samples& X, decltype(&KRL_Lqmf_synthesisCL) headroom = nullptr) {
        const uint32_t distance = width(real) + gap;
        Samples y;
        for (auto row = X.begin(); row != X.end();) {
            GuardedBuffer<float> in(slots * distance, 1), out(slots * M, 3);
            const auto from = rows(in, distance);
            for (float* to : from)
                std::copy_n(row, width(real), to), row += width(real);
            real ? synthesise_real[family](handle, out.data(), in.data())
                 : (headroom ? headroom : synthesise_complex[family])(handle, out.data(), from.data());
            y.insert(y.end(), out.data(), out.data() + out.size());
        }
        return y;
    }
};

Samples noise(uint32_t M, size_t slots) { return Random(M + slots).vector(M * slots); }

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

std::vector<BankSetup> configurations() {
    static const Samples prototype = Random(7).vector(640);
    std::vector<BankSetup> all;
    for (uint32_t M : {8u, 16u, 32u, 48u, 64u})
        for (uint32_t P : {4u, 5u})
            for (uint32_t mode : {0u, 8u, 1u})
                if (M != 48 || mode != 1)
                    all.push_back({M, P, mode, prototype.data()});
    return all;
}
class Qmf : public testing::TestWithParam<BankSetup> {};
INSTANTIATE_TEST_SUITE_P(Banks, Qmf, testing::ValuesIn(configurations()), [](const auto& info) {
    const BankSetup& s = info.param;
    return std::to_string(s.M) + "bands_P" + std::to_string(s.P) + "_mode" + std::to_string(s.mode);
});

TEST_P(Qmf, EveryFormOfCallEqualsTheDefinition) {
    const auto& [M, P, mode, prototype, family, slots, gap] = GetParam();
    for (bool real : {true, false}) {
        const QmfModel model(M, P, Samples(prototype, prototype + 2 * P * M), mode, real);
        const auto x = noise(M, 22), Z = noise(GetParam().width(real), 22);
        const auto X = Analysis(GetParam()).run(real, x), y = Synthesis(GetParam()).run(real, Z);
        expect_near(X, model.analyse(x), 1.5e-6);
        expect_near(y, model.synthesise(Z), 2e-6 * std::sqrt(2.0 * P * M));
        for (Family f : families(M)) {
            const BankSetup many{M, P, mode, prototype, f, 11, 13};
            Analysis analysis(many);
            Synthesis synthesis(many);
            expect_same(analysis.run(real, x), X);
            expect_same(synthesis.run(real, Z), y);
            EXPECT_EQ(analysis_delay[f](analysis.handle), P * M - M / 2);
            EXPECT_EQ(synthesis_delay[f](synthesis.handle), P * M - M / 2 + 1);
        }
        Samples halves = Z;
        for (float& v : halves)
            v *= 0.5f;
        if (!real)
            expect_same(Synthesis(GetParam()).run(false, halves, KRL_Lqmf_synthesisCL_Head1Bit), y);
    }
}

TEST_P(Qmf, HistoryTravelsAndIsForgotten) {
    const auto& [M, P, mode, prototype, family, slots, gap] = GetParam();
    for (Family f : families(M)) {
        const BankSetup setup{M, P, mode, prototype, f};
        const auto x = noise(M, 14), other = noise(M, 3), silence = Samples(12 * M); // different phases of the ring
        Analysis source(setup), target(setup), twin(setup);
        source.run(true, x), target.run(true, other), twin.run(true, P == 5 ? x : other);
        GuardedBuffer<float> state(Random(3).vector(9 * M), 1); // stays as it is for P = 4
        const auto expected = P == 5 ? Samples(x.end() - 9 * M, x.end()) : state.values();
        unload[f](source.handle, state.data());
        expect_same(state.values(), expected);
        load[f](target.handle, state.data());
        expect_same(target.run(false, x), twin.run(false, x));
        init_analysis[f](target.handle);
        EXPECT_EQ(target.run(true, silence), silence); // of either sign

        Synthesis a(setup), b(setup), more_periods({M, 9 - P, mode, prototype, f}),
            more_bands({M == 8 ? 16u : 8u, P, 0, prototype, f});
        a.run(true, x);
        copy_states[f](b.handle, a.handle);
        copy_states[f](b.handle, more_periods.handle), copy_states[f](b.handle, more_bands.handle);
        copy_states[f](b.handle, nullptr);
        expect_same(b.run(true, x), a.run(true, x));
        init_synthesis[f](b.handle);
        EXPECT_EQ(b.run(true, silence), silence);
    }
}

TEST_P(Qmf, NanAndInfinityLeaveAfterThePrototypesLength) {
    const auto check = [](const Samples& v, size_t after) {
        EXPECT_FALSE(std::isfinite(v[0]));
        EXPECT_TRUE(
            std::all_of(v.begin() + static_cast<ptrdiff_t>(after), v.end(), [](float f) { return std::isfinite(f); }));
    };
    const BankSetup& setup = GetParam();
    for (float bad : {NAN, INFINITY})
        for (bool real : {true, false}) {
            const uint32_t width = setup.width(real), length = 2 * setup.P;
            auto x = noise(setup.M, length + 2), X = noise(width, length + 2);
            x[setup.M / 2] = X[width / 2] = bad;
            check(Analysis(setup).run(real, x), length * width);
            check(Synthesis(setup).run(real, X), length * setup.M);
        }
}

TEST(QmfReconfig, GivesTheBitsOfAFreshBankInTheSameMemory) {
    for (Family family : {L, S}) {
        Analysis bank({64, 5, 0, configurations()[0].prototype, family});
        for (BankSetup next : configurations()) {
            if (family == S && next.M == 48)
                continue;
            next.family = family, next.slots = 3;
            bank.run(true, noise(bank.M, 6)); // history that must not shine through
            set_analysis_increment[family](bank.handle, 7);
            ASSERT_EQ(reconfig[family](bank.handle, next.M, 3, next.mode, next.P, next.prototype), 0);
            static_cast<BankSetup&>(bank) = next;
            Analysis fresh(next);
            for (bool real : {true, false})
                expect_same(bank.run(real, noise(next.M, 15)), fresh.run(real, noise(next.M, 15)));
        }
    }
}

// ---- reconstruction ------------------------------------------------------------------------------------------------

TEST(QmfDesigns, SynthesisUndoesAnalysisWithUnitGainAtTheStatedDelay) {
    const struct {
        uint32_t M, P;
        const float *analysis, *synthesis;
    } designs[] = {
#define DESIGN(name, M, P) {M, P, krl_qmf_filter_coeff_##name##_vec_ana, krl_qmf_filter_coeff_##name##_vec_syn},
        DESIGN(P5, 64, 5) DESIGN(P4, 64, 4) DESIGN(P5_32, 32, 5) DESIGN(P4_32, 32, 4) DESIGN(P5_p64kvx301, 64, 5)
            DESIGN(P5_p64kvx301_48, 48, 5) DESIGN(P5_p64kvx301_32, 32, 5) DESIGN(P5_p64kvx301_16, 16, 5)
                DESIGN(P5_p64kvx301_8, 8, 5)};
    for (const auto& [M, P, analysis, synthesis] : designs) {
        // Noise, impulses at every phase of the slot, and a sweep to the Nyquist frequency.
        const size_t n = 120 * M, delay = (2 * P - 1) * M + 1;
        Samples x = noise(M, 120);
        x.resize(3 * n);
        for (size_t i = 0; i < n; i++) {
            x[n + i] = i % (13 * M + 1) ? 0.0f : 1.0f;
            x[2 * n + i] = static_cast<float>(std::sin(pi * static_cast<double>(i * i) / static_cast<double>(2 * n)));
        }
        for (uint32_t mode : {0u, 8u, 1u, 77u})
            for (bool real : {true, false}) {
                if (M == 48 && mode % 8 != 0)
                    continue;
                const auto y =
                    Synthesis({M, P, mode, synthesis}).run(real, Analysis({M, P, mode, analysis}).run(real, x));
                double error = 0.0, energy = 0.0;
                for (size_t i = 0; i < y.size(); i++) {
                    const double expected = i < delay ? 0.0 : x[i - delay], difference = y[i] - expected;
                    ASSERT_NEAR(difference, 0, 2e-6) << M << " bands, mode " << mode << ", sample " << i;
                    error += difference * difference, energy += expected * expected;
                }
                // The FFTs of 48 and 24 points have twiddles of six decimals; 48 bands owe their error to those.
                EXPECT_LE(std::sqrt(error / energy), M == 48 ? 1e-6 : 5e-7) << M << " bands, mode " << mode;
            }
    }
}

// ---- refusals and memory -------------------------------------------------------------------------------------------

TEST(QmfRefusal, HostileParametersTouchNothing) {
    const auto table = noise(64, 10);
    const auto refused = [&](const BankSetup& p, int null_block = -1) {
        const auto opens = [&](auto query, auto open) {
            Memory memory(query, 64, 5);
            void* block[3];
            for (int i = 0; i < 3; i++)
                block[i] = i == null_block ? nullptr : memory.block[i]->data();
            return open(p.M, 1, p.mode, p.P, p.prototype, block[0], block[1], block[2]) || !memory.is_untouched();
        };
        EXPECT_FALSE(opens(query_analysis[p.family], open_analysis[p.family])) << p.M << ", " << p.P;
        EXPECT_FALSE(opens(query_synthesis[p.family], open_synthesis[p.family])) << p.M << ", " << p.P;
        if (null_block >= 0)
            return;
        const BankSetup valid{32, 5, 0, table.data(), p.family};
        Analysis bank(valid), twin(valid);
        bank.run(true, table), twin.run(true, table);
        EXPECT_EQ(reconfig[p.family](bank.handle, p.M, 1, p.mode, p.P, p.prototype), -1) << p.M << ", " << p.P;
        expect_same(bank.run(true, table), twin.run(true, table));
    };
    for (Family family : {L, S}) {
        for (uint32_t M : {0u, 1u, 4u, 24u, 40u, 63u, 65u, 96u, 128u, 4096u, UINT32_MAX})
            refused({M, 5, 0, table.data(), family});
        for (uint32_t P : {0u, 1u, 3u, 6u, 8u, UINT32_MAX})
            refused({32, P, 0, table.data(), family});
        for (int i = 0; i < 3; i++)
            refused({32, 5, 0, table.data(), family}, i);
        refused({32, 5, 0, nullptr, family});
        refused({48, 5, 1, table.data(), family}); // the full twiddle has too few pairs
    }
    refused({48, 5, 0, table.data(), S});
}

TEST(QmfRefusal, NullInstancesDoNothing) {
    float x[64] = {1.0f};
    float* rows[1] = {x};
    for (Family f : {L, S}) {
        EXPECT_EQ(reconfig[f](nullptr, 32, 1, 0, 5, x), -1);
        EXPECT_EQ(analysis_delay[f](nullptr) + synthesis_delay[f](nullptr), 0u);
        init_analysis[f](nullptr), init_synthesis[f](nullptr), copy_states[f](nullptr, nullptr);
        set_analysis_increment[f](nullptr, 1), set_synthesis_increment[f](nullptr, 1);
        load[f](nullptr, x), unload[f](nullptr, x), close_analysis[f](nullptr), close_synthesis[f](nullptr);
        analyse_real[f](nullptr, x, x), analyse_complex[f](nullptr, rows, x);
        synthesise_real[f](nullptr, x, x), synthesise_complex[f](nullptr, x, rows);
    }
    EXPECT_EQ(x[0], 1.0f);
}

TEST(QmfMemory, QueriesAnswerTheStatedSizes) {
    using Sizes = std::array<uint32_t, 4>;
    const auto sizes = [](auto query, uint32_t M, uint32_t selector) {
        Sizes answer;
        answer[3] = query(M, selector, &answer[0], &answer[1], &answer[2]);
        EXPECT_EQ(query(M, selector, nullptr, nullptr, nullptr), answer[3]);
        return answer;
    };
    for (Family f : {L, S}) {
        for (uint32_t M : {8u, 16u, 32u, 48u, 64u, 65u, 128u, UINT32_MAX})
            for (uint32_t selector : {0u, 1u, 4u, 5u, 7u, 8u}) {
                const bool five = selector % 4 != 0;
                const uint32_t bands = M <= 64 && (f == L || M == 64) ? M : 32, taps = (five ? 36 : 28) * bands;
                const uint32_t scratch = 31 + 16 * bands, instance = f == L ? 127 : 119, result = f == L ? 127 : 1024;
                EXPECT_EQ(sizes(query_analysis[f], M, selector),
                          (Sizes{23 + (five ? 80u : 64u) + taps, scratch, instance, result}));
                EXPECT_EQ(sizes(query_synthesis[f], M, selector), (Sizes{31 + taps, scratch, instance, result}));
            }
        EXPECT_EQ(state_length[f](1, 48), 432u);
        EXPECT_EQ(state_length[f](0, 48), 336u);
        EXPECT_EQ(max_length[f](1), 576u);
        EXPECT_EQ(max_length[f](0), 448u);
    }
}

// ---- modulation steps and tables -----------------------------------------------------------------------------------

TEST(QmfModulation, RealStepsEqualTheirSums) {
    for (uint32_t M : {8u, 16u, 24u, 32u, 48u, 64u, 96u, 120u}) {
        const uint32_t h = M / 2;
        Samples table(M);
        for (uint32_t m = 0; m < M; m++)
            table[m] = static_cast<float>(std::sin(pi * m / (2 * M)));
        const Phasor phasor(M);
        const auto x = Random(M).vector(2 * M), X = Random(M + 1).vector(M);

        GuardedBuffer<float> f(x, 1), tmp(M, 2), apart(M, 3), together(M, 1);
        krl_forwardModulationReal(f.data(), apart.data(), M, KRL_r4_cplx_fwd_pair(h), table.data(), tmp.data());
        krl_forwardModulationReal(f.data(), together.data(), M, nullptr, table.data(), together.data());
        expect_same(f.values(), x);
        std::vector<double> subbands(M), samples(2 * M);
        for (uint32_t q = 0; q < M; q++)
            for (uint32_t r = 0; r < 2 * M; r++) {
                subbands[q] += x[r] * phasor((2 * q + 1) * (r + 4 * M - 3 * h)).real() / (2 * M);
                samples[r] += 2 * X[q] * phasor((2 * q + 1) * (r + 4 * M - h)).real();
            }
        expect_near(apart.values(), subbands, 2e-7);
        expect_near(together.values(), subbands, 2e-7);

        GuardedBuffer<float> first(X, 1), second(M, 3), both(2 * M, 1);
        std::copy(X.begin(), X.end(), both.data());
        krl_inverseModulationReal(first.data(), second.data(), M, nullptr, table.data());
        krl_inverseModulationReal(both.data(), both.data(), M, KRL_r4_cplx_fwd_pair(h), table.data());
        EXPECT_BITS_EQ(both.data(), first.data(), M);
        EXPECT_BITS_EQ(both.data() + M, second.data(), M);
        expect_near(both.values(), samples, 4e-6 * std::sqrt(M));
    }
}

TEST(QmfModulation, ComplexStepsUndoEachOtherWithEveryTwiddle) {
    const struct {
        uint32_t M, mode;
        const float* twiddle;
    } cases[] = {{64, 0, nullptr},
                 {64, 8, nullptr},
                 {64, 3, krl_cos_64_full_twiddle},
                 {32, 3, krl_cos_32_full_twiddle},
                 {16, 3, krl_cos_32_full_twiddle},
                 {8, 3, krl_cos_32_full_twiddle},
                 {32, 8, krl_cos_32_ast_mini_twiddle},
                 {48, 8, krl_cos_48_ast_mini_twiddle},
                 {24, 0, nullptr}};
    for (const auto& [M, mode, twiddle] : cases) {
        const auto v = Random(M).vector(2 * M);
        GuardedBuffer<float> in(v, 1), scratch(2 * M, 2), X(2 * M, 3), Y(2 * M, 1);
        krl_forwardModulationComplex(in.data(), X.data(), scratch.data(), M, mode, twiddle, KRL_r4_cplx_fwd_pair(M));
        const auto X_before = X.values();
        krl_inverseModulationComplex(X.data(), Y.data(), scratch.data(), M, mode, twiddle, nullptr);
        expect_same(X.values(), X_before);
        // The spectrum comes back; its forward transform is the input reversed in time, M times.
        for (uint32_t i = 0; i < 2 * M; i++)
            ASSERT_NEAR(Y[i], M * v[(2 * M - i / 2 * 2) % (2 * M) + i % 2], 2e-6 * M) << M << ", mode " << mode;
    }
}

TEST(QmfModulation, UnsupportedLengthsTouchNothing) {
    for (uint32_t M : {0u, 4u, 12u, 20u, 56u, 63u}) { // 56: a multiple of 8 without kernels
        const auto x = Random(M).vector(128);
        GuardedBuffer<float> a(x), b(x), c(x);
        krl_forwardModulationReal(a.data(), b.data(), M, nullptr, x.data(), c.data());
        krl_inverseModulationReal(a.data(), b.data(), M, nullptr, x.data());
        krl_forwardModulationComplex(a.data(), b.data(), c.data(), M, 0, nullptr, nullptr);
        krl_inverseModulationComplex(a.data(), b.data(), c.data(), M, 0, nullptr, nullptr);
        for (const auto* buffer : {&a, &b, &c})
            expect_same(buffer->values(), x);
    }
}

TEST(QmfTables, HoldTheirFormulasToTheBit) {
    // Groups of four sin_gain * sin(pi (2m + offset) ratio) and four cos_gain * cos of the same.
    const struct {
        const char* name;
        const float* table;
        uint32_t pairs;
        double sin_gain, cos_gain, offset, ratio;
    } tables[] = {
#define ROTATIONS(M)                                                                                                   \
    {"full", krl_cos_##M##_full, M, 0.5, 0.5, 0, 0.25 / M},                                                            \
        {"full_scl", krl_cos_##M##_full_scl, M, 0.5 / M, 0.5 / M, 0, 0.25 / M},
        ROTATIONS(8) ROTATIONS(16) ROTATIONS(32) ROTATIONS(48)
            ROTATIONS(64){"64 full twiddle", krl_cos_64_full_twiddle, 32, 1, -1, 1, 1.0 / 256},
        {"32 full twiddle", krl_cos_32_full_twiddle, 16, 1, -1, 1, 1.0 / 128},
        {"8 short twiddle", krl_cos_8_ast_mini_twiddle, 8, 1, 1, 1, 7.0 / 256},
        {"16 short twiddle", krl_cos_16_ast_mini_twiddle, 16, 1, 1, 1, 3.0 / 256},
        {"32 short twiddle", krl_cos_32_ast_mini_twiddle, 32, 1, 1, 1, 1.0 / 256},
        {"48 short twiddle", krl_cos_48_ast_mini_twiddle, 48, 1, 1, 1, 1.0 / 768}};
    for (const auto& t : tables) {
        EXPECT_EQ(reinterpret_cast<uintptr_t>(t.table) % 16, 0u) << t.name;
        for (uint32_t m = 0; m < t.pairs; m++) {
            const float* at = t.table + m / 4 * 8 + m % 4;
            const double angle = pi * (2 * m + t.offset) * t.ratio;
            EXPECT_EQ(at[0], static_cast<float>(t.sin_gain * std::sin(angle))) << t.name << ", pair " << m;
            EXPECT_EQ(at[4], static_cast<float>(t.cos_gain * std::cos(angle))) << t.name << ", pair " << m;
        }
    }
}

} // namespace
