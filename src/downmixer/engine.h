// What the module asks an engine beyond its public functions.
#pragma once

#include "korla/downmixer.h"

namespace korla::downmixer {

// The channels that the engine reads of a frame.
uint32_t input_count(const korvex_downmixer_state& state);

} // namespace korla::downmixer
