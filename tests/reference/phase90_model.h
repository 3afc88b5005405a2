// The 90-degree phase shifter in double precision, one sample at a time.
#pragma once

#include <array>
#include <cstddef>
#include <vector>

namespace korla_test {

class Phase90Model {
public:
    explicit Phase90Model(size_t n) : n_(n) {}

    std::vector<double> process(const std::vector<float>& x) {
        std::vector<double> work = history_;
        for (size_t i = 0; i < n_; i++) {
            const size_t phase = i % 2;
            auto& s = forward_;
            const double scaled = 0.49868774f * double(x[i]);
            const double high_pass = 0.994751f * s[1][phase] - scaled + s[0][phase];
            const double first = all_pass(0.979126f, high_pass, s[1][phase], s[2][phase]);
            const double second = all_pass(0.8451538f, first, s[2][phase], s[3][phase]);
            const double third = all_pass(0.23730469f, second, s[3][phase], s[4][phase]);
            s[0][phase] = scaled, s[1][phase] = high_pass, s[2][phase] = first, s[3][phase] = second,
            s[4][phase] = third;
            work.push_back(third);
        }
        history_.assign(work.end() - 1280, work.end());

        double input[2], outputs[3][2] = {};
        for (size_t phase = 0; phase < 2; phase++) {
            auto p = [&](size_t j) { return forward_[j - 4][phase]; };
            input[phase] =
                0.005217236f * p(5) - 0.1963725f * p(4) - 0.0409322f * p(6) + 0.79944104f * p(7) + 0.23730469f * p(8);
            outputs[0][phase] =
                0.9836525f * p(5) + 0.6783012f * p(4) + 0.6426439f * p(6) - 0.6991622f * p(7) - 0.23414071f * p(8);
        }
        double latest = 0.0; // of the third section
        for (size_t at = n_ + 1280; at-- > 0;) {
            const size_t phase = at % 2;
            const double x0 = work[at];
            const double first = all_pass(0.99176025f, x0, input[phase], outputs[0][phase]);
            if (at >= n_ + 299) {
                work[at] = 2.0 * first;
            } else {
                const double second = all_pass(0.94262695f, first, outputs[0][phase], outputs[1][phase]);
                const double third = all_pass(0.61724854f, second, outputs[1][phase], outputs[2][phase]);
                work[at] = 2.0 * latest;
                latest = outputs[2][phase] = third;
                outputs[1][phase] = second;
            }
            input[phase] = x0, outputs[0][phase] = first;
        }
        std::vector<double> y(n_);
        for (size_t i = 0; i < n_; i++)
            y[i] = work[i] + (1.0 - static_cast<double>(i) / static_cast<double>(n_)) * (boundary_ - work[0]);
        boundary_ = work[n_];
        return y;
    }

private:
    static double all_pass(double a, double x, double x_before, double y_before) {
        return a * (y_before - x) + x_before;
    }

    size_t n_;
    std::array<double, 2> forward_[5] = {};
    double boundary_ = 0.0;
    std::vector<double> history_ = std::vector<double>(1280, 0.0);
};

} // namespace korla_test
