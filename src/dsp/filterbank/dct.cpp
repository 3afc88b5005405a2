#include "korla/dsp/dct.h"

#include "dsp/core/exp2.h"
#include "dsp/filterbank/sweep.h"

using namespace krl;

namespace {

// ---- complex vectors in interleaved memory -------------------------------------------------------------------------

template <class V> struct complex_lanes { V re, im; };

template <class V> KRL_INLINE complex_lanes<V> load_complex(const float* p) {
    if constexpr (lanes<V> == 1) {
        return {p[0], p[1]};
    } else {
        auto [re, im] = deinterleave(load<V>(p), load<V>(p + lanes<V>));
        return {re, im};
    }
}
template <class V> KRL_INLINE void store_complex(float* p, complex_lanes<V> z) {
    if constexpr (lanes<V> == 1) {
        p[0] = z.re;
        p[1] = z.im;
    } else {
        auto [lo, hi] = interleave(z.re, z.im);
        store(p, lo);
        store(p + lanes<V>, hi);
    }
}
template <class V> KRL_INLINE complex_lanes<V> reverse(complex_lanes<V> z) {
    return {krl::reverse(z.re), krl::reverse(z.im)};
}

// The lanes p[0], p[-1], p[-2] ..
template <class V> KRL_INLINE V load_backwards(const float* p) { return krl::reverse(load<V>(p - (lanes<V> - 1))); }
template <class V> KRL_INLINE void store_backwards(float* p, V v) { store(p - (lanes<V> - 1), krl::reverse(v)); }

// ---- the steps of the transforms -----------------------------------------------------------------------------------

constexpr uint32_t in_place_limit = 2048;

krl_fft_kernel* scaled_kernel(const krl_fft_pair* pair, uint32_t H) {
    return pair ? pair->scaled : KRL_r4_cplx_fwd_scaled(H);
}
krl_fft_kernel* unscaled_kernel(const krl_fft_pair* pair, uint32_t H) {
    return pair ? pair->unscaled : KRL_r4_cplx_fwd_unscaled(H);
}

// The even samples in order, then the odd ones reversed.
void even_then_reversed_odd(float* out, const float* in, uint32_t N) {
    sweep(0, N / 2, [=]<class V>(lane_tag<V>, uint32_t j) {
        auto [even, odd] = load_complex<V>(in + 2 * j);
        store(out + j, even);
        store_backwards(out + N - 1 - j, odd);
    });
}
void undo_even_then_reversed_odd(float* out, const float* in, uint32_t N) {
    sweep(0, N / 2, [=]<class V>(lane_tag<V>, uint32_t j) {
        store_complex<V>(out + 2 * j, {load<V>(in + j), load_backwards<V>(in + N - 1 - j)});
    });
}

// What the pair of bins k and m = H - k needs from the table, angle = pi k / (2N): the rotation of either bin, and the
// rotation by four times the angle for the split, formed by doubling twice because the table holds it four apart.
template <class V> struct PairRotations {
    V sin_k, cos_k, sin_m, cos_m, sin_4k, cos_4k;

    KRL_INLINE PairRotations(const float* table, uint32_t N, uint32_t k) {
        const uint32_t H = N / 2;
        sin_k = load<V>(table + k);
        cos_k = load_backwards<V>(table + N - k);
        sin_m = load_backwards<V>(table + H - k);
        cos_m = load<V>(table + H + k);
        const V one = splat<V>(1.0f);
        const V twice = sin_k + sin_k;
        const V sin_2k = twice * cos_k, cos_2k = fma(-twice, sin_k, one);
        const V twice_2k = sin_2k + sin_2k;
        sin_4k = twice_2k * cos_2k;
        cos_4k = fma(-twice_2k, sin_2k, one);
    }
};

// From the transform A, B of bins k and H - k of the packed signal, four times the spectrum of the real signal there
// and back: the halves that the split averages with are left to the caller. sum = (e, d), turned = (w, u).
template <class V> struct Split {
    complex_lanes<V> sum, turned;

    KRL_INLINE Split(complex_lanes<V> A, complex_lanes<V> B, const PairRotations<V>& r) {
        const V p = B.re - A.re, q = A.im + B.im;
        sum = {A.re + B.re, A.im - B.im};
        turned = {fma(r.cos_4k, q, r.sin_4k * p), fma(r.sin_4k, q, -(r.cos_4k * p))};
    }
};

// gain is that of the whole transform behind the FFT.
void transform_2(krl_fft_kernel* fft, const float* table, float* out, float* in, uint32_t N, float gain) {
    if (N == 0 || N % 4 != 0 || fft == nullptr)
        return;
    const uint32_t H = N / 2;
    even_then_reversed_odd(out, in, N);
    fft(in, out, H);

    out[0] = gain * (in[0] + in[1]);
    out[H] = gain * table[H] * (in[0] - in[1]);
    // The last k is the bin that pairs with itself.
    sweep(1, N / 4 + 1, [=]<class V>(lane_tag<V>, uint32_t k) {
        const uint32_t m = H - k;
        const PairRotations<V> r(table, N, k);
        const Split<V> s(load_complex<V>(in + 2 * k), reverse(load_complex<V>(in + 2 * (m - (lanes<V> - 1)))), r);
        const complex_lanes<V> Zk{s.sum.re + s.turned.re, s.turned.im - s.sum.im};
        const complex_lanes<V> Zm{s.sum.re - s.turned.re, s.turned.im + s.sum.im};
        const V half = splat<V>(0.5f * gain);
        store(out + k, half * fma(Zk.re, r.cos_k, -(Zk.im * r.sin_k)));
        store_backwards(out + N - k, half * fma(Zk.im, r.cos_k, Zk.re * r.sin_k));
        store_backwards(out + m, half * fma(Zm.re, r.cos_m, -(Zm.im * r.sin_m)));
        store(out + N - m, half * fma(Zm.im, r.cos_m, Zm.re * r.sin_m));
    });
}

void transform_3(krl_fft_kernel* fft, const float* table, float* out, float* in, uint32_t N) {
    if (N == 0 || N % 4 != 0 || fft == nullptr)
        return;
    const uint32_t H = N / 2;
    const float middle = table[H] * in[H];
    out[0] = 0.5f * (in[0] + middle);
    out[1] = 0.5f * (in[0] - middle);
    sweep(1, N / 4 + 1, [=]<class V>(lane_tag<V>, uint32_t k) {
        const uint32_t m = H - k;
        const PairRotations<V> r(table, N, k);
        const V low_k = load<V>(in + k), high_k = load_backwards<V>(in + N - k);
        const V low_m = load_backwards<V>(in + m), high_m = load<V>(in + N - m);
        const Split<V> s({fma(low_k, r.cos_k, r.sin_k * high_k), fma(r.cos_k, high_k, -(r.sin_k * low_k))},
                         {fma(low_m, r.cos_m, r.sin_m * high_m), fma(r.cos_m, high_m, -(r.sin_m * low_m))}, r);
        const V quarter = splat<V>(0.25f);
        const complex_lanes<V> Ym{quarter * (s.sum.re + s.turned.re), quarter * (s.turned.im - s.sum.im)};
        store_complex<V>(out + 2 * k, {quarter * (s.sum.re - s.turned.re), quarter * (s.sum.im + s.turned.im)});
        store_complex<V>(out + 2 * (m - (lanes<V> - 1)), reverse(Ym));
    });
    fft(in, out, H);
    undo_even_then_reversed_odd(out, in, N);
}

// transform(out, in) of a copy of data into data.
template <class Transform> void in_place(float* data, uint32_t N, Transform transform) {
    if (N > in_place_limit)
        return;
    alignas(32) float copy[in_place_limit];
    memcpy(copy, data, N * sizeof(float));
    transform(data, copy);
}

// G * (even outputs forwards, odd outputs backwards from the end). The outputs of the samples from the front meet those
// of the samples from the back in memory, so both are formed together.
void postmodulate(float* out, const float* z, const float* s, const float* c, float gain, uint32_t N) {
    const auto both_ends = [=]<class V>(lane_tag<V>, uint32_t k) {
        struct Outputs {
            V even, odd;
        };
        const auto rotate = [=](uint32_t at) -> Outputs {
            const complex_lanes<V> x = load_complex<V>(z + 2 * at);
            const V sine = load<V>(s + at), cosine = load<V>(c + at), g = splat<V>(gain);
            return {g * fma(x.re, cosine, x.im * sine), g * fma(x.re, sine, -(x.im * cosine))};
        };
        const uint32_t mirror = N - k - lanes<V>;
        const Outputs front = rotate(k), back = rotate(mirror);
        store_complex<V>(out + 2 * k, {front.even, krl::reverse(back.odd)});
        store_complex<V>(out + 2 * mirror, {back.even, krl::reverse(front.odd)});
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

void krl_dctII_scaled(const krl_fft_pair* pair, const float* table, float* out, float* in, uint32_t N) {
    transform_2(scaled_kernel(pair, N / 2), table, out, in, N, 0.5f);
}
void krl_dctII_unscaled(const krl_fft_pair* pair, const float* table, float* out, float* in, uint32_t N) {
    transform_2(unscaled_kernel(pair, N / 2), table, out, in, N, 1.0f);
}
void krl_dctIII_scaled(const krl_fft_pair* pair, const float* table, float* out, float* in, uint32_t N) {
    transform_3(scaled_kernel(pair, N / 2), table, out, in, N);
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
        const V cosine = krl::reverse(load_complex<V>(w + 2 * (N - k - lanes<V>)).im);
        const V re = load<V>(a + k), im = load<V>(b + k);
        store_complex<V>(out + 2 * k, {fma(re, cosine, im * sine), fma(im, cosine, -(re * sine))});
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
