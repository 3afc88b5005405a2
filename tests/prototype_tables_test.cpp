// What the prototype filters were designed for, checked on the exported tables in double precision.

#include <korla/dsp/mfb_tables.h>
#include <korla/dsp/qmf_tables.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <complex>
#include <cstddef>
#include <numbers>
#include <ostream>
#include <span>
#include <string>
#include <vector>

namespace {

using Taps = std::vector<double>;
constexpr double pi = std::numbers::pi;

// Float rounding of the taps alone moves a reconstruction equation by about 1e-7.
constexpr double rounding = 3e-7;

// sum over j of p[j M + k] p[(j + 2e) M + k], as far as both taps exist among the first `blocks` blocks.
double self_product(const Taps& p, std::size_t bands, std::size_t blocks, std::size_t k, std::size_t e) {
    double sum = 0.0;
    for (std::size_t j = 0; j + 2 * e < blocks; ++j)
        sum += p[j * bands + k] * p[(j + 2 * e) * bands + k];
    return sum;
}

double gain_at_zero(const Taps& p) {
    double sum = 0.0;
    for (double tap : p)
        sum += tap;
    return sum;
}

// Least attenuation in dB relative to zero frequency from edge * pi / M to pi, on a grid of eight points per side lobe.
double attenuation(const Taps& p, std::size_t bands, double edge) {
    const std::size_t points = 4 * p.size();
    double peak = 0.0;
    for (std::size_t i = 0; i <= points; ++i) {
        const double low = edge * pi / static_cast<double>(bands);
        const double w = low + (pi - low) * static_cast<double>(i) / static_cast<double>(points);
        const std::complex<double> step = std::polar(1.0, -w);
        std::complex<double> response = 0.0;
        for (std::size_t n = p.size(); n-- > 0;)
            response = response * step + p[n];
        peak = std::max(peak, std::abs(response));
    }
    return -20.0 * std::log10(peak / gain_at_zero(p));
}

// ---------------------------------------------------------------------------------------------------------------- QMF

struct QmfDesign {
    const char* name;
    std::span<const float> compact, analysis, synthesis;
    std::size_t bands, periods;
    double attenuation, attenuation_later; // from pi/M and from 1.25 pi/M, dB

    std::size_t centre() const { return periods * bands; }

    // p[0 .. 2PM] from the analysis table: block signs removed, the zero at the start added.
    Taps prototype() const {
        static constexpr double five[] = {1, 1, -1, -1, 1, 1, -1, -1, 1, 1};
        static constexpr double four[] = {-1, 1, 1, -1, -1, 1, 1, -1};
        const double* sign = periods == 5 ? five : four;
        Taps p{0.0};
        for (std::size_t n = 0; n < analysis.size(); ++n)
            p.push_back(sign[n / bands] * static_cast<double>(analysis[n]));
        return p;
    }
};

std::ostream& operator<<(std::ostream& out, const QmfDesign& design) { return out << design.name; }

#define QMF_DESIGN(name, bands, periods, from_edge, later)                                                             \
    QmfDesign { #name, name, name##_vec_ana, name##_vec_syn, bands, periods, from_edge, later }

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

class QmfPrototype : public testing::TestWithParam<QmfDesign> {};

INSTANTIATE_TEST_SUITE_P(Designs, QmfPrototype, testing::ValuesIn(qmf_designs),
                         [](const auto& test) { return std::string(test.param.name).substr(21); });

TEST_P(QmfPrototype, IsSymmetricAboutItsCentreWithZeroEnds) {
    const QmfDesign& design = GetParam();
    ASSERT_EQ(design.analysis.size(), 2 * design.periods * design.bands);
    const Taps p = design.prototype();
    EXPECT_EQ(p.back(), 0.0);
    for (std::size_t q = 0; q <= design.centre(); ++q)
        ASSERT_EQ(p[q], p[p.size() - 1 - q]) << "tap " << q;
    EXPECT_GT(p[design.centre()], 0.0);
}

TEST_P(QmfPrototype, IsPowerComplementary) {
    const QmfDesign& design = GetParam();
    const Taps p = design.prototype();
    for (std::size_t k = 0; k < design.bands; ++k)
        for (std::size_t e = 0; e < design.periods; ++e) {
            // These two phases pair with themselves; one equation of each is open by design.
            const bool open = e + 1 == design.periods && (k == 0 || k == design.bands / 2);
            ASSERT_NEAR(self_product(p, design.bands, 2 * design.periods, k, e), e == 0 ? 1.0 : 0.0,
                        open ? 5.5e-7 : rounding)
                << "phase " << k << ", distance " << e;
        }
}

TEST_P(QmfPrototype, SynthesisTableIsTheAnalysisTableReversed) {
    const QmfDesign& design = GetParam();
    EXPECT_TRUE(
        std::equal(design.analysis.begin(), design.analysis.end(), design.synthesis.rbegin(), design.synthesis.rend()));
}

TEST_P(QmfPrototype, CompactFormHoldsTheSameTaps) {
    const QmfDesign& design = GetParam();
    const Taps p = design.prototype();
    const std::size_t zero_rows = design.bands == 32 ? 0 : 1;
    ASSERT_EQ(design.compact.size(), (design.bands + 1 + zero_rows) * design.periods);
    for (std::size_t i = 0; i < design.compact.size(); ++i) {
        const std::size_t row = i / design.periods, column = i % design.periods;
        ASSERT_EQ(design.compact[i], row <= design.bands ? p[2 * column * design.bands + row] : 0.0) << "value " << i;
    }
}

TEST_P(QmfPrototype, SelectsOneBand) {
    const QmfDesign& design = GetParam();
    const Taps p = design.prototype();
    EXPECT_GE(attenuation(p, design.bands, 1.0), design.attenuation);
    EXPECT_GE(attenuation(p, design.bands, 1.25), design.attenuation_later);
    const double nominal = static_cast<double>(design.bands) * std::numbers::sqrt2;
    EXPECT_NEAR(gain_at_zero(p) / nominal, 1.0, 3e-3);
}

// ------------------------------------------------------------------------------------------------------ modulated bank

// Taps in time order from the layout by groups of four bands.
Taps time_order(std::span<const float> table) {
    const std::size_t bands = table.size() / 10;
    Taps c(table.size());
    for (std::size_t n = 0; n < table.size(); ++n)
        c[n / 4 % 10 * bands + n / 40 * 4 + n % 4] = static_cast<double>(table[n]);
    return c;
}

void expect_power_complementary(const Taps& c, double tolerance) {
    for (std::size_t k = 0; k < 64; ++k)
        for (std::size_t e = 0; e < 5; ++e)
            ASSERT_NEAR(self_product(c, 64, 10, k, e), e == 0 ? 1.0 : 0.0, tolerance)
                << "phase " << k << ", distance " << e;
}

TEST(ModulatedPrototype, SymmetricTableReconstructsAndSelectsOneBand) {
    const Taps c = time_order(KRL_MFB_P10KM_P64KVX301);
    ASSERT_EQ(c.size(), 640u);
    for (std::size_t n = 0; n < 320; ++n)
        ASSERT_EQ(c[n], c[639 - n]) << "tap " << n;
    expect_power_complementary(c, rounding);
    EXPECT_GE(attenuation(c, 64, 1.0), 54.4);
    EXPECT_NEAR(gain_at_zero(c) / (64 * std::numbers::sqrt2), 1.0, 1e-3);
}

TEST(ModulatedPrototype, LegacyTableIsTheQmfPrototypeWithEveryBlockReversed) {
    const Taps c = time_order(KRL_MFB_P10KM_P64KVX301_LEGACY);
    ASSERT_EQ(c.size(), 640u);
    const int sign[] = {1, 1, -1, -1, 1, 1, -1, -1, 1, 1};
    for (std::size_t n = 0; n < 640; ++n) {
        const std::size_t block = n / 64, k = n % 64;
        ASSERT_EQ(c[n],
                  static_cast<float>(sign[block]) * krl_qmf_filter_coeff_P5_p64kvx301_vec_ana[block * 64 + 63 - k])
            << "tap " << n;
    }
    expect_power_complementary(c, 5.5e-7);
}

class LowDelayPrototype : public testing::TestWithParam<std::span<const float>> {};

INSTANTIATE_TEST_SUITE_P(Bands, LowDelayPrototype,
                         testing::Values(std::span<const float>(KRL_MFB_P10KM_P4_319SC),
                                         std::span<const float>(KRL_MFB_P10KM_P4_319SC_128M),
                                         std::span<const float>(KRL_MFB_P10KM_P4_319SC_256M)),
                         [](const auto& test) { return std::to_string(test.param.size() / 10); });

TEST_P(LowDelayPrototype, ReconstructsAfterFourSlotsAndSelectsOneBand) {
    const Taps c = time_order(GetParam());
    const std::size_t bands = c.size() / 10;
    for (std::size_t k = 0; k < bands; ++k)
        for (std::size_t s = 0; s <= 18; s += 2) {
            double sum = 0.0;
            for (std::size_t j = s > 9 ? s - 9 : 0; j <= std::min<std::size_t>(s, 9); ++j)
                sum += c[j * bands + k] * c[(s - j) * bands + bands - 1 - k];
            ASSERT_NEAR(sum, s == 14 ? 1.0 : 0.0, rounding) << "phase " << k << ", block sum " << s;
        }
    EXPECT_GE(attenuation(c, bands, 1.0), 45.4);
}

} // namespace
