// Channel maps: names, orders and layouts.
#include "channels.h"

#include <korla/speakers.h>

#include <algorithm>
#include <cctype>
#include <numeric>
#include <sstream>

#include "error.h"
#include "text.h"

namespace host {
namespace {

bool contains(const ChannelMap& map, uint32_t code) { return std::find(map.begin(), map.end(), code) != map.end(); }

uint32_t parse_speaker(const std::string& name) {
    if (const uint32_t code = korla_speaker_by_name(name.c_str()))
        return code;
    if (name.empty() || name.size() > 3 || !std::all_of(name.begin(), name.end(), ::isdigit)) {
        std::string all;
        for (const Speaker& speaker : speakers)
            all.append(" ").append(speaker_name(speaker.code));
        throw Error(Status::layout, "channel map: unknown speaker '" + name + "'; use" + all);
    }
    const auto code = static_cast<uint32_t>(std::stoul(name));
    if (code > largest_code)
        throw Error(Status::layout, format_text("channel map: code %u is above %u", code, largest_code));
    if (std::find(std::begin(empty_slots), std::end(empty_slots), code) != std::end(empty_slots))
        throw Error(Status::layout, format_text("channel map: code %u is an empty slot; maps must be compact, leave "
                                                "the channel out of the file",
                                                code));
    return code;
}

std::string in_upper_case(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(), [](unsigned char c) { return std::toupper(c); });
    return text;
}

} // namespace

std::string speaker_name(uint32_t code) {
    const char* name = korla_speaker_name(code);
    return name ? name : format_text("#%u", code);
}

std::string speaker_names(const ChannelMap& map, const char* separator) {
    std::string text;
    for (uint32_t code : map)
        text += (text.empty() ? "" : separator) + speaker_name(code);
    return text;
}

ChannelMap parse_map(const std::string& text) {
    ChannelMap map;
    std::stringstream names(text);
    for (std::string name; std::getline(names, name, ',');)
        map.push_back(parse_speaker(name));
    return map;
}

ChannelMap with_pairs_settled(ChannelMap map) {
    const bool sides = contains(map, 4) || contains(map, 5), top_backs = contains(map, 37) || contains(map, 38);
    for (uint32_t& code : map) {
        if (!sides && (code == 8 || code == 9))
            code -= 4; // back to surround
        if (!top_backs && (code == 35 || code == 36))
            code -= 10; // top front to top middle, the pair of a .2 layout
    }
    return map;
}

void throw_speaker_missing(size_t channel, size_t channels) {
    throw Error(Status::layout, format_text("the file's channel layout leaves channel %zu without a speaker that the "
                                            "module knows; name all %zu channels with --map",
                                            channel + 1, channels));
}

ChannelMap map_of_bits(const std::vector<int>& bits) {
    ChannelMap map;
    for (int bit : bits) {
        map.push_back(speaker_of_mask_bit(bit));
        if (map.back() == 0)
            throw_speaker_missing(map.size() - 1, bits.size());
    }
    return map;
}

uint32_t speaker_of_mask_bit(int bit) {
    korla_layout layout{};
    const bool known = bit >= 0 && bit < 32 && !korla_layout_from_wave_mask(1u << bit, &layout, nullptr, 0);
    return known ? layout.speakers[0] : 0;
}

std::vector<int> bits_of_mask(uint32_t mask, size_t channels) {
    std::vector<int> bits;
    for (int bit = 0; bit < 32 && bits.size() < channels; bit++)
        if (mask >> bit & 1)
            bits.push_back(bit);
    bits.resize(channels, -1);
    return bits;
}

std::vector<size_t> canonical_order(const ChannelMap& map) {
    // Rank in the table; the second channel of one speaker goes behind all first ones.
    std::vector<size_t> rank;
    for (size_t c = 0; c < map.size(); c++) {
        const Speaker* speaker = find_speaker(map[c]);
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
    std::vector<uint32_t> bits;
    for (uint32_t code : map) {
        if ((code == 25 || code == 26) && !contains(map, code + 10)) {
            result.top_pair_renamed = true;
            code += 10;
        }
        bits.push_back(0);
        const korla_layout alone = {1, {code}};
        if (korla_layout_to_wave_mask(&alone, &bits.back(), nullptr, 0) != KORLA_OK)
            throw Error(Status::layout, "output files have no mark for speaker " + speaker_name(code));
        result.mask |= bits.back();
    }
    result.order.resize(map.size());
    std::iota(result.order.begin(), result.order.end(), size_t{0});
    std::stable_sort(result.order.begin(), result.order.end(), [&](size_t a, size_t b) { return bits[a] < bits[b]; });
    return result;
}

std::optional<uint32_t> parse_layout(const std::string& text) {
    const std::string name = in_upper_case(text);
    if (name == "AUTO")
        return std::nullopt;
    if (name == "STEREO")
        return 0;
    for (uint32_t i = 0; i < layout_count; i++)
        if (name == layout_names[i] || name == std::to_string(i))
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
