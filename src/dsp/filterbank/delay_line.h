// The delay line of a synthesis bank: a transposed polyphase filter, in two forms.
//
// Each slot brings an even input a and an odd input b for every phase. With h_0 .. h_2P-1 the taps of a phase, and
// s_j = 1 or -1, the output of slot t is
//
//     out(t) = sum over j of s_j h_j in_j(t - j),    in_j = a for even j, b for odd j.
//
// Transposed, the line keeps 2P-1 partial sums in place of past inputs, so that an input is needed only in the slot it
// arrives in:
//
//     out = S_0 + s_0 h_0 a,    S_j-1 = S_j + s_j h_j in_j,    S_2P-2 = s_2P-1 h_2P-1 b.
//
// Memory holds the sums group by group: for each four phases S_0 .. S_2P-2, four floats each.
//
// There are two forms, because the banks that use them offer different things to save on. DelayLineInRegisters takes
// the sums to registers once for several slots: for the QMF bank, which modulates up to eight slots ahead (49 ns a slot
// of 64 bands on x86-64-v3, 74 ns in the other form). delay_line_in_memory leaves the sums in memory and takes two
// neighbouring taps in one step, for their sums and, in a table by groups of four, the taps themselves lie side by
// side: for the modulated bank, whose scratch memory holds one slot (62 ns, 81 ns in the other form). The QMF tables
// have neighbouring taps M floats apart.
#pragma once

#include "dsp/core/lanes.h"

namespace krl {

// Bit j of a mask of signs: s_j is -1.
constexpr bool negates(uint32_t signs, int tap) { return (signs >> tap & 1) != 0; }

// Any number of slots of lanes<f32v> phases between the constructor and store_to. Every step is one fused operation.
template <int taps, uint32_t signs> class DelayLineInRegisters {
public:
    static constexpr int sums = taps - 1;

    KRL_INLINE explicit DelayLineInRegisters(const float* state) {
#pragma GCC unroll 16
        for (int j = 0; j < sums; j++)
            sum_[j] = from_halves([=](int h) { return load_aligned<f32x4>(state + 4 * (h * sums + j)); });
    }
    KRL_INLINE void store_to(float* state) const {
#pragma GCC unroll 16
        for (int j = 0; j < sums; j++)
            for (int h = 0; h < halves; h++)
                store_aligned(state + 4 * (h * sums + j), half(sum_[j], h));
    }

    // One slot; tap(j) gives h_j of the phases.
    template <class Tap> KRL_INLINE f32v step(f32v even, f32v odd, Tap tap) {
        const auto input = [=](int j) {
            const f32v x = j % 2 == 0 ? even : odd;
            return negates(signs, j) ? -x : x;
        };
        const f32v result = fma(tap(0), input(0), sum_[0]);
#pragma GCC unroll 16
        for (int j = 1; j < sums; j++)
            sum_[j - 1] = fma(tap(j), input(j), sum_[j]);
        sum_[sums - 1] = tap(sums) * input(sums);
        return result;
    }

private:
    static_assert(taps % 2 == 0);
    f32v sum_[sums];
};

// One slot of four phases; the two taps of a pair have the same sign. in = (a, b); pair(i) gives (h_2i, h_2i+1). The
// products are fused where the target does it in one instruction.
template <int taps, uint32_t signs, class Pair>
KRL_INLINE f32x4 delay_line_in_memory(float* state, f32x4x2 in, Pair pair) {
    static_assert(taps % 2 == 0 && ((signs ^ signs >> 1) & 0x55555555) == 0);
    const auto step = [&](int i, f32x4x2 sums) { // i is a constant once the loop below is unrolled
        return negates(signs, 2 * i) ? mul_sub_from(pair(i), in, sums) : mul_add(pair(i), in, sums);
    };
    f32x4x2 sums = step(0, load<f32x4x2>(state));
    const f32x4 out = first_half(sums);
    store(state, second_half(sums));
#pragma GCC unroll 8
    for (int i = 1; i < taps / 2 - 1; i++)
        store(state + 8 * i - 4, step(i, load<f32x4x2>(state + 8 * i)));
    constexpr int last = taps / 2 - 1; // nothing has been waiting longer than 2P-1 slots
    store(state + 8 * last - 4, step(last, beside(load<f32x4>(state + 8 * last), f32x4{})));
    return out;
}

} // namespace krl
