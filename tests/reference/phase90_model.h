// The 90-degree phase shifter in double precision, one sample at a time.
#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <vector>

namespace korla_test {

class Phase90Model {
public:
    explicit Phase90Model(size_t n) : n_(n) {}

    // Gain and pole of the high-pass; forward and backward all-passes; weights of the forward states in what the
    // backward chain begins with: the input of its first section, and the output.
    // clang-format off
    std::array<double, 18> coefficients = {
        0.49868774f, 0.994751f, 0.979126f, 0.8451538f, 0.23730469f, 0.99176025f, 0.94262695f, 0.61724854f,
        -0.1963725f, 0.005217236f, -0.0409322f, 0.79944104f, 0.23730469f,
        0.6783012f, 0.9836525f, 0.6426439f, -0.6991622f, -0.23414071f};
    // clang-format on

    std::array<double, 2> backward[4] = {}; // input and outputs of the backward chain, as the last block left them

    std::vector<double> process(const std::vector<float>& x) {
        auto& f = forward_;
        const double* const c = coefficients.data();
        std::vector<double> work = history_;
        for (size_t i = 0; i < n_; i++) {
            const size_t phase = i % 2;
            const double scaled = c[0] * double(x[i]);
            const double high_pass = c[1] * f[1][phase] - scaled + f[0][phase];
            f[0][phase] = scaled;
            work.push_back(all_passes(c + 2, high_pass, f + 1, phase, 3));
        }
        history_.assign(work.end() - 1280, work.end());

        std::fill_n(backward, 4, std::array{0.0, 0.0});
        for (size_t j = 0; j < 5; j++)
            for (size_t p = 0; p < 2; p++) {
                backward[0][p] += c[8 + j] * f[j][p];
                backward[1][p] += c[13 + j] * f[j][p];
            }
        double latest = 0.0; // of the third section, which comes out one sample late
        for (size_t at = n_ + 1280; at-- > 0;) {
            const bool warm_up = at >= n_ + 299; // of the first section alone
            const double y = all_passes(c + 5, work[at], backward, at % 2, warm_up ? 1 : 3);
            work[at] = 2.0 * (warm_up ? y : latest);
            latest = warm_up ? 0.0 : y;
        }
        std::vector<double> y(n_);
        for (size_t i = 0; i < n_; i++)
            y[i] = work[i] + (1.0 - static_cast<double>(i) / static_cast<double>(n_)) * (boundary_ - work[0]);
        boundary_ = work[n_];
        return y;
    }

private:
    // Sections in series, y = a (y[-2] - x) + x[-2]; z holds the input of the first and the outputs, by phase.
    static double all_passes(const double* a, double x, std::array<double, 2>* z, size_t phase, size_t count) {
        for (size_t j = 0; j < count; j++) {
            const double y = a[j] * (z[j + 1][phase] - x) + z[j][phase];
            z[j][phase] = x;
            x = y;
        }
        return z[count][phase] = x;
    }

    size_t n_;
    std::array<double, 2> forward_[5] = {};
    double boundary_ = 0.0;
    std::vector<double> history_ = std::vector<double>(1280, 0.0);
};

} // namespace korla_test
