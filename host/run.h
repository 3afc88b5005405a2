// korla-host run: one file through the module.
#pragma once

#include <string>
#include <vector>

#include "levels.h"
#include "measure.h"
#include "module.h"
#include "placement.h"

namespace host {

struct RunOptions {
    std::string input, output, library;
    std::string layout = "auto";
    std::string map;     // empty: from the file
    std::string samples; // empty: what the file holds
    size_t block_frames = 4096;
    bool planar = false;
    bool accept_truncated = false;
};

// What happened.
struct RunReport {
    std::string input, input_format, output, output_format, library;
    StreamFormat stream;
    size_t block_frames = 0;
    ChannelMap input_map, output_map; // in file order
    ChannelMap stream_output_map;     // in canonical order, rows of the matrix
    uint32_t output_mask = 0;         // WAVE_FORMAT_EXTENSIBLE
    bool integer_output = false;      // the file clips what is above full scale
    Measurement module;
    bool limiter_works = false;
    Placement placement;
    uint64_t frames = 0;
    std::vector<Level> input_levels, output_levels; // in file order
    uint64_t clipped_on_reading = 0;
    double module_seconds = 0.0, total_seconds = 0.0;
    std::vector<std::string> notices;
};

// Throws Error.
RunReport run(const RunOptions& options);

} // namespace host
