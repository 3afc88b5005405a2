// Speakers, channel orders and layouts as this host knows them.
//
// Three orders of the same channels meet here: the order in the input file, the canonical order in which the module's
// matrices expect the samples of a frame, and the order that the output file's channel mask demands.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace host {

// Host channel codes of the module interface, one a channel.
using ChannelMap = std::vector<uint32_t>;

// "FL"; a code without a name is shown as a number.
std::string speaker_name(uint32_t code);
// "FL FR FC"
std::string speaker_names(const ChannelMap& map);

// Reads "FL,FR,FC" (also numeric codes). Throws Error for unknown names, empty slots and codes that are no speaker.
ChannelMap parse_map(const std::string& text);

// What a file without speaker positions most likely holds, in file order; empty when there is no custom for that count.
ChannelMap default_map(size_t channels);

// Translates libsndfile's SF_CHANNEL_MAP_* (which stand for WAVE_FORMAT_EXTENSIBLE mask bits). A lone pair of back
// speakers is the surround pair, a lone top pair is the middle one. Throws Error for a position that is no speaker
// here.
ChannelMap map_from_positions(const std::vector<int>& positions);

// order[c]: which channel of `map` stands at place c of the module's canonical order.
std::vector<size_t> canonical_order(const ChannelMap& map);

struct FileOrder {
    std::vector<size_t> order;  // order[c]: which channel of the map is channel c of the file
    std::vector<int> positions; // SF_CHANNEL_MAP_* of the file's channels
    uint32_t mask;              // WAVE_FORMAT_EXTENSIBLE
    bool top_pair_renamed;      // the top middle pair, for which masks have no bit, is marked as top front
};
// The order in which files hold the channels of an output map: that of the mask bits.
FileOrder file_order(const ChannelMap& map);

template <class T> std::vector<T> reordered(const std::vector<T>& values, const std::vector<size_t>& order) {
    std::vector<T> result;
    for (size_t source : order)
        result.push_back(values[source]);
    return result;
}

// Output layouts of the module by index: "5.1" is main channels and LFE, "5.1.4" has four height channels.
inline constexpr uint32_t layout_count = 32;
const char* layout_name(uint32_t index);
// Reads "auto" (nothing), "stereo", "5.1", "7.1.4", ... or an index. Throws Error.
std::optional<uint32_t> parse_layout(const std::string& text);

// Every speaker set that can be put together from these pairs and single speakers, in canonical order.
std::vector<ChannelMap> candidate_inputs();

} // namespace host
