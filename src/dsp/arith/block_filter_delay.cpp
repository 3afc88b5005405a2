// Crossfade gain and delay line.
#include "korla/dsp/block_filter.h"

#include <algorithm>
#include <cstring>

#include "dsp/arith/block_recursion.h"

using namespace krl;

namespace {

template <class access>
KRL_INLINE void crossfade(float* dst, krl_crossfade_state* state, const float* x, const float* window, float a,
                          float b) {
    const uint32_t pos = state->pos, len = state->len;
    block y;
    auto fade = [&](auto rising, auto falling, const float* at) {
        using V = decltype(rising);
        return fma(falling, splat<V>(a), b * rising) * access::template load<V>(at);
    };
    if (pos <= len && len - pos >= block_length) {
#pragma GCC unroll 8
        for (int g = 0; g < block::groups; g++) {
            const int i = g * lanes<f32v>;
            const float* mirrored = window + (len - pos - i - lanes<f32v>);
            y.group[g] = fade(load<f32v>(window + pos + i), reverse(load<f32v>(mirrored)), x + i);
        }
    } else {
        // A length that is no multiple of the block: the window does not reach to the end of this block.
        float rising[block_length] = {}, falling[block_length] = {};
        for (uint32_t i = 0; i < block_length && len > 0; i++) {
            const uint32_t at = len - 1 < pos || len - 1 - pos < i ? len - 1 : pos + i;
            rising[i] = window[at], falling[i] = window[len - 1 - at];
        }
        for (int g = 0; g < block::groups; g++) {
            const int i = g * lanes<f32v>;
            y.group[g] = fade(load<f32v>(rising + i), load<f32v>(falling + i), x + i);
        }
    }
    store_block<access>(dst, y);
    const uint32_t next = pos + block_length;
    state->pos = next < len ? next : next - len;
}

template <class access> KRL_INLINE void write_block(krl_delay_state* state, const float* x) {
    const block b = mapped<access>([](auto v) { return v; }, x);
    float* const ring = state->buf;
    state->pos += block_length;
    if (state->pos >= state->len) {
        state->pos = 0;
        store_block<access>(ring + state->len, b); // the guard
    }
    store_block<access>(ring + state->pos, b);
}

KRL_INLINE const float* delayed(const krl_delay_state* state, uint32_t d) {
    const size_t pos = state->pos, late = std::min(d, state->len);
    return state->buf + (pos >= late ? pos - late : pos + state->len - late);
}

KRL_INLINE float* clear_backwards(krl_delay_state* state, float* end, size_t n) {
    float* const first = state->buf;
    float* const last = first + state->len + block_length;
    if (end == nullptr || end > last)
        end = last;
    const size_t available = end < first ? 0 : static_cast<size_t>(end - first);
    const size_t cleared = std::min(n, available);
    if (cleared > 0)
        std::memset(end - cleared, 0, cleared * sizeof(float));
    return cleared == n ? end - cleared : nullptr;
}

} // namespace

KRL_PAIR(void, krl_blk_Lcrossfade_gainLS_flex, KRL_blk_Lcrossfade_gainLS_strict,
         (float* dst, krl_crossfade_state* state, const float* x, const float* window, float a, float b),
         crossfade<access>(dst, state, x, window, a, b);)

void KRL_blk_Lcrossfade_gainLS_setup(krl_crossfade_state* state, const float*, uint32_t len) { *state = {0, len}; }

KRL_PAIR(void, krl_blk_delay_setup_flex, KRL_blk_delay_setup_strict,
         (krl_delay_state * state, float* buf, uint32_t max_delay), check_destination<access>(buf);
         const uint32_t longest = std::min(max_delay, UINT32_MAX - (2 * block_length - 1));
         *state = {0, (longest + block_length - 1) / block_length* block_length + block_length, buf};)

KRL_PAIR(void, krl_blk_delayL_flex, KRL_blk_delayL_strict, (krl_delay_state * state, const float* x),
         write_block<access>(state, x);)

// The start of a read has any alignment, in both entries.
KRL_PAIR(void, krl_blk_LdelayU_flex, KRL_blk_LdelayU_strict, (const krl_delay_state* state, float* dst, uint32_t d),
         store_block<access>(dst, mapped<flex>([](auto v) { return v; }, delayed(state, d)));)

const float* KRL_blk_refLdelayU(const krl_delay_state* state, uint32_t d) { return delayed(state, d); }

KRL_PAIR(float*, krl_blk_delay_clear_flex, KRL_blk_delay_clear_strict,
         (krl_delay_state * state, float* end, uint32_t n), return clear_backwards(state, end, n);)
