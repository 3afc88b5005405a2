// Speakers and layouts of the module interface as plain tables: what korla/speakers.h, which has the names, does not know.
#pragma once

#include <algorithm>
#include <cstdint>
#include <iterator>

namespace host {

enum class Side : uint8_t { left, centre, right };

struct Speaker {
    uint32_t code; // host channel code of the module interface
    Side side;
};

// In the canonical order, in which the module's matrices expect the samples of a frame.
// clang-format off
inline constexpr Speaker speakers[] = {
    {1, Side::left}, {2, Side::right}, // FL FR
    {3, Side::centre}, // FC
    {6, Side::centre}, // LFE
    {4, Side::left}, {5, Side::right}, // SL SR
    {8, Side::left}, {9, Side::right}, // BL BR
    {13, Side::left}, {14, Side::right}, // FLC FRC
    {7, Side::centre}, // BC
    {31, Side::left}, {32, Side::right}, // WL WR
    {20, Side::left}, {21, Side::right}, // HL HR
    {35, Side::left}, {36, Side::right}, // TFL TFR
    {25, Side::left}, {26, Side::right}, // TSL TSR
    {37, Side::left}, {38, Side::right}, // TBL TBR
    {10, Side::centre}, // TBC
    {11, Side::centre}, // TFC
    {23, Side::left}, {24, Side::right}, // WHL WHR
};
// clang-format on
inline constexpr uint32_t lfe_code = 6;

// Null for a code that has no name here.
constexpr const Speaker* find_speaker(uint32_t code) {
    const auto* found = std::find_if(std::begin(speakers), std::end(speakers), [&](auto& s) { return s.code == code; });
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
