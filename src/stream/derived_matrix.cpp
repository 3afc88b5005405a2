// The rules of the derived matrices.
//
// A speaker that stands in the output keeps its place and its level. One that does not takes the first of its ways below
// that is open. Ways are written for the left side and the middle; the right side mirrors them.
#include "stream/derived_matrix.h"

#include <cmath>
#include <iterator>

#include "downmixer/gains.h"
#include "stream/speakers.h"

namespace korla::stream {
namespace {

using namespace downmixer; // the speakers

// Steps are those of the module's matrices, so that equal ways give equal bits.
constexpr double unity = 1.0;
constexpr double minus_3_db = static_cast<double>(gain_minus_11_db) / gain_minus_8_db;
constexpr double minus_1_5_db = static_cast<double>(gain_minus_9_5_db) / gain_minus_8_db;
constexpr double minus_5_2_db = static_cast<double>(gain_minus_13_2_db) / gain_minus_8_db;

enum Openness : uint8_t {
    there, // open when all speakers that the way leads to stand in the output
    on,    // always open: where they do not stand, their own ways go on
};

struct Way {
    Speaker from;
    Openness open;
    struct {
        Speaker speaker = no_speaker;
        double gain = 0.0;
    } to[2];
};

// Surrounds into the front, centre into the pair and mono: ITU-R BS.775-3, annex 4. A pair takes the place of the pair
// next to it, heights move within their ring before they come down 3 dB to the speaker beneath: the same moves as in
// the format converter of ISO/IEC 23008-3, with the gains of BS.775. Left of centre: the module's own.
// clang-format off
constexpr Way ways[] = {
    {FL,  there, {{FC, minus_3_db}}},
    {FC,  there, {{FL, minus_3_db}, {FR, minus_3_db}}},
    {FLC, there, {{FL, minus_1_5_db}, {FC, minus_5_2_db}}},
    {FLC, on,    {{FL, unity}}},
    {WL,  on,    {{FL, unity}}},

    {SL,  there, {{BL, unity}}},
    {SL,  there, {{BC, minus_3_db}}},
    {SL,  on,    {{FL, minus_3_db}}},
    {BL,  there, {{SL, unity}}},
    {BL,  there, {{BC, minus_3_db}}},
    {BL,  on,    {{FL, minus_3_db}}},
    {BC,  there, {{BL, minus_3_db}, {BR, minus_3_db}}},
    {BC,  on,    {{SL, minus_3_db}, {SR, minus_3_db}}},

    {HL,  there, {{TFL, unity}}},
    {HL,  there, {{TSL, unity}}},
    {HL,  on,    {{FL, minus_3_db}}},
    {TFL, there, {{HL, unity}}},
    {TFL, there, {{TSL, unity}}},
    {TFL, there, {{TBL, unity}}},
    {TFL, on,    {{FL, minus_3_db}}},
    {TSL, there, {{TFL, minus_3_db}, {TBL, minus_3_db}}},
    {TSL, there, {{TBL, unity}}},
    {TSL, there, {{TFL, unity}}},
    {TSL, there, {{HL, unity}}},
    {TSL, on,    {{SL, minus_3_db}}},
    {TBL, there, {{TSL, unity}}},
    {TBL, there, {{TFL, unity}}},
    {TBL, on,    {{BL, minus_3_db}}},
    {WHL, there, {{HL, unity}}},
    {WHL, there, {{TFL, unity}}},
    {WHL, there, {{TSL, unity}}},
    {WHL, on,    {{WL, minus_3_db}}},
    {TFC, there, {{TFL, minus_3_db}, {TFR, minus_3_db}}},
    {TFC, there, {{HL, minus_3_db}, {HR, minus_3_db}}},
    {TFC, on,    {{FC, minus_3_db}}},
    {TBC, there, {{TBL, minus_3_db}, {TBR, minus_3_db}}},
    {TBC, there, {{TSL, minus_3_db}, {TSR, minus_3_db}}},
    {TBC, on,    {{BC, minus_3_db}}},

    {LFE, there, {{FL, minus_3_db}, {FR, minus_3_db}}},
    {LFE, there, {{FC, unity}}},
};
// clang-format on

const SpeakerInfo& about(Speaker speaker) { return *find(host_code_of(speaker)); }

// The cosine of the angle between two speakers as seen from the listener.
double closeness(const SpeakerInfo& a, const SpeakerInfo& b) {
    constexpr double radians = 3.14159265358979323846 / 180.0;
    return std::sin(a.elevation * radians) * std::sin(b.elevation * radians) +
           std::cos(a.elevation * radians) * std::cos(b.elevation * radians) *
               std::cos((a.azimuth - b.azimuth) * radians);
}

// The last resort, for sets of speakers that no rule foresees: the nearest one, or all that are equally near.
void to_the_nearest(const SpeakerInfo& speaker, double gain, const korla_layout& out, double* gains) {
    constexpr double equal = 1e-6;
    double best = -2.0;
    for (uint32_t o = 0; o < out.count; o++)
        if (o != place_of(LFE, out))
            best = std::fmax(best, closeness(speaker, *find(out.speakers[o])));
    int nearest = 0;
    auto for_each_nearest = [&](auto f) {
        for (uint32_t o = 0; o < out.count; o++)
            if (o != place_of(LFE, out) && closeness(speaker, *find(out.speakers[o])) > best - equal)
                f(gains[o]);
    };
    for_each_nearest([&](double&) { nearest++; });
    const double share = nearest == 1 ? unity : nearest == 2 ? minus_3_db : 1.0 / std::sqrt(nearest);
    for_each_nearest([&](double& g) { g += gain * share; });
}

// Adds `gain` of one speaker to where it goes.
void distribute(Speaker speaker, double gain, const korla_layout& out, double* gains) {
    if (contains(out, speaker)) {
        gains[place_of(speaker, out)] += gain;
        return;
    }
    for (const Way& way : ways) {
        const bool mirrors = way.from != speaker;
        if (mirrors && about(way.from).mirror != speaker)
            continue;
        const int targets = way.to[1].speaker == no_speaker ? 1 : 2;
        Speaker target[2];
        bool all_there = true;
        for (int i = 0; i < targets; i++) {
            target[i] = mirrors ? about(way.to[i].speaker).mirror : way.to[i].speaker;
            all_there &= contains(out, target[i]);
        }
        if (way.open == there && !all_there)
            continue;
        for (int i = 0; i < targets; i++)
            distribute(target[i], gain * way.to[i].gain, out, gains);
        return;
    }
    if (speaker != LFE)
        to_the_nearest(about(speaker), gain, out, gains);
}

} // namespace

void derive_column(uint32_t speaker, const korla_layout& out, double* gains) {
    for (uint32_t o = 0; o < out.count; o++)
        gains[o] = 0.0;
    distribute(find(speaker)->speaker, unity, out, gains);
}

} // namespace korla::stream
