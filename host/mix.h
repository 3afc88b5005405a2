// korla-host mix: one file through korla-stream, from any speakers to any speakers.
#pragma once

#include <korla/stream.h>

#include <array>
#include <optional>
#include <string>

#include "conversion.h"

namespace host {

// The controls of a stream as options and in reports.
struct Control {
    const char *name, *help;
};
inline constexpr std::array<Control, KORLA_LIMITER> level_controls = {{
    // by KORLA_DIALOGUE_DB, ...
    {"dialogue", "Gain of the front centre in dB, up to +40, or 'off'"},
    {"surround", "Gain of side and back speakers"},
    {"height", "Gain of height and top speakers"},
    {"lfe", "Gain of the LFE; where the output has none it is off until set"},
    {"gain", "Gain of everything, before the limiter"},
    {"ceiling", "The level that peaks keep to, -60..0 dBFS"},
}};

struct MixOptions : ConversionOptions {
    MixOptions() { takes_s24 = true; }
    std::string to;
    std::array<std::optional<float>, level_controls.size()> controls; // -INFINITY: off
    bool limiter = true;
};

struct MixReport : Conversion {
    std::string from_name, to_name; // of layouts; lists of speakers where these have no name
    uint32_t matrix_source = 0;     // KORLA_MATRIX_*
    bool copies = false;
    bool limiter = true;
    std::array<std::optional<float>, level_controls.size()> controls;
    double gain_reduction_db = 0.0; // the greatest
    Envelope gain_reduction;        // over time, where there is a picture
    uint64_t silenced = 0;
};

// Throws Error.
MixReport mix(const MixOptions& options);

// "given", "module" or "derived".
const char* source_name(uint32_t matrix_source);

} // namespace host
