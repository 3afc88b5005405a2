// The cosine transforms: DCT-II and DCT-III around a complex FFT of half the length, and the two steps of a DCT-IV.
#include "korla/dsp/dct.h"

#include <cstring>

#include "dsp/core/complex_lanes.h"
#include "dsp/core/exp2.h"
#include "dsp/fft/short_transforms.h"
#include "dsp/filterbank/given_fft.h"
#include "dsp/filterbank/sweep.h"

namespace krl {
namespace {

constexpr uint32_t in_place_limit = 2048;

// The even samples in order, then the odd ones reversed.
KRL_INLINE void even_then_reversed_odd(float* out, const float* in, uint32_t N) {
    sweep(0, N / 2, [=]<class V>(lane_tag<V>, uint32_t j) {
        const auto [even, odd] = load_complex<V>(in + 2 * j);
        store(out + j, even);
        store_backwards(out + N - 1 - j, odd);
    });
}
KRL_INLINE void undo_even_then_reversed_odd(float* out, const float* in, uint32_t N) {
    sweep(0, N / 2, [=]<class V>(lane_tag<V>, uint32_t j) {
        store_complex<V>(out + 2 * j, {load<V>(in + j), load_backwards<V>(in + N - 1 - j)});
    });
}

// What the pair of bins k and m = H - k needs from the table, with e(k) = exp(j pi k / (2N)): the rotation of either
// bin, and that by four times the angle for the split, formed by doubling twice because the table holds it four apart.
template <class V> struct PairRotations {
    complex<V> k, m, four_k; // e(k), e(m), e(4k)

    KRL_INLINE PairRotations(const float* table, uint32_t N, uint32_t i) {
        const uint32_t H = N / 2;
        k = {load_backwards<V>(table + N - i), load<V>(table + i)};
        m = {load<V>(table + H + i), load_backwards<V>(table + H - i)};
        const V one = splat<V>(1.0f);
        const V twice = k.im + k.im;
        const V sin_2k = twice * k.re, cos_2k = fma(-twice, k.im, one);
        const V twice_2k = sin_2k + sin_2k;
        four_k = {fma(-twice_2k, sin_2k, one), twice_2k * cos_2k};
    }
};

// From the transform A, B of bins k and H - k of the packed signal, four times the spectrum of the real signal there
// and back: the halves that the split averages with are left to the caller. The DCT-II goes on with the two bins as
// they are, the DCT-III, the same flow backwards, with the two exchanged.
template <class V> struct SplitBins {
    complex<V> near, far;

    KRL_INLINE SplitBins(complex<V> A, complex<V> B, const PairRotations<V>& e) {
        const complex<V> sum{A.re + B.re, A.im - B.im};
        const complex<V> turned = rotate_fused(e.four_k, A.im + B.im, B.re - A.re);
        near = {sum.re + turned.re, turned.im - sum.im};
        far = {sum.re - turned.re, turned.im + sum.im};
    }
};

// The FFT of N/2 points and N itself: by the caller's kernel, or known to the compiler, which then makes straight code of the
// shortest transforms, whose loops and calls would cost more than their work.
struct GivenFft {
    krl_fft_kernel* kernel;
    uint32_t N;
    void operator()(float* out, float* in) const { kernel(out, in, N / 2); }
};
template <uint32_t length, bool scaled> struct ShortFft {
    static constexpr uint32_t N = length;
    KRL_INLINE void operator()(float* out, float* in) const {
        fft::short_transform<length / 2, fft::direction::forward, scaled>(out, in);
    }
};

// Calls transform with the one or the other for a length that the transforms take, with the first for the length `but`.
template <bool scaled, uint32_t but = 0, class Transform> KRL_INLINE void with_fft(const krl_fft_pair* pair, uint32_t N, Transform transform) {
    krl_fft_kernel* const kernel = scaled ? scaled_fft(pair, N / 2) : unscaled_fft(pair, N / 2);
    if (N == 0 || N % 4 != 0 || !kernel)
        return;
    if (N == 4 && kernel == (scaled ? KRL_r4_fft_2_s : KRL_r4_fft_2))
        return transform(ShortFft<4, scaled>{});
    if (N == 8 && but != 8 && kernel == (scaled ? KRL_r4_fft_4_s : KRL_r4_fft_4))
        return transform(ShortFft<8, scaled>{});
    if (N == 12 && kernel == (scaled ? KRL_r4_fft_6_s : KRL_r4_fft_6))
        return transform(ShortFft<12, scaled>{});
    transform(GivenFft{kernel, N});
}

// gain is that of the whole transform behind the FFT.
template <class Fft> KRL_INLINE void transform_2(Fft fft, const float* table, float* out, float* in, float gain) {
    const uint32_t N = fft.N, H = N / 2;
    even_then_reversed_odd(out, in, N);
    fft(in, out);

    out[0] = gain * (in[0] + in[1]);
    out[H] = gain * table[H] * (in[0] - in[1]);
    // The last k is the bin that pairs with itself.
    sweep(1, N / 4 + 1, [=]<class V>(lane_tag<V>, uint32_t k) {
        const uint32_t m = H - k;
        const PairRotations<V> e(table, N, k);
        const SplitBins<V> Z(load_complex<V>(in + 2 * k), load_complex_backwards<V>(in + 2 * m), e);
        const V half = splat<V>(0.5f * gain);
        const complex<V> at_k = half * multiply_fused(e.k, Z.near), at_m = half * multiply_fused(e.m, Z.far);
        store(out + k, at_k.re);
        store_backwards(out + N - k, at_k.im);
        store_backwards(out + m, at_m.re);
        store(out + N - m, at_m.im);
    });
}

template <class Fft> KRL_INLINE void transform_3(Fft fft, const float* table, float* out, float* in) {
    const uint32_t N = fft.N, H = N / 2;
    const float middle = table[H] * in[H];
    out[0] = 0.5f * (in[0] + middle);
    out[1] = 0.5f * (in[0] - middle);
    sweep(1, N / 4 + 1, [=]<class V>(lane_tag<V>, uint32_t k) {
        const uint32_t m = H - k;
        const PairRotations<V> e(table, N, k);
        const complex<V> at_k{load<V>(in + k), load_backwards<V>(in + N - k)};
        const complex<V> at_m{load_backwards<V>(in + m), load<V>(in + N - m)};
        const SplitBins<V> Y(rotate_fused(at_k, e.k.re, e.k.im), rotate_fused(at_m, e.m.re, e.m.im), e);
        const V quarter = splat<V>(0.25f);
        store_complex(out + 2 * k, quarter * Y.far);
        store_complex_backwards(out + 2 * m, quarter * Y.near);
    });
    fft(in, out);
    undo_even_then_reversed_odd(out, in, N);
}

// transform(out, in) of a copy of data into data.
template <class Transform> void in_place(float* data, uint32_t N, Transform transform) {
    if (N > in_place_limit)
        return;
    alignas(32) float copy[in_place_limit];
    std::memcpy(copy, data, N * sizeof(float));
    transform(data, copy);
}

// G * (even outputs forwards, odd outputs backwards from the end). The outputs of the samples from the front meet those
// of the samples from the back in memory, so both are formed together.
void postmodulate(float* out, const float* z, const float* s, const float* c, float gain, uint32_t N) {
    const auto both_ends = [=]<class V>(lane_tag<V>, uint32_t k) {
        const auto even_and_odd = [=](uint32_t at) { // as real and imaginary part
            return splat<V>(gain) *
                   rotate_conjugate_fused(load_complex<V>(z + 2 * at), load<V>(c + at), load<V>(s + at));
        };
        const uint32_t mirror = N - k - lanes<V>;
        const complex<V> front = even_and_odd(k), back = even_and_odd(mirror);
        store_complex<V>(out + 2 * k, {front.re, reverse(back.im)});
        store_complex<V>(out + 2 * mirror, {back.re, reverse(front.im)});
    };
    if (N >= 2 * lanes<f32v>)
        for (uint32_t k = 0; 2 * k < N; k += lanes<f32v>)
            both_ends(lane_tag<f32v>{}, k);
    else
        for (uint32_t k = 0; 2 * k < N; k++)
            both_ends(lane_tag<float>{}, k);
    if (N % 4 != 0) {
        out[0] = gain * z[0];
        out[2 * N - 1] = -gain * z[1];
    }
}

} // namespace
} // namespace krl

using namespace krl;

void krl_dctII_scaled(const krl_fft_pair* pair, const float* table, float* out, float* in, uint32_t N) {
    with_fft<true>(pair, N, [=](auto fft) { transform_2(fft, table, out, in, 0.5f); });
}
void krl_dctII_unscaled(const krl_fft_pair* pair, const float* table, float* out, float* in, uint32_t N) {
    with_fft<false>(pair, N, [=](auto fft) { transform_2(fft, table, out, in, 1.0f); });
}
void krl_dctIII_scaled(const krl_fft_pair* pair, const float* table, float* out, float* in, uint32_t N) {
    // With eight lanes straight code of 8 points would wait for the single stores before the FFT's vectors.
    constexpr uint32_t by_call = lanes<f32v> == 8 ? 8 : 0;
    with_fft<true, by_call>(pair, N, [=](auto fft) { transform_3(fft, table, out, in); });
}

void _krl_ldct2_scaled_iplu(const krl_fft_pair* pair, const float* table, float* data, uint32_t N) {
    in_place(data, N, [=](float* out, float* in) { krl_dctII_scaled(pair, table, out, in, N); });
}
void _krl_ldct2_unscaled_iplu(const krl_fft_pair* pair, const float* table, float* data, uint32_t N) {
    in_place(data, N, [=](float* out, float* in) { krl_dctII_unscaled(pair, table, out, in, N); });
}
void _krl_ldct3_scaled_iplu(const krl_fft_pair* pair, const float* table, float* data, uint32_t N) {
    in_place(data, N, [=](float* out, float* in) { krl_dctIII_scaled(pair, table, out, in, N); });
}

void krl_dct4_premodulation(float* out, const float* w, const float* a, const float* b, uint32_t N) {
    sweep(0, N, [=]<class V>(lane_tag<V>, uint32_t k) {
        const V sine = load_complex<V>(w + 2 * k).re;
        const V cosine = load_complex_backwards<V>(w + 2 * (N - 1 - k)).im;
        store_complex(out + 2 * k, rotate_fused(complex<V>{load<V>(a + k), load<V>(b + k)}, cosine, sine));
    });
}

void krl_dct4_postmodulation_shl0(float* out, const float* z, const float* s, const float* c, uint32_t N) {
    postmodulate(out, z, s, c, 1.0f, N);
}
void krl_dct4_postmodulation_shl1(float* out, const float* z, const float* s, const float* c, uint32_t N) {
    postmodulate(out, z, s, c, 2.0f, N);
}
void krl_dct4_postmodulation_shl2(float* out, const float* z, const float* s, const float* c, uint32_t N) {
    postmodulate(out, z, s, c, 4.0f, N);
}
void krl_dct4_postmodulation_shl(float* out, const float* z, const float* s, const float* c, int32_t shift,
                                 uint32_t N) {
    postmodulate(out, z, s, c, exp2_int(shift), N);
}
