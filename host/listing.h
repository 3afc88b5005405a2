// korla-host info and korla-host layouts.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "module.h"

namespace host {

struct ModuleInfo {
    std::string library, magic, name, vendor, reported_name;
    uint32_t interface_version = 0;
    uint64_t library_bytes = 0;
};
ModuleInfo info(const Module& module);

struct LayoutListing {
    struct Output {
        uint32_t index;
        StreamOutput output;
        bool mixed_from_7_1; // false: no matrix, frames are copied
    };
    struct Automatic {
        ChannelMap input, output;
    };
    struct Named {
        std::string name;
        ChannelMap speakers;
        std::vector<uint32_t> sources; // of the matrices to each named layout: KORLA_MATRIX_*
    };
    std::vector<Output> outputs;      // explicit layouts by index
    std::vector<Automatic> automatic; // inputs that the module finds a layout for
    std::vector<Named> named;         // layouts of korla-stream
};
// Asks the module: every layout index, and every speaker set that this host can name; and korla-stream.
LayoutListing layouts(const Module& module);

} // namespace host
