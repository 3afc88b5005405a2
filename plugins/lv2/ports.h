// The plug-ins of the bundle and their ports: the one table that the plug-in and its turtle are made from.
//
// Ports in the order of their indices: the input's speakers, the output's speakers, the controls, the meter, the latency.
#pragma once

#include <korla/stream.h>

#include <cmath>

namespace korla_lv2 {

struct Pair {
    const char *uri, *from, *to;
};
constexpr Pair pairs[] = {
    {"urn:korla:downmix:5.1-to-stereo", "5.1", "stereo"},
    {"urn:korla:downmix:7.1-to-stereo", "7.1", "stereo"},
    {"urn:korla:downmix:5.1.4-to-stereo", "5.1.4", "stereo"},
    {"urn:korla:downmix:7.1.4-to-stereo", "7.1.4", "stereo"},
    {"urn:korla:downmix:7.1-to-5.1", "7.1", "5.1"},
    {"urn:korla:downmix:7.1.4-to-5.1", "7.1.4", "5.1"},
    {"urn:korla:downmix:7.1.4-to-7.1", "7.1.4", "7.1"},
};
constexpr uint32_t pair_count = sizeof pairs / sizeof *pairs;

constexpr float off_db = -60.0f; // a gain at the lower end of its range is none at all

struct Control {
    uint32_t control;
    const char *symbol, *name, *comment;
    float low, high, initial;
};
constexpr Control controls[] = {
    {KORLA_DIALOGUE_DB, "dialogue", "Dialogue", "Gain of the front centre; -60 is off.", off_db, 20, 0},
    {KORLA_SURROUND_DB, "surround", "Surround", "Gain of side and back speakers; -60 is off.", off_db, 20, 0},
    {KORLA_HEIGHT_DB, "height", "Height", "Gain of the top speakers; -60 is off.", off_db, 20, 0},
    {KORLA_LFE_DB, "lfe", "LFE", "Gain of the LFE; -60 is off, as it is from the start where the output has no LFE.", off_db,
     20, 0},
    {KORLA_GAIN_DB, "gain", "Gain", "Gain of everything, before the limiter; -60 is off.", off_db, 20, 0},
    {KORLA_CEILING_DB, "ceiling", "Ceiling", "The level that peaks keep to, below full scale.", -60, 0, 0},
    {KORLA_LIMITER, "limiter", "Limiter", "Limit peaks; otherwise they pass.", 0, 1, 1},
};
constexpr uint32_t control_count = sizeof controls / sizeof *controls;

struct Layouts {
    korla_layout in, out;
};
inline Layouts layouts_of(const Pair& pair) {
    Layouts layouts = {};
    korla_layout_parse(pair.from, &layouts.in, nullptr, 0);
    korla_layout_parse(pair.to, &layouts.out, nullptr, 0);
    return layouts;
}
inline bool has_lfe(const korla_layout& layout) {
    for (uint32_t c = 0; c < layout.count; c++)
        if (layout.speakers[c] == korla_speaker_by_name("LFE"))
            return true;
    return false;
}
// What a control stands at until the host sets it.
inline float initial_value(const Control& control, const korla_layout& out) {
    return control.control == KORLA_LFE_DB && !has_lfe(out) ? off_db : control.initial;
}
// What the stream is told: in its range whatever the host sends.
inline float value_for_stream(const Control& control, float value) {
    if (!(value > control.low))
        return control.low == off_db && control.control != KORLA_CEILING_DB ? -INFINITY : control.low;
    return value < control.high ? value : control.high;
}

} // namespace korla_lv2
