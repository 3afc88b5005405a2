// The matrix of a stream at work, tile by tile, with ramps where its gains change.
#pragma once

#include "downmixer/sample_formats.h"
#include "stream/matrix.h"

namespace korla::stream {

class Mixer {
public:
    // Zero gains until set.
    void start(const Downmix& downmix);

    // New gains, reached over that many tiles; 0: at once.
    void set(const Gains& gains, uint32_t ramp_tiles);

    // One tile, row i of `in` being input channel i. Returns the greatest magnitude that it stored.
    float mix(downmixer::PlanarBuffer out, downmixer::PlanarBuffer in);

private:
    float mix_steady(downmixer::PlanarBuffer out, downmixer::PlanarBuffer in) const;
    float mix_ramped(downmixer::PlanarBuffer out, downmixer::PlanarBuffer in);
    void arrive();

    Gains now_, target_;
    uint32_t tiles_left_; // of the ramp
    uint32_t inputs_, outputs_;
    uint8_t channel_[KORLA_MAX_SPEAKERS];
    uint16_t used_[KORLA_MAX_SPEAKERS]; // [output] bit c: the gain of column c is not zero
};

} // namespace korla::stream
