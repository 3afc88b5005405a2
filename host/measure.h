// What the module does to a stream, found out from the outside: one small impulse per input channel.
#pragma once

#include <cstdint>

#include "matrix.h"
#include "module.h"

namespace host {

struct Measurement {
    uint32_t latency_frames = 0;
    bool pass_through = false; // frames are copied: no delay, channel c goes to place c unchanged
    Matrix matrix;             // in canonical order, make-up gain included
};

// Runs an instance of its own; `format` may ask for any sample format, the measurement is done in float.
Measurement measure(const Module& module, StreamFormat format);

} // namespace host
