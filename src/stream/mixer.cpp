// Mixing a tile with steady or moving gains.
#include "stream/mixer.h"

#include <cstring>

#include "downmixer/mix_row.h"
#include "downmixer/peaks.h"

using namespace krl;
using korla::downmixer::PlanarBuffer;
using korla::downmixer::tile_frames;

namespace korla::stream {
namespace {

constexpr int groups = tile_frames / lanes<f32v>;

// 1/32, 2/32, ... 1: how far a ramp within a tile has come after each frame.
struct Progress {
    alignas(32) float of[tile_frames];
    constexpr Progress() : of{} {
        for (uint32_t t = 0; t < tile_frames; t++)
            of[t] = static_cast<float>(t + 1) / tile_frames;
    }
};
constexpr Progress progress;

// One row whose gains move from `from` to `to` over the tile.
KRL_INLINE f32v mix_row_ramped(float* out, const float* from, const float* to, uint32_t inputs, const uint8_t* channel,
                               PlanarBuffer in, f32v peak) {
    f32v sum[groups];
    for (f32v& s : sum)
        s = splat<f32v>(0.0f);
    for (uint32_t c = 0; c < inputs; c++) {
        if (from[c] == 0.0f && to[c] == 0.0f)
            continue;
        const float* x = in.row(channel[c]);
        const f32v start = splat<f32v>(from[c]), way = splat<f32v>(to[c] - from[c]);
        for (int g = 0; g < groups; g++)
            sum[g] =
                sum[g] + load<f32v>(x + g * lanes<f32v>) * fma(way, load<f32v>(progress.of + g * lanes<f32v>), start);
    }
    for (int g = 0; g < groups; g++) {
        store(out + g * lanes<f32v>, sum[g]);
        peak = max_of_number(abs(sum[g]), peak);
    }
    return peak;
}

} // namespace

void Mixer::start(const Downmix& downmix) {
    *this = {};
    inputs_ = downmix.inputs;
    outputs_ = downmix.outputs;
    std::memcpy(channel_, downmix.channel, sizeof channel_);
}

void Mixer::arrive() {
    now_ = target_;
    for (uint32_t o = 0; o < outputs_; o++) {
        uint16_t used = 0;
        for (uint32_t c = 0; c < inputs_; c++)
            used = static_cast<uint16_t>(used | (now_.of[o][c] != 0.0f) << c);
        used_[o] = used;
    }
}

void Mixer::set(const Gains& gains, uint32_t ramp_tiles) {
    target_ = gains;
    tiles_left_ = ramp_tiles;
    if (ramp_tiles == 0)
        arrive();
}

float Mixer::mix(PlanarBuffer out, PlanarBuffer in) {
    return tiles_left_ > 0 ? mix_ramped(out, in) : mix_steady(out, in);
}

float Mixer::mix_steady(PlanarBuffer out, PlanarBuffer in) const {
    f32v peaks[downmixer::peak_chains] = {};
    for (uint32_t o = 0; o < outputs_; o++)
        downmixer::mix_row<f32v, groups>(
            out.row(o), now_.of[o], used_[o], [&](size_t c) { return in.row(channel_[c]); }, peaks);
    return downmixer::greatest(peaks);
}

float Mixer::mix_ramped(PlanarBuffer out, PlanarBuffer in) {
    Gains next;
    const float share = 1.0f / static_cast<float>(tiles_left_);
    for (uint32_t o = 0; o < outputs_; o++)
        for (uint32_t c = 0; c < inputs_; c++)
            next.of[o][c] = now_.of[o][c] + (target_.of[o][c] - now_.of[o][c]) * share;
    f32v peaks = splat<f32v>(0.0f);
    for (uint32_t o = 0; o < outputs_; o++)
        peaks = mix_row_ramped(out.row(o), now_.of[o], next.of[o], inputs_, channel_, in, peaks);
    now_ = next;
    if (--tiles_left_ == 0)
        arrive();
    return max_of_magnitudes(peaks);
}

} // namespace korla::stream
