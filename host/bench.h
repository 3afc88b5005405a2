// korla-host bench: what a frame costs through the module.
#pragma once

#include <string>
#include <vector>

#include "module.h"

namespace host {

struct BenchOptions {
    std::string library, layout = "stereo", map = "FL,FR,FC,LFE,SL,SR";
    uint32_t sample_rate = 48000;
};

struct BenchReport {
    struct Row {
        SampleFormat samples;
        bool planar;
        size_t block_frames;
        double ns_per_frame; // best of many calls
    };
    std::string library;
    ChannelMap input, output;
    uint32_t sample_rate = 0;
    std::vector<Row> rows;
};

BenchReport bench(const BenchOptions& options);

} // namespace host
