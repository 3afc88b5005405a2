// Where the module's matrix takes the speakers of the input, and which of them it takes to no good place: columns are
// read by position, so that an input whose channels are not the expected ones may lose some or hear them elsewhere.
#pragma once

#include <vector>

#include "channels.h"
#include "matrix.h"

namespace host {

struct Placement {
    struct Moved {
        uint32_t speaker;
        ChannelMap heard_from;
    };
    ChannelMap lost;          // heard nowhere; an LFE may be
    std::vector<Moved> moved; // left to the right, right to the left, centre to one side, or to nothing but the LFE
};

Placement placement(const Matrix& matrix);

} // namespace host
