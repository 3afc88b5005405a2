#include "channels.h"

#include <sndfile.h>

#include <algorithm>
#include <cctype>
#include <numeric>
#include <sstream>

#include "error.h"
#include "text.h"

namespace host {
namespace {

struct Speaker {
    uint32_t code;
    const char* name;
    const char* alias;
    int mask_bit; // WAVE_FORMAT_EXTENSIBLE, -1: none
    int position; // libsndfile's name of that bit
};

// In the module's canonical order.
constexpr Speaker speakers[] = {
    {1, "FL", "L", 0, SF_CHANNEL_MAP_LEFT},
    {2, "FR", "R", 1, SF_CHANNEL_MAP_RIGHT},
    {3, "FC", "C", 2, SF_CHANNEL_MAP_CENTER},
    {6, "LFE", "LFE", 3, SF_CHANNEL_MAP_LFE},
    {4, "SL", "LS", 9, SF_CHANNEL_MAP_SIDE_LEFT},
    {5, "SR", "RS", 10, SF_CHANNEL_MAP_SIDE_RIGHT},
    {8, "BL", "LB", 4, SF_CHANNEL_MAP_REAR_LEFT},
    {9, "BR", "RB", 5, SF_CHANNEL_MAP_REAR_RIGHT},
    {13, "FLC", "LC", 6, SF_CHANNEL_MAP_FRONT_LEFT_OF_CENTER},
    {14, "FRC", "RC", 7, SF_CHANNEL_MAP_FRONT_RIGHT_OF_CENTER},
    {7, "BC", "CS", 8, SF_CHANNEL_MAP_REAR_CENTER},
    {31, "WL", "LW", -1, 0}, // front wide
    {32, "WR", "RW", -1, 0},
    {20, "HL", "LH", -1, 0}, // front height, which automatic layouts fold into the front pair
    {21, "HR", "RH", -1, 0},
    {35, "TFL", "TFL", 12, SF_CHANNEL_MAP_TOP_FRONT_LEFT},
    {36, "TFR", "TFR", 14, SF_CHANNEL_MAP_TOP_FRONT_RIGHT},
    {25, "TML", "TSL", -1, 0}, // top middle
    {26, "TMR", "TSR", -1, 0},
    {37, "TBL", "TBL", 15, SF_CHANNEL_MAP_TOP_REAR_LEFT},
    {38, "TBR", "TBR", 17, SF_CHANNEL_MAP_TOP_REAR_RIGHT},
    {10, "TBC", "TBC", 16, SF_CHANNEL_MAP_TOP_REAR_CENTER},
    {11, "TFC", "TFC", 13, SF_CHANNEL_MAP_TOP_FRONT_CENTER},
};

constexpr uint32_t largest_code = 48;
// Codes of the interface that are empty slots: the module would read the channels behind one from the wrong places.
constexpr uint32_t empty_slots[] = {0, 12, 15, 16, 17, 19, 22, 27, 28, 29, 30, 33, 34};

const Speaker* find(uint32_t code) {
    const auto* found = std::find_if(std::begin(speakers), std::end(speakers), [&](auto& s) { return s.code == code; });
    return found == std::end(speakers) ? nullptr : found;
}

bool contains(const ChannelMap& map, uint32_t code) { return std::find(map.begin(), map.end(), code) != map.end(); }

constexpr const char* layout_names[layout_count] = {
    "2.0",   "2.1",   "2.1.2", "2.0.2", "3.0", "3.1",   "3.1.2", "3.0.2", "4.0",   "4.1",   "4.1.2",
    "4.0.2", "4.1.4", "4.0.4", "5.0",   "5.1", "5.1.2", "5.0.2", "5.1.4", "5.0.4", "6.0",   "6.1",
    "6.1.2", "6.0.2", "6.1.4", "6.0.4", "7.0", "7.1",   "7.1.2", "7.0.2", "7.1.4", "7.0.4",
};

} // namespace

std::string speaker_name(uint32_t code) {
    const Speaker* speaker = find(code);
    return speaker ? speaker->name : format_text("#%u", code);
}

std::string speaker_names(const ChannelMap& map) {
    std::string text;
    for (uint32_t code : map) {
        text += text.empty() ? "" : " ";
        text += speaker_name(code);
    }
    return text;
}

ChannelMap parse_map(const std::string& text) {
    ChannelMap map;
    std::stringstream names(text);
    for (std::string name; std::getline(names, name, ',');) {
        std::transform(name.begin(), name.end(), name.begin(), [](unsigned char c) { return std::toupper(c); });
        const auto* known = std::find_if(std::begin(speakers), std::end(speakers),
                                         [&](auto& s) { return name == s.name || name == s.alias; });
        if (known != std::end(speakers)) {
            map.push_back(known->code);
        } else if (!name.empty() && name.size() < 4 && std::all_of(name.begin(), name.end(), ::isdigit)) {
            const auto code = static_cast<uint32_t>(std::stoul(name));
            if (code > largest_code)
                throw Error(Status::layout, format_text("channel map: code %u is above %u", code, largest_code));
            if (std::find(std::begin(empty_slots), std::end(empty_slots), code) != std::end(empty_slots))
                throw Error(Status::layout,
                            format_text("channel map: code %u is an empty slot; maps must be compact, leave "
                                        "the channel out of the file",
                                        code));
            map.push_back(code);
        } else {
            std::string all;
            for (const Speaker& s : speakers)
                all += format_text(" %s", s.name);
            throw Error(Status::layout, "channel map: unknown speaker '" + name + "'; use" + all);
        }
    }
    return map;
}

ChannelMap default_map(size_t channels) {
    static constexpr const char* by_count[] = {"",
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
    return channels < std::size(by_count) ? parse_map(by_count[channels]) : ChannelMap{};
}

ChannelMap map_from_positions(const std::vector<int>& positions) {
    auto has = [&](int p) { return std::find(positions.begin(), positions.end(), p) != positions.end(); };
    const bool sides = has(SF_CHANNEL_MAP_SIDE_LEFT) || has(SF_CHANNEL_MAP_SIDE_RIGHT);
    const bool top_backs = has(SF_CHANNEL_MAP_TOP_REAR_LEFT) || has(SF_CHANNEL_MAP_TOP_REAR_RIGHT);
    ChannelMap map;
    for (int position : positions) {
        switch (position) {
        case SF_CHANNEL_MAP_MONO:
        case SF_CHANNEL_MAP_FRONT_CENTER: position = SF_CHANNEL_MAP_CENTER; break;
        case SF_CHANNEL_MAP_FRONT_LEFT: position = SF_CHANNEL_MAP_LEFT; break;
        case SF_CHANNEL_MAP_FRONT_RIGHT: position = SF_CHANNEL_MAP_RIGHT; break;
        case SF_CHANNEL_MAP_REAR_LEFT: position = sides ? position : SF_CHANNEL_MAP_SIDE_LEFT; break;
        case SF_CHANNEL_MAP_REAR_RIGHT: position = sides ? position : SF_CHANNEL_MAP_SIDE_RIGHT; break;
        default: break;
        }
        const auto* speaker = std::find_if(std::begin(speakers), std::end(speakers),
                                           [&](auto& s) { return s.mask_bit >= 0 && s.position == position; });
        if (speaker == std::end(speakers))
            throw Error(Status::layout,
                        format_text("the file's channel mask leaves channel %zu without a speaker that the "
                                    "module knows; name all %zu channels with --map",
                                    map.size() + 1, positions.size()));
        uint32_t code = speaker->code;
        if (!top_backs && (code == 35 || code == 36))
            code -= 10; // the lone pair of a .2 layout
        map.push_back(code);
    }
    return map;
}

std::vector<size_t> canonical_order(const ChannelMap& map) {
    // Rank in the table; the second channel of one speaker goes behind all first ones.
    std::vector<size_t> rank;
    for (size_t c = 0; c < map.size(); c++) {
        const Speaker* speaker = find(map[c]);
        const size_t place = speaker ? static_cast<size_t>(speaker - speakers) : std::size(speakers) + map[c];
        const auto earlier = static_cast<size_t>(std::count(map.begin(), map.begin() + static_cast<long>(c), map[c]));
        rank.push_back(place + 1000 * earlier);
    }
    std::vector<size_t> order(map.size());
    std::iota(order.begin(), order.end(), size_t{0});
    std::stable_sort(order.begin(), order.end(), [&](size_t a, size_t b) { return rank[a] < rank[b]; });
    return order;
}

FileOrder file_order(const ChannelMap& map) {
    FileOrder result{};
    std::vector<const Speaker*> marks;
    for (uint32_t code : map) {
        if ((code == 25 || code == 26) && !contains(map, code + 10)) {
            result.top_pair_renamed = true;
            code += 10;
        }
        const Speaker* speaker = find(code);
        if (!speaker || speaker->mask_bit < 0)
            throw Error(Status::layout, "output files have no mark for speaker " + speaker_name(code));
        marks.push_back(speaker);
        result.mask |= 1u << speaker->mask_bit;
    }
    result.order.resize(map.size());
    std::iota(result.order.begin(), result.order.end(), size_t{0});
    std::stable_sort(result.order.begin(), result.order.end(),
                     [&](size_t a, size_t b) { return marks[a]->mask_bit < marks[b]->mask_bit; });
    for (size_t channel : result.order)
        result.positions.push_back(marks[channel]->position);
    return result;
}

const char* layout_name(uint32_t index) { return layout_names[index]; }

std::optional<uint32_t> parse_layout(const std::string& text) {
    if (text == "auto")
        return std::nullopt;
    if (text == "stereo")
        return 0;
    for (uint32_t i = 0; i < layout_count; i++)
        if (text == layout_names[i] || text == std::to_string(i))
            return i;
    throw Error(Status::layout, "unknown layout '" + text + "'; use auto, stereo, a name such as 5.1 or 7.1.4, or an " +
                                    "index 0..31 ('korla-host layouts' lists them)");
}

std::vector<ChannelMap> candidate_inputs() {
    const std::vector<ChannelMap> units = {{3},      {6},      {4, 5},   {8, 9}, {13, 14}, {7},    {31, 32}, {20, 21},
                                           {35, 36}, {25, 26}, {37, 38}, {10},   {11},     {4, 5}, {6}};
    const std::vector<ChannelMap> fronts = {{}, {1}, {1, 2}};
    std::vector<ChannelMap> candidates;
    for (const ChannelMap& front : fronts)
        for (uint32_t chosen = 0; chosen < 1u << units.size(); chosen++) {
            ChannelMap map = front;
            for (size_t u = 0; u < units.size(); u++)
                if (chosen >> u & 1)
                    map.insert(map.end(), units[u].begin(), units[u].end());
            // A speaker's second channel stands at the end; alone it would be the first one once more.
            const bool second_surrounds = chosen >> 13 & 1, second_lfe = chosen >> 14 & 1;
            if (map.empty() || map.size() > 12 || (second_surrounds && !(chosen >> 2 & 1)) ||
                (second_lfe && !(chosen >> 1 & 1)))
                continue;
            candidates.push_back(map);
        }
    return candidates;
}

} // namespace host
