// The limiter's instance record, and its steps for callers inside the library.
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

// The look-ahead mode in steps, for callers inside the library that keep their signal in rows of consecutive samples,
// one row per channel. Per sub-block: its peak over all channels, from that the fade; then all rows are delayed and
// faded.

// The greatest magnitude among n consecutive samples and `peak`. A NaN does not count.
float peak_of(const float* samples, uint32_t n, float peak);

// Total gain, boost included, at the start and at the end of a sub-block.
struct Fade {
    float from, to;
};

// Moves the gains on by one sub-block with the given peak; stores its fade.
void next_fade(korvex_ht_kvlim& limiter, float peak, Fade& fade);

// Delays `count` consecutive sub-blocks by one sub-block, in place, and fades each. Row c starts at
// rows[c * row_length]; all channels in one call, because they share the window.
void delay_and_fade(korvex_ht_kvlim& limiter, float* rows, size_t row_length, const Fade* fades, uint32_t count);

} // namespace korla::limiter
