// The hybrid bank as direct convolution in double precision with the symmetric prototypes, written out.
#pragma once

#include <complex>
#include <numbers>
#include <vector>

namespace korla_test {

class HybridBank {
public:
    using complex = std::complex<double>;
    explicit HybridBank(int config)
        : split_(config & 3), interleaved_((config & 4) != 0), past_(3, std::vector<complex>(13)) {}

    std::vector<complex> analyse(const float* in) {
        for (size_t b = 0; b < 3; b++) {
            past_[b].erase(past_[b].begin());
            past_[b].emplace_back(in[2 * b], in[2 * b + 1]);
        }
        const auto y = modulated(past_[0], prototype8, 8);
        if (split_ == 0) {
            std::vector<complex> out{y[0], y[1], y[2] + y[5], y[3] + y[4], y[6], y[7]};
            for (size_t b = 1; b < 3; b++)
                for (int high = 0; high < 2; high++) {
                    complex sum = 0;
                    for (int n = 0; n < 13;
                         n++) // the high band's response is the low band's with every odd distance negated
                        sum += half_band[std::abs(n - 6)] * (high && n % 2 != 0 ? -1.0 : 1.0) *
                               past_[b][static_cast<size_t>(n)];
                    out.push_back(sum);
                }
            return out;
        }
        const auto z = modulated(past_[1], prototype4, 4), w = modulated(past_[2], prototype4, 4);
        if (interleaved_)
            return {y[0], std::conj(y[7]),
                    y[1], std::conj(y[6]),
                    y[2], z[1],
                    y[3], y[4],
                    z[2], y[5],
                    z[3], w[3],
                    z[0], w[0],
                    w[1], w[2]};
        std::vector<complex> out = y;
        out.insert(out.end(), z.begin(), z.end());
        out.insert(out.end(), w.begin(), w.end());
        return out;
    }

private:
    // By distance from the centre tap.
    static constexpr double prototype8[7] = {0.125,        0.117937103,  0.0988510847, 0.0726611391,
                                             0.0454686582, 0.0227042101, 0.00746082934};
    static constexpr double prototype4[7] = {0.25, 0.212278068,    0.125424489,   0.0431892388,
                                             0,    -0.00794862304, -0.00305151916};
    static constexpr double half_band[7] = {0.5, 0.305966318, 0, -0.072931394, 0, 0.0189948753, 0};

    static std::vector<complex> modulated(const std::vector<complex>& s, const double (&g)[7], int count) {
        std::vector<complex> out;
        for (int q = 0; q < count; q++) {
            complex sum = 0;
            for (int n = 0; n < 13; n++)
                sum += g[std::abs(n - 6)] * s[static_cast<size_t>(n)] *
                       std::polar(1.0, -2 * std::numbers::pi / count * (q + 0.5) * (n - 6));
            out.push_back(sum);
        }
        return out;
    }

    int split_;
    bool interleaved_;
    std::vector<std::vector<complex>> past_;
};

} // namespace korla_test
