// What the module does to a stream, found out from the outside: one small impulse per input channel.
#pragma once

#include <cstdint>
#include <vector>

#include "module.h"

namespace host {

struct Measurement {
    uint32_t latency_frames = 0;
    bool pass_through = false;             // frames are copied: no delay, channel c goes to place c unchanged
    std::vector<std::vector<double>> gain; // [output][input], linear, make-up gain included

    double row_sum(size_t output) const; // gain of an output when all inputs agree, the worst case
};

// Runs an instance of its own; `format` may ask for any sample format, the measurement is done in float.
Measurement measure(const Module& module, StreamFormat format);

} // namespace host
