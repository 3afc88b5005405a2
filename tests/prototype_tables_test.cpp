// What the prototype filters were designed for, checked on the exported tables in double precision.
#include <korla/dsp/mfb_tables.h>
#include <korla/dsp/qmf_tables.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <complex>
#include <numbers>
#include <numeric>
#include <span>
#include <string>
#include <tuple>
#include <vector>

namespace {

using Taps = std::vector<double>;

// Least attenuation in dB relative to zero frequency from edge * pi / M to pi, on a grid of eight points per side lobe.
double attenuation(const Taps& p, size_t bands, double edge) {
    const double low = edge / static_cast<double>(bands), points = 4 * static_cast<double>(p.size());
    double peak = 0.0;
    for (double i = 0; i <= points; i++) {
        const auto step = std::polar(1.0, -std::numbers::pi * (low + (1 - low) * i / points));
        std::complex<double> response = 0.0;
        for (size_t n = p.size(); n-- > 0;)
            response = response * step + p[n];
        peak = std::max(peak, std::abs(response));
    }
    return -20.0 * std::log10(peak / std::accumulate(p.begin(), p.end(), 0.0));
}

// A bank whose chain has a delay of `unity` blocks reconstructs when, over blocks j of c, for every phase k,
// the sum of c[jM + k] c[(s - j)M + mirror - k] is 1 for s = unity and 0 for every other s of the same parity.
double reconstruction_error(const Taps& c, size_t M, size_t mirror, size_t unity) {
    double worst = 0.0;
    for (size_t k = 0, blocks = c.size() / M; k < M; k++)
        for (size_t s = unity % 2; s < 2 * blocks - 1; s += 2) {
            double sum = s == unity ? -1.0 : 0.0;
            for (size_t j = s < blocks ? 0 : s - blocks + 1; j < std::min(s + 1, blocks); j++)
                sum += c[j * M + k] * c[(s - j) * M + mirror - k];
            worst = std::max(worst, std::abs(sum));
        }
    return worst;
}

using Table = std::span<const float>;
// Compact, analysis and synthesis table, bands, periods, least attenuation from pi/M and from 1.25 pi/M in dB.
using QmfDesign = std::tuple<Table, Table, Table, size_t, size_t, double, double>;
#define QMF_DESIGN(name, bands, periods, from_edge, later)                                                             \
    QmfDesign { name, name##_vec_ana, name##_vec_syn, bands, periods, from_edge, later }
const QmfDesign qmf_designs[] = {
    QMF_DESIGN(krl_qmf_filter_coeff_P5, 64, 5, 37.5, 52.0),
    QMF_DESIGN(krl_qmf_filter_coeff_P5_32, 32, 5, 38.1, 47.7),
    QMF_DESIGN(krl_qmf_filter_coeff_P4, 64, 4, 42.2, 42.2),
    QMF_DESIGN(krl_qmf_filter_coeff_P4_32, 32, 4, 37.0, 37.0),
    QMF_DESIGN(krl_qmf_filter_coeff_P5_p64kvx301, 64, 5, 52.0, 52.0),
    QMF_DESIGN(krl_qmf_filter_coeff_P5_p64kvx301_48, 48, 5, 50.9, 50.9),
    QMF_DESIGN(krl_qmf_filter_coeff_P5_p64kvx301_32, 32, 5, 48.7, 48.7),
    QMF_DESIGN(krl_qmf_filter_coeff_P5_p64kvx301_16, 16, 5, 43.6, 43.6),
    QMF_DESIGN(krl_qmf_filter_coeff_P5_p64kvx301_8, 8, 5, 37.7, 37.7),
};

TEST(QmfPrototype, ReconstructsSelectsOneBandAndIsTheSameInAllForms) {
    for (const auto& [compact, analysis, synthesis, M, periods, from_edge, later] : qmf_designs) {
        SCOPED_TRACE(std::to_string(M) + " bands, attenuation " + std::to_string(from_edge));
        ASSERT_EQ(analysis.size(), 2 * periods * M);
        EXPECT_TRUE(std::equal(analysis.begin(), analysis.end(), synthesis.rbegin(), synthesis.rend()));
        Taps p{0.0}; // taps 0 .. 2PM: the block signs removed, the zero at the start added
        const std::string signs = periods == 5 ? "++--++--++" : "-++--++-";
        for (size_t n = 0; n < analysis.size(); n++)
            p.push_back(signs[n / M] == '-' ? -analysis[n] : analysis[n]);
        EXPECT_EQ(p, Taps(p.rbegin(), p.rend()));
        ASSERT_EQ(compact.size(), (M + (M == 32 ? 1 : 2)) * periods); // a row of zeros at the end, but for 32 bands
        for (size_t i = 0; i < compact.size(); i++)
            ASSERT_EQ(compact[i], i / periods <= M ? p[2 * (i % periods) * M + i / periods] : 0.0) << "value " << i;
        EXPECT_LT(reconstruction_error(p, M, M, 2 * periods - 1), 5.5e-7);
        EXPECT_GE(attenuation(p, M, 1.0), from_edge);
        EXPECT_GE(attenuation(p, M, 1.25), later);
    }
}

TEST(ModulatedPrototype, ReconstructsAndSelectsOneBand) {
    const Table tables[] = {KRL_MFB_P10KM_P64KVX301, KRL_MFB_P10KM_P4_319SC, KRL_MFB_P10KM_P4_319SC_128M,
                            KRL_MFB_P10KM_P4_319SC_256M};
    for (const Table& table : tables) {
        const size_t M = table.size() / 10;
        Taps c(table.size()); // in time order
        for (size_t n = 0; n < table.size(); n++)
            c[n / 4 % 10 * M + n / 40 * 4 + n % 4] = table[n];
        EXPECT_LT(reconstruction_error(c, M, M - 1, &table == tables ? 9 : 14), 3e-7) << M;
        EXPECT_GE(attenuation(c, M, 1.0), &table == tables ? 54.4 : 45.4) << M;
    }
}

TEST(ModulatedPrototype, LegacyTableIsTheQmfPrototypeWithEveryBlockReversed) {
    for (size_t n = 0; n < 640; n++)
        ASSERT_EQ(KRL_MFB_P10KM_P64KVX301_LEGACY[n % 64 / 4 * 40 + n / 64 * 4 + n % 4],
                  (n / 64 % 4 < 2 ? 1 : -1) * krl_qmf_filter_coeff_P5_p64kvx301_vec_ana[n / 64 * 64 + 63 - n % 64]);
}

} // namespace
