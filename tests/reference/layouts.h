// What goes where, as docs/layouts.md tells it: the tests read the tables of that page.
//
// A route "FLC>kFL+mFC" says: input channel FLC goes to output FL with gain k and to output FC with gain m; "LFE>" goes
// nowhere. The routes of a layout stand in the order of its channels in a buffer.
#pragma once

#include <algorithm>
#include <bit>
#include <cctype>
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

// Loudspeakers in the order of a matrix's columns, with their least host codes.
struct Speaker {
    std::string name;
    uint32_t host;
    uint8_t engine;
};
inline const std::vector<Speaker> speakers = [] {
    std::vector<Speaker> all;
    for (const auto& row : page("Speaker"))
        all.push_back({row[0], static_cast<uint32_t>(std::stoul(row[1])), static_cast<uint8_t>(std::stoul(row[2]))});
    return all;
}();

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

inline const std::string stereo = "FL FR", five_one = "FL FR FC LFE SL SR", seven_one = "FL FR FC LFE SL SR BL BR";
inline const std::string seven_one_four = "FL FR FC LFE SL SR BL BR TFL TFR TBL TBR";

// The layouts by index.
struct OutputLayout {
    std::string name;
    uint32_t mask;
    std::string channels;
};
inline const std::vector<OutputLayout> output_layouts = [] {
    std::vector<OutputLayout> all;
    for (const auto& row : page("Index"))
        all.push_back({row[1], static_cast<uint32_t>(std::stoul(row[2], nullptr, 16)), row[3]});
    return all;
}();

// "else FL -3 dB + FR -3 dB" on the page is "hFL+hFR" here, "nowhere" nothing.
inline std::string targets_of(const std::string& way) {
    std::string targets, name;
    for (const std::string& word : words(way))
        if (std::isupper(word[0]))
            name = word;
        else if (std::ranges::count(gains, word, &Gain::heard))
            targets.append(targets.empty() ? "" : "+").append(1, named(gains, &Gain::heard, word).letter).append(name);
    return targets;
}

// Every input takes the first of its ways on the page whose loudspeakers the outputs have; three inputs are special.
inline std::string routes_of(const std::string& inputs, const std::string& outputs) {
    static const Rows inputs_and_ways = page("Input | Goes to the first of these that the output has");
    auto has = [](const std::string& names, const std::string& name) { return std::ranges::count(words(names), name); };
    if (words(inputs).size() == 1)
        return inputs + ">hFL+hFR";
    std::string routes;
    for (const std::string& input : words(inputs)) {
        const auto& ways = named(
            inputs_and_ways, [](auto& row) { return row[0]; }, input)[1];
        const bool at_the_sides = (input == "BL" || input == "BR") && !has(inputs, "SL");
        std::string taken = inputs == "FC LFE" && input == "LFE" ? "nFL+nFR" : "";
        for (const std::string& way : words(ways, ',')) {
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
        const std::string inputs = row[0], outputs = named(output_layouts, &OutputLayout::name, row[2]).channels;
        all.push_back({std::stoull(row[1], nullptr, 16), inputs, outputs, routes_of(inputs, outputs)});
    }
    return all;
}();

} // namespace korla_test
