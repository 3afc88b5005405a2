// What the compiler makes of plain loops, the peer of the vector and complex operations.
#include "plain_loops.h"

#include <cmath>
#include <cstddef>

#define RESTRICT __restrict__

namespace plain {

void multiply(float* RESTRICT d, const float* RESTRICT a, const float* RESTRICT b, uint32_t n) {
    for (size_t i = 0; i < n; i++)
        d[i] = a[i] * b[i];
}
void multiply_reversed(float* RESTRICT d, const float* RESTRICT a, const float* RESTRICT b, int32_t n) {
    for (std::ptrdiff_t i = 0; i < n; i++)
        d[i] = a[i] * b[n - 1 - i];
}
void scale(float* RESTRICT d, const float* RESTRICT a, float g, uint32_t n) {
    for (size_t i = 0; i < n; i++)
        d[i] = a[i] * g;
}
void scale_inplace(float* d, float g, uint32_t n) {
    for (size_t i = 0; i < n; i++)
        d[i] *= g;
}
void set(float* d, float v, uint32_t n) {
    for (size_t i = 0; i < n; i++)
        d[i] = v;
}
int equal(const float* a, const float* b, uint32_t n, float tolerance) {
    int different = 0;
    for (size_t i = 0; i < n; i++)
        different |= tolerance < std::fabs(a[i] - b[i]);
    return !different;
}
float abs_max(const float* a, uint32_t n) {
    float m = 0.0f;
    for (size_t i = 0; i < n; i++)
        m = std::fabs(a[i]) > m ? std::fabs(a[i]) : m;
    return m;
}
float dot(const float* a, const float* b, uint32_t n) {
    float s = 0.0f;
    for (size_t i = 0; i < n; i++)
        s += a[i] * b[i];
    return s;
}
double dot_double(const float* a, const float* b, uint32_t n) {
    double s = 0.0;
    for (size_t i = 0; i < n; i++)
        s += static_cast<double>(a[i]) * b[i];
    return s;
}
float sum_of_squares(const float* a, uint32_t n) {
    float s = 0.0f;
    for (size_t i = 0; i < n; i++)
        s += a[i] * a[i];
    return s;
}

void add(float* RESTRICT d, const float* RESTRICT a, const float* RESTRICT b, uint32_t n) {
    for (size_t k = 0; k < 2 * size_t{n}; k++)
        d[k] = a[k] + b[k];
}
void subtract(float* RESTRICT d, const float* RESTRICT a, const float* RESTRICT b, uint32_t n) {
    for (size_t k = 0; k < 2 * size_t{n}; k++)
        d[k] = a[k] - b[k];
}
void copy(float* RESTRICT d, const float* RESTRICT a, uint32_t n) {
    for (size_t k = 0; k < 2 * size_t{n}; k++)
        d[k] = a[k];
}
void zero(float* d, uint32_t n) {
    for (size_t k = 0; k < 2 * size_t{n}; k++)
        d[k] = 0.0f;
}
void scale_complex(float* RESTRICT d, const float* RESTRICT a, float g, uint32_t n) { scale(d, a, g, 2 * n); }
void scale_complex_inplace(float* d, float g, uint32_t n) { scale_inplace(d, g, 2 * n); }
void scale_by_vector(float* RESTRICT d, const float* RESTRICT a, const float* RESTRICT v, uint32_t n) {
    for (size_t k = 0; k < n; k++) {
        d[2 * k] = a[2 * k] * v[k];
        d[2 * k + 1] = a[2 * k + 1] * v[k];
    }
}
void multiply_complex(float* RESTRICT d, const float* RESTRICT a, const float* RESTRICT b, uint32_t n) {
    for (size_t k = 0; k < n; k++) {
        const float ar = a[2 * k], ai = a[2 * k + 1], br = b[2 * k], bi = b[2 * k + 1];
        d[2 * k] = ar * br - ai * bi;
        d[2 * k + 1] = ar * bi + ai * br;
    }
}
void multiply_conjugate(float* RESTRICT d, const float* RESTRICT a, const float* RESTRICT b, float f, uint32_t n) {
    for (size_t k = 0; k < n; k++) {
        const float ar = f * a[2 * k], ai = f * a[2 * k + 1], br = f * b[2 * k], bi = f * b[2 * k + 1];
        d[2 * k] = ar * br + ai * bi;
        d[2 * k + 1] = ai * br - ar * bi;
    }
}
void accumulate_product(float* RESTRICT d, const float* RESTRICT a, const float* RESTRICT b, uint32_t n) {
    for (size_t k = 0; k < n; k++) {
        const float ar = a[2 * k], ai = a[2 * k + 1], br = b[2 * k], bi = b[2 * k + 1];
        d[2 * k] += ar * br - ai * bi;
        d[2 * k + 1] += ar * bi + ai * br;
    }
}
void accumulate_scaled(float* RESTRICT d, const float* RESTRICT a, float g, uint32_t n) {
    for (size_t k = 0; k < 2 * size_t{n}; k++)
        d[k] += g * a[k];
}
void mix(float* RESTRICT d, const float* RESTRICT a, const float* RESTRICT b, float ga, float gb, uint32_t n) {
    for (size_t k = 0; k < 2 * size_t{n}; k++)
        d[k] = ga * a[k] + gb * b[k];
}
template <int inputs>
static inline void mix_fixed(float* RESTRICT d, const float* RESTRICT in, const float* RESTRICT c, uint32_t n) {
    const size_t distance = 2 * ((size_t{n} + 3) / 4 * 4);
    for (size_t k = 0; k < 2 * size_t{n}; k++) {
        float s = 0.0f;
        for (int j = 0; j < inputs; j++)
            s += c[j] * in[static_cast<size_t>(j) * distance + k];
        d[k] = s;
    }
}
template <int inputs>
static inline void mix_fixed_to_both(float* RESTRICT d0, float* RESTRICT d1, const float* RESTRICT in,
                                     const float* RESTRICT c, uint32_t n) {
    const size_t distance = 2 * ((size_t{n} + 3) / 4 * 4);
    for (size_t k = 0; k < 2 * size_t{n}; k++) {
        float s = 0.0f, t = 0.0f;
        for (int j = 0; j < inputs; j++) {
            s += c[j] * in[static_cast<size_t>(j) * distance + k];
            t += c[inputs + j] * in[static_cast<size_t>(j) * distance + k];
        }
        d0[k] = s;
        d1[k] = t;
    }
}
void mix_stack(float* d, const float* in, const float* c, int, uint32_t n) { mix_fixed<4>(d, in, c, n); }
void mix_stack_to_both(float* d0, float* d1, const float* in, const float* c, int inputs, uint32_t n) {
    if (inputs == 4)
        mix_fixed_to_both<4>(d0, d1, in, c, n);
    else if (inputs == 6)
        mix_fixed_to_both<6>(d0, d1, in, c, n);
    else
        mix_fixed_to_both<7>(d0, d1, in, c, n);
}
// Single precision throughout, which is less than what the library states.
void reciprocal(float* RESTRICT d, const float* RESTRICT a, float f, uint32_t n) {
    for (size_t k = 0; k < n; k++) {
        const float re = a[2 * k], im = a[2 * k + 1], r = f / (re * re + im * im);
        d[2 * k] = re * r;
        d[2 * k + 1] = -im * r;
    }
}
void divide(float* RESTRICT d, const float* RESTRICT a, const float* RESTRICT b, uint32_t n) {
    for (size_t k = 0; k < n; k++) {
        const float ar = a[2 * k], ai = a[2 * k + 1], br = b[2 * k], bi = b[2 * k + 1], r = 1.0f / (br * br + bi * bi);
        d[2 * k] = (ar * br + ai * bi) * r;
        d[2 * k + 1] = (ai * br - ar * bi) * r;
    }
}
void squared_magnitude(float* RESTRICT d, const float* RESTRICT a, float f, uint32_t n) {
    for (size_t k = 0; k < n; k++) {
        const float re = f * a[2 * k], im = f * a[2 * k + 1];
        d[k] = re * re + im * im;
    }
}

} // namespace plain
