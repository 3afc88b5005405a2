// The transposed polyphase delay line of a synthesis bank, one slot at a time. dsp/filterbank/delay_line.h runs several
// slots in registers.
//
// A synthesis bank adds up, for each of its phases k, an even input a and an odd input b per slot, weighted by the taps
// h_0 .. h_2P-1 of the phase and delayed by j slots for tap j:
//
//     out(t) = sum over j of s_j h_j in_j(t - j),    in_j = a for even j, b for odd j
//
// Transposed, the line holds partial sums instead of inputs: out = S_0 + s_0 h_0 a, then S_j-1 = S_j + s_j h_j in_j. It
// reads and writes 2P-1 values per phase, and an input is needed only in the slot it arrives in.
//
// Four phases at a time, their state is 2P-1 vectors of four in a row. Two neighbouring taps are one step, because the
// state and the taps of both lie side by side.
#pragma once

#include "dsp/core/lanes.h"

namespace krl {

// Signs s_j of the taps, in pairs (s_0 s_1)(s_2 s_3)...
enum class tap_signs {
    plus,        // all +
    alternating, // (+ +)(- -)(+ +) ...
};

// One slot of four phases. `pairs` is P; in = (a, b); taps(i) gives (h_2i, h_2i+1), four phases each; state holds
// S_0 .. S_2P-2. A caller that needs other signs negates a or b.
template <int pairs, tap_signs signs, class Taps> KRL_INLINE f32x4 delay_line(float* state, f32x4x2 in, Taps taps) {
    const auto step = [&](int i, f32x4x2 sums) { // i is a constant once the loop below is unrolled
        return signs == tap_signs::alternating && i % 2 != 0 ? mul_sub_from(taps(i), in, sums)
                                                             : mul_add(taps(i), in, sums);
    };
    f32x4x2 sums = step(0, load<f32x4x2>(state));
    const f32x4 out = first_half(sums);
    store(state, second_half(sums));
    for (int i = 1; i < pairs - 1; i++)
        store(state + 8 * i - 4, step(i, load<f32x4x2>(state + 8 * i)));
    constexpr int last = pairs - 1; // nothing has been waiting longer than 2P-1 slots
    store(state + 8 * last - 4, step(last, beside(load<f32x4>(state + 8 * last), f32x4{})));
    return out;
}

} // namespace krl
