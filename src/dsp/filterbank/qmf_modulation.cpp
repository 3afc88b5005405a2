// The modulation steps of the QMF banks: between the filters and the sub-bands.
#include <cstring>

#include "dsp/core/complex_lanes.h"
#include "dsp/filterbank/band_order.h"
#include "dsp/filterbank/given_fft.h"
#include "dsp/filterbank/qmf.h"
#include "dsp/filterbank/sweep.h"
#include "korla/dsp/dct.h"

namespace krl::qmf {
namespace {

// ---- real sub-bands ------------------------------------------------------------------------------------------------

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

// ---- complex sub-bands ---------------------------------------------------------------------------------------------

// The FFT of a modulation of M bands, fft_length points; null when M is refused.
krl_fft_kernel* modulation_fft(uint32_t M, const krl_fft_pair* pair, uint32_t fft_length) {
    return M != 0 && M % 8 == 0 ? unscaled_fft(pair, fft_length) : nullptr;
}

constexpr uint32_t samples = lanes<f32v> / 2; // complex samples of a vector

// Where the sine of band m stands in groups of four; its cosine follows four places on.
KRL_INLINE const float* sine_of(const float* table, uint32_t m) { return table + m / 4 * 8 + m % 4; }

// The rotations w of the bands from m on. apart(m): of four bands. beside(m): of one vector whose samples stay as they are, cosines
// twice and sines with the signs of i.
struct NoTwiddle {};
struct ShortTwiddle {
    const float* table;

    KRL_INLINE complex<f32x4> apart(uint32_t m) const {
        return {load<f32x4>(sine_of(table, m) + 4), load<f32x4>(sine_of(table, m))};
    }
    KRL_INLINE complex<f32v> beside(uint32_t m) const {
        return {load_twice<f32v>(sine_of(table, m) + 4), -conjugate(load_twice<f32v>(sine_of(table, m)))};
    }
};
// The angles of the upper bands are those of the lower ones from a quarter turn down.
struct FullTwiddle {
    const float* table;
    uint32_t M;

    KRL_INLINE complex<f32x4> apart(uint32_t m) const {
        if (m < M / 2)
            return ShortTwiddle{table}.apart(m);
        const float* sine = sine_of(table, M - 4 - m);
        return {-reverse(load<f32x4>(sine)), -reverse(load<f32x4>(sine + 4))};
    }
    KRL_INLINE complex<f32v> beside(uint32_t m) const {
        if (m < M / 2)
            return ShortTwiddle{table}.beside(m);
        const float* sine = sine_of(table, M - samples - m);
        return {-load_twice_backwards<f32v>(sine), conjugate(load_twice_backwards<f32v>(sine + 4))};
    }
};
// Those of a bank.
struct ReadyTwiddle {
    const float* rotations;

    KRL_INLINE complex<f32x4> apart(uint32_t m) const {
        return {load_aligned<f32x4>(rotations + 2 * m), load_aligned<f32x4>(rotations + 2 * m + 4)};
    }
    KRL_INLINE complex<f32v> beside(uint32_t m) const {
        return {load_aligned<f32v>(rotations + 4 * m), load_aligned<f32v>(rotations + 4 * m + lanes<f32v>)};
    }
};
template <class F> void with_twiddle(uint32_t M, uint32_t mode, const float* table, F f) {
    if (mode == no_twiddle || !table)
        f(NoTwiddle{});
    else if (mode == short_twiddle)
        f(ShortTwiddle{table});
    else
        f(FullTwiddle{table, M});
}

// x w, or x conj(w), where a and b hold interleaved samples of the bands from m on. Narrow vectors of four samples together take
// their parts apart: their rotations stand so in memory.
enum class Sense { forwards, backwards };
template <Sense> KRL_INLINE lane_pair<f32v> turn(f32v a, f32v b, NoTwiddle, uint32_t) { return {a, b}; }
template <Sense sense, class Twiddle> KRL_INLINE lane_pair<f32v> turn(f32v a, f32v b, Twiddle twiddle, uint32_t m) {
    if constexpr (lanes<f32v> == 4) {
        const complex<f32v> w = twiddle.apart(m);
        const auto [re, im] = deinterleave(a, b);
        const f32v sine = sense == Sense::forwards ? w.im : -w.im;
        return interleave(fma(re, w.re, im * -sine), fma(im, w.re, re * sine));
    } else {
        const auto turned = [](f32v x, complex<f32v> w) {
            const f32v crossed = swap_pairs(x) * w.im;
            return fma(x, w.re, sense == Sense::forwards ? crossed : -crossed);
        };
        return {turned(a, twiddle.beside(m)), turned(b, twiddle.beside(m + samples))};
    }
}

template <class Twiddle> void bands_of(float* v, float* X, float* scratch, uint32_t M, Twiddle w, krl_fft_kernel* fft) {
    fft(scratch, v, M);
    bands_from_bins<Conjugated::even_bands>(
        X, scratch, M, [w](f32v a, f32v b, uint32_t m) { return turn<Sense::forwards>(a, b, w, m); });
}
template <class Twiddle>
void bins_of(const float* X, float* Y, float* scratch, uint32_t M, Twiddle w, krl_fft_kernel* fft) {
    bins_from_bands<Conjugated::even_bands>(
        scratch, X, M, [w](f32v a, f32v b, uint32_t m) { return turn<Sense::backwards>(a, b, w, m); });
    fft(Y, scratch, M);
}

} // namespace

void forward_modulation(const Bank& bank, float* v, float* X) {
    if (bank.rotations)
        bands_of(v, X, bank.scratch, bank.bands, ReadyTwiddle{bank.rotations}, bank.fft->unscaled);
    else
        bands_of(v, X, bank.scratch, bank.bands, NoTwiddle{}, bank.fft->unscaled);
}
void inverse_modulation(const Bank& bank, const float* X, float* Y) {
    if (bank.rotations)
        bins_of(X, Y, bank.scratch, bank.bands, ReadyTwiddle{bank.rotations}, bank.fft->unscaled);
    else
        bins_of(X, Y, bank.scratch, bank.bands, NoTwiddle{}, bank.fft->unscaled);
}

} // namespace krl::qmf

using namespace krl;
using namespace krl::qmf;

void krl_forwardModulationReal(const float* f, float* out, uint32_t M, const krl_fft_pair* pair, const float* dct_table,
                               float* tmp) {
    if (!modulation_fft(M, pair, M / 2))
        return;
    fold(tmp, f, M);
    if (tmp == out)
        _krl_ldct3_scaled_iplu(pair, dct_table, out, M);
    else
        krl_dctIII_scaled(pair, dct_table, out, tmp, M);
}

void krl_inverseModulationReal(float* X, float* Y, uint32_t M, const krl_fft_pair* pair, const float* dct_table) {
    if (!modulation_fft(M, pair, M / 2))
        return;
    if (X == Y) {
        _krl_ldct2_unscaled_iplu(pair, dct_table, X, M);
        Y = X + M;
        std::memcpy(Y, X, M * sizeof(float));
    } else {
        krl_dctII_unscaled(pair, dct_table, Y, X, M);
    }
    expand(X, Y, M);
}

void krl_forwardModulationComplex(float* v, float* X, float* scratch, uint32_t M, uint32_t mode, const float* twiddle,
                                  const krl_fft_pair* pair) {
    if (krl_fft_kernel* fft = modulation_fft(M, pair, M))
        with_twiddle(M, mode, twiddle, [=](auto w) { bands_of(v, X, scratch, M, w, fft); });
}

void krl_inverseModulationComplex(const float* X, float* Y, float* scratch, uint32_t M, uint32_t mode,
                                  const float* twiddle, const krl_fft_pair* pair) {
    if (krl_fft_kernel* fft = modulation_fft(M, pair, M))
        with_twiddle(M, mode, twiddle, [=](auto w) { bins_of(X, Y, scratch, M, w, fft); });
}
