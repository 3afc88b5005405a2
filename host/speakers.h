// Speakers and layouts of the module interface as plain tables: whatever belongs to a channel code stands here once.
#pragma once

#include <algorithm>
#include <cstdint>
#include <iterator>

namespace host {

enum class Side : uint8_t { left, centre, right };

struct Speaker {
    uint32_t code; // host channel code of the module interface
    const char* name;
    const char* alias;
    Side side;
    int mask_bit; // WAVE_FORMAT_EXTENSIBLE, -1: none
};

// In the canonical order, in which the module's matrices expect the samples of a frame.
inline constexpr Speaker speakers[] = {
    {1, "FL", "L", Side::left, 0},
    {2, "FR", "R", Side::right, 1},
    {3, "FC", "C", Side::centre, 2},
    {6, "LFE", "LFE", Side::centre, 3},
    {4, "SL", "LS", Side::left, 9},
    {5, "SR", "RS", Side::right, 10},
    {8, "BL", "LB", Side::left, 4},
    {9, "BR", "RB", Side::right, 5},
    {13, "FLC", "LC", Side::left, 6},
    {14, "FRC", "RC", Side::right, 7},
    {7, "BC", "CS", Side::centre, 8},
    {31, "WL", "LW", Side::left, -1}, // front wide
    {32, "WR", "RW", Side::right, -1},
    {20, "HL", "LH", Side::left, -1}, // front height, which automatic layouts fold into the front pair
    {21, "HR", "RH", Side::right, -1},
    {35, "TFL", "TFL", Side::left, 12},
    {36, "TFR", "TFR", Side::right, 14},
    {25, "TML", "TSL", Side::left, -1}, // top middle
    {26, "TMR", "TSR", Side::right, -1},
    {37, "TBL", "TBL", Side::left, 15},
    {38, "TBR", "TBR", Side::right, 17},
    {10, "TBC", "TBC", Side::centre, 16},
    {11, "TFC", "TFC", Side::centre, 13},
};
inline constexpr uint32_t lfe_code = 6;

// Null for a code that has no name here.
constexpr const Speaker* find_speaker(uint32_t code) {
    const auto* found = std::find_if(std::begin(speakers), std::end(speakers), [&](auto& s) { return s.code == code; });
    return found == std::end(speakers) ? nullptr : found;
}

constexpr const Speaker* find_mask_bit(int bit) {
    const auto* found =
        std::find_if(std::begin(speakers), std::end(speakers), [&](auto& s) { return bit >= 0 && s.mask_bit == bit; });
    return found == std::end(speakers) ? nullptr : found;
}

inline constexpr uint32_t largest_code = 48;
// Codes of the interface that are empty slots: the module would read the channels behind one from the wrong places.
inline constexpr uint32_t empty_slots[] = {0, 12, 15, 16, 17, 19, 22, 27, 28, 29, 30, 33, 34};

// Output layouts by index: "5.1" is main channels and LFE, "5.1.4" has four height channels.
inline constexpr uint32_t layout_count = 32;
inline constexpr const char* layout_names[layout_count] = {
    "2.0",   "2.1",   "2.1.2", "2.0.2", "3.0", "3.1",   "3.1.2", "3.0.2", "4.0",   "4.1",   "4.1.2",
    "4.0.2", "4.1.4", "4.0.4", "5.0",   "5.1", "5.1.2", "5.0.2", "5.1.4", "5.0.4", "6.0",   "6.1",
    "6.1.2", "6.0.2", "6.1.4", "6.0.4", "7.0", "7.1",   "7.1.2", "7.0.2", "7.1.4", "7.0.4",
};

// Speakers by channel count in the order of WAVE masks, which FLAC and most formats follow; empty: no custom.
inline constexpr const char* wave_orders[] = {"",
                                              "FC",
                                              "FL,FR",
                                              "FL,FR,FC",
                                              "FL,FR,SL,SR",
                                              "FL,FR,FC,SL,SR",
                                              "FL,FR,FC,LFE,SL,SR",
                                              "FL,FR,FC,LFE,BC,SL,SR",
                                              "FL,FR,FC,LFE,BL,BR,SL,SR",
                                              "",
                                              "FL,FR,FC,LFE,SL,SR,TFL,TFR,TBL,TBR",
                                              "",
                                              "FL,FR,FC,LFE,BL,BR,SL,SR,TFL,TFR,TBL,TBR"};

// The order of Vorbis (Vorbis I, 4.3.9), which Opus shares (RFC 7845, 5.1.1.2); beyond eight channels there is none.
inline constexpr const char* vorbis_orders[] = {"",
                                                "FC",
                                                "FL,FR",
                                                "FL,FC,FR",
                                                "FL,FR,SL,SR",
                                                "FL,FC,FR,SL,SR",
                                                "FL,FC,FR,SL,SR,LFE",
                                                "FL,FC,FR,SL,SR,BC,LFE",
                                                "FL,FC,FR,SL,SR,BL,BR,LFE"};

} // namespace host
