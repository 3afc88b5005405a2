// The rotations of complex sub-bands: their angles, and the tables that the modulation of a bank loads, with nothing left to turn
// round or to repeat. The exported twiddle tables (qmf_tables.cpp) hold the same numbers.
#pragma once

#include "dsp/core/lanes.h"
#include "dsp/core/trig.h"

namespace krl::qmf {

// pi (2m + 1) / (4T), m = 0..T/2-1
constexpr sin_cos full_twiddle_angle(uint32_t T, uint32_t m) { return sin_cos_turn(2 * m + 1, 8 * T); }
// pi (2m + 1) (1/M - 1/64) / 4, m = 0..M-1: from the phases of M bands to those of 64
constexpr sin_cos short_twiddle_angle(uint32_t M, uint32_t m) {
    return sin_cos_turn(int64_t{2 * m + 1} * (64 - M), 512 * M);
}

struct Rotation {
    float cos, sin;
};

// w[m] for m = 0..M-1. Narrow vectors, which take the parts of four samples apart: four cosines, four sines. Wide ones, which
// leave samples as they stand: a vector of cosines, each twice, and one of sines with the signs of i.
template <uint32_t M> struct Rotations {
    static constexpr uint32_t samples = lanes<f32v> / 2;
    alignas(32) float value[lanes<f32v> == 4 ? 2 * M : 4 * M];

    template <class At> static constexpr Rotations make(At at) {
        Rotations table{};
        for (uint32_t m = 0; m < M; m++) {
            const Rotation w = at(m);
            if (lanes<f32v> == 4) {
                float* const p = table.value + m / 4 * 8 + m % 4;
                p[0] = w.cos, p[4] = w.sin;
            } else {
                float* const p = table.value + m / samples * 4 * samples + m % samples * 2;
                p[0] = p[1] = w.cos, p[2 * samples] = -w.sin, p[2 * samples + 1] = w.sin;
            }
        }
        return table;
    }
};

// The angles of the upper bands are those of the lower ones from a quarter turn down; T: the bands that the angles are for.
template <uint32_t M, uint32_t T>
inline constexpr auto full_rotations = Rotations<M>::make([](uint32_t m) {
    const sin_cos angle = full_twiddle_angle(T, m < M / 2 ? m : M - 1 - m);
    const auto sin = static_cast<float>(angle.sin), cos = static_cast<float>(angle.cos);
    return m < M / 2 ? Rotation{-cos, sin} : Rotation{-sin, cos};
});
template <uint32_t M>
inline constexpr auto short_rotations = Rotations<M>::make([](uint32_t m) {
    const sin_cos angle = short_twiddle_angle(M, m);
    return Rotation{static_cast<float>(angle.cos), static_cast<float>(angle.sin)};
});

} // namespace krl::qmf
