// Cosine transforms as their defining sums, in double precision.
#pragma once

#include <complex>
#include <cstdint>
#include <numbers>
#include <vector>

namespace korla_test {

// exp(j pi i / (2N)) for any i, from a table of one period.
class Phasor {
public:
    explicit Phasor(size_t N) {
        for (size_t i = 0; i < 4 * N; i++)
            period_.push_back(std::polar(1.0, std::numbers::pi * static_cast<double>(i) / static_cast<double>(2 * N)));
    }
    std::complex<double> operator()(uint64_t i) const { return period_[i % period_.size()]; }

private:
    std::vector<std::complex<double>> period_;
};

// Output i of a transform of N samples: the sum over n of x[n] cos(pi a / (2N)), where a is (2n + 1) i for the DCT-II
// and (2i + 1) n for the DCT-III.
inline double cosine_sum(const Phasor& phasor, const std::vector<float>& x, size_t i, bool third) {
    double sum = 0.0;
    for (size_t n = 0; n < x.size(); n++)
        sum += x[n] * phasor(third ? (2 * i + 1) * n : (2 * n + 1) * i).real();
    return sum;
}

} // namespace korla_test
