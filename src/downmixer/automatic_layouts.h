// The inputs that the engine knows, and the output layout that it chooses for each of them.
//
// This table is the one place that names them: matrices follow from it by the rule in matrices.cpp, which also refuses
// to compile an input that would reach no output.
#pragma once

#include "downmixer/layouts.h"

namespace korla::downmixer {

struct LayoutPair {
    SpeakerSet inputs, outputs;
};

// clang-format off
inline constexpr LayoutPair automatic_layouts[] = {
    {{FL}, stereo},
    {{FL, FR}, stereo},
    {{FC}, stereo},
    {{FC, LFE}, stereo},

    {{FL, FR, FC}, five_one},
    {{FL, FR, LFE}, five_one},
    {{FL, FR, FC, LFE}, five_one},
    {{FL, FR, BL, BR}, five_one},
    {{FL, FR, FC, FLC, FRC}, five_one},
    {{FL, FR, FC, LFE, FLC, FRC}, five_one},
    {{FL, FR, BC}, five_one},
    {{FL, FR, FC, BC}, five_one},
    {{FL, FR, LFE, BC}, five_one},
    {{FL, FR, FC, LFE, BC}, five_one},
    {{FL, FR, FC, LFE, FLC, FRC, BC}, five_one},
    {{FL, FR, SL, SR}, five_one},
    {{FL, FR, FC, SL, SR}, five_one},
    {{FL, FR, LFE, SL, SR}, five_one},
    {{FL, FR, FC, LFE, SL, SR}, five_one},
    {{FL, FR, FC, SL, SR, FLC, FRC}, five_one},
    {{FL, FR, LFE, SL, SR, FLC, FRC}, five_one},
    {{FL, FR, FC, LFE, SL, SR, FLC, FRC}, five_one},
    {{FL, FR, SL, SR, WL, WR}, five_one},
    {{FL, FR, FC, SL, SR, WL, WR}, five_one},
    {{FL, FR, LFE, SL, SR, WL, WR}, five_one},
    {{FL, FR, FC, LFE, SL, SR, WL, WR}, five_one},
    {{FL, FR, FC, HL, HR}, five_one},
    {{FL, FR, FC, LFE, HL, HR}, five_one},
    {{FL, FR, SL, SR, HL, HR}, five_one},
    {{FL, FR, FC, SL, SR, HL, HR}, five_one},
    {{FL, FR, LFE, SL, SR, HL, HR}, five_one},
    {{FL, FR, FC, LFE, SL, SR, HL, HR}, five_one},
    {{FL, FR, FC, TFC}, five_one},
    {{FL, FR, FC, LFE, TFC}, five_one},
    {{FL, FR, FC, SL, SR, TFC}, five_one},
    {{FL, FR, FC, LFE, SL, SR, TFC}, five_one},
    {{FL, FR, FC, SL, SR, FLC, FRC, TFC}, five_one},
    {{FL, FR, LFE, SL, SR, FLC, FRC, TFC}, five_one},
    {{FL, FR, FC, LFE, BL, BR, TBC}, five_one},
    {{FL, FR, FC, LFE, FLC, FRC, TBC}, five_one},
    {{FL, FR, SL, SR, TBC}, five_one},
    {{FL, FR, FC, SL, SR, TBC}, five_one},
    {{FL, FR, LFE, SL, SR, TBC}, five_one},
    {{FL, FR, FC, LFE, SL, SR, TBC}, five_one},
    {{FL, FR, FC, SL, SR, TBC, TFC}, five_one},
    {{FL, FR, FC, LFE, SL, SR, TBC, TFC}, five_one},
    {{FL, FR, FC, LFE, SL, SR, LFE2}, five_one},
    {{FL, FR, LFE, SL, SR, BC, LFE2}, five_one},

    {{FL, FR, FC, LFE, BL, BR, BC}, seven_one},
    {{FL, FR, SL, SR, BL, BR}, seven_one},
    {{FL, FR, FC, SL, SR, BL, BR}, seven_one},
    {{FL, FR, LFE, SL, SR, BL, BR}, seven_one},
    {{FL, FR, FC, LFE, SL, SR, BL, BR}, seven_one},
    {{FL, FR, SL, SR, BC}, seven_one},
    {{FL, FR, FC, SL, SR, BC}, seven_one},
    {{FL, FR, LFE, SL, SR, BC}, seven_one},
    {{FL, FR, FC, LFE, SL, SR, BC}, seven_one},
    {{FL, FR, FC, SL, SR, BC, TFC}, seven_one},
    {{FL, FR, FC, LFE, SL, SR, BC, TFC}, seven_one},
    {{FL, FR, SL, SR, BC, TBC}, seven_one},
    {{FL, FR, FC, SL, SR, BC, TBC}, seven_one},
    {{FL, FR, LFE, SL, SR, BC, TBC}, seven_one},
    {{FL, FR, FC, LFE, SL, SR, BC, TBC}, seven_one},
    {{FL, FR, SL, SR, SL2, SR2}, seven_one},
    {{FL, FR, FC, SL, SR, SL2, SR2}, seven_one},
    {{FL, FR, LFE, SL, SR, SL2, SR2}, seven_one},
    {{FL, FR, FC, LFE, SL, SR, SL2, SR2}, seven_one},
    {{FL, FR, LFE, SL, SR, BL, BR, LFE2}, seven_one},
    {{FL, FR, FC, LFE, SL, SR, BL, BR, LFE2}, seven_one},

    {{FL, FR, FC, LFE, SL, SR, TSL, TSR}, five_one_two},
    {{FL, FR, FC, LFE, SL, SR, BL, BR, TSL, TSR}, seven_one_two},
    {{FL, FR, FC, LFE, SL, SR, TFL, TFR, TBL, TBR}, five_one_four},
    {{FL, FR, FC, LFE, SL, SR, BL, BR, TFL, TFR, TBL, TBR}, seven_one_four},
};
// clang-format on

} // namespace korla::downmixer
