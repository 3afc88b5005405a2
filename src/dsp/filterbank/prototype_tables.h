// The committed taps of every prototype filter, and the layouts formed from them at compile time.
#pragma once

#include "dsp/core/table.h"

namespace krl::prototypes {

#include "prototypes_mfb.inc"
#include "prototypes_qmf.inc"

// QMF prototype p[0 .. 2PM] from its taps 0 .. PM.
template <size_t HalfSize> constexpr float qmf_tap(const float (&half)[HalfSize], size_t n) {
    constexpr size_t centre = HalfSize - 1;
    return half[n <= centre ? n : 2 * centre - n];
}

// Sign of a block of the analysis table: pairs of blocks alternate; with four periods the even blocks are negated
// besides, because the four-period filters negate the sums of the even blocks.
constexpr float qmf_block_sign(int periods, size_t block) {
    const bool second_of_pairs = block / 2 % 2 != 0;
    const bool negated_even = periods == 4 && block % 2 == 0;
    return second_of_pairs != negated_even ? -1.0f : 1.0f;
}

template <int Periods, size_t HalfSize> constexpr auto qmf_analysis(const float (&half)[HalfSize]) {
    constexpr size_t bands = (HalfSize - 1) / Periods;
    Table<2 * Periods * bands> table{};
    for (size_t b = 0; b < 2 * Periods; ++b)
        for (size_t k = 0; k < bands; ++k) {
            const float tap = qmf_tap(half, b * bands + k + 1);
            table.value[b * bands + k] = tap == 0.0f ? 0.0f : qmf_block_sign(Periods, b) * tap; // no negative zero
        }
    return table;
}

// The synthesis table is the analysis table reversed in time.
template <int Periods, size_t HalfSize> constexpr auto qmf_synthesis(const float (&half)[HalfSize]) {
    const auto analysis = qmf_analysis<Periods>(half);
    constexpr size_t size = sizeof(analysis.value) / sizeof(float);
    Table<size> table{};
    for (size_t n = 0; n < size; ++n)
        table.value[n] = analysis.value[size - 1 - n];
    return table;
}

// Row r = 0 .. M holds taps 2iM + r, i = 0 .. P-1. The tables of all band counts but 32 end with a row of zeros.
template <int Periods, size_t HalfSize> constexpr auto qmf_compact(const float (&half)[HalfSize]) {
    constexpr size_t bands = (HalfSize - 1) / Periods;
    constexpr size_t rows = bands == 32 ? bands + 1 : bands + 2;
    Table<rows * Periods> table{};
    for (size_t r = 0; r <= bands; ++r)
        for (size_t i = 0; i < Periods; ++i)
            table.value[r * Periods + i] = qmf_tap(half, 2 * i * bands + r);
    return table;
}

// Taps in time order to the layout of the modulated bank: groups of four bands, ten vectors of four taps each.
template <size_t Size> constexpr Table<Size> modulated(const float (&taps)[Size]) {
    constexpr size_t bands = Size / 10;
    Table<Size> table{};
    for (size_t j = 0; j < 10; ++j)
        for (size_t k = 0; k < bands; ++k)
            table.value[k / 4 * 40 + j * 4 + k % 4] = taps[j * bands + k];
    return table;
}

// A modulated-bank prototype that is symmetric in time, from its first half.
template <size_t HalfSize> constexpr auto modulated_symmetric(const float (&half)[HalfSize]) {
    float taps[2 * HalfSize]{};
    for (size_t n = 0; n < HalfSize; ++n)
        taps[n] = taps[2 * HalfSize - 1 - n] = half[n];
    return modulated(taps);
}

// A QMF prototype of five periods with every block reversed, for the legacy analysis reads its blocks in reverse.
template <size_t HalfSize> constexpr auto modulated_legacy(const float (&half)[HalfSize]) {
    constexpr size_t bands = (HalfSize - 1) / 5;
    float taps[10 * bands]{};
    for (size_t j = 0; j < 10; ++j)
        for (size_t k = 0; k < bands; ++k)
            taps[j * bands + k] = qmf_tap(half, j * bands + bands - k);
    return modulated(taps);
}

} // namespace krl::prototypes
