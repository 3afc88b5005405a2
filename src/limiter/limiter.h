// The limiter's instance record, and the entry that the downmix engine uses.
#pragma once

#include "korla/limiter.h"

// Field order is part of the record's contract; its size is bounded by what query_memory reserves.
struct korvex_ht_kvlim {
    uint32_t enable;
    float peak;
    float boost; // 1/256 is unity
    uint32_t hard_clip;
    uint32_t num_channels;
    uint32_t max_channels;
    uint32_t sample_rate; // Hz
    uint32_t block_size;  // samples per channel and process call
    float* gain_history;  // [history_len] the last target gains
    const float* coefs;   // null until a sample rate is accepted
    const float* window;
    uint32_t subblock_len;
    float prev_peak; // magnitude found in the previous sub-block
    float prev_gain; // gain at the start of the current sub-block
    uint32_t history_pos;
    uint32_t history_len;
    float slow_gain;
    float gain; // gain at the end of the current sub-block
    float smooth_gain;
    float* delay; // [max_channels][subblock_len]
    uint32_t subblock_count;
    float prev_boost; // boost at the start of the next sub-block
};

namespace korla::limiter {

// The steps of the look-ahead mode, for a caller that finds the peaks itself and keeps its signal in rows.

// Total gain, boost included, at the start and at the end of a sub-block.
struct Fade {
    float from, to;
};

// Moves the gains on by one sub-block with the given peak.
Fade next_fade(korvex_ht_kvlim& limiter, float peak);

// Delays `count` consecutive sub-blocks of 32 samples of one channel in place by one sub-block, and fades each.
inline constexpr uint32_t short_subblock = 32;
void fade_delayed(float* samples, float* delay, const float* window, const Fade* fades, uint32_t count);

} // namespace korla::limiter
