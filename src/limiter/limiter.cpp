// Control: memory, defaults, setters and getters.
#include "limiter/limiter.h"

#include <algorithm>
#include <cstring>

#include "dsp/core/align.h"
#include "limiter/tables.h"

using namespace korla::limiter;

const float korvex_ht_KVLIM_ONE_OVER_256_S = 1.0f / 256.0f;
const float korvex_ht_KVLIM_ONE_OVER_256_L = 1.0f / 256.0f;

namespace {

constexpr size_t alignment = 32;
constexpr size_t slack = alignment - 1;
constexpr size_t record_bytes = 128;
static_assert(sizeof(korvex_ht_kvlim) <= record_bytes);

constexpr uint32_t rate_not_set = 0xFFFFFFFF;

size_t saturating_multiply(size_t a, size_t b) {
    size_t product;
    return __builtin_mul_overflow(a, b, &product) ? SIZE_MAX : product;
}
size_t saturating_add(size_t a, size_t b) {
    size_t sum;
    return __builtin_add_overflow(a, b, &sum) ? SIZE_MAX : sum;
}

size_t history_bytes(uint32_t history_length) { return history_length * sizeof(float); }

void clear_delay(korvex_ht_kvlim* limiter) {
    std::memset(limiter->delay, 0, size_t{limiter->max_channels} * limiter->subblock_len * sizeof(float));
}

} // namespace

const korvex_ht_kvlim_version* korvex_ht_kvlim_get_version(void) {
    static constexpr korvex_ht_kvlim_version version = {1, 8, 2, 0};
    return &version;
}

size_t korvex_ht_kvlim_query_memory(uint32_t max_channels, size_t* state_bytes, size_t* buffer_bytes,
                                    uint32_t subblock_len) {
    const SubblockTables tables = tables_of(subblock_len);
    size_t state = record_bytes + slack;
    if (tables.window)
        state += slack + history_bytes(tables.history_length);
    const size_t samples = saturating_multiply(max_channels, subblock_len);
    const size_t buffer = saturating_add(saturating_multiply(samples, sizeof(float)), slack);
    if (state_bytes && buffer_bytes) {
        *state_bytes = state;
        *buffer_bytes = buffer;
    }
    return saturating_add(state, buffer);
}

korvex_ht_kvlim* korvex_ht_kvlim_init(uint32_t max_channels, uint32_t subblock_len, void* state_mem, void* buffer_mem) {
    const SubblockTables tables = tables_of(subblock_len);
    if (!tables.window || !state_mem)
        return nullptr;

    char* history = static_cast<char*>(state_mem) + record_bytes + slack;
    char* behind_history = history + slack + history_bytes(tables.history_length);

    auto* limiter = krl::align_up<korvex_ht_kvlim>(state_mem, alignment);
    *limiter = {};
    limiter->peak = 1.0f;
    limiter->boost = limiter->prev_boost = korvex_ht_KVLIM_ONE_OVER_256_S;
    limiter->max_channels = max_channels;
    limiter->sample_rate = rate_not_set;
    limiter->block_size = subblock_len;
    limiter->gain_history = krl::align_up<float>(history, alignment);
    limiter->window = tables.window;
    limiter->subblock_len = subblock_len;
    limiter->prev_gain = limiter->slow_gain = limiter->gain = limiter->smooth_gain = 1.0f;
    limiter->history_len = tables.history_length;
    limiter->delay = krl::align_up<float>(buffer_mem ? buffer_mem : behind_history, alignment);
    limiter->subblock_count = 1;
    std::fill_n(limiter->gain_history, limiter->history_len, 1.0f);
    clear_delay(limiter);
    return limiter;
}

void korvex_ht_kvlim_set_enable(korvex_ht_kvlim* limiter, int32_t on) {
    if (!limiter->enable && on && !limiter->hard_clip)
        clear_delay(limiter);
    limiter->enable = static_cast<uint32_t>(on);
}
uint32_t korvex_ht_kvlim_get_enable(const korvex_ht_kvlim* limiter) { return limiter->enable; }

void korvex_ht_kvlim_set_peak(korvex_ht_kvlim* limiter, float peak) { limiter->peak = peak; }
float korvex_ht_kvlim_get_peak(const korvex_ht_kvlim* limiter) { return limiter->peak; }

void korvex_ht_kvlim_set_boost(korvex_ht_kvlim* limiter, float boost_now, float boost) {
    limiter->prev_boost = boost_now;
    limiter->boost = boost;
}
float korvex_ht_kvlim_get_boost(const korvex_ht_kvlim* limiter) { return limiter->boost; }

float korvex_ht_kvlim_get_limiter_gain(const korvex_ht_kvlim* limiter) { return limiter->gain; }

void korvex_ht_kvlim_set_hard_clip(korvex_ht_kvlim* limiter, int32_t on) {
    if (limiter->hard_clip && !on && limiter->enable)
        clear_delay(limiter);
    limiter->hard_clip = static_cast<uint32_t>(on);
}
uint32_t korvex_ht_kvlim_get_hard_clip(const korvex_ht_kvlim* limiter) { return limiter->hard_clip; }

int32_t korvex_ht_kvlim_set_sample_rate(korvex_ht_kvlim* limiter, uint32_t rate_hz) {
    if (rate_hz == limiter->sample_rate)
        return 0;
    const int index = rate_index(rate_hz);
    if (index < 0)
        return -1;
    const float* coefs = tables_of(limiter->subblock_len).coefficients[index];
    if (!coefs)
        return -1;
    limiter->sample_rate = rate_hz;
    limiter->coefs = coefs;
    limiter->slow_gain = limiter->smooth_gain = 1.0f;
    return 0;
}
uint32_t korvex_ht_kvlim_get_sample_rate(const korvex_ht_kvlim* limiter) { return limiter->sample_rate; }

int32_t korvex_ht_kvlim_set_block_size(korvex_ht_kvlim* limiter, uint32_t block_size) {
    if (block_size % limiter->subblock_len != 0)
        return -1;
    limiter->block_size = block_size;
    limiter->subblock_count = block_size / limiter->subblock_len;
    return 0;
}
uint32_t korvex_ht_kvlim_get_block_size(const korvex_ht_kvlim* limiter) { return limiter->block_size; }

int32_t korvex_ht_kvlim_set_num_channels(korvex_ht_kvlim* limiter, uint32_t num_channels) {
    if (num_channels > limiter->max_channels)
        return -1;
    limiter->num_channels = num_channels;
    return 0;
}
uint32_t korvex_ht_kvlim_get_num_channels(const korvex_ht_kvlim* limiter) { return limiter->num_channels; }

uint32_t korvex_ht_kvlim_get_latency(const korvex_ht_kvlim* limiter) {
    return limiter->enable && !limiter->hard_clip ? limiter->subblock_len : 0;
}

void korvex_ht_kvlim_reset_state(korvex_ht_kvlim* limiter) {
    limiter->smooth_gain = limiter->slow_gain = limiter->gain = limiter->prev_gain = 1.0f;
    limiter->prev_peak = 0.0f;
    limiter->history_pos = 0;
    clear_delay(limiter);
}
