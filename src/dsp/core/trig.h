// Compile-time sine and cosine of rational fractions of a turn.
//
// The angle 2*pi*n/d is reduced to the first octant in integers, so that the zeros, ones and halves of a table are
// exact and mirrored entries are equal to the bit; a Taylor polynomial in double finishes within one unit in its last
// place. Tables round the double once to float.
#pragma once

#include <cstdint>

namespace krl {

namespace detail {

constexpr double pi = 3.14159265358979323846;

// 0 <= x <= pi/4
constexpr double octant_sin(double x) {
    double x2 = x * x, term = x, sum = 0.0;
    double terms[10] = {};
    for (int i = 0; i < 10; i++) {
        terms[i] = term;
        term *= -x2 / ((2 * i + 2) * (2 * i + 3));
    }
    for (int i = 9; i >= 0; i--) // smallest first
        sum += terms[i];
    return sum;
}
constexpr double octant_cos(double x) {
    double x2 = x * x, term = 1.0, sum = 0.0;
    double terms[10] = {};
    for (int i = 0; i < 10; i++) {
        terms[i] = term;
        term *= -x2 / ((2 * i + 1) * (2 * i + 2));
    }
    for (int i = 9; i >= 0; i--)
        sum += terms[i];
    return sum;
}

} // namespace detail

struct sin_cos {
    double sin, cos;
};

// Sine and cosine of 2*pi*n/d, d > 0.
constexpr sin_cos sin_cos_turn(int64_t n, int64_t d) {
    n %= d;
    if (n < 0)
        n += d;
    // 8n/d = octant + rest/d, 0 <= rest < d
    const int64_t octant = 8 * n / d;
    int64_t rest = 8 * n - octant * d;
    const bool mirrored = octant & 1; // count from the upper edge of odd octants
    if (mirrored)
        rest = d - rest;
    const double x = detail::pi / 4 * (static_cast<double>(rest) / static_cast<double>(d));
    const double s = detail::octant_sin(x), c = detail::octant_cos(x);
    switch (octant) {
    case 0: return {s, c};
    case 1: return {c, s};
    case 2: return {c, -s};
    case 3: return {s, -c};
    case 4: return {-s, -c};
    case 5: return {-c, -s};
    case 6: return {-c, s};
    default: return {-s, c};
    }
}
constexpr double sin_turn(int64_t n, int64_t d) { return sin_cos_turn(n, d).sin; }
constexpr double cos_turn(int64_t n, int64_t d) { return sin_cos_turn(n, d).cos; }

} // namespace krl
