// Lanes of another type: single and double precision, 32-bit integers, 16-bit integers in memory.
#pragma once

#include "dsp/core/lanes/maximum.h"
#include "dsp/core/lanes/shuffles.h"

namespace krl {

// Single to double (exact), and back with one rounding.
#if defined(KRL_NEON) // of a conversion of vectors GCC 12 makes one of each lane
KRL_INLINE lane_pair<f64x2> to_double(f32x4 v) {
    const auto x = (float32x4_t)v;
    return {(f64x2)vcvt_f64_f32(vget_low_f32(x)), (f64x2)vcvt_high_f64_f32(x)};
}
KRL_INLINE f32x4 to_single(lane_pair<f64x2> v) {
    return (f32x4)vcvt_high_f32_f64(vcvt_f32_f64((float64x2_t)v.a), (float64x2_t)v.b);
}
#else
KRL_INLINE lane_pair<f64x2> to_double(f32x4 v) {
    return {__builtin_convertvector(__builtin_shufflevector(v, v, 0, 1), f64x2),
            __builtin_convertvector(__builtin_shufflevector(v, v, 2, 3), f64x2)};
}
KRL_INLINE f32x4 to_single(lane_pair<f64x2> v) {
    using f32x2 = float __attribute__((vector_size(8)));
    const f32x2 a = __builtin_convertvector(v.a, f32x2), b = __builtin_convertvector(v.b, f32x2);
    return __builtin_shufflevector(a, b, 0, 1, 2, 3);
}
#endif
#if KRL_LANES == 8
KRL_INLINE lane_pair<f64x4> to_double(f32x8 v) {
    return {(f64x4)_mm256_cvtps_pd(_mm256_castps256_ps128(v)), (f64x4)_mm256_cvtps_pd(_mm256_extractf128_ps(v, 1))};
}
KRL_INLINE f32x8 to_single(lane_pair<f64x4> v) { return _mm256_set_m128(_mm256_cvtpd_ps(v.b), _mm256_cvtpd_ps(v.a)); }
#endif

// As many floats as V has lanes, widened where V holds doubles: all of them, or the first few and zeros.
template <class V> KRL_INLINE V load_as(const float* p) { return load<V>(p); }
template <class V> KRL_INLINE V load_first_as(const float* p, size_t count) { return load_first<V>(p, count); }
template <> KRL_INLINE f64x2 load_as(const float* p) {
#if defined(KRL_NEON)
    return (f64x2)vcvt_f64_f32(vld1_f32(p));
#else
    return f64x2{p[0], p[1]};
#endif
}
template <> KRL_INLINE f64x2 load_first_as(const float* p, size_t) { return f64x2{p[0], 0.0}; }
#if KRL_LANES == 8
template <> KRL_INLINE f64x4 load_as(const float* p) { return (f64x4)_mm256_cvtps_pd(load<f32x4>(p)); }
template <> KRL_INLINE f64x4 load_first_as(const float* p, size_t count) {
    return (f64x4)_mm256_cvtps_pd(load_first<f32x4>(p, count));
}
#endif

// Exact for |v| < 2^24, otherwise rounded to nearest even.
KRL_INLINE f32x4 to_float(i32x4 v) { return __builtin_convertvector(v, f32x4); }
#if KRL_LANES == 8
KRL_INLINE f32x8 to_float(i32x8 v) { return __builtin_convertvector(v, f32x8); }
#endif

// Fixed point with `fraction` bits behind the point to float, rounded as above.
template <int fraction> KRL_INLINE f32x4 to_float_from_fixed(i32x4 v) {
#if defined(KRL_NEON)
    return (f32x4)vcvtq_n_f32_s32((int32x4_t)v, fraction);
#else
    return to_float(v) * (0.5f / (1u << (fraction - 1)));
#endif
}
#if KRL_LANES == 8
template <int fraction> KRL_INLINE f32x8 to_float_from_fixed(i32x8 v) {
    return to_float(v) * (0.5f / (1u << (fraction - 1)));
}
#endif

// Rounds in the current rounding mode, as lrintf does, and NaN to 0 on every target. v is inside the range of int32_t
// for round_to_int; round_to_int_saturated gives the end of that range that v exceeds.
#if defined(KRL_NEON)
KRL_INLINE i32x4 round_to_int(f32x4 v) { return (i32x4)vcvtq_s32_f32(vrndiq_f32((float32x4_t)v)); }
KRL_INLINE i32x4 round_to_int_saturated(f32x4 v) { return round_to_int(v); }
#else
#    if defined(__SSE2__) && !defined(KRL_PORTABLE_LANES)
// What is out of range becomes INT32_MIN, and so does NaN.
KRL_INLINE i32x4 round_in_range(f32x4 v) { return (i32x4)__builtin_ia32_cvtps2dq(v); }
#        if KRL_LANES == 8
KRL_INLINE i32x8 round_in_range(f32x8 v) { return (i32x8)_mm256_cvtps_epi32(v); }
#        endif
#    else
KRL_INLINE i32x4 round_in_range(f32x4 v) {
    i32x4 r;
    for (int i = 0; i < 4; i++)
        r[i] = v[i] >= -0x1p31f && v[i] < 0x1p31f ? static_cast<int32_t>(__builtin_lrintf(v[i])) : INT32_MIN;
    return r;
}
#    endif
template <class V> KRL_INLINE auto round_to_int(V v) { return round_in_range(v) & (v == v); }
template <class V> KRL_INLINE auto round_to_int_saturated(V v) {
    return (round_in_range(v) ^ (v >= 0x1p31f)) & (v == v); // INT32_MIN with all bits turned is INT32_MAX
}
#endif

// 16-bit integers at any alignment, four at a time. What is stored is inside their range.
KRL_INLINE i32x4 load_int16(const int16_t* p) {
#if defined(KRL_NEON)
    return (i32x4)vmovl_s16(vld1_s16(p));
#elif defined(KRL_X86_FMA)
    return (i32x4)_mm_cvtepi16_epi32(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(p)));
#else
    using i16x4 = int16_t __attribute__((vector_size(8)));
    i16x4 v;
    __builtin_memcpy(&v, p, sizeof(v));
    return __builtin_convertvector(v, i32x4);
#endif
}
KRL_INLINE void store_int16(int16_t* p, i32x4 v) {
#if defined(KRL_NEON)
    vst1_s16(p, vmovn_s32((int32x4_t)v));
#elif defined(KRL_X86_FMA)
    _mm_storel_epi64(reinterpret_cast<__m128i*>(p), _mm_packs_epi32((__m128i)v, (__m128i)v));
#else
    using i16x4 = int16_t __attribute__((vector_size(8)));
    i16x4 r = __builtin_convertvector(v, i16x4);
    __builtin_memcpy(p, &r, sizeof(r));
#endif
}

// Two 16-bit integers a lane, a in the lower half and b in the upper one. Unpacked they become fractions of 2^15;
// packed are whole numbers as round_to_int gives them, and what is out of range becomes the end of the range that it
// exceeds.
template <class M> KRL_INLINE auto unpack_int16(M both) {
    using V = decltype(to_float(both));
    constexpr int32_t upper = INT32_MIN >> 15;
    return lane_pair<V>{to_float_from_fixed<31>(both << 16), to_float_from_fixed<31>(both & upper)};
}
#if defined(KRL_NEON)
// Numbers with 16 bits behind the point have their whole part in the upper half, where it saturates by itself.
KRL_INLINE i32x4 pack_int16(f32x4 a, f32x4 b) {
    const auto upper = [](f32x4 v) { return vreinterpretq_s16_s32(vcvtq_n_s32_f32(vrndiq_f32((float32x4_t)v), 16)); };
    return (i32x4)vtrn2q_s16(upper(a), upper(b));
}
#elif defined(KRL_X86_FMA)
// The instruction that packs saturates as well; only what does not fit into 32 bits is left to catch above.
KRL_INLINE i32x4 pack_int16(f32x4 a, f32x4 b) {
    const auto whole = [](f32x4 v) { return (__m128i)round_to_int(min_quick(splat<f32x4>(32767.0f), v)); };
    const __m128i order = _mm_setr_epi8(0, 1, 8, 9, 2, 3, 10, 11, 4, 5, 12, 13, 6, 7, 14, 15);
    return (i32x4)_mm_shuffle_epi8(_mm_packs_epi32(whole(a), whole(b)), order);
}
KRL_INLINE i32x8 pack_int16(f32x8 a, f32x8 b) {
    const auto whole = [](f32x8 v) { return (__m256i)round_to_int(min_quick(splat<f32x8>(32767.0f), v)); };
    const __m256i order =
        _mm256_broadcastsi128_si256(_mm_setr_epi8(0, 1, 8, 9, 2, 3, 10, 11, 4, 5, 12, 13, 6, 7, 14, 15));
    return (i32x8)_mm256_shuffle_epi8(_mm256_packs_epi32(whole(a), whole(b)), order);
}
#else
KRL_INLINE i32x4 pack_int16(f32x4 a, f32x4 b) {
    const auto whole = [](f32x4 v) { return round_to_int(clamp(v, splat<f32x4>(-32768.0f), splat<f32x4>(32767.0f))); };
    return (whole(a) & 0xffff) | whole(b) << 16;
}
#endif

} // namespace krl
