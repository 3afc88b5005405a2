// What goes where, written out for a reader to check.
//
// A route "Lc>kL+mC" says: input channel Lc goes to output L with gain k and to output C with gain m; "LFE>" goes
// nowhere. The routes of a layout stand in the order of its channels in a buffer.
#pragma once

#include <array>
#include <bit>
#include <cstdint>
#include <cstdlib>
#include <iterator>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

namespace korla_test {

struct Gain {
    char letter;
    float value;
};
constexpr Gain gains[] = {{'g', std::bit_cast<float>(0x3ECBD4B4u)},  // -8 dB
                          {'h', std::bit_cast<float>(0x3E904D1Cu)},  // -11 dB
                          {'k', std::bit_cast<float>(0x3EAB8097u)},  // -9.5 dB
                          {'m', std::bit_cast<float>(0x3E6006DCu)},  // -13.2 dB
                          {'n', std::bit_cast<float>(0x3E72D423u)}}; // -12.5 dB
constexpr float gain_of(char letter) {
    for (const Gain& gain : gains)
        if (gain.letter == letter)
            return gain.value;
    return 0.0f;
}

// Loudspeakers: name, engine code, the least host code.
struct Speaker {
    const char* name;
    uint8_t engine;
    uint32_t host;
};
constexpr Speaker speakers[] = {{"L", 0, 1},     {"R", 1, 2},     {"C", 2, 3},     {"LFE", 3, 6},   {"Ls", 9, 4},
                                {"Rs", 10, 5},   {"Lb", 4, 8},    {"Rb", 5, 9},    {"Lc", 6, 13},   {"Rc", 7, 14},
                                {"Cb", 8, 7},    {"Lw", 11, 31},  {"Rw", 12, 32},  {"Lh", 25, 20},  {"Rh", 26, 21},
                                {"Ch", 27, 11},  {"Ltf", 28, 35}, {"Rtf", 29, 36}, {"Ltm", 30, 25}, {"Rtm", 31, 26},
                                {"Tbc", 32, 10}, {"Ltb", 33, 37}, {"Rtb", 34, 38}};
inline const Speaker& speaker(std::string_view name) {
    for (const Speaker& s : speakers)
        if (name == s.name)
            return s;
    std::abort();
}

inline std::vector<std::string> words(const std::string& text) {
    std::istringstream stream(text);
    return {std::istream_iterator<std::string>(stream), {}};
}

// One built-in layout: its speaker mask, its outputs by name and its routes.
struct Layout {
    uint64_t mask;
    const char* outputs;
    const char* routes;
    std::vector<std::string> inputs() const {
        std::vector<std::string> names;
        for (const std::string& route : words(routes))
            names.push_back(route.substr(0, route.find('>')));
        return names;
    }
};

// Output-by-input gains, row after row.
inline std::vector<float> matrix_of(const std::vector<std::string>& routes, const std::vector<std::string>& outputs) {
    std::vector<float> matrix(routes.size() * outputs.size());
    for (size_t i = 0; i < routes.size(); i++) {
        std::string targets = routes[i].substr(routes[i].find('>') + 1);
        for (char& c : targets)
            c = c == '+' ? ' ' : c;
        for (const std::string& target : words(targets))
            for (size_t o = 0; o < outputs.size(); o++)
                if (outputs[o] == target.substr(1))
                    matrix[o * routes.size() + i] = gain_of(target[0]);
    }
    return matrix;
}

constexpr const char* stereo = "L R";
constexpr const char* five_one = "L R C LFE Ls Rs";
constexpr const char* five_one_two = "L R C LFE Ls Rs Ltm Rtm";
constexpr const char* seven_one = "L R C LFE Ls Rs Lb Rb";
constexpr const char* seven_one_two = "L R C LFE Ls Rs Lb Rb Ltm Rtm";
constexpr const char* five_one_four = "L R C LFE Ls Rs Ltf Rtf Ltb Rtb";
constexpr const char* seven_one_four = "L R C LFE Ls Rs Lb Rb Ltf Rtf Ltb Rtb";

constexpr Layout layouts[] = {
    {0x1, stereo, "L>hL+hR"},
    {0x3, stereo, "L>gL R>gR"},
    {0x4, stereo, "C>hL+hR"},
    {0xC, stereo, "C>hL+hR LFE>nL+nR"},
    {0x7, five_one, "L>gL R>gR C>gC"},
    {0xB, five_one, "L>gL R>gR LFE>gLFE"},
    {0xF, five_one, "L>gL R>gR C>gC LFE>gLFE"},
    {0x33, five_one, "L>gL R>gR Lb>gLs Rb>gRs"},
    {0xC7, five_one, "L>gL R>gR C>gC Lc>kL+mC Rc>kR+mC"},
    {0xCF, five_one, "L>gL R>gR C>gC LFE>gLFE Lc>kL+mC Rc>kR+mC"},
    {0x103, five_one, "L>gL R>gR Cb>hLs+hRs"},
    {0x107, five_one, "L>gL R>gR C>gC Cb>hLs+hRs"},
    {0x10B, five_one, "L>gL R>gR LFE>gLFE Cb>hLs+hRs"},
    {0x10F, five_one, "L>gL R>gR C>gC LFE>gLFE Cb>hLs+hRs"},
    {0x1CF, five_one, "L>gL R>gR C>gC LFE>gLFE Lc>kL+mC Rc>kR+mC Cb>hLs+hRs"},
    {0x603, five_one, "L>gL R>gR Ls>gLs Rs>gRs"},
    {0x607, five_one, "L>gL R>gR C>gC Ls>gLs Rs>gRs"},
    {0x60B, five_one, "L>gL R>gR LFE>gLFE Ls>gLs Rs>gRs"},
    {0x60F, five_one, "L>gL R>gR C>gC LFE>gLFE Ls>gLs Rs>gRs"},
    {0x6C7, five_one, "L>gL R>gR C>gC Ls>gLs Rs>gRs Lc>kL+mC Rc>kR+mC"},
    {0x6CB, five_one, "L>gL R>gR LFE>gLFE Ls>gLs Rs>gRs Lc>kL+mC Rc>kR+mC"},
    {0x6CF, five_one, "L>gL R>gR C>gC LFE>gLFE Ls>gLs Rs>gRs Lc>kL+mC Rc>kR+mC"},
    {0x1E03, five_one, "L>gL R>gR Ls>gLs Rs>gRs Lw>gL Rw>gR"},
    {0x1E07, five_one, "L>gL R>gR C>gC Ls>gLs Rs>gRs Lw>gL Rw>gR"},
    {0x1E0B, five_one, "L>gL R>gR LFE>gLFE Ls>gLs Rs>gRs Lw>gL Rw>gR"},
    {0x1E0F, five_one, "L>gL R>gR C>gC LFE>gLFE Ls>gLs Rs>gRs Lw>gL Rw>gR"},
    {0x6000007, five_one, "L>gL R>gR C>gC Lh>gL Rh>gR"},
    {0x600000F, five_one, "L>gL R>gR C>gC LFE>gLFE Lh>gL Rh>gR"},
    {0x6000603, five_one, "L>gL R>gR Ls>gLs Rs>gRs Lh>gL Rh>gR"},
    {0x6000607, five_one, "L>gL R>gR C>gC Ls>gLs Rs>gRs Lh>gL Rh>gR"},
    {0x600060B, five_one, "L>gL R>gR LFE>gLFE Ls>gLs Rs>gRs Lh>gL Rh>gR"},
    {0x600060F, five_one, "L>gL R>gR C>gC LFE>gLFE Ls>gLs Rs>gRs Lh>gL Rh>gR"},
    {0x8000007, five_one, "L>gL R>gR C>gC Ch>gC"},
    {0x800000F, five_one, "L>gL R>gR C>gC LFE>gLFE Ch>gC"},
    {0x8000607, five_one, "L>gL R>gR C>gC Ls>gLs Rs>gRs Ch>gC"},
    {0x800060F, five_one, "L>gL R>gR C>gC LFE>gLFE Ls>gLs Rs>gRs Ch>gC"},
    {0x80006C7, five_one, "L>gL R>gR C>gC Ls>gLs Rs>gRs Lc>kL+mC Rc>kR+mC Ch>gC"},
    {0x80006CB, five_one, "L>gL R>gR LFE>gLFE Ls>gLs Rs>gRs Lc>kL+mC Rc>kR+mC Ch>gC"},
    {0x10000003F, five_one, "L>gL R>gR C>gC LFE>gLFE Lb>gLs Rb>gRs Tbc>hLs+hRs"},
    {0x1000000CF, five_one, "L>gL R>gR C>gC LFE>gLFE Lc>kL+mC Rc>kR+mC Tbc>hLs+hRs"},
    {0x100000603, five_one, "L>gL R>gR Ls>gLs Rs>gRs Tbc>hLs+hRs"},
    {0x100000607, five_one, "L>gL R>gR C>gC Ls>gLs Rs>gRs Tbc>hLs+hRs"},
    {0x10000060B, five_one, "L>gL R>gR LFE>gLFE Ls>gLs Rs>gRs Tbc>hLs+hRs"},
    {0x10000060F, five_one, "L>gL R>gR C>gC LFE>gLFE Ls>gLs Rs>gRs Tbc>hLs+hRs"},
    {0x108000607, five_one, "L>gL R>gR C>gC Ls>gLs Rs>gRs Tbc>hLs+hRs Ch>gC"},
    {0x10800060F, five_one, "L>gL R>gR C>gC LFE>gLFE Ls>gLs Rs>gRs Tbc>hLs+hRs Ch>gC"},
    {0x2000000060F, five_one, "L>gL R>gR C>gC LFE>gLFE Ls>gLs Rs>gRs LFE>"},
    {0x2000000070B, five_one, "L>gL R>gR LFE>gLFE Ls>gLs Rs>gRs Cb>hLs+hRs LFE>"},
    {0x13F, seven_one, "L>gL R>gR C>gC LFE>gLFE Lb>gLs Rb>gRs Cb>hLb+hRb"},
    {0x633, seven_one, "L>gL R>gR Ls>gLs Rs>gRs Lb>gLb Rb>gRb"},
    {0x637, seven_one, "L>gL R>gR C>gC Ls>gLs Rs>gRs Lb>gLb Rb>gRb"},
    {0x63B, seven_one, "L>gL R>gR LFE>gLFE Ls>gLs Rs>gRs Lb>gLb Rb>gRb"},
    {0x63F, seven_one, "L>gL R>gR C>gC LFE>gLFE Ls>gLs Rs>gRs Lb>gLb Rb>gRb"},
    {0x703, seven_one, "L>gL R>gR Ls>gLs Rs>gRs Cb>hLb+hRb"},
    {0x707, seven_one, "L>gL R>gR C>gC Ls>gLs Rs>gRs Cb>hLb+hRb"},
    {0x70B, seven_one, "L>gL R>gR LFE>gLFE Ls>gLs Rs>gRs Cb>hLb+hRb"},
    {0x70F, seven_one, "L>gL R>gR C>gC LFE>gLFE Ls>gLs Rs>gRs Cb>hLb+hRb"},
    {0x8000707, seven_one, "L>gL R>gR C>gC Ls>gLs Rs>gRs Cb>hLb+hRb Ch>gC"},
    {0x800070F, seven_one, "L>gL R>gR C>gC LFE>gLFE Ls>gLs Rs>gRs Cb>hLb+hRb Ch>gC"},
    {0xC000060F, five_one_two, "L>gL R>gR C>gC LFE>gLFE Ls>gLs Rs>gRs Ltm>gLtm Rtm>gRtm"},
    {0x100000703, seven_one, "L>gL R>gR Ls>gLs Rs>gRs Cb>hLb+hRb Tbc>hLs+hRs"},
    {0x100000707, seven_one, "L>gL R>gR C>gC Ls>gLs Rs>gRs Cb>hLb+hRb Tbc>hLs+hRs"},
    {0x10000070B, seven_one, "L>gL R>gR LFE>gLFE Ls>gLs Rs>gRs Cb>hLb+hRb Tbc>hLs+hRs"},
    {0x10000070F, seven_one, "L>gL R>gR C>gC LFE>gLFE Ls>gLs Rs>gRs Cb>hLb+hRb Tbc>hLs+hRs"},
    {0x18000000603, seven_one, "L>gL R>gR Ls>gLs Rs>gRs Ls>gLb Rs>gRb"},
    {0x18000000607, seven_one, "L>gL R>gR C>gC Ls>gLs Rs>gRs Ls>gLb Rs>gRb"},
    {0x1800000060B, seven_one, "L>gL R>gR LFE>gLFE Ls>gLs Rs>gRs Ls>gLb Rs>gRb"},
    {0x1800000060F, seven_one, "L>gL R>gR C>gC LFE>gLFE Ls>gLs Rs>gRs Ls>gLb Rs>gRb"},
    {0x2000000063B, seven_one, "L>gL R>gR LFE>gLFE Ls>gLs Rs>gRs Lb>gLb Rb>gRb LFE>"},
    {0x2000000063F, seven_one, "L>gL R>gR C>gC LFE>gLFE Ls>gLs Rs>gRs Lb>gLb Rb>gRb LFE>"},
    {0xC000063F, seven_one_two, "L>gL R>gR C>gC LFE>gLFE Ls>gLs Rs>gRs Lb>gLb Rb>gRb Ltm>gLtm Rtm>gRtm"},
    {0x63000060F, five_one_four, "L>gL R>gR C>gC LFE>gLFE Ls>gLs Rs>gRs Ltf>gLtf Rtf>gRtf Ltb>gLtb Rtb>gRtb"},
    {0x63000063F, seven_one_four,
     "L>gL R>gR C>gC LFE>gLFE Ls>gLs Rs>gRs Lb>gLb Rb>gRb Ltf>gLtf Rtf>gRtf Ltb>gLtb Rtb>gRtb"},
};

// The module's matrices for explicit layouts. Input classes:
constexpr const char* custom_inputs[] = {"L",
                                         "L R C",
                                         "L R LFE",
                                         "L R C LFE",
                                         "L R Ls Rs",
                                         "L R LFE Ls Rs",
                                         "L R C Ls Rs",
                                         "L R C LFE Ls Rs",
                                         "L R Ls Rs Lb Rb",
                                         "L R LFE Ls Rs Lb Rb",
                                         "L R C Ls Rs Lb Rb",
                                         "L R C LFE Ls Rs Lb Rb"};
// and output layouts, by index. A single channel goes to L and R with h, whatever its name; else an input goes:
struct CustomOutput {
    uint32_t layout_index;
    const char* routes;
};
constexpr CustomOutput custom_outputs[] = {
    {0, "L>gL R>gR C>hL+hR LFE> Ls>hL Rs>hR Lb>hL Rb>hR"},          // L R
    {1, "L>gL R>gR C>hL+hR LFE>gLFE Ls>hL Rs>hR Lb>hL Rb>hR"},      // L R LFE
    {4, "L>gL R>gR C>gC LFE> Ls>hL Rs>hR Lb>hL Rb>hR"},             // L R C
    {5, "L>gL R>gR C>gC LFE>gLFE Ls>hL Rs>hR Lb>hL Rb>hR"},         // L R C LFE
    {8, "L>gL R>gR C>hL+hR LFE> Ls>gLs Rs>gRs Lb>gLs Rb>gRs"},      // L R Ls Rs
    {9, "L>gL R>gR C>hL+hR LFE>gLFE Ls>gLs Rs>gRs Lb>gLs Rb>gRs"},  // L R LFE Ls Rs
    {14, "L>gL R>gR C>gC LFE> Ls>gLs Rs>gRs Lb>gLs Rb>gRs"},        // L R C Ls Rs
    {15, "L>gL R>gR C>gC LFE>gLFE Ls>gLs Rs>gRs Lb>gLs Rb>gRs"},    // L R C LFE Ls Rs
    {20, "L>gL R>gR C>hL+hR LFE> Ls>gLs Rs>gRs Lb>gLb Rb>gRb"},     // L R Ls Rs Lb Rb
    {21, "L>gL R>gR C>hL+hR LFE>gLFE Ls>gLs Rs>gRs Lb>gLb Rb>gRb"}, // L R LFE Ls Rs Lb Rb
    {26, "L>gL R>gR C>gC LFE> Ls>gLs Rs>gRs Lb>gLb Rb>gRb"},        // L R C Ls Rs Lb Rb
    {27, "L>gL R>gR C>gC LFE>gLFE Ls>gLs Rs>gRs Lb>gLb Rb>gRb"},    // L R C LFE Ls Rs Lb Rb
};

// The 32 output layouts by index: the mask that the module reports and the channels in order.
struct OutputLayout {
    uint32_t mask;
    const char* channels;
};
constexpr OutputLayout output_layouts[32] = {
    {0x1, "L R"},
    {0x5, "L R LFE"},
    {0x405, "L R LFE Ltm Rtm"},
    {0x401, "L R Ltm Rtm"},
    {0x3, "L R C"},
    {0x7, "L R C LFE"},
    {0x407, "L R C LFE Ltm Rtm"},
    {0x403, "L R C Ltm Rtm"},
    {0x9, "L R Ls Rs"},
    {0xD, "L R LFE Ls Rs"},
    {0x40D, "L R LFE Ls Rs Ltm Rtm"},
    {0x409, "L R Ls Rs Ltm Rtm"},
    {0xA0D, "L R LFE Ls Rs Ltf Rtf Ltb Rtb"},
    {0xA09, "L R Ls Rs Ltf Rtf Ltb Rtb"},
    {0xB, "L R C Ls Rs"},
    {0xF, "L R C LFE Ls Rs"},
    {0x40F, "L R C LFE Ls Rs Ltm Rtm"},
    {0x40B, "L R C Ls Rs Ltm Rtm"},
    {0xA0F, "L R C LFE Ls Rs Ltf Rtf Ltb Rtb"},
    {0xA0B, "L R C Ls Rs Ltf Rtf Ltb Rtb"},
    {0x19, "L R Ls Rs Lb Rb"},
    {0x1D, "L R LFE Ls Rs Lb Rb"},
    {0x41D, "L R LFE Ls Rs Lb Rb Ltm Rtm"},
    {0x419, "L R Ls Rs Lb Rb Ltm Rtm"},
    {0xA1D, "L R LFE Ls Rs Lb Rb Ltf Rtf Ltb Rtb"},
    {0xA19, "L R Ls Rs Lb Rb Ltf Rtf Ltb Rtb"},
    {0x1B, "L R C Ls Rs Lb Rb"},
    {0x1F, "L R C LFE Ls Rs Lb Rb"},
    {0x41F, "L R C LFE Ls Rs Lb Rb Ltm Rtm"},
    {0x41B, "L R C Ls Rs Lb Rb Ltm Rtm"},
    {0xA1F, "L R C LFE Ls Rs Lb Rb Ltf Rtf Ltb Rtb"},
    {0xA1B, "L R C Ls Rs Lb Rb Ltf Rtf Ltb Rtb"},
};

} // namespace korla_test
