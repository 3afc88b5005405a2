// The pair rule: every primitive is exported as krl_<op>_flex and KRL_<op>_strict.
//
// An operation is written once, as a template over an access policy; KRL_PAIR exports both entries from one body, in
// which `access` names the policy. The full names stand in the line, so that a search for a symbol finds it:
//
//     KRL_PAIR(void, krl_blk_LsubLL_flex, KRL_blk_LsubLL_strict, (float* dst, const float* a, const float* b),
//              map_block<access>(dst, [](auto x, auto y) { return x - y; }, a, b);)
#pragma once

#include <cassert>

#include "dsp/core/align.h"
#include "dsp/core/lanes.h"

namespace krl {

// Any alignment, any length, any overlap of destination and source.
struct flex {
    static constexpr bool is_strict = false;
    template <class V> static KRL_INLINE V load(const element_of<V>* p) { return krl::load<V>(p); }
    template <class V> static KRL_INLINE void store(element_of<V>* p, V v) { krl::store(p, v); }
};

// Buffers on 32 bytes, vector lengths a multiple of 4, each destination identical to a source or apart from all.
struct strict {
    static constexpr bool is_strict = true;
    template <class V> static KRL_INLINE V load(const element_of<V>* p) {
        assert(is_aligned(p, sizeof(V)));
        return load_aligned<V>(p);
    }
    template <class V> static KRL_INLINE void store(element_of<V>* p, V v) {
        assert(is_aligned(p, sizeof(V)));
        store_aligned(p, v);
    }
};

// The maximum under the NaN rule of the entry: flex ignores a quiet NaN operand, strict propagates it.
template <class access, class V> KRL_INLINE V max_of_entry(V a, V b) {
    if constexpr (access::is_strict)
        return max_nan(a, b);
    else
        return max_num(a, b);
}

// What a caller that holds the pointers checks before it takes a strict entry.
template <class... P> inline bool all_strict_aligned(const P*... p) { return (is_aligned(p, strict_alignment) && ...); }

} // namespace krl

#define KRL_PAIR(result, flex_name, strict_name, parameters, ...)                                                      \
    result flex_name parameters {                                                                                      \
        using access [[maybe_unused]] = krl::flex;                                                                     \
        __VA_ARGS__                                                                                                    \
    }                                                                                                                  \
    result strict_name parameters {                                                                                    \
        using access [[maybe_unused]] = krl::strict;                                                                   \
        __VA_ARGS__                                                                                                    \
    }
