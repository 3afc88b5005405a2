// Host channel codes, engine channel codes and the layout mask that joins them.
#pragma once

#include <cstdint>

#include "downmixer/layouts.h"

namespace korla::module {

using downmixer::empty_slot;

inline constexpr uint32_t host_code_count = 49;

// The engine code of each host code.
inline constexpr uint8_t engine_code_of_host[host_code_count] = {
    42, 0,  1,  2,  9,  10, 3,  8,  4,  5,  //  0..9
    32, 27, 42, 6,  7,  42, 42, 42, 15, 16, // 10..19
    25, 26, 42, 35, 36, 30, 31, 42, 42, 42, // 20..29
    42, 11, 12, 42, 42, 28, 29, 33, 34, 13, // 30..39
    14, 17, 18, 19, 20, 21, 22, 23, 24,     // 40..48
};

// The host code of an engine code; 0 where there is none.
constexpr uint32_t host_code_of_engine(uint8_t engine_code) {
    if (engine_code == empty_slot)
        return 0;
    for (uint32_t host = 1; host < host_code_count; host++)
        if (engine_code_of_host[host] == engine_code)
            return host;
    return 0;
}

// One bit of the layout mask: a channel or a channel pair. Bit order is the order in which channels are listed.
struct LayoutBit {
    uint8_t codes[2]; // engine codes; the second is empty_slot for a single channel
    bool is_height;
};
inline constexpr int listed_bits = 19; // the last bit is never listed as an output
inline constexpr LayoutBit layout_bits[20] = {
    {{0, 1}, false},   {{2, 42}, false},  {{3, 42}, false},  {{9, 10}, false},  {{4, 5}, false},
    {{8, 42}, false},  {{6, 7}, false},   {{11, 12}, false}, {{25, 26}, true},  {{28, 29}, true},
    {{30, 31}, true},  {{33, 34}, true},  {{35, 36}, true},  {{13, 14}, false}, {{15, 16}, false},
    {{17, 18}, false}, {{19, 20}, false}, {{21, 22}, false}, {{23, 24}, false}, {{37, 42}, true},
};

// The layouts that a host can ask for by index.
inline constexpr uint32_t output_layouts[32] = {
    0x1,  0x5,  0x405, 0x401, 0x3,   0x7,   0x407, 0x403, // 2.x and 3.x
    0x9,  0xD,  0x40D, 0x409, 0xA0D, 0xA09,               // 4.x
    0xB,  0xF,  0x40F, 0x40B, 0xA0F, 0xA0B,               // 5.x
    0x19, 0x1D, 0x41D, 0x419, 0xA1D, 0xA19,               // 6.x
    0x1B, 0x1F, 0x41F, 0x41B, 0xA1F, 0xA1B,               // 7.x
};

// The layout masks that the parser names.
inline constexpr uint32_t mask_stereo = 0x1, mask_5_1 = 0xF, mask_5_1_2 = 0x40F, mask_7_1 = 0x1F, mask_7_1_2 = 0x41F,
                          mask_5_1_4 = 0xA0F, mask_7_1_4 = 0xA1F;

} // namespace korla::module
