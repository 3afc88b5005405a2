// What goes where, written out for a reader to check.
//
// A route "Lc>kL+mC" says: input channel Lc goes to output L with gain k and to output C with gain m; "LFE>" goes
// nowhere. The routes of a layout stand in the order of its channels in a buffer.
#pragma once

#include <algorithm>
#include <bit>
#include <cstdint>
#include <iterator>
#include <sstream>
#include <string>
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

inline std::vector<std::string> words(const std::string& text, char separator = ' ') {
    std::vector<std::string> all;
    std::istringstream stream(text);
    for (std::string word; std::getline(stream, word, separator);)
        all.push_back(word);
    return all;
}

// Loudspeakers in the order of a matrix's columns: name, engine code, bit of the speaker mask (a second Ls, Rs or LFE
// has one of its own), least host code.
struct Speaker {
    std::string name;
    uint8_t engine;
    int bit;
    uint32_t host;
};
inline const Speaker speakers[] = {{"L", 0, 0, 1},      {"R", 1, 1, 2},      {"C", 2, 2, 3},      {"LFE", 3, 3, 6},
                                   {"Ls", 9, 9, 4},     {"Rs", 10, 10, 5},   {"Lb", 4, 4, 8},     {"Rb", 5, 5, 9},
                                   {"Lc", 6, 6, 13},    {"Rc", 7, 7, 14},    {"Cb", 8, 8, 7},     {"Lw", 11, 11, 31},
                                   {"Rw", 12, 12, 32},  {"Lh", 25, 25, 20},  {"Rh", 26, 26, 21},  {"Ltf", 28, 28, 35},
                                   {"Rtf", 29, 29, 36}, {"Ltm", 30, 30, 25}, {"Rtm", 31, 31, 26}, {"Ltb", 33, 33, 37},
                                   {"Rtb", 34, 34, 38}, {"Tbc", 32, 32, 10}, {"Ch", 27, 27, 11},  {"Ls2", 9, 39, 4},
                                   {"Rs2", 10, 40, 5},  {"LFE2", 3, 41, 6}};

// One field of every named loudspeaker.
template <class Field> std::vector<Field> codes(const std::string& names, Field Speaker::*field) {
    std::vector<Field> all;
    for (const std::string& name : words(names))
        all.push_back(std::ranges::find(speakers, name, &Speaker::name)->*field);
    return all;
}

// Those of the routes that start at an input, in the order of the inputs.
inline std::string routes_from(const std::string& inputs, const std::string& routes) {
    std::string picked;
    for (const std::string& input : words(inputs))
        for (const std::string& route : words(routes))
            if (route.starts_with(input + '>'))
                picked += (picked.empty() ? "" : " ") + route;
    return picked;
}

// Output-by-input gains, row after row.
inline std::vector<float> matrix_of(const std::string& routes, const std::string& outputs) {
    std::vector<float> matrix;
    for (const std::string& output : words(outputs))
        for (const std::string& route : words(routes)) {
            matrix.push_back(0.0f);
            for (const std::string& target : words(route.substr(route.find('>') + 1), '+'))
                if (target.substr(1) == output)
                    matrix.back() = std::ranges::find(gains, target[0], &Gain::letter)->value;
        }
    return matrix;
}

inline const std::string stereo = "L R", five_one = "L R C LFE Ls Rs", seven_one = "L R C LFE Ls Rs Lb Rb";
inline const std::string seven_one_four = "L R C LFE Ls Rs Lb Rb Ltf Rtf Ltb Rtb";

// The built-in layouts: every mask of a group takes its loudspeakers' routes.
struct Layout {
    uint64_t mask;
    std::string inputs, outputs, routes;
};
inline std::vector<Layout> make_layouts() {
    const std::string bed = "L>gL R>gR C>gC LFE>gLFE Ls>gLs Rs>gRs ", backs = "Lb>gLb Rb>gRb ";
    struct Group {
        std::string outputs, routes;
        std::vector<uint64_t> masks;
    };
    const Group groups[] = {
        {stereo, "L>hL+hR", {0x1}},
        {stereo, "L>gL R>gR", {0x3}},
        {stereo, "C>hL+hR LFE>nL+nR", {0x4, 0xC}},
        {five_one,
         bed + "Lb>gLs Rb>gRs Lc>kL+mC Rc>kR+mC Cb>hLs+hRs Lw>gL Rw>gR Lh>gL Rh>gR Tbc>hLs+hRs Ch>gC LFE2>",
         {0x7,         0xB,         0xF,           0x33,         0xC7,        0xCF,        0x103,       0x107,
          0x10B,       0x10F,       0x1CF,         0x603,        0x607,       0x60B,       0x60F,       0x6C7,
          0x6CB,       0x6CF,       0x1E03,        0x1E07,       0x1E0B,      0x1E0F,      0x6000007,   0x600000F,
          0x6000603,   0x6000607,   0x600060B,     0x600060F,    0x8000007,   0x800000F,   0x8000607,   0x800060F,
          0x80006C7,   0x80006CB,   0x10000003F,   0x1000000CF,  0x100000603, 0x100000607, 0x10000060B, 0x10000060F,
          0x108000607, 0x10800060F, 0x2000000060F, 0x2000000070B}},
        {seven_one, bed + "Lb>gLs Rb>gRs Cb>hLb+hRb", {0x13F}},
        {seven_one,
         bed + backs + "Cb>hLb+hRb Tbc>hLs+hRs Ch>gC Ls2>gLb Rs2>gRb LFE2>",
         {0x633,         0x637,         0x63B,         0x63F,         0x703,         0x707,        0x70B,
          0x70F,         0x8000707,     0x800070F,     0x100000703,   0x100000707,   0x10000070B,  0x10000070F,
          0x18000000603, 0x18000000607, 0x1800000060B, 0x1800000060F, 0x2000000063B, 0x2000000063F}},
        {five_one + " Ltm Rtm", bed + "Ltm>gLtm Rtm>gRtm", {0xC000060F}},
        {seven_one + " Ltm Rtm", bed + backs + "Ltm>gLtm Rtm>gRtm", {0xC000063F}},
        {five_one + " Ltf Rtf Ltb Rtb", bed + "Ltf>gLtf Rtf>gRtf Ltb>gLtb Rtb>gRtb", {0x63000060F}},
        {seven_one_four, bed + backs + "Ltf>gLtf Rtf>gRtf Ltb>gLtb Rtb>gRtb", {0x63000063F}}};
    std::vector<Layout> all;
    for (const Group& group : groups)
        for (uint64_t mask : group.masks) {
            std::string inputs;
            for (const Speaker& s : speakers)
                if (mask >> s.bit & 1)
                    inputs += (inputs.empty() ? "" : " ") + s.name;
            all.push_back({mask, inputs, group.outputs, routes_from(inputs, group.routes)});
        }
    return all;
}
inline const std::vector<Layout> layouts = make_layouts();

// The 32 output layouts by index; every bit of a mask stands for one channel or pair.
constexpr uint32_t output_masks[32] = {0x1,   0x5,   0x405, 0x401, 0x3,  0x7,   0x407, 0x403, 0x9,   0xD,  0x40D,
                                       0x409, 0xA0D, 0xA09, 0xB,   0xF,  0x40F, 0x40B, 0xA0F, 0xA0B, 0x19, 0x1D,
                                       0x41D, 0x419, 0xA1D, 0xA19, 0x1B, 0x1F,  0x41F, 0x41B, 0xA1F, 0xA1B};
inline std::string channels_of(uint32_t output_mask) {
    const char* bits[] = {"L R", " C", " LFE", " Ls Rs", " Lb Rb", "", "", "", "", " Ltf Rtf", " Ltm Rtm", " Ltb Rtb"};
    std::string names;
    for (size_t bit = 0; bit < std::size(bits); bit++)
        names += output_mask >> bit & 1 ? bits[bit] : "";
    return names;
}

// The module's matrices for explicit layouts without heights: an input takes the first of its ways that the outputs
// have. They exist for the channels of these very layouts and, in place of L R, a single channel.
inline std::string explicit_routes(const std::string& inputs, const std::string& outputs) {
    const std::string ways = "L>gL R>gR C>gC|hL+hR LFE>gLFE Ls>gLs|hL Rs>gRs|hR Lb>gLb|gLs|hL Rb>gRb|gRs|hR";
    if (words(inputs).size() == 1)
        return inputs + ">hL+hR";
    std::string routes;
    for (const std::string& input : words(routes_from(inputs, ways))) {
        routes.append(routes.empty() ? "" : " ").append(input.substr(0, input.find('>') + 1));
        for (const std::string& way : words(input.substr(input.find('>') + 1), '|'))
            if (routes.back() == '>' && std::ranges::count(words(outputs), words(way.substr(1), '+')[0]))
                routes += way;
    }
    return routes;
}

} // namespace korla_test
