// The split between the spectrum of a real signal and that of its sample pairs, in the widest lanes that fit.
#include "dsp/fft/real_split.h"

#include <bit>

#include "dsp/core/complex_lanes.h"
#include "dsp/core/trig.h"
#include "dsp/fft/lengths.h"

namespace krl::fft {

namespace {

// One after another the sines of n = 2, 4, 8, ..., longest, n/2 + 1 values each: where those of n start.
constexpr uint32_t table_start(uint32_t n) { return n / 2 - 2 + static_cast<uint32_t>(std::countr_zero(n)); }

struct sine_tables {
    float value[table_start(2 * longest)];

    static constexpr sine_tables make() {
        sine_tables t{};
        for (uint32_t n = 2; n <= longest; n *= 2)
            for (uint32_t k = 0; k <= n / 2; k++)
                t.value[table_start(n) + k] = static_cast<float>(sin_turn(k, 2 * n));
        return t;
    }
};
constexpr auto sines = sine_tables::make();

// sin(pi*k/n), k = 0..n/2. Read backwards it is the cosine.
const float* split_sines(uint32_t n) { return sines.value + table_start(n); }

template <class V> struct bin_pair { complex<V> low, high; };

// f(low, high, cos, sin) -> {low, high} on the bins k.. and n-k.., one pair a lane.
template <class V, class F> KRL_INLINE void split_bins(float* z, uint32_t n, uint32_t k, F f) {
    const float* sine = split_sines(n);
    float* low = z + 2 * k;
    float* high = z + 2 * (n - k - (lanes<V> - 1));
    const V sin = to_split_order(load<V>(sine + k));
    const V cos = reverse(to_split_order(load<V>(sine + n / 2 - k - (lanes<V> - 1))));
    const auto [x, y] = f(load_split<V>(low), load_split_backwards<V>(high), cos, sin);
    store_split(low, x);
    store_split_backwards(high, y);
}

// All bin pairs, from the outside in. The last vector reaches bin n/2, which is its own partner and comes out alike
// from both sides; short transforms turn it on its own, by `middle` and a conjugation.
template <class F> KRL_INLINE void split_all_bins(float* z, uint32_t n, float middle, F f) {
    if (n / 2 >= lanes<f32v>) {
        for (uint32_t k = 1; k < n / 2; k += lanes<f32v>)
            split_bins<f32v>(z, n, k, f);
    } else if (lanes<f32v> > lanes<f32x4> && n / 2 >= lanes<f32x4>) {
        for (uint32_t k = 1; k < n / 2; k += lanes<f32x4>)
            split_bins<f32x4>(z, n, k, f);
    } else {
        if (n == 4)
            split_bins<float>(z, n, 1, f);
        z[n] *= middle;
        z[n + 1] *= -middle;
    }
}

} // namespace

void split_forward(float* z, uint32_t n, float g) {
    const float re = z[0], im = z[1];
    split_all_bins(z, n, g, [g]<class V>(complex<V> a, complex<V> b, V cos, V sin) {
        const V h = splat<V>(0.5f * g);
        const complex<V> e = {h * (a.re + b.re), h * (a.im - b.im)};
        const complex<V> o = {h * (a.im + b.im), h * (b.re - a.re)};
        const complex<V> t = rotate(o, cos, sin);
        return bin_pair<V>{e + t, {e.re - t.re, t.im - e.im}};
    });
    z[0] = g * (re + im);
    z[1] = g * (re - im);
}

void split_inverse(float* x, uint32_t n, float g) {
    const float first = x[0], last = x[1];
    split_all_bins(x, n, 2.0f * g, [g]<class V>(complex<V> a, complex<V> b, V cos, V sin) {
        const V h = splat<V>(g);
        const complex<V> e = {h * (a.re + b.re), h * (a.im - b.im)};
        const complex<V> p = {h * (a.re - b.re), h * (a.im + b.im)};
        const complex<V> u = rotate(p, cos, -sin);
        return bin_pair<V>{{e.re - u.im, e.im + u.re}, {e.re + u.im, u.re - e.im}};
    });
    x[0] = g * (first + last);
    x[1] = g * (first - last);
}

} // namespace krl::fft
