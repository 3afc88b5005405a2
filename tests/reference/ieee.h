// Scalar models of the floating-point operations whose rules the library states itself.
#pragma once

#include <cmath>
#include <limits>

namespace korla_test {

inline constexpr float nan_value = std::numeric_limits<float>::quiet_NaN();
inline constexpr float infinity = std::numeric_limits<float>::infinity();

// IEEE 754-2008 maxNum and minNum with -0 below +0.
template <class T> T max_num(T a, T b) {
    if (std::isnan(a) || std::isnan(b))
        return std::isnan(a) ? b : a;
    if (a == b)
        return std::signbit(a) ? b : a;
    return a > b ? a : b;
}
template <class T> T min_num(T a, T b) { return -max_num(-a, -b); }

inline float power_of_two(int exponent) { return std::ldexp(1.0f, exponent); }

} // namespace korla_test
