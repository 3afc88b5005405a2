#include <korla/dsp/dct.h>
#include <korla/dsp/qmf.h>

#include "guarded_buffer.h"
#include "reference/cosine_transforms.h"
#include "reference/qmf_model.h"
#include "signals.h"

#include <algorithm>
#include <functional>
#include <memory>
#include <string>

using namespace korla_test;

namespace {

using Rows = std::vector<std::vector<float>>;
constexpr double pi = std::numbers::pi;

// ---- both families through one interface, in memory of exactly the stated size
// -----------------------------------------

struct Family {
    const char* name;
    decltype(&KRL_qmf_analysisL_query_mem) query_analysis;
    decltype(&krl_qmf_analysisL_open) open_analysis;
    decltype(&krl_qmf_analysisL_reconfig) reconfig;
    decltype(&KRL_qmf_analysisL_init) init_analysis;
    decltype(&KRL_qmf_analysisL_set_slot_increment) set_analysis_increment;
    decltype(&KRL_qmf_analysisL_get_delay) analysis_delay;
    decltype(&KRL_qmf_analysisL_get_filter_state_length) state_length;
    decltype(&KRL_qmf_analysisL_get_max_filter_state_length) max_state_length;
    decltype(&KRL_load_CLqmf_analysisL_filter_stateL) load;
    decltype(&KRL_Lunload_CLqmf_analysisL_filter_state) unload;
    decltype(&KRL_Lqmf_analysisL) analyse_real;
    decltype(&KRL_CLqmf_analysisL) analyse_complex;
    decltype(&KRL_qmf_analysisL_close) close_analysis;
    decltype(&KRL_qmf_synthesisL_query_mem) query_synthesis;
    decltype(&krl_qmf_synthesisL_open) open_synthesis;
    decltype(&KRL_qmf_synthesisL_init) init_synthesis;
    decltype(&KRL_qmf_synthesisL_set_slot_increment) set_synthesis_increment;
    decltype(&KRL_qmf_synthesisL_get_delay) synthesis_delay;
    decltype(&KRL_qmf_synthesisL_copy_states) copy_states;
    decltype(&KRL_Lqmf_synthesisL) synthesise_real;
    decltype(&KRL_Lqmf_synthesisCL) synthesise_complex;
    decltype(&KRL_qmf_synthesisL_close) close_synthesis;
};
const Family L{"L",
               KRL_qmf_analysisL_query_mem,
               krl_qmf_analysisL_open,
               krl_qmf_analysisL_reconfig,
               KRL_qmf_analysisL_init,
               KRL_qmf_analysisL_set_slot_increment,
               KRL_qmf_analysisL_get_delay,
               KRL_qmf_analysisL_get_filter_state_length,
               KRL_qmf_analysisL_get_max_filter_state_length,
               KRL_load_CLqmf_analysisL_filter_stateL,
               KRL_Lunload_CLqmf_analysisL_filter_state,
               KRL_Lqmf_analysisL,
               KRL_CLqmf_analysisL,
               KRL_qmf_analysisL_close,
               KRL_qmf_synthesisL_query_mem,
               krl_qmf_synthesisL_open,
               KRL_qmf_synthesisL_init,
               KRL_qmf_synthesisL_set_slot_increment,
               KRL_qmf_synthesisL_get_delay,
               KRL_qmf_synthesisL_copy_states,
               KRL_Lqmf_synthesisL,
               KRL_Lqmf_synthesisCL,
               KRL_qmf_synthesisL_close};
const Family S{"S",
               KRL_qmf_analysisS_query_mem,
               krl_qmf_analysisS_open,
               krl_qmf_analysisS_reconfig,
               KRL_qmf_analysisS_init,
               KRL_qmf_analysisS_set_slot_increment,
               KRL_qmf_analysisS_get_delay,
               KRL_qmf_analysisS_get_filter_state_length,
               KRL_qmf_analysisS_get_max_filter_state_length,
               KRL_load_CLqmf_analysisS_filter_stateL,
               KRL_Lunload_CLqmf_analysisS_filter_state,
               KRL_Lqmf_analysisS,
               KRL_CLqmf_analysisS,
               KRL_qmf_analysisS_close,
               KRL_qmf_synthesisS_query_mem,
               krl_qmf_synthesisS_open,
               KRL_qmf_synthesisS_init,
               KRL_qmf_synthesisS_set_slot_increment,
               KRL_qmf_synthesisS_get_delay,
               KRL_qmf_synthesisS_copy_states,
               KRL_Sqmf_synthesisL,
               KRL_Sqmf_synthesisCL,
               KRL_qmf_synthesisS_close};

// The three blocks, each guarded and at an odd address, filled with a pattern that open must not depend on.
struct Blocks {
    template <class Query>
    Blocks(Query query, uint32_t M, uint32_t P) {
        uint32_t bytes[3];
        query(M, P, &bytes[0], &bytes[1], &bytes[2]);
        for (int i = 0; i < 3; i++)
            block[i] = std::make_unique<GuardedBuffer<uint8_t>>(std::vector<uint8_t>(bytes[i], 0x5a), 1 + 10 * i);
    }
    std::vector<uint8_t> contents() const {
        std::vector<uint8_t> all;
        for (const auto& b : block)
            for (uint8_t byte : b->values())
                all.push_back(byte);
        return all;
    }
    std::unique_ptr<GuardedBuffer<uint8_t>> block[3];
};

std::vector<float*> row_pointers(Rows& rows) {
    std::vector<float*> p;
    for (auto& row : rows)
        p.push_back(row.data());
    return p;
}

struct BankSetup {
    uint32_t M, P, mode;
    const std::vector<float>* prototype;
    const Family* family = &L;
    uint32_t slots = 1;
};

struct Analysis {
    explicit Analysis(const BankSetup& s, uint32_t memory_M = 0)
        : setup(s), blocks(s.family->query_analysis, memory_M ? memory_M : s.M, s.P) {
        handle = s.family->open_analysis(s.M, s.slots, s.mode, s.P, s.prototype->data(), blocks.block[0]->data(),
                                         blocks.block[1]->data(), blocks.block[2]->data());
        EXPECT_NE(handle, nullptr);
    }
    ~Analysis() { setup.family->close_analysis(handle); }

    Rows real(const std::vector<float>& x) {
        return run(x, setup.M, setup.M,
                   [&](float* out, const float* in) { setup.family->analyse_real(handle, out, in); });
    }
    Rows complex(const std::vector<float>& x) {
        return run(x, 2 * setup.M, 2 * setup.M, [&](float* out, const float* in) {
            std::vector<float*> rows;
            for (uint32_t s = 0; s < setup.slots; s++)
                rows.push_back(out + s * 2 * setup.M);
            setup.family->analyse_complex(handle, rows.data(), in);
        });
    }
    Rows subbands(bool real_valued, const std::vector<float>& x) { return real_valued ? real(x) : complex(x); }

    BankSetup setup;
    Blocks blocks;
    krl_qmf_analysis* handle;

private:
    template <class Call>
    Rows run(const std::vector<float>& x, uint32_t width, uint32_t distance, Call call) {
        Rows rows;
        for (size_t at = 0; at < x.size(); at += setup.slots * setup.M) {
            GuardedBuffer<float> out(setup.slots * distance, 1);
            call(out.data(), x.data() + at);
            for (uint32_t s = 0; s < setup.slots; s++)
                rows.emplace_back(out.data() + s * distance, out.data() + s * distance + width);
        }
        return rows;
    }
};

struct Synthesis {
    explicit Synthesis(const BankSetup& s) : setup(s), blocks(s.family->query_synthesis, s.M, s.P) {
        handle = s.family->open_synthesis(s.M, s.slots, s.mode, s.P, s.prototype->data(), blocks.block[0]->data(),
                                          blocks.block[1]->data(), blocks.block[2]->data());
        EXPECT_NE(handle, nullptr);
    }
    ~Synthesis() { setup.family->close_synthesis(handle); }

    std::vector<float> run(Rows X, const std::function<void(float*, size_t)>& call) {
        std::vector<float> y;
        for (size_t s = 0; s < X.size(); s += setup.slots) {
            GuardedBuffer<float> out(setup.slots * setup.M, 1);
            call(out.data(), s);
            y.insert(y.end(), out.data(), out.data() + out.size());
        }
        return y;
    }
    std::vector<float> real(const Rows& X) {
        return run(X, [&](float* out, size_t s) {
            std::vector<float> in;
            for (uint32_t i = 0; i < setup.slots; i++)
                in.insert(in.end(), X[s + i].begin(), X[s + i].end());
            setup.family->synthesise_real(handle, out, in.data());
        });
    }
    std::vector<float> complex(Rows X, decltype(&KRL_Lqmf_synthesisCL) function = nullptr) {
        const auto rows = row_pointers(X);
        return run(X, [&](float* out, size_t s) {
            (function ? function : setup.family->synthesise_complex)(handle, out, rows.data() + s);
        });
    }
    std::vector<float> samples(bool real_valued, const Rows& X) { return real_valued ? real(X) : complex(X); }

    BankSetup setup;
    Blocks blocks;
    krl_qmf_synthesis* handle;
};

// ---- signals and designs
// ----------------------------------------------------------------------------------------------

struct Design {
    std::string name;
    uint32_t M, P;
    std::vector<float> analysis, synthesis;
};
void PrintTo(const Design& design, std::ostream* out) { *out << design.name; }
const std::vector<Design>& designs() {
    static const std::vector<Design> all = [] {
        std::vector<Design> d;
        const auto add = [&](const char* name, uint32_t M, uint32_t P, const float* analysis, const float* synthesis) {
            d.push_back({name, M, P, {analysis, analysis + 2 * P * M}, {synthesis, synthesis + 2 * P * M}});
        };
#define DESIGN(name, M, P)                                                                                             \
    add(#name, M, P, krl_qmf_filter_coeff_##name##_vec_ana, krl_qmf_filter_coeff_##name##_vec_syn);
        DESIGN(P5, 64, 5)
        DESIGN(P4, 64, 4)
        DESIGN(P5_32, 32, 5)
        DESIGN(P4_32, 32, 4)
        DESIGN(P5_p64kvx301, 64, 5)
        DESIGN(P5_p64kvx301_48, 48, 5)
        DESIGN(P5_p64kvx301_32, 32, 5)
        DESIGN(P5_p64kvx301_16, 16, 5)
        DESIGN(P5_p64kvx301_8, 8, 5)
        return d;
    }();
    return all;
}
const Design& design(uint32_t M, uint32_t P) {
    return *std::find_if(designs().begin(), designs().end(), [=](const Design& d) { return d.M == M && d.P == P; });
}

std::vector<float> noise(uint32_t M, size_t slots) { return Random(M + slots).vector(M * slots); }

void expect_near(const std::vector<float>& actual, const std::vector<double>& expected, double tolerance,
                 const char* what) {
    ASSERT_EQ(actual.size(), expected.size());
    for (size_t i = 0; i < actual.size(); i++)
        ASSERT_NEAR(actual[i], expected[i], tolerance) << what << " at " << i;
}
std::vector<double> interleaved(const std::vector<QmfModel::complex>& z) {
    std::vector<double> v;
    for (const auto& x : z)
        v.push_back(x.real()), v.push_back(x.imag());
    return v;
}

void expect_same_rows(const Rows& a, const Rows& b) {
    ASSERT_EQ(a.size(), b.size());
    for (size_t s = 0; s < a.size(); s++)
        ASSERT_TRUE(bit_equal(a[s], b[s], b[s].size())) << "slot " << s;
}

// ---- every configuration
// ----------------------------------------------------------------------------------------------

struct Configuration {
    uint32_t M, P, mode;
};
std::vector<Configuration> configurations() {
    std::vector<Configuration> all;
    for (uint32_t M : {8u, 16u, 32u, 48u, 64u})
        for (uint32_t P : {4u, 5u})
            for (uint32_t mode : {0u, 8u, 1u})
                if (M != 48 || mode != 1)
                    all.push_back({M, P, mode});
    return all;
}
class Qmf : public testing::TestWithParam<Configuration> {};
INSTANTIATE_TEST_SUITE_P(Banks, Qmf, testing::ValuesIn(configurations()), [](const auto& info) {
    return std::to_string(info.param.M) + "bands_P" + std::to_string(info.param.P) + "_mode" +
           std::to_string(info.param.mode);
});

// Random prototypes hide nothing behind symmetry or small taps.
TEST_P(Qmf, EqualsTheDefinitionOfAModulatedBankForAnyPrototype) {
    const auto [M, P, mode] = GetParam();
    const auto table = Random(7 * M + P).vector(2 * P * M);
    const QmfModel model(M, P, table, mode);
    const size_t slots = 2 * P + 3;
    const auto x = noise(M, slots);
    const BankSetup setup{M, P, mode, &table};

    const Rows real = Analysis(setup).real(x), complex = Analysis(setup).complex(x);
    for (size_t s = 0; s < slots; s++) {
        expect_near(real[s], model.analyse_real(x, s), 1.5e-6, "real sub-bands");
        expect_near(complex[s], interleaved(model.analyse_complex(x, s)), 1.5e-6, "complex sub-bands");
    }

    Rows X(slots), Z(slots);
    Random random(M);
    for (size_t s = 0; s < slots; s++)
        X[s] = random.vector(M), Z[s] = random.vector(2 * M);
    const double scale = 4 * std::sqrt(2.0 * P * M);
    expect_near(Synthesis(setup).real(X), model.synthesise_real(X), 5e-7 * scale, "real synthesis");
    expect_near(Synthesis(setup).complex(Z), model.synthesise_complex(Z), 5e-7 * scale, "complex synthesis");
}

TEST_P(Qmf, OneCallOfManySlotsGivesTheBitsOfManyCalls) {
    const auto [M, P, mode] = GetParam();
    const auto table = Random(M + P).vector(2 * P * M);
    const auto x = noise(M, 24);
    for (bool real : {true, false}) {
        BankSetup setup{M, P, mode, &table};
        const Rows X = Analysis(setup).subbands(real, x);
        const auto y = Synthesis(setup).samples(real, X);
        setup.slots = 8;
        expect_same_rows(Analysis(setup).subbands(real, x), X);
        EXPECT_BITS_EQ(Synthesis(setup).samples(real, X), y, y.size());
        if (M == 48)
            continue;
        setup.family = &S;
        expect_same_rows(Analysis(setup).subbands(real, x), X);
        EXPECT_BITS_EQ(Synthesis(setup).samples(real, X), y, y.size());
    }
}

TEST_P(Qmf, HeadroomFormOfHalvedSubbandsGivesTheSameBits) {
    const auto [M, P, mode] = GetParam();
    const auto table = Random(M * P).vector(2 * P * M);
    const BankSetup setup{M, P, mode, &table};
    Rows X;
    Random random(M);
    for (int s = 0; s < 20; s++)
        X.push_back(random.vector(2 * M));
    const auto plain = Synthesis(setup).complex(X);
    for (auto& row : X)
        for (float& v : row)
            v *= 0.5f;
    const auto headroom = Synthesis(setup).complex(X, KRL_Lqmf_synthesisCL_Head1Bit);
    EXPECT_BITS_EQ(headroom, plain, plain.size());
}

// ---- reconstruction
// ---------------------------------------------------------------------------------------------------

class QmfDesignTest : public testing::TestWithParam<Design> {};
INSTANTIATE_TEST_SUITE_P(Designs, QmfDesignTest, testing::ValuesIn(designs()),
                         [](const auto& info) { return info.param.name; });

// Noise, impulses at every phase of the slot, and a sweep to the Nyquist frequency.
std::vector<std::vector<float>> reconstruction_signals(uint32_t M) {
    const size_t slots = 120, n = slots * M;
    std::vector<float> impulses(n), sweep(n);
    for (size_t i = 0; i * (13 * M + 1) < n; i++)
        impulses[i * (13 * M + 1)] = i % 2 ? -1.0f : 1.0f;
    for (size_t i = 0; i < n; i++)
        sweep[i] = static_cast<float>(std::sin(pi * static_cast<double>(i * i) / (2.0 * static_cast<double>(n))));
    return {noise(M, slots), impulses, sweep};
}

TEST_P(QmfDesignTest, SynthesisUndoesAnalysisWithUnitGainAtTheStatedDelay) {
    const Design& d = GetParam();
    for (uint32_t mode : {0u, 8u, 1u, 77u}) {
        if (d.M == 48 && mode != 0 && mode != 8)
            continue;
        for (bool real : {true, false})
            for (const auto& x : reconstruction_signals(d.M)) {
                Analysis analysis({d.M, d.P, mode, &d.analysis});
                Synthesis synthesis({d.M, d.P, mode, &d.synthesis});
                const auto y = synthesis.samples(real, analysis.subbands(real, x));
                const size_t delay = L.analysis_delay(analysis.handle) + L.synthesis_delay(synthesis.handle);
                ASSERT_EQ(delay, 2 * d.P * d.M + 1 - d.M);
                double error = 0.0, energy = 0.0;
                for (size_t i = 0; i < y.size(); i++) {
                    const double expected = i < delay ? 0.0 : x[i - delay];
                    ASSERT_NEAR(y[i], expected, 2e-6) << "mode " << mode << ", sample " << i;
                    error += (y[i] - expected) * (y[i] - expected);
                    energy += expected * expected;
                }
                // The FFTs of 48 and 24 points have twiddles of six decimals; 48 bands owe their error to those.
                EXPECT_LE(std::sqrt(error / energy), d.M == 48 ? 1e-6 : 5e-7) << "mode " << mode;
            }
    }
}

// ---- state
// ------------------------------------------------------------------------------------------------------------

TEST(QmfState, DelaysAreThoseOfTheFormulas) {
    const auto check = [](uint32_t M, uint32_t P, uint32_t analysis, uint32_t synthesis) {
        const auto table = noise(M, 2 * P);
        EXPECT_EQ(L.analysis_delay(Analysis({M, P, 0, &table}).handle), analysis);
        EXPECT_EQ(L.synthesis_delay(Synthesis({M, P, 0, &table}).handle), synthesis);
    };
    check(64, 5, 288, 289);
    check(64, 4, 224, 225);
    check(8, 5, 36, 37);
    check(48, 5, 216, 217);
}

TEST(QmfState, SlotIncrementSpacesTheRowsOfRealSubbands) {
    for (const Family* family : {&L, &S})
        for (uint32_t P : {4u, 5u}) {
            const Design& d = design(32, P);
            const uint32_t increment = 45, slots = 6;
            const auto x = noise(32, slots);
            Analysis plain({32, P, 0, &d.analysis, family, slots}), spaced({32, P, 0, &d.analysis, family, slots});
            const Rows X = plain.real(x);
            GuardedBuffer<float> out((slots - 1) * increment + 32, 3);
            family->set_analysis_increment(spaced.handle, increment);
            family->analyse_real(spaced.handle, out.data(), x.data());
            for (uint32_t s = 0; s < slots; s++)
                EXPECT_BITS_EQ(out.data() + s * increment, X[s], 32);
            for (uint32_t s = 0; s + 1 < slots; s++)
                for (uint32_t i = s * increment + 32; i < (s + 1) * increment; i++)
                    EXPECT_EQ(out[i], 0.0f) << "between the rows";

            Synthesis dense({32, P, 0, &d.synthesis, family, slots}), sparse({32, P, 0, &d.synthesis, family, slots});
            GuardedBuffer<float> y(slots * 32);
            family->set_synthesis_increment(sparse.handle, increment);
            family->synthesise_real(sparse.handle, y.data(), out.data());
            EXPECT_BITS_EQ(y.data(), dense.real(X), y.size());
        }
}

TEST(QmfState, FlatHistoryIsThePastInputOldestFirstAndMovesToAnotherBank) {
    for (const Family* family : {&L, &S})
        for (uint32_t M : {8u, 32u, 64u}) {
            const Design& d = design(M, 5);
            const auto x = noise(M, 14);
            Analysis first({M, 5, 0, &d.analysis, family}), second({M, 5, 0, &d.analysis, family});
            first.real(x);
            second.real(noise(M, 3)); // another phase of the ring
            ASSERT_EQ(family->state_length(5, M), 9 * M);
            GuardedBuffer<float> state(9 * M, 1), again(9 * M, 2);
            family->unload(first.handle, state.data());
            EXPECT_BITS_EQ(state.data(), std::vector<float>(x.end() - 9 * M, x.end()), 9 * M);
            family->load(second.handle, state.data());
            family->unload(second.handle, again.data());
            EXPECT_BITS_EQ(again.data(), state.values(), 9 * M);
            expect_same_rows(second.complex(noise(M, 12)), first.complex(noise(M, 12)));
        }
}

TEST(QmfState, FlatHistoryOfFourPeriodsDoesNotTravel) {
    const Design& d = design(64, 4);
    Analysis bank({64, 4, 0, &d.analysis}), twin({64, 4, 0, &d.analysis});
    const auto x = noise(64, 20);
    bank.real(x), twin.real(x);
    GuardedBuffer<float> state(Random(3).vector(9 * 64));
    const auto before = state.values();
    KRL_Lunload_CLqmf_analysisL_filter_state(bank.handle, state.data());
    EXPECT_BITS_EQ(state.data(), before, before.size());
    KRL_load_CLqmf_analysisL_filter_stateL(bank.handle, state.data());
    expect_same_rows(bank.real(x), twin.real(x));
}

TEST(QmfState, CopiedSynthesisStateContinuesTheOther) {
    for (const Family* family : {&L, &S})
        for (uint32_t P : {4u, 5u}) {
            const Design& d = design(64, P);
            const Rows X = Analysis({64, P, 0, &d.analysis}).complex(noise(64, 30));
            Synthesis a({64, P, 0, &d.synthesis, family}), b({64, P, 0, &d.synthesis, family});
            a.complex(X);
            family->copy_states(b.handle, a.handle);
            const auto y = a.complex(X);
            EXPECT_BITS_EQ(b.complex(X), y, y.size());
            // A history of another shape is left alone.
            Synthesis other({32, P, 0, &design(32, P).synthesis, family}), fresh({64, P, 0, &d.synthesis, family});
            family->copy_states(a.handle, other.handle);
            family->copy_states(a.handle, nullptr);
            const auto z = b.complex(X);
            EXPECT_BITS_EQ(a.complex(X), z, z.size());
        }
}

TEST(QmfState, InitForgetsAndSilenceStaysSilent) {
    for (const Family* family : {&L, &S}) {
        const Design& d = design(64, 5);
        Analysis analysis({64, 5, 8, &d.analysis, family});
        Synthesis synthesis({64, 5, 8, &d.synthesis, family});
        synthesis.complex(analysis.complex(noise(64, 12)));
        family->init_analysis(analysis.handle);
        family->init_synthesis(synthesis.handle);
        const Rows X = analysis.complex(std::vector<float>(64 * 12));
        for (const auto& row : X)
            EXPECT_EQ(row, std::vector<float>(128, 0.0f));
        EXPECT_EQ(synthesis.complex(X), std::vector<float>(64 * 12, 0.0f));
    }
}

TEST(QmfState, NanLeavesAfterThePrototypesLength) {
    for (uint32_t P : {4u, 5u}) {
        const Design& d = design(32, P);
        Analysis analysis({32, P, 0, &d.analysis});
        auto x = noise(32, 2 * P + 2);
        x[17] = NAN;
        const Rows X = analysis.complex(x);
        EXPECT_TRUE(std::isnan(X[0][3]));
        for (float v : X[2 * P])
            EXPECT_TRUE(std::isfinite(v));
        Rows Z(2 * P + 1, std::vector<float>(32, 0.5f));
        Z[0][9] = NAN;
        const auto y = Synthesis({32, P, 0, &d.synthesis}).real(Z);
        EXPECT_TRUE(std::isnan(y[0]));
        for (size_t i = 2 * P * 32; i < y.size(); i++)
            EXPECT_TRUE(std::isfinite(y[i]));
    }
}

TEST(QmfReconfig, GivesTheBitsOfAFreshBankInTheSameMemory) {
    for (const Family* family : {&L, &S}) {
        Analysis bank({64, 5, 0, &design(64, 5).analysis, family}, 64);
        for (const auto& [M, P, mode] : configurations()) {
            if (family == &S && M == 48)
                continue;
            const auto table = Random(M).vector(2 * P * M);
            bank.real(noise(bank.setup.M, 5)); // history that must not shine through
            family->set_analysis_increment(bank.handle, 7);
            ASSERT_EQ(family->reconfig(bank.handle, M, 3, mode, P, table.data()), 0);
            bank.setup = {M, P, mode, &table, family, 3};
            Analysis fresh(bank.setup);
            const auto x = noise(M, 15);
            expect_same_rows(bank.real(x), fresh.real(x));
            expect_same_rows(bank.complex(x), fresh.complex(x));
        }
    }
}

// ---- refusals
// ---------------------------------------------------------------------------------------------------------

TEST(QmfRefusal, HostileParametersTouchNothing) {
    const auto table = noise(64, 10);
    const auto refused = [&](const Family& family, uint32_t M, uint32_t mode, uint32_t P,
                             const float* prototype = nullptr, int null_block = -1) {
        Blocks a(family.query_analysis, 64, 5), s(family.query_synthesis, 64, 5);
        const auto before_a = a.contents(), before_s = s.contents();
        const auto block = [&](Blocks& b, int i) -> void* { return i == null_block ? nullptr : b.block[i]->data(); };
        EXPECT_EQ(family.open_analysis(M, 1, mode, P, prototype, block(a, 0), block(a, 1), block(a, 2)), nullptr);
        EXPECT_EQ(family.open_synthesis(M, 1, mode, P, prototype, block(s, 0), block(s, 1), block(s, 2)), nullptr);
        EXPECT_EQ(a.contents(), before_a);
        EXPECT_EQ(s.contents(), before_s);
        if (null_block >= 0)
            return;
        Analysis bank({32, 5, 0, &table, &family}), twin({32, 5, 0, &table, &family});
        const auto x = noise(32, 12);
        bank.real(x), twin.real(x);
        EXPECT_EQ(family.reconfig(bank.handle, M, 1, mode, P, prototype), -1);
        expect_same_rows(bank.real(x), twin.real(x));
    };
    for (const Family* family : {&L, &S}) {
        for (uint32_t M : {0u, 1u, 4u, 24u, 40u, 63u, 65u, 96u, 128u, 4096u, UINT32_MAX})
            refused(*family, M, 0, 5, table.data());
        for (uint32_t P : {0u, 1u, 3u, 6u, 8u, UINT32_MAX})
            refused(*family, 32, 0, P, table.data());
        for (int i = 0; i < 3; i++)
            refused(*family, 32, 0, 5, table.data(), i);
        refused(*family, 32, 0, 5, nullptr);
        refused(*family, 48, 1, 5, table.data()); // the full twiddle has too few pairs
        EXPECT_EQ(family->reconfig(nullptr, 32, 1, 0, 5, table.data()), -1);
        EXPECT_EQ(family->analysis_delay(nullptr), 0u);
        EXPECT_EQ(family->synthesis_delay(nullptr), 0u);
    }
    refused(S, 48, 0, 5, table.data());
}

TEST(QmfRefusal, NullInstancesDoNothing) {
    float x[64] = {1.0f};
    float* rows[1] = {x};
    for (const Family* family : {&L, &S}) {
        family->init_analysis(nullptr), family->init_synthesis(nullptr);
        family->set_analysis_increment(nullptr, 1), family->set_synthesis_increment(nullptr, 1);
        family->load(nullptr, x), family->unload(nullptr, x);
        family->analyse_real(nullptr, x, x), family->analyse_complex(nullptr, rows, x);
        family->synthesise_real(nullptr, x, x), family->synthesise_complex(nullptr, x, rows);
        family->copy_states(nullptr, nullptr);
        family->close_analysis(nullptr), family->close_synthesis(nullptr);
    }
    EXPECT_EQ(x[0], 1.0f);
}

TEST(QmfMemory, QueriesAnswerTheStatedSizes) {
    const auto expect = [](auto query, uint32_t M, uint32_t selector, uint32_t state, uint32_t scratch,
                           uint32_t instance, uint32_t result) {
        uint32_t bytes[3] = {};
        EXPECT_EQ(query(M, selector, &bytes[0], &bytes[1], &bytes[2]), result);
        EXPECT_EQ(bytes[0], state) << "state, M = " << M << ", selector " << selector;
        EXPECT_EQ(bytes[1], scratch) << "scratch, M = " << M;
        EXPECT_EQ(bytes[2], instance);
        EXPECT_EQ(query(M, selector, nullptr, nullptr, nullptr), result);
    };
    for (uint32_t M : {8u, 16u, 32u, 48u, 64u})
        for (uint32_t selector : {0u, 1u, 4u, 5u, 7u, 8u}) {
            const bool five = selector % 4 != 0;
            expect(L.query_analysis, M, selector, 23 + (five ? 80 + 36 * M : 64 + 28 * M), 31 + 16 * M, 127, 127);
            expect(L.query_synthesis, M, selector, 31 + (five ? 36 : 28) * M, 31 + 16 * M, 127, 127);
            expect(S.query_analysis, M, selector,
                   23 + (M == 64 ? five ? 2384 : 1856
                         : five  ? 1232
                                 : 960),
                   31 + (M == 64 ? 1024 : 512), 119, 1024);
            expect(S.query_synthesis, M, selector,
                   31 + (M == 64 ? five ? 2304 : 1792
                         : five  ? 1152
                                 : 896),
                   31 + (M == 64 ? 1024 : 512), 119, 1024);
        }
    expect(L.query_analysis, 65, 5, 23 + 1232, 31 + 512, 127, 127);
    expect(L.query_analysis, UINT32_MAX, 4, 23 + 960, 31 + 512, 127, 127);
    expect(L.query_synthesis, 128, 5, 31 + 1152, 31 + 512, 127, 127);
    expect(L.query_synthesis, 128, 4, 31 + 896, 31 + 512, 127, 127);
    for (const Family* family : {&L, &S}) {
        EXPECT_EQ(family->state_length(1, 48), 432u);
        EXPECT_EQ(family->state_length(0, 48), 336u);
        EXPECT_EQ(family->max_state_length(1), 576u);
        EXPECT_EQ(family->max_state_length(0), 448u);
    }
}

// ---- modulation steps and tables
// --------------------------------------------------------------------------------------

TEST(QmfModulation, RealStepsEqualTheirSums) {
    for (uint32_t M : {8u, 16u, 24u, 32u, 48u, 64u, 96u, 120u}) {
        const uint32_t h = M / 2;
        std::vector<float> table(M);
        for (uint32_t m = 0; m < M; m++)
            table[m] = static_cast<float>(std::sin(pi * m / (2.0 * M)));
        const CosineOfLength cosine(M);
        const auto x = Random(M).vector(2 * M);

        GuardedBuffer<float> f(x, 1), tmp(M, 2), apart(M, 3), together(M, 1);
        krl_forwardModulationReal(f.data(), apart.data(), M, KRL_r4_cplx_fwd_pair(h), table.data(), tmp.data());
        krl_forwardModulationReal(f.data(), together.data(), M, nullptr, table.data(), together.data());
        EXPECT_BITS_EQ(f.data(), x, 2 * M);
        for (uint32_t q = 0; q < M; q++) {
            // f[3h - r] has the angle of r, f[3h + r] that of -r, f wraps around with a change of sign.
            double sum = 0.0;
            for (int r = -static_cast<int>(h) + 1; r <= static_cast<int>(3 * h); r++)
                sum += x[3 * h - r] * std::cos(pi * (2 * q + 1) * r / (2.0 * M)) / (2.0 * M);
            ASSERT_NEAR(apart[q], sum, 2e-7) << M;
            ASSERT_NEAR(together[q], sum, 2e-7) << M;
        }

        const auto X = Random(M + 1).vector(M);
        GuardedBuffer<float> first(X, 1), second(M, 3), both(2 * M, 1);
        std::copy(X.begin(), X.end(), both.data());
        krl_inverseModulationReal(first.data(), second.data(), M, nullptr, table.data());
        krl_inverseModulationReal(both.data(), both.data(), M, KRL_r4_cplx_fwd_pair(h), table.data());
        EXPECT_BITS_EQ(both.data(), first.data(), M);
        EXPECT_BITS_EQ(both.data() + M, second.data(), M);
        for (uint32_t r = 0; r < 2 * M; r++) {
            double sum = 0.0;
            for (uint32_t q = 0; q < M; q++)
                sum += 2 * X[q] * cosine((2 * q + 1) * uint64_t{r + 4 * M - h});
            ASSERT_NEAR(both[r], sum, 4e-6 * std::sqrt(M)) << M << ", " << r;
        }
    }
}

TEST(QmfModulation, ComplexStepsUndoEachOtherWithEveryTwiddle) {
    struct Case {
        uint32_t M, mode;
        const float* twiddle;
    };
    for (auto [M, mode, twiddle] : {Case{64, 0, nullptr},
                                    {64, 8, nullptr},
                                    {64, 3, krl_cos_64_full_twiddle},
                                    {32, 3, krl_cos_32_full_twiddle},
                                    {16, 3, krl_cos_32_full_twiddle},
                                    {8, 3, krl_cos_32_full_twiddle},
                                    {32, 8, krl_cos_32_ast_mini_twiddle},
                                    {48, 8, krl_cos_48_ast_mini_twiddle},
                                    {24, 0, nullptr}}) {
        const auto v = Random(M).vector(2 * M);
        GuardedBuffer<float> in(v, 1), scratch(2 * M, 2), X(2 * M, 3), Y(2 * M, 1);
        krl_forwardModulationComplex(in.data(), X.data(), scratch.data(), M, mode, twiddle, KRL_r4_cplx_fwd_pair(M));
        const auto X_before = X.values();
        krl_inverseModulationComplex(X.data(), Y.data(), scratch.data(), M, mode, twiddle, nullptr);
        EXPECT_BITS_EQ(X.data(), X_before, 2 * M);
        // The spectrum comes back; its forward transform is the input reversed in time, M times.
        for (uint32_t k = 0; k < M; k++)
            for (uint32_t part = 0; part < 2; part++)
                ASSERT_NEAR(Y[2 * k + part], M * v[2 * ((M - k) % M) + part], 2e-6 * M) << M << ", mode " << mode;
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
            EXPECT_BITS_EQ(buffer->data(), x, x.size()) << M;
    }
}

TEST(QmfTables, HoldTheirFormulasToTheBit) {
    const auto check = [](const char* name, const float* table, uint32_t pairs, double sin_gain, double cos_gain,
                          const std::function<double(double)>& angle) {
        EXPECT_EQ(reinterpret_cast<uintptr_t>(table) % 16, 0u) << name;
        for (uint32_t m = 0; m < pairs; m++) {
            const float* at = table + m / 4 * 8 + m % 4;
            EXPECT_EQ(at[0], static_cast<float>(sin_gain * std::sin(angle(m)))) << name << ", pair " << m;
            EXPECT_EQ(at[4], static_cast<float>(cos_gain * std::cos(angle(m)))) << name << ", pair " << m;
        }
    };
#define ROTATIONS(M)                                                                                                   \
    check("full", krl_cos_##M##_full, M, 0.5, 0.5, [](double m) { return pi * m / (2 * M); });                         \
    check("full_scl", krl_cos_##M##_full_scl, M, 0.5 / M, 0.5 / M, [](double m) { return pi * m / (2 * M); });
    ROTATIONS(8)
    ROTATIONS(16) ROTATIONS(32) ROTATIONS(48) ROTATIONS(64)
        const auto odd = [](double ratio) { return [=](double m) { return pi * (2 * m + 1) * ratio; }; };
    check("64 full twiddle", krl_cos_64_full_twiddle, 32, 1, -1, odd(1.0 / 256));
    check("32 full twiddle", krl_cos_32_full_twiddle, 16, 1, -1, odd(1.0 / 128));
    check("8 short twiddle", krl_cos_8_ast_mini_twiddle, 8, 1, 1, odd(7.0 / 256));
    check("16 short twiddle", krl_cos_16_ast_mini_twiddle, 16, 1, 1, odd(3.0 / 256));
    check("32 short twiddle", krl_cos_32_ast_mini_twiddle, 32, 1, 1, odd(1.0 / 256));
    check("48 short twiddle", krl_cos_48_ast_mini_twiddle, 48, 1, 1, odd(1.0 / 768));
}

} // namespace
