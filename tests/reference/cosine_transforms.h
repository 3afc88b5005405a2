// Cosine transforms as their defining sums, in double precision.
#pragma once

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <numbers>
#include <vector>

namespace korla_test {

// cos(pi i / (2N)) for any i, from a table of one period.
class CosineOfLength {
public:
    explicit CosineOfLength(size_t N) : period_(4 * N) {
        for (size_t i = 0; i < 4 * N; i++)
            period_[i] = std::cos(std::numbers::pi * static_cast<double>(i) / static_cast<double>(2 * N));
    }
    double operator()(uint64_t i) const { return period_[i % period_.size()]; }

private:
    std::vector<double> period_;
};

// sum over m of x[m] cos(pi (2m + 1) k / (2N))
template <class Vector>
double dct2_at(const CosineOfLength& cosine, const Vector& x, size_t k) {
    double sum = 0.0;
    for (size_t m = 0; m < x.size(); m++)
        sum += static_cast<double>(x[m]) * cosine((2 * m + 1) * k);
    return sum;
}

// sum over k of x[k] cos(pi (2m + 1) k / (2N))
template <class Vector>
double dct3_at(const CosineOfLength& cosine, const Vector& x, size_t m) {
    double sum = 0.0;
    for (size_t k = 0; k < x.size(); k++)
        sum += static_cast<double>(x[k]) * cosine((2 * m + 1) * k);
    return sum;
}

} // namespace korla_test
