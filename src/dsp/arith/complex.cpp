// Operations on complex vectors.
//
// Sums and mixes, to which both parts are alike, map a vector of n complex samples as one of 2n floats; products take the
// parts apart. In the comments each product in brackets is rounded, the other one is fused with the sum.
#include "korla/dsp/complex.h"

#include <cstring>
#include <type_traits>

#include "dsp/core/exp2.h"
#include "dsp/core/vector_map.h"

using namespace krl;

extern "C" {
const uint32_t krl_clclmix5cl10csu_c = 0;
const uint32_t krl_clclmix5cl10csu_order_coef_c = 0;
}

namespace {

inline size_t floats(uint32_t n) { return 2 * size_t{n}; }

auto multiply_by = [](float g) { return [g](auto a) { return a * g; }; };

// ---- products ------------------------------------------------------------------------------------------------------

// re = a.re b.re - [a.im b.im], im = a.re b.im + [a.im b.re]
auto product = [](auto a, auto b) { return multiply_fused(a, b); };

// (s.re - a.im b.im, s.im + a.re b.im), fused
template <class V> KRL_INLINE complex<V> add_imaginary_products(complex<V> s, complex<V> a, complex<V> b) {
    return {fma(-a.im, b.im, s.re), fma(a.re, b.im, s.im)};
}

// re = [a.re b.re] - a.im b.im, im = a.re b.im + [a.im b.re]
auto product_of_strict_entry = [](auto a, auto b) { return add_imaginary_products(b.re * a, a, b); };

// re = (acc.re + a.re b.re) - a.im b.im, im = (a.re b.im + [a.im b.re]) + acc.im
auto add_product = []<class V>(complex<V> acc, complex<V> a, complex<V> b) {
    const auto sum = add_imaginary_products({fma(a.re, b.re, acc.re), a.im * b.re}, a, b);
    return complex<V>{sum.re, sum.im + acc.im};
};

// A real factor for each sample. With eight lanes it costs less to double the factors than to take the samples apart.
template <class access> inline void times_real(float* d, const float* a, const float* v, uint32_t n) {
    const auto times = [](auto x, auto g) { return g * x; };
    if constexpr (lanes<f32v> == 8)
        map_vector<access>(to(d), floats(n), times, from(a), from_real(v));
    else
        map_vector<access, 2>(to_samples(d), n, times, from_samples(a), from_real_samples(v));
}

// a conj(b): re = a.re b.re + [a.im b.im], im = a.im b.re - [a.re b.im]
template <class V> KRL_INLINE complex<V> conjugate_product(complex<V> a, complex<V> b) {
    return rotate_fused(a, b.re, b.im);
}

// ---- division ------------------------------------------------------------------------------------------------------

// Both parts of the numerator over |x|^2 = x.re x.re + [x.im x.im], a single. Its reciprocal and the products with it
// are formed in double precision and rounded once to single.
template <class V> KRL_INLINE complex<V> over_squared_magnitude(complex<V> numerator, complex<V> x) {
    const auto magnitude = to_double(fma(x.re, x.re, x.im * x.im));
    const auto one = splat<std::remove_const_t<decltype(magnitude.a)>>(1.0);
    const auto a = one / magnitude.a, b = one / magnitude.b;
    const auto re = to_double(numerator.re), im = to_double(numerator.im);
    return {to_single({re.a * a, re.b * b}), to_single({im.a * a, im.b * b})};
}

auto reciprocal_times = [](float f) {
    return [f]<class V>(complex<V> a) {
        return over_squared_magnitude(complex<V>{a.re * f, a.im * -f}, a); // f conj(a) / |a|^2
    };
};

auto quotient = [](auto a, auto b) { return over_squared_magnitude(conjugate_product(a, b), b); };

// ---- shifts --------------------------------------------------------------------------------------------------------

template <class access> inline void shift(float* d, const float* a, uint32_t exponent, uint32_t n) {
    if (exponent != 0)
        map_vector<access>(to(d), floats(n), multiply_by(exp2_int(static_cast<int32_t>(exponent))), from(a));
    else if (d != a)
        krl_CLcopyCLU_flex(d, a, n);
}

// ---- mixes ---------------------------------------------------------------------------------------------------------

// c[0] in[0] + c[1] in[1] + ..., one fused step for each term after the first.
template <int count, class V> KRL_INLINE V weighted_sum(const V* in, const float* c) {
    V sum = in[0] * c[0];
#pragma GCC unroll 8
    for (int j = 1; j < count; j++)
        sum = fma(in[j], splat<V>(c[j]), sum);
    return sum;
}

// Each stacked input occupies n rounded up to a multiple of four complex samples.
template <int count> inline from_stack<count> stack(const float* inputs, uint32_t n) {
    return {inputs, 2 * ((size_t{n} + 3) & ~size_t{3})};
}

template <class access, int count>
inline void mix_to_both(float* d0, float* d1, const float* inputs, const float* coefficients, uint32_t n) {
    float c[2 * count]; // the compiler cannot know that the destinations do not change them
    std::memcpy(c, coefficients, sizeof(c));
    auto both = [&c]<class V>(stacked_lanes<V, count> in) {
        return lane_pair<V>{weighted_sum<count>(in.of, c), weighted_sum<count>(in.of, c + count)};
    };
    map_vector<access, 1>(to_both{d0, d1}, floats(n), both, stack<count>(inputs, n));
}

template <class access> inline void mix4(float* d, const float* inputs, const float* coefficients, uint32_t n) {
    float c[4];
    std::memcpy(c, coefficients, sizeof(c));
    map_vector<access, 2>(
        to(d), floats(n), [&c](auto in) { return weighted_sum<4>(in.of, c); }, stack<4>(inputs, n));
}

} // namespace

// ---- sums, copies --------------------------------------------------------------------------------------------------

KRL_PAIR(void, krl_CLaddCLCLU_flex, KRL_CLaddCLCLU_strict, (float* d, const float* a, const float* b, uint32_t n),
         map_vector<access>(
             to(d), floats(n), [](auto x, auto y) { return x + y; }, from(a), from(b));)

KRL_PAIR(void, krl_CLsubCLCLU_flex, KRL_CLsubCLCLU_strict, (float* d, const float* a, const float* b, uint32_t n),
         map_vector<access>(
             to(d), floats(n), [](auto x, auto y) { return x - y; }, from(a), from(b));)

KRL_PAIR(void, krl_CLcopyCLU_flex, KRL_CLcopyCLU_strict, (float* d, const float* a, uint32_t n),
         if (n != 0) std::memmove(d, a, floats(n) * sizeof(float));)

KRL_PAIR(void, krl_CLzeroCLU_flex, KRL_CLzeroCLU_strict, (float* d, uint32_t n),
         if (n != 0) std::memset(d, 0, floats(n) * sizeof(float));)

// ---- products ------------------------------------------------------------------------------------------------------

KRL_PAIR(void, krl_CLmpyCLSU_flex, KRL_CLmpyCLSU_strict, (float* d, const float* a, float g, uint32_t n),
         map_vector<access>(to(d), floats(n), multiply_by(g), from(a));)

KRL_PAIR(void, krl_CLmpyCLVSU_flex, KRL_CLmpyCLVSU_strict, (float* d, const float* a, const float* v, uint32_t n),
         times_real<access>(d, a, v, n);)

void krl_CLmpyCLCSU_flex(float* d, const float* a, const float* b, uint32_t n) {
    map_vector<flex, 2>(to_samples(d), n, product, from_samples(a), from_samples(b));
}
void KRL_CLmpyCLCSU_strict(float* d, const float* a, const float* b, uint32_t n) {
    map_vector<strict, 2>(to_samples(d), n, product_of_strict_entry, from_samples(a), from_samples(b));
}

KRL_PAIR(void, krl_CLmacCLCLU_flex, KRL_CLmacCLCLU_strict, (float* acc, const float* a, const float* b, uint32_t n),
         map_vector<access, 2>(to_samples(acc), n, add_product, from_samples(acc), from_samples(a), from_samples(b));)

KRL_PAIR(
    void, krl_CLmacCLLU_flex, KRL_CLmacCLLU_strict, (float* acc, const float* a, float g, uint32_t n),
    auto add_scaled = [g](auto s, auto x) { return fma(x, splat<decltype(x)>(g), s); };
    map_vector<access>(to(acc), floats(n), add_scaled, from(acc), from(a));)

KRL_PAIR(void, krl_cvec_Lmpy_conjLLIU_flex, KRL_cvec_Lmpy_conjLLIU_strict,
         (float* d, const float* a, const float* b, int32_t e, uint32_t n), const float f = exp2_int(e);
         auto scaled_product = [f]<class V>(complex<V> x, complex<V> y) {
             const V g = splat<V>(f);
             return conjugate_product(g * x, g * y);
         };
         map_vector<access, 2>(to_samples(d), n, scaled_product, from_samples(a), from_samples(b));)

KRL_PAIR(
    void, krl_VLsquaredmagCLIU_flex, KRL_VLsquaredmagCLIU_strict, (float* v, const float* a, int32_t e, uint32_t n),
    const float f = exp2_int(e);
    auto squared_magnitude =
        [f](auto x) {
            const auto re = x.a * f, im = x.b * f;
            return fma(re, re, im * im);
        };
    map_vector<access>(to(v), n, squared_magnitude, from_complex(a));)

// ---- mixes ---------------------------------------------------------------------------------------------------------

KRL_PAIR(
    void, krl_CLmixCLCLSSU_flex, KRL_CLmixCLCLSSU_strict,
    (float* d, const float* a, const float* b, float ga, float gb, uint32_t n),
    auto mix = [ga, gb](auto x, auto y) { return fma(y, splat<decltype(y)>(gb), x * ga); };
    map_vector<access>(to(d), floats(n), mix, from(a), from(b));)

KRL_PAIR(void, krl_CLmix4CL4SU_flex, KRL_CLmix4CL4SU_strict, (float* d, const float* in, const float* c, uint32_t n),
         mix4<access>(d, in, c, n);)

KRL_PAIR(void, krl_CLCLmix4CL8SU_flex, KRL_CLCLmix4CL8SU_strict,
         (float* d0, float* d1, const float* in, const float* c, uint32_t n),
         (mix_to_both<access, 4>(d0, d1, in, c, n));)

// The strict entry, too, takes any n, so it is the same code.
KRL_PAIR(void, krl_CLCLmix6CL12SU_flex, KRL_CLCLmix6CL12SU_strict,
         (float* d0, float* d1, const float* in, const float* c, uint32_t n), (mix_to_both<flex, 6>(d0, d1, in, c, n));)

// Four inputs and then three more added in the same fused steps: one chain, so one pass gives the bits of the two.
KRL_PAIR(void, krl_CLCLmix7CL14SU_flex, KRL_CLCLmix7CL14SU_strict,
         (float* d0, float* d1, const float* in, const float* c, uint32_t n),
         (mix_to_both<access, 7>(d0, d1, in, c, n));)

// ---- powers of two -------------------------------------------------------------------------------------------------

KRL_PAIR(void, krl_CLshlCLUU_flex, KRL_CLshlCLUU_strict, (float* d, const float* a, uint32_t s, uint32_t n),
         shift<access>(d, a, s, n);)

KRL_PAIR(void, krl_CLshrCLUU_flex, KRL_CLshrCLUU_strict, (float* d, const float* a, uint32_t s, uint32_t n),
         shift<access>(d, a, 0u - s, n);)

KRL_PAIR(void, krl_CLmpy_shlCLSIU_flex, KRL_CLmpy_shlCLSIU_strict,
         (float* d, const float* a, float g, int32_t e, uint32_t n),
         map_vector<access>(to(d), floats(n), multiply_by(g* exp2_int(e)), from(a));)

KRL_PAIR(void, krl_CLmpy_shlCLSIU_inplace_flex, KRL_CLmpy_shlCLSIU_inplace_strict,
         (float* a, float g, int32_t e, uint32_t n),
         map_vector<access>(to(a), floats(n), multiply_by(g* exp2_int(e)), from(a));)

// ---- division ------------------------------------------------------------------------------------------------------

KRL_PAIR(void, krl_CLrecipCLUU_flex, KRL_CLrecipCLUU_strict, (float* d, const float* a, uint32_t s, uint32_t n),
         map_vector<access, 1>(to_samples(d), n, reciprocal_times(exp2_int(static_cast<int32_t>(0u - s))),
                               from_samples(a));)

KRL_PAIR(void, krl_CLmpy_recipCLLIU_flex, KRL_CLmpy_recipCLLIU_strict,
         (float* d, const float* a, float g, int32_t e, uint32_t n),
         map_vector<access, 1>(to_samples(d), n, reciprocal_times(g* exp2_int(e)), from_samples(a));)

KRL_PAIR(void, krl_CLdivCLCLU_flex, KRL_CLdivCLCLU_strict, (float* d, const float* a, const float* b, uint32_t n),
         map_vector<access, 1>(to_samples(d), n, quotient, from_samples(a), from_samples(b));)
