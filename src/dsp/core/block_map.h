// Element-wise operations on blocks: the one loop over the 32 samples of a block.
#pragma once

#include "dsp/core/pair.h"
#include "korla/dsp/types.h"

namespace krl {

inline constexpr int block_length = KRL_BLK_LEN;

// dst[i] = f(src[i]...) for the 32 samples of a block. f takes and returns lanes of any width.
//
// Every operand is read completely before the first store, in both entries: that is what lets a flex destination overlap
// its sources in any way, and the results fit the registers of every target.
template <class access, class F, class... P> KRL_INLINE void map_block(float* dst, F f, const P*... src) {
    constexpr int groups = block_length / lanes<f32v>;
    f32v result[groups];
#pragma GCC unroll 8
    for (int g = 0; g < groups; g++)
        result[g] = f(access::template load<f32v>(src + g * lanes<f32v>)...);
#pragma GCC unroll 8
    for (int g = 0; g < groups; g++)
        access::template store<f32v>(dst + g * lanes<f32v>, result[g]);
}

} // namespace krl
