#include "dsp/filterbank/qmf.h"
#include "dsp/filterbank/sweep.h"
#include "korla/dsp/dct.h"

using namespace krl;

namespace {

template <class V> KRL_INLINE V load_backwards(const float* p) { return reverse(load<V>(p - (lanes<V> - 1))); }

// ---- real sub-bands ---------------------------------------------------------------------------------------------------

// 2M filter outputs to the M inputs of a DCT-III.
void fold(float* t, const float* f, uint32_t M) {
    const uint32_t h = M / 2;
    sweep(0, h, [=]<class V>(lane_tag<V>, uint32_t k) {
        const V half = splat<V>(0.5f);
        store(t + k, half * (load_backwards<V>(f + 3 * h - k) + load<V>(f + 3 * h + k)));
        store(t + h + k, half * (load_backwards<V>(f + 2 * h - k) - load<V>(f + k)));
    });
    t[0] = 0.5f * f[3 * h];
}

// M outputs of a DCT-II in Y to the 2M inputs of the filter, X and Y.
void expand(float* X, float* Y, uint32_t M) {
    const uint32_t h = M / 2;
    sweep(0, h, [=]<class V>(lane_tag<V>, uint32_t k) {
        const V two = splat<V>(2.0f);
        store(X + k, two * load_backwards<V>(Y + h - k));
        store(X + h + k, two * load<V>(Y + k));
    });
    // The lower half of Y is used up; the upper half moves there and stays mirrored and negated.
    sweep(0, h, [=]<class V>(lane_tag<V>, uint32_t m) { store(Y + m, splat<V>(2.0f) * load<V>(Y + h + m)); });
    sweep(0, h, [=]<class V>(lane_tag<V>, uint32_t m) { store(Y + h + m, -load_backwards<V>(Y + h - m)); });
    Y[h] = 0.0f;
}

bool is_supported(uint32_t M, const krl_fft_pair* pair, uint32_t fft_length) {
    return M != 0 && M % 8 == 0 && (pair || KRL_r4_cplx_fwd_unscaled(fft_length));
}

// ---- complex sub-bands ------------------------------------------------------------------------------------------------

// Sub-bands from a spectrum: its first half conjugated and its second half reversed, in alternation.
void subbands_of_spectrum(float* X, const float* V, uint32_t M) {
    constexpr uint32_t samples = lanes<f32v> / 2;
    for (uint32_t k = 0; k < M / 2; k += samples) {
        const f32v even = conjugate(load<f32v>(V + 2 * k));
        const f32v odd = reverse_complex(load<f32v>(V + 2 * (M - k - samples)));
        const auto [lo, hi] = interleave_complex(even, odd);
        store(X + 4 * k, lo);
        store(X + 4 * k + lanes<f32v>, hi);
    }
}
void spectrum_of_subbands(float* V, const float* X, uint32_t M) {
    constexpr uint32_t samples = lanes<f32v> / 2;
    for (uint32_t k = 0; k < M / 2; k += samples) {
        const auto [even, odd] = deinterleave_complex(load<f32v>(X + 4 * k), load<f32v>(X + 4 * k + lanes<f32v>));
        store(V + 2 * k, conjugate(even));
        store(V + 2 * (M - k - samples), reverse_complex(odd));
    }
}

// w of four bands m..m+3.
struct Rotation { f32x4 re, im; };

KRL_INLINE Rotation short_rotation(const float* twiddle, uint32_t m) {
    return {load<f32x4>(twiddle + 2 * m + 4), load<f32x4>(twiddle + 2 * m)};
}
// The angles of the upper bands are those of the lower ones from a quarter turn down.
KRL_INLINE Rotation full_rotation(const float* twiddle, uint32_t m, uint32_t M) {
    if (m < M / 2)
        return {load<f32x4>(twiddle + 2 * m + 4), load<f32x4>(twiddle + 2 * m)};
    const uint32_t mirror = M - 4 - m;
    return {-reverse(load<f32x4>(twiddle + 2 * mirror)), -reverse(load<f32x4>(twiddle + 2 * mirror + 4))};
}

// out[m] = x[m] w[m], or x[m] conj(w[m]); in place or apart.
template <bool conjugated>
void rotate(float* out, const float* x, uint32_t M, uint32_t mode, const float* twiddle) {
    for (uint32_t m = 0; m < M; m += 4) {
        Rotation w = mode == qmf::short_twiddle ? short_rotation(twiddle, m) : full_rotation(twiddle, m, M);
        if constexpr (conjugated)
            w.im = -w.im;
        const auto [re, im] = deinterleave(load<f32x4>(x + 2 * m), load<f32x4>(x + 2 * m + 4));
        const auto [lo, hi] = interleave(fma(re, w.re, -(im * w.im)), fma(im, w.re, re * w.im));
        store(out + 2 * m, lo);
        store(out + 2 * m + 4, hi);
    }
}

} // namespace

void krl_forwardModulationReal(const float* f, float* out, uint32_t M, const krl_fft_pair* pair, const float* dct_table,
                               float* tmp) {
    if (!is_supported(M, pair, M / 2))
        return;
    fold(tmp, f, M);
    if (tmp == out)
        _krl_ldct3_scaled_iplu(pair, dct_table, out, M);
    else
        krl_dctIII_scaled(pair, dct_table, out, tmp, M);
}

void krl_inverseModulationReal(float* X, float* Y, uint32_t M, const krl_fft_pair* pair, const float* dct_table) {
    if (!is_supported(M, pair, M / 2))
        return;
    if (X == Y) {
        _krl_ldct2_unscaled_iplu(pair, dct_table, X, M);
        Y = X + M;
        memcpy(Y, X, M * sizeof(float));
    } else {
        krl_dctII_unscaled(pair, dct_table, Y, X, M);
    }
    expand(X, Y, M);
}

void krl_forwardModulationComplex(float* v, float* X, float* scratch, uint32_t M, uint32_t mode, const float* twiddle,
                                  const krl_fft_pair* pair) {
    if (!is_supported(M, pair, M))
        return;
    (pair ? pair->unscaled : KRL_r4_cplx_fwd_unscaled(M))(scratch, v, M);
    subbands_of_spectrum(X, scratch, M);
    if (mode != qmf::no_twiddle && twiddle)
        rotate<false>(X, X, M, mode, twiddle);
}

void krl_inverseModulationComplex(const float* X, float* Y, float* scratch, uint32_t M, uint32_t mode,
                                  const float* twiddle, const krl_fft_pair* pair) {
    if (!is_supported(M, pair, M))
        return;
    if (mode != qmf::no_twiddle && twiddle) {
        rotate<true>(Y, X, M, mode, twiddle);
        X = Y;
    }
    spectrum_of_subbands(scratch, X, M);
    (pair ? pair->unscaled : KRL_r4_cplx_fwd_unscaled(M))(Y, scratch, M);
}
