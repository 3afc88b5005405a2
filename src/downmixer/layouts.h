// Layouts by name: the sets of speakers that streams are mixed to, and the order of their channels.
#pragma once

#include <cstddef>
#include <cstdint>

#include "downmixer/speakers.h"

namespace korla::downmixer {

inline constexpr uint32_t max_inputs = 12;
inline constexpr uint32_t max_outputs = 256;

// "7.1.4": seven main speakers, one LFE, four heights.
struct LayoutName {
    int mains, lfe, heights;
};
constexpr SpeakerSet speakers_in(LayoutName name) {
    SpeakerSet set{FL, FR};
    if (name.mains % 2 == 1)
        set += {FC};
    if (name.mains >= 4)
        set += {SL, SR};
    if (name.mains >= 6)
        set += {BL, BR};
    if (name.lfe)
        set += {LFE};
    if (name.heights == 2)
        set += {TSL, TSR};
    if (name.heights == 4)
        set += {TFL, TFR, TBL, TBR};
    return set;
}

inline constexpr SpeakerSet stereo = speakers_in({2, 0, 0}), five_one = speakers_in({5, 1, 0}),
                            five_one_two = speakers_in({5, 1, 2}), five_one_four = speakers_in({5, 1, 4}),
                            seven_one = speakers_in({7, 1, 0}), seven_one_two = speakers_in({7, 1, 2}),
                            seven_one_four = speakers_in({7, 1, 4});

// The layout of a built-in matrix with so many outputs; its input has so many heights. Repeated codes in a map can
// count heights that no layout has: nothing is listed for such a map, and the engine will refuse it.
constexpr SpeakerSet automatic_outputs(uint32_t outputs, int64_t input_heights) {
    switch (outputs) {
    case 2: return stereo;
    case 6: return five_one;
    case 8: return input_heights == 2 ? five_one_two : input_heights <= 1 ? seven_one : SpeakerSet{};
    case 10: return input_heights == 2 ? seven_one_two : input_heights == 4 ? five_one_four : SpeakerSet{};
    default: return seven_one_four;
    }
}

// The layouts that a host can ask for by index.
// clang-format off
inline constexpr LayoutName output_layouts[32] = {
    {2, 0, 0}, {2, 1, 0}, {2, 1, 2}, {2, 0, 2}, {3, 0, 0}, {3, 1, 0}, {3, 1, 2}, {3, 0, 2},
    {4, 0, 0}, {4, 1, 0}, {4, 1, 2}, {4, 0, 2}, {4, 1, 4}, {4, 0, 4},
    {5, 0, 0}, {5, 1, 0}, {5, 1, 2}, {5, 0, 2}, {5, 1, 4}, {5, 0, 4},
    {6, 0, 0}, {6, 1, 0}, {6, 1, 2}, {6, 0, 2}, {6, 1, 4}, {6, 0, 4},
    {7, 0, 0}, {7, 1, 0}, {7, 1, 2}, {7, 0, 2}, {7, 1, 4}, {7, 0, 4},
};
// clang-format on

// The mask by which hosts know an output layout: one bit per group, from bit 0 on.
constexpr uint32_t layout_mask_of(SpeakerSet set) {
    constexpr SpeakerSet groups[] = {{FL, FR},   {FC},     {LFE},    {SL, SR},   {BL, BR},   {BC},
                                     {FLC, FRC}, {WL, WR}, {HL, HR}, {TFL, TFR}, {TSL, TSR}, {TBL, TBR}};
    uint32_t mask = 0;
    for (size_t bit = 0; bit < std::size(groups); bit++)
        if (set.has(groups[bit]))
            mask |= 1u << bit;
    return mask;
}

// The order of channels in a frame, in and out. Matrices assume it: nothing reorders a frame that stands otherwise.
inline constexpr Speaker canonical_order[] = {FL, FR, FC,  LFE, SL,  SR,  BL,  BR,  FLC, FRC, BC,  WL,  WR,
                                              HL, HR, TFL, TFR, TSL, TSR, TBL, TBR, TBC, TFC, SL2, SR2, LFE2};

// A layout's speakers in canonical order.
struct SpeakerList {
    Speaker speakers[max_inputs]{};
    uint32_t count = 0;
    constexpr explicit SpeakerList(SpeakerSet set) {
        for (Speaker speaker : canonical_order)
            if (set.has(speaker))
                speakers[count++] = speaker;
    }
    constexpr const Speaker* begin() const { return speakers; }
    constexpr const Speaker* end() const { return speakers + count; }
};

} // namespace korla::downmixer
