// maxNum and minNum at the speed of one instruction.
//
// x86 has a maximum whose answer depends on the order of its operands when one is NaN or when they are zeros of
// different sign; elsewhere it is maxNum. So work that stands or falls with its maxima runs with the quick ones, which
// note whether the order of the operands ever mattered, beside the critical path; only if it did, the work runs again
// with the exact ones.
#pragma once

#include <type_traits>

#include "dsp/core/lanes.h"

namespace krl {

struct exact_order {
    template <class T> KRL_INLINE T max(T a, T b) { return max_num(a, b); }
    template <class T> KRL_INLINE T min(T a, T b) { return min_num(a, b); }
    static constexpr bool in_doubt() { return false; }
};

template <class T> class quick_order {
public:
    KRL_INLINE T max(T a, T b) { return noted(max_quick(a, b), max_quick(b, a)); }
    KRL_INLINE T min(T a, T b) { return noted(min_quick(a, b), min_quick(b, a)); }
    bool in_doubt() const { return doubt_ != 0; }

private:
    using bits = typename lane_traits<T>::mask;
    KRL_INLINE T noted(T result, T other_way_round) {
        doubt_ |= bit_cast<bits>(result) ^ bit_cast<bits>(other_way_round);
        return result;
    }
    bits doubt_ = 0;
};

// Calls run(order) with an order for numbers T (float or double), a second time if need be: run can be repeated and
// takes its maxima and minima from the order.
template <class T, class F> KRL_INLINE void in_order(F run) {
    std::conditional_t<quick_is_exact, exact_order, quick_order<T>> first;
    run(first);
    if (first.in_doubt()) [[unlikely]] {
        exact_order exact;
        run(exact);
    }
}

// Whether min_quick(max_quick(v, low), high) clips as maxNum and minNum do: the quick ones give their second operand
// for a NaN v and for a zero beside a zero limit, which is right unless the limit is NaN or a zero of the other sign.
inline bool quick_is_exact_within(float low, float high) {
    const bool negative_zero = bit_cast<uint32_t>(low) == 0x80000000u, positive_zero = bit_cast<uint32_t>(high) == 0;
    return quick_is_exact || (low == low && high == high && !negative_zero && !positive_zero);
}

} // namespace krl
