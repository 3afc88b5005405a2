// Element-wise operations on blocks: the one loop over the 32 samples of a block.
#pragma once

#include "dsp/core/pair.h"
#include "korla/dsp/types.h"

namespace krl {

inline constexpr int block_length = KRL_BLK_LEN;

// A block in registers. Reading every operand into blocks before the first store, in both entries, is what lets a flex
// destination overlap its sources in any way.
struct block {
    static constexpr int groups = block_length / lanes<f32v>;
    f32v group[groups];
};

template <class access> KRL_INLINE void store_block(float* dst, const block& b) {
#pragma GCC unroll 8
    for (int g = 0; g < block::groups; g++)
        access::template store<f32v>(dst + g * lanes<f32v>, b.group[g]);
}

// f(src[i]...) for the 32 samples of a block. f takes and returns lanes of any width.
template <class access, class F, class... P> KRL_INLINE block mapped(F f, const P*... src) {
    block result;
#pragma GCC unroll 8
    for (int g = 0; g < block::groups; g++)
        result.group[g] = f(access::template load<f32v>(src + g * lanes<f32v>)...);
    return result;
}

// f(b[i]...) for blocks in registers.
template <class F, class... B> KRL_INLINE block combined(F f, const B&... b) {
    block result;
#pragma GCC unroll 8
    for (int g = 0; g < block::groups; g++)
        result.group[g] = f(b.group[g]...);
    return result;
}

// dst[i] = f(src[i]...)
template <class access, class F, class... P> KRL_INLINE void map_block(float* dst, F f, const P*... src) {
    store_block<access>(dst, mapped<access>(f, src...));
}

// a[i], b[i] = f(a[i], b[i]), a lane_pair.
template <class access, class F> KRL_INLINE void map_block_pair(float* a, float* b, F f) {
    block first, second;
#pragma GCC unroll 8
    for (int g = 0; g < block::groups; g++) {
        const auto r =
            f(access::template load<f32v>(a + g * lanes<f32v>), access::template load<f32v>(b + g * lanes<f32v>));
        first.group[g] = r.a, second.group[g] = r.b;
    }
    store_block<access>(a, first);
    store_block<access>(b, second);
}

} // namespace krl
