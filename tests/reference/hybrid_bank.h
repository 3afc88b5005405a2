// The hybrid bank as direct convolution in double precision with the symmetric prototypes, written out.
#pragma once

#include <complex>
#include <cstdlib>
#include <numbers>
#include <vector>

namespace korla_test {

struct HybridBank {
    using Line = std::vector<std::complex<double>>;
    int config;
    Line past[3] = {Line(13), Line(13), Line(13)};

    Line analyse(const float* in) {
        for (Line& line : past) {
            line.erase(line.begin());
            line.emplace_back(in[0], in[1]);
            in += 2;
        }
        const Line y = modulated(past[0], prototype8, 8, 0.5);
        if (config == 0 || config == 4) {
            const Line z = modulated(past[1], half_band, 2, 0), w = modulated(past[2], half_band, 2, 0);
            return {y[0], y[1], y[2] + y[5], y[3] + y[4], y[6], y[7], z[0], z[1], w[0], w[1]};
        }
        const Line z = modulated(past[1], prototype4, 4, 0.5), w = modulated(past[2], prototype4, 4, 0.5);
        if (config == 1)
            return {y[0], y[1], y[2], y[3], y[4], y[5], y[6], y[7], z[0], z[1], z[2], z[3], w[0], w[1], w[2], w[3]};
        const auto y6 = std::conj(y[6]), y7 = std::conj(y[7]);
        return {y[0], y7, y[1], y6, y[2], z[1], y[3], y[4], z[2], y[5], z[3], w[3], z[0], w[0], w[1], w[2]};
    }

    // By distance from the centre tap.
    static constexpr double prototype8[7] = {0.125,        0.117937103,  0.0988510847, 0.0726611391,
                                             0.0454686582, 0.0227042101, 0.00746082934};
    static constexpr double prototype4[7] = {0.25, 0.212278068,    0.125424489,   0.0431892388,
                                             0,    -0.00794862304, -0.00305151916};
    static constexpr double half_band[7] = {0.5, 0.305966318, 0, -0.072931394, 0, 0.0189948753, 0};

    // Band q is centred at (q + offset) / count of the sampling rate.
    static Line modulated(const Line& s, const double (&g)[7], int count, double offset) {
        Line out(static_cast<size_t>(count));
        for (int q = 0; q < count; q++)
            for (int n = -6; n <= 6; n++)
                out[static_cast<size_t>(q)] += g[std::abs(n)] * s[static_cast<size_t>(n + 6)] *
                                               std::polar(1.0, -2 * std::numbers::pi / count * (q + offset) * n);
        return out;
    }
};

} // namespace korla_test
