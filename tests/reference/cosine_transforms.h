// Cosine transforms as their defining sums, in double precision.
#pragma once

#include <complex>
#include <cstdint>
#include <numbers>
#include <vector>

namespace korla_test {

// exp(j pi i / (2N)), exact in i
inline std::complex<double> phasor(uint64_t i, uint64_t N) {
    return std::polar(1.0, std::numbers::pi * static_cast<double>(i % (4 * N)) / static_cast<double>(2 * N));
}

// Output i of a transform of N samples: the sum over n of x[n] cos(pi a / (2N)), where a is (2n + 1) i for the DCT-II
// and (2i + 1) n for the DCT-III.
inline double cosine_sum(const std::vector<float>& x, size_t i, bool third) {
    double sum = 0.0;
    for (size_t n = 0; n < x.size(); n++)
        sum += x[n] * phasor(third ? (2 * i + 1) * n : (2 * n + 1) * i, x.size()).real();
    return sum;
}

} // namespace korla_test
