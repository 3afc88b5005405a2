// Processing: peak of a sub-block -> gain of the sub-block -> crossfade on the delayed signal.
#include <algorithm>

#include "dsp/core/abs_max.h"
#include "dsp/core/block_map.h"
#include "limiter/limiter.h"
#include "limiter/tables.h"

using namespace krl;

namespace korla::limiter {
namespace {

constexpr float boost_scale = 256.0f; // boost is stored divided by this

// Below this smoothed gain, about -1.5 dB, limiting counts as lasting and the slow gain falls.
constexpr float slow_fall_threshold = 0.841400146484375f;
constexpr float slow_fall_factor = 1.18849515914917f; // its inverse

// The lesser and the greater of a and b, which is a number. A NaN in first place loses.
KRL_INLINE float lesser(float a, float b) { return min_quick(a, b); }
KRL_INLINE float greater(float a, float b) { return max_quick(a, b); }

// ---- detection -----------------------------------------------------------------------------------------------------

// By vectors, because vectors are what is loaded next: a load that spans several stores waits for all of them.
void gather(float* dst, const float* src, size_t stride, uint32_t n) {
    for (uint32_t i = 0; i < n; i += lanes<f32v>, src += lanes<f32v> * stride)
        store(dst + i, from_halves([=](int h) {
                  const float* p = src + 4 * h * stride;
                  return f32x4{p[0], p[stride], p[2 * stride], p[3 * stride]};
              }));
}

// The peak of one sub-block over all detection channels. Of consecutive samples on a strict boundary, one NaN hides its
// channel: the propagating maximum is NaN, which is not greater than anything.
float detect_peak(const float* const* detect, uint32_t channels, size_t first, size_t stride, uint32_t n) {
    float scratch[max_subblock_length];
    float peak = 0.0f;
    for (uint32_t c = 0; c < channels; c++) {
        if (!detect[c])
            continue;
        const float* x = detect[c] + first * stride;
        if (stride != 1) {
            gather(scratch, x, stride, n);
            peak = peak_of(scratch, n, peak);
        } else if (all_strict_aligned(x)) {
            peak = greater(abs_max<strict>(x, n), peak);
        } else {
            peak = peak_of(x, n, peak);
        }
    }
    return peak;
}

// ---- gain ----------------------------------------------------------------------------------------------------------

// Moves the gain state on by one sub-block whose peak is given. The order of operations fixes the rounding.
//
// Both branches of each decision are computed and one is picked: the decisions follow the signal, so a jump would be
// mispredicted often, while all of this hides behind the mixing of the next sub-block.
KRL_INLINE void advance_gain(korvex_ht_kvlim& l, float peak) {
    const float* c = l.coefs;
    const float slow = l.slow_gain, gain = l.gain;

    // The sub-block that now leaves the delay line counts as well as the new one. A level below 2^-128 has no
    // reciprocal among the floats: with peak 0 its target is infinity times zero, which counts as 0.
    const float level = greater(l.prev_peak, peak) * slow;
    const float reduced = static_cast<float>(1.0 / static_cast<double>(level)) * l.peak;
    const float target = level > l.peak ? (reduced == reduced ? reduced : 0.0f) : 1.0f;

    float least_target = target; // of this and the previous history_len sub-blocks: one, two or three
    const float* history = l.gain_history;
    least_target = lesser(history[0], least_target);
    if (l.history_len > 1)
        least_target = lesser(history[1], least_target);
    if (l.history_len > 2)
        least_target = lesser(history[2], least_target);
    l.gain_history[l.history_pos] = target;
    l.history_pos = l.history_pos + 1 == l.history_len ? 0 : l.history_pos + 1;

    // Attack goes to the limit at once. Release never falls, and never rises above the limit. Towards infinity, which
    // the targets of a denormal peak can be, nothing is released.
    const float limit = target * slow;
    const bool attack = limit < gain;
    const float towards_least = fma(l.smooth_gain, c[release], fma(-c[release], least_target, least_target));
    const float released = least_target < __builtin_inff() ? towards_least : l.smooth_gain;
    const float risen = lesser(limit, greater(slow * released, gain));
    const float smooth = attack ? target : released;

    const float fallen_slow = fma((smooth * slow) * slow_fall_factor, c[slow_fall_new], slow * c[slow_fall_keep]);
    const float recovered_slow = fma(slow, c[slow_recovery_keep], c[slow_recovery_new]);

    l.prev_peak = peak;
    l.prev_gain = gain;
    l.gain = attack ? limit : risen;
    l.smooth_gain = smooth;
    l.slow_gain = smooth < slow_fall_threshold ? fallen_slow : recovered_slow;
}

// ---- the look-ahead mode -------------------------------------------------------------------------------------------

// Consecutive samples of `channels` channels from `first_channel` on, one channel `length` floats behind the other. out
// may be in.
struct Rows {
    uint32_t first_channel, channels;
    float* out;
    const float* in;
    size_t length;
};

// Delays `count` consecutive sub-blocks of every row by one sub-block and fades each: the gain moves from one value to
// the other along the window. The order of operations fixes the rounding.
//
// A few columns of vectors from `column` on go through all rows and sub-blocks at a time, so that the window stays in
// registers; the last sub-block first, so that what a sub-block takes from the one before is still there to be read.
template <int columns>
KRL_INLINE void crossfade_columns(const korvex_ht_kvlim& l, uint32_t column, const Rows& rows, const Fade* fades,
                                  uint32_t count) {
    constexpr int width = lanes<f32v>;
    const uint32_t n = l.subblock_len;
    f32v rising[columns], falling[columns];
    const float *up = l.window + column, *down = l.window + n - width - column;
    for (int j = 0; j < columns; j++) {
        rising[j] = load<f32v>(up + j * width);
        falling[j] = reverse(load<f32v>(down - j * width));
    }
    const auto load_columns = [](f32v(&x)[columns], const float* p) {
        for (int j = 0; j < columns; j++)
            x[j] = load<f32v>(p + j * width);
    };
    const auto store_columns = [](float* p, const f32v(&x)[columns]) {
        for (int j = 0; j < columns; j++)
            store(p + j * width, x[j]);
    };
    float* delay = l.delay + size_t{rows.first_channel} * n + column;
    for (uint32_t c = 0; c < rows.channels; c++, delay += n) {
        const size_t last = c * rows.length + column + size_t{count - 1} * n;
        const float* in = rows.in + last;
        float* out = rows.out + last;
        f32v x[columns];
        float newest[columns * width];
        load_columns(x, in);
        store_columns(newest, x);
        const auto fade_one = [&](const float* delayed, const Fade* fade) __attribute__((always_inline)) {
            load_columns(x, delayed);
            for (int j = 0; j < columns; j++)
                x[j] = fma(falling[j], fade->from * x[j], (fade->to * x[j]) * rising[j]) * boost_scale;
            store_columns(out, x);
        };
        const Fade* fade = fades + count - 1;
        for (; fade != fades; fade--, out -= n) {
            in -= n;
            fade_one(in, fade);
        }
        fade_one(delay, fade);
        load_columns(x, newest);
        store_columns(delay, x);
    }
}

void crossfade(const korvex_ht_kvlim& l, const Rows& rows, const Fade* fades, uint32_t count) {
    constexpr uint32_t width = lanes<f32v>, columns = min_subblock_length / width; // the shortest sub-block at once
    const uint32_t n = l.subblock_len;
    uint32_t i = 0;
    for (; i + columns * width <= n; i += columns * width)
        crossfade_columns<columns>(l, i, rows, fades, count);
    for (; i < n; i += width)
        crossfade_columns<1>(l, i, rows, fades, count);
}

void scatter(float* dst, const float* src, size_t stride, uint32_t n) {
    for (uint32_t i = 0; i < n; i++)
        dst[i * stride] = src[i];
}

// A group of sub-blocks is detected, then it goes through channel by channel.
void look_ahead(korvex_ht_kvlim& l, float* const* out, const float* const* detect, const float* const* in,
                size_t in_stride, size_t out_stride, uint32_t detect_channels) {
    constexpr uint32_t largest_group = max_subblock_length / min_subblock_length;
    float scratch[max_subblock_length];
    Fade fades[largest_group];
    const uint32_t n = l.subblock_len;
    const bool uses_scratch = in_stride != 1 || out_stride != 1;
    const uint32_t group = uses_scratch ? max_subblock_length / n : largest_group;
    for (uint32_t first = 0; first < l.subblock_count; first += group) {
        const uint32_t count = std::min(group, l.subblock_count - first);
        for (uint32_t k = 0; k < count; k++)
            next_fade(l, detect_peak(detect, detect_channels, size_t{first + k} * n, in_stride, n), fades[k]);
        for (uint32_t c = 0; c < l.num_channels; c++) {
            if (!in[c])
                continue;
            const float* x = in[c] + size_t{first} * n * in_stride;
            float* y = out[c] + size_t{first} * n * out_stride;
            if (in_stride != 1) {
                gather(scratch, x, in_stride, count * n);
                x = scratch;
            }
            crossfade(l, {c, 1, out_stride == 1 ? y : scratch, x, 0}, fades, count);
            if (out_stride != 1)
                scatter(y, scratch, out_stride, count * n);
        }
    }
}

// ---- the hard-clip mode --------------------------------------------------------------------------------------------

// The clamp to +-peak; NaN becomes the peak.
template <class V> KRL_INLINE V below(V x, float peak) { return select(x < peak, x, splat<V>(peak)); }
KRL_INLINE float below(float x, float peak) { return x < peak ? x : peak; }

void hard_clip(const korvex_ht_kvlim& l, float* const* out, const float* const* in, size_t in_stride,
               size_t out_stride) {
    const float peak = l.peak, boost = l.boost;
    const bool in_blocks = in_stride == 1 && out_stride == 1 && l.subblock_len % block_length == 0;
    for (uint32_t c = 0; c < l.num_channels; c++) {
        if (!in[c])
            continue;
        if (in_blocks) {
            const float factor = boost * boost_scale;
            for (uint32_t i = 0; i < l.block_size; i += block_length)
                map_block<flex>(
                    out[c] + i, [=](auto x) { return max_nan(below(x, peak), splat<decltype(x)>(-peak)) * factor; },
                    in[c] + i);
        } else {
            for (size_t i = 0; i < l.block_size; i++) {
                const float y = below(in[c][i * in_stride], peak);
                out[c][i * out_stride] = ((-peak > y ? -peak : y) * boost) * boost_scale;
            }
        }
    }
}

} // namespace

float peak_of(const float* samples, uint32_t n, float peak) { return greater(abs_max<flex>(samples, n), peak); }

void next_fade(korvex_ht_kvlim& l, float peak, Fade& fade) {
    float from = 1.0f, to = 1.0f; // without a sample rate the gain computer rests
    if (l.coefs) {
        advance_gain(l, peak);
        from = l.prev_gain, to = l.gain;
    }
    fade.from = from * l.prev_boost;
    fade.to = to * l.boost;
    l.prev_boost = l.boost;
}

void delay_and_fade(korvex_ht_kvlim& l, float* rows, size_t row_length, const Fade* fades, uint32_t count) {
    crossfade(l, {0, l.num_channels, rows, rows, row_length}, fades, count);
}

} // namespace korla::limiter

void korvex_ht_kvlim_process_indirect(korvex_ht_kvlim* limiter, float* const* out, const float* const* detect,
                                      const float* const* in, size_t in_stride, size_t out_stride,
                                      uint32_t detect_channels) {
    if (!limiter->enable)
        return;
    if (limiter->hard_clip)
        korla::limiter::hard_clip(*limiter, out, in, in_stride, out_stride);
    else
        korla::limiter::look_ahead(*limiter, out, detect, in, in_stride, out_stride, detect_channels);
}

void korvex_ht_kvlim_process(korvex_ht_kvlim* limiter, float* const* out, const float* const* in, size_t in_stride,
                             size_t out_stride) {
    korvex_ht_kvlim_process_indirect(limiter, out, in, in, in_stride, out_stride, limiter->num_channels);
}
