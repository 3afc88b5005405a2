// The engine's state, placed in the caller's memory.
#pragma once

#include "downmixer/layouts.h"
#include "downmixer/mix.h"
#include "limiter/limiter.h"

struct korvex_downmixer_state {
    korla::downmixer::Matrix matrix;
    uint32_t block;                         // frames
    korla::downmixer::PlanarBuffer in, out; // work buffers; between calls `out` holds what the limiter gave
    korvex_ht_kvlim* limiter;
    bool is_routing; // every input goes to one output and every output comes from one input, as `routes` says
    korla::downmixer::Route routes[korla::downmixer::max_inputs];
};
