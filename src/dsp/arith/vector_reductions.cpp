// Reductions of real vectors: sums, comparison, headroom.
#include "dsp/core/vector_reduce.h"

#include "dsp/core/abs_max.h"
#include "dsp/core/exp2.h"
#include "korla/dsp/vector.h"

using namespace krl;

namespace {

auto add_product = [](auto s, auto x, auto y) { return fma(x, y, s); };
auto add_square = [](auto s, auto x) { return fma(x, x, s); };

// One sum of squares is one load and one fused step: twice as many partial sums as products to keep both units busy.
template <class access> inline float sum_of_products(const float* a, const float* b, uint32_t n) {
    return reduce_vector<access, f32v, 32>(n, add_product, a, b);
}
template <class access> inline float sum_of_squares(const float* x, uint32_t n) {
    return reduce_vector<access, f32v, 64>(n, add_square, x);
}

inline float mean(float sum, uint32_t n) { return n == 0 ? 0.0f : sum * static_cast<float>(1.0 / n); }

// Written as "not greater", so that a NaN difference counts as equal.
inline bool equal_within(const float* a, const float* b, uint32_t n, float tolerance) {
    auto differs = [tolerance](auto x, auto y) { return abs(x - y) > tolerance; };
    auto group = [&](size_t i) { return differs(load<f32v>(a + i), load<f32v>(b + i)); };
    constexpr size_t width = lanes<f32v>;
    if (n < width) {
        bool different = false;
        for (size_t i = 0; i < n; i++)
            different |= __builtin_fabsf(a[i] - b[i]) > tolerance;
        return !different;
    }
    size_t i = 0;
    for (; i + 4 * width <= n; i += 4 * width)
        if (any((group(i) | group(i + width)) | (group(i + 2 * width) | group(i + 3 * width))))
            return false;
    auto different = group(n - width); // the rest, reaching back over elements already compared
    for (; i + width <= n; i += width)
        different |= group(i);
    return !any(different);
}

// Bits of headroom below 1: from the exponent of the largest magnitude.
inline uint32_t headroom(float (*strict_maximum)(const float*, uint32_t), float (*flex_maximum)(const float*, uint32_t),
                         const float* x, uint32_t n) {
    const float maximum = is_aligned(x, strict_alignment) && n % 4 == 0 ? strict_maximum(x, n) : flex_maximum(x, n);
    if (maximum == 0.0f)
        return 60;
    const int32_t exponent = (bit_cast<int32_t>(maximum) >> 23) & 0xff;
    const int32_t bits = 126 - exponent;
    return static_cast<uint32_t>(bits < 0 ? 0 : bits > 60 ? 60 : bits);
}

} // namespace

KRL_PAIR(int32_t, krl_vec_IeqLLU_flex, KRL_vec_IeqLLU_strict, (const float* a, const float* b, uint32_t n, float tol),
         return equal_within(a, b, n, tol);)

KRL_PAIR(float, krl_vec_LdotLLU_flex, KRL_vec_LdotLLU_strict, (const float* a, const float* b, uint32_t n),
         return sum_of_products<access>(a, b, n);)

KRL_PAIR(double, krl_vec_NdotLLU_flex, KRL_vec_NdotLLU_strict, (const float* a, const float* b, uint32_t n),
         return (reduce_vector<access, f64v, 32>(n, add_product, a, b));)

KRL_PAIR(float, krl_vec_Lsum_sqrLUU_flex, KRL_vec_Lsum_sqrLUU_strict, (const float* x, uint32_t shift, uint32_t n),
         return sum_of_squares<access>(x, n) * exp2_int(static_cast<int32_t>(0u - shift));)

KRL_PAIR(float, krl_vec_Lmean_sqrLU_flex, KRL_vec_Lmean_sqrLU_strict, (const float* x, uint32_t n),
         return mean(sum_of_squares<access>(x, n), n);)

KRL_PAIR(uint32_t, krl_vec_UnormLU_flex, KRL_vec_UnormLU_strict, (const float* x, uint32_t n),
         return headroom(KRL_vec_Labs_maxLU_strict, krl_vec_Labs_maxLU_flex, x, n);)

KRL_PAIR(uint32_t, krl_vec_UnormSU_flex, KRL_vec_UnormSU_strict, (const float* x, uint32_t n),
         return headroom(KRL_vec_Sabs_maxSU_strict, krl_vec_Sabs_maxSU_flex, x, n);)
