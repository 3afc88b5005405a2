// Speakers by name, sets of them, and the codes by which channel maps and hosts know them.
#pragma once

#include <bit>
#include <cstdint>
#include <initializer_list>
#include <iterator>

namespace korla::downmixer {

// Engine channel codes. Codes below no_speaker that have no name here are speakers that no layout has.
// clang-format off
enum Speaker : uint8_t {
    FL = 0, FR = 1, FC = 2, // fronts and centre
    LFE = 3,
    BL = 4, BR = 5,         // backs
    FLC = 6, FRC = 7,       // front left and right of centre
    BC = 8,                 // back centre
    SL = 9, SR = 10,        // sides, or surrounds
    WL = 11, WR = 12,       // front wides
    HL = 25, HR = 26,       // front heights; the first of the height group
    TFC = 27,               // top front centre
    TFL = 28, TFR = 29,     // top fronts
    TSL = 30, TSR = 31,     // top sides, or top middles
    TBC = 32,               // top back centre
    TBL = 33, TBR = 34,     // top backs
    WHL = 35, WHR = 36,     // wide heights; the last of the height group
    SL2 = 39, SR2 = 40, LFE2 = 41, // in a set: the second SL, SR and LFE of a map
    no_speaker = 42,        // an empty slot; higher codes are invalid
};
// clang-format on

constexpr bool is_height(uint8_t code) { return code >= HL && code <= WHR; }

// One bit per engine code.
struct SpeakerSet {
    uint64_t bits = 0;

    constexpr SpeakerSet() = default;
    constexpr SpeakerSet(std::initializer_list<Speaker> speakers) {
        for (Speaker speaker : speakers)
            bits |= uint64_t{1} << speaker;
    }
    constexpr bool has(Speaker speaker) const { return bits >> speaker & 1; }
    constexpr bool has(SpeakerSet all) const { return (bits & all.bits) == all.bits; }
    constexpr uint32_t count() const { return static_cast<uint32_t>(std::popcount(bits)); }
    constexpr bool operator==(const SpeakerSet&) const = default;
    constexpr SpeakerSet& operator+=(SpeakerSet more) { return bits |= more.bits, *this; }
    constexpr SpeakerSet& operator-=(SpeakerSet less) { return bits &= ~less.bits, *this; }
};

// What a channel map holds.
inline constexpr int map_length = 256;
struct Speakers {
    SpeakerSet set; // as the engine adds it up; empty: no channel, or an invalid code
    uint32_t count; // channels
};
Speakers speakers_of(const uint8_t* codes);

// The speaker of each host code.
// clang-format off
inline constexpr uint8_t speaker_of_host_code[] = {
    no_speaker, FL, FR, FC, SL, SR, LFE, BC, BL, BR,                                              //  0..9
    TBC, TFC, no_speaker, FLC, FRC, no_speaker, no_speaker, no_speaker, 15, 16,                   // 10..19
    HL, HR, no_speaker, WHL, WHR, TSL, TSR, no_speaker, no_speaker, no_speaker,                   // 20..29
    no_speaker, WL, WR, no_speaker, no_speaker, TFL, TFR, TBL, TBR, 13,                           // 30..39
    14, 17, 18, 19, 20, 21, 22, 23, 24,                                                           // 40..48
};
// clang-format on

// The least host code of a speaker; 0 where there is none.
constexpr uint32_t host_code_of(Speaker speaker) {
    for (uint32_t host = 1; host < std::size(speaker_of_host_code); host++)
        if (speaker_of_host_code[host] == speaker)
            return host;
    return 0;
}

} // namespace korla::downmixer
