// The matrices of all pairs of layouts: the ones that the engine chooses for an input, and the ones for explicit
// outputs.
#pragma once

#include <cstdint>

#include "downmixer/layouts.h"

namespace korla::downmixer {

struct LayoutMatrix {
    SpeakerSet inputs, outputs;   // columns and rows, both in canonical order
    const float* gains = nullptr; // [outputs][inputs]; null: there is no matrix
};

// From an input that the engine knows to the layout that it chooses for it.
LayoutMatrix automatic_matrix(SpeakerSet inputs);

// From an input to the layout that a host asks for; neither has heights. Mono, {FC}, stands in place of stereo among
// the inputs.
LayoutMatrix explicit_matrix(SpeakerSet inputs, SpeakerSet outputs);

// What a map's channels are taken for where a host asks for a layout: that follows from how many there are, and from
// whether centre and LFE are among them. A lone channel is a mono one, whatever its code; six channels without an LFE
// are the fronts, sides and backs. Empty: nothing has so many channels, or an LFE has a second one, which would have no
// column.
SpeakerSet explicit_input(const uint8_t* codes);

} // namespace korla::downmixer
