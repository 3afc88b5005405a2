// korla-host run: one file through the module.
#pragma once

#include <string>

#include "conversion.h"
#include "module.h"
#include "placement.h"

namespace host {

struct RunOptions : ConversionOptions {
    std::string library;
    std::string layout = "auto";
    bool planar = false;
};

// The matrix is in canonical order, as measured through the module.
struct RunReport : Conversion {
    std::string library;
    StreamFormat stream;
    uint32_t latency_frames = 0;
    bool pass_through = false;
    bool limiter_works = false;
    Placement placement;
};

// Throws Error.
RunReport run(const RunOptions& options);

} // namespace host
