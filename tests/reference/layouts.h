// What goes where, as docs/layouts.md tells it: the tests read the tables of that page.
//
// A route "Lc>kL+mC" says: input channel Lc goes to output L with gain k and to output C with gain m; "LFE>" goes
// nowhere. The routes of a layout stand in the order of its channels in a buffer.
#pragma once

#include <algorithm>
#include <bit>
#include <cstdint>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

namespace korla_test {

struct Gain {
    char letter;
    float value;
    std::string heard; // in dB, behind the limiter's make-up gain of 8 dB
};
inline const Gain gains[] = {{'g', std::bit_cast<float>(0x3ECBD4B4u), "0"},
                             {'h', std::bit_cast<float>(0x3E904D1Cu), "-3"},
                             {'k', std::bit_cast<float>(0x3EAB8097u), "-1.5"},
                             {'m', std::bit_cast<float>(0x3E6006DCu), "-5.2"},
                             {'n', std::bit_cast<float>(0x3E72D423u), "-4.5"}};

// The element whose field has this value.
template <class List, class Field, class Value> const auto& named(const List& list, Field field, const Value& value) {
    const auto found = std::ranges::find(list, value, field);
    if (found == std::end(list))
        throw std::runtime_error((std::ostringstream() << "no entry " << value).str());
    return *found;
}

inline std::vector<std::string> words(const std::string& text, char separator = ' ') {
    std::vector<std::string> all;
    std::istringstream stream(text);
    for (std::string word; std::getline(stream, word, separator);)
        all.push_back(word);
    return all;
}

// Loudspeakers in the order of a matrix's columns: name, name on the page, engine code, bit of the speaker mask (a
// second Ls, Rs or LFE has one of its own), least host code.
struct Speaker {
    std::string name, on_page;
    uint8_t engine;
    int bit;
    uint32_t host;
};
inline const Speaker speakers[] = {
    {"L", "FL", 0, 0, 1},       {"R", "FR", 1, 1, 2},       {"C", "FC", 2, 2, 3},       {"LFE", "LFE", 3, 3, 6},
    {"Ls", "SL", 9, 9, 4},      {"Rs", "SR", 10, 10, 5},    {"Lb", "BL", 4, 4, 8},      {"Rb", "BR", 5, 5, 9},
    {"Lc", "FLC", 6, 6, 13},    {"Rc", "FRC", 7, 7, 14},    {"Cb", "BC", 8, 8, 7},      {"Lw", "WL", 11, 11, 31},
    {"Rw", "WR", 12, 12, 32},   {"Lh", "HL", 25, 25, 20},   {"Rh", "HR", 26, 26, 21},   {"Ltf", "TFL", 28, 28, 35},
    {"Rtf", "TFR", 29, 29, 36}, {"Ltm", "TSL", 30, 30, 25}, {"Rtm", "TSR", 31, 31, 26}, {"Ltb", "TBL", 33, 33, 37},
    {"Rtb", "TBR", 34, 34, 38}, {"Tbc", "TBC", 32, 32, 10}, {"Ch", "TFC", 27, 27, 11},  {"Ls2", "SL2", 9, 39, 4},
    {"Rs2", "SR2", 10, 40, 5},  {"LFE2", "LFE2", 3, 41, 6}, {"Lwh", "WHL", 35, 35, 23}, {"Rwh", "WHR", 36, 36, 24}};

// One field of every named loudspeaker.
template <class Field> std::vector<Field> codes(const std::string& names, Field Speaker::*field) {
    std::vector<Field> all;
    for (const std::string& name : words(names))
        all.push_back(named(speakers, &Speaker::name, name).*field);
    return all;
}

// Output-by-input gains, row after row.
inline std::vector<float> matrix_of(const std::string& routes, const std::string& outputs) {
    std::vector<float> matrix;
    for (const std::string& output : words(outputs))
        for (const std::string& route : words(routes)) {
            matrix.push_back(0.0f);
            for (const std::string& target : words(route.substr(route.find('>') + 1), '+'))
                if (target.substr(1) == output)
                    matrix.back() = named(gains, &Gain::letter, target[0]).value;
        }
    return matrix;
}

inline const std::string stereo = "L R", five_one = "L R C LFE Ls Rs", seven_one = "L R C LFE Ls Rs Lb Rb";
inline const std::string seven_one_four = "L R C LFE Ls Rs Lb Rb Ltf Rtf Ltb Rtb";

// The rows of the page's table whose head begins with this cell.
using Rows = std::vector<std::vector<std::string>>;
inline Rows page(const std::string& head) {
    std::ifstream file(KORLA_LAYOUTS_PAGE);
    Rows rows;
    bool inside = false;
    for (std::string line; std::getline(file, line);) {
        if (inside && !line.starts_with("|"))
            break;
        std::vector<std::string> cells = words(line, '|');
        for (std::string& cell : cells)
            cell = cell.size() > 2 ? cell.substr(1, cell.size() - 2) : "";
        if (inside && line[1] != '-')
            rows.emplace_back(cells.begin() + 1, cells.end());
        inside |= line.starts_with("| " + head + " |");
    }
    return rows;
}
// "FL FR" on the page is "L R" here.
inline std::string names_of(const std::string& page_names) {
    std::string names;
    for (const std::string& word : words(page_names))
        names += (names.empty() ? "" : " ") + named(speakers, &Speaker::on_page, word).name;
    return names;
}

// The layouts by index.
struct OutputLayout {
    std::string name;
    uint32_t mask;
    std::string channels;
};
inline const std::vector<OutputLayout> output_layouts = [] {
    std::vector<OutputLayout> all;
    for (const auto& row : page("Index"))
        all.push_back({row[1], static_cast<uint32_t>(std::stoul(row[2], nullptr, 16)), names_of(row[3])});
    return all;
}();

// "else FL -3 dB + FR -3 dB" on the page is "hL+hR" here, "nowhere" nothing.
inline std::string targets_of(const std::string& way) {
    std::string targets, name;
    for (const std::string& word : words(way))
        if (std::ranges::count(speakers, word, &Speaker::on_page))
            name = names_of(word);
        else if (std::ranges::count(gains, word, &Gain::heard))
            targets.append(targets.empty() ? "" : "+").append(1, named(gains, &Gain::heard, word).letter).append(name);
    return targets;
}

// Every input takes the first of its ways on the page whose loudspeakers the outputs have; three inputs are special.
inline std::string routes_of(const std::string& inputs, const std::string& outputs) {
    static const Rows ways = page("Input | Goes to the first of these that the output has");
    auto has = [](const std::string& names, const std::string& name) { return std::ranges::count(words(names), name); };
    if (words(inputs).size() == 1)
        return inputs + ">hL+hR";
    std::string routes;
    for (const std::string& input : words(inputs)) {
        const std::string& on_page = named(speakers, &Speaker::name, input).on_page;
        const bool at_the_sides = (input == "Lb" || input == "Rb") && !has(inputs, "Ls");
        std::string taken = inputs == "C LFE" && input == "LFE" ? "nL+nR" : "";
        for (const std::string& way : words(named(
                                                ways, [](auto& row) { return row[0]; }, on_page)[1],
                                            ',')) {
            const std::string targets = targets_of(way);
            if (taken.empty() && std::ranges::all_of(words(targets, '+'), [&](const std::string& target) {
                    return has(outputs, target.substr(1)) && !(at_the_sides && target.substr(1) == input);
                }))
                taken = targets;
        }
        routes += (routes.empty() ? "" : " ") + input + ">" + taken;
    }
    return routes;
}

// The layouts that the engine chooses for its inputs.
struct Layout {
    uint64_t mask;
    std::string inputs, outputs, routes;
};
inline const std::vector<Layout> layouts = [] {
    std::vector<Layout> all;
    for (const auto& row : page("Input | Mask")) {
        const std::string inputs = names_of(row[0]),
                          outputs = named(output_layouts, &OutputLayout::name, row[2]).channels;
        all.push_back({std::stoull(row[1], nullptr, 16), inputs, outputs, routes_of(inputs, outputs)});
    }
    return all;
}();

} // namespace korla_test
