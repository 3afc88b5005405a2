// The gains of all downmix matrices, as exact floats.
//
// Every path into the engine's -8 dB limiter threshold is attenuated by 8 dB, which the limiter's +8 dB make-up gain
// gives back; further attenuation is what the channel's position in the output asks for.
#pragma once

namespace korla {

inline constexpr float gain_minus_8_db = 0x1.97a968p-2f;    // 0.398107171: a channel that keeps its level
inline constexpr float gain_minus_11_db = 0x1.209a38p-2f;   // 0.281838298: shared by two loudspeakers, or folded
inline constexpr float gain_minus_9_5_db = 0x1.57012ep-2f;  // 0.334965438: front of centre into front
inline constexpr float gain_minus_13_2_db = 0x1.c00db8p-3f; // 0.218776166: front of centre into centre
inline constexpr float gain_minus_12_5_db = 0x1.e5a846p-3f; // 0.237137362: LFE beside a mono centre; one unit in the
                                                            // last place below the nearest float, as it has always been

} // namespace korla
