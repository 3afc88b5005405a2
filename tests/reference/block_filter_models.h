// Sample-by-sample models of the block filters, rounding as their headers state it. c are the coefficients.
#pragma once

#include <korla/dsp/block_filter.h>

#include <algorithm>

#include "ieee.h"

namespace korla_test::model {

inline float iir1(krl_iir1_state& s, const float* c, float x) {
    const float y = std::fma(c[0], x, std::fma(c[1], s.x1, c[2] * s.y1));
    s = {x, y};
    return y;
}
inline float iir1_by_8(krl_iir1_state& s, const float* c, float x) { return 8.0f * iir1(s, c, x); }
inline void iir1_doubled_plus(krl_iir1_state& s, const float* c, const float* x, const float* other, float* y) {
    *y = std::fma(iir1(s, c, *x), 2.0f, *other);
}
inline float iir1x(krl_iir1x_state& s, const float* c, float x) {
    s.y1 = std::fma(double(x), double(c[0]), std::fma(s.y1, double(c[2]), double(s.x1) * double(c[1])));
    s.x1 = x;
    return static_cast<float>(s.y1);
}
inline float iir2df1(krl_iir2df1_state& s, const float* c, float x) {
    const float a1 = c[3] + c[3];
    const float y = std::fma(c[0], x, std::fma(a1, s.y1, std::fma(c[1], s.x1, std::fma(c[2], s.x2, c[4] * s.y2))));
    s.x2 = s.x1, s.x1 = x, s.y2 = s.y1, s.y1 = y;
    return y;
}
// The state-space sections: version 1 adds both states to its output, 2 and 3 differ in the feedback of s1 into s0.
template <int version, int scale = 2> float section(krl_iir2ss_state& s, const float* c, float x) {
    const float y = std::fma(-c[0], x, version == 1 ? s.s0 + s.s1 : s.s0);
    const float s0 = version == 1 ? std::fma(c[3], s.s0, std::fma(c[1], x, -(c[4] * s.s1)))
                                  : std::fma(c[1], x, std::fma(c[3], s.s0, s.s1 * (version == 2 ? 1.0f : 0.0625f)));
    s = {s0, std::fma(c[2], x, std::fma(c[3], s.s1, c[4] * s.s0))};
    return scale * y;
}
inline void section_halving(krl_iir2ss_state& s, const float* c, const float* x, const float*, float* y) {
    *y = section<1>(s, c, x[0]);
    section<1>(s, c, x[1]);
}
inline void section_doubling(krl_iir2ss_state& s, const float* c, const float* x, const float*, float* y) {
    y[0] = section<1>(s, c, *x);
    y[1] = 2.0f * (s.s0 + s.s1);
    section<1>(s, c, 0.0f);
}
inline float fir2(krl_fir2_state& s, const float* c, float x) {
    const float y = std::fma(c[0], x, c[1] * s.x1);
    s.x1 = x;
    return y;
}
inline float fir3(krl_fir3_state& s, const float* c, float x) {
    const float y = std::fma(c[0], x, std::fma(c[1], s.x1, c[2] * s.x2));
    s.x2 = s.x1, s.x1 = x;
    return y;
}
template <bool with_floor> float envelope(krl_envelope_state& s, const float* c, float x) {
    const double keep0 = 1.0f - c[0], keep1 = 1.0f - c[1];
    s.e = max_num(std::fma(double(x), double(c[1]), s.e * keep1), std::fma(double(x), double(c[0]), s.e * keep0));
    if (with_floor)
        s.e = max_num(s.e, double(x) * double(c[2]));
    return static_cast<float>(s.e);
}
inline float integrate(krl_integrator_state& s, const float* c, float x) {
    return s.acc = min_num(max_num(s.acc + x, c[1]), c[0]);
}
template <int u> float reciprocal(krl_reciprocal_state& s, const float*, float x) {
    const float t = min_num(s.r * x, 0.75f * power_of_two(1 - u));
    return s.r = s.r * (2.0f * std::fma(-power_of_two(u - 1), t, 1.0f));
}
// Block by block through a window and again; its end is held when a block reaches beyond it. s.len counts samples.
template <uint32_t length> float crossfade_gain(krl_crossfade_state& s, const float* window, float x) {
    const uint32_t k = std::min(s.pos + s.len % 32, length - 1);
    if (++s.len % 32 == 0)
        s.pos += s.pos + 32 < length ? 32 : 32 - length;
    return std::fma(window[length - 1 - k], 0.3f, -1.7f * window[k]) * x;
}

} // namespace korla_test::model
