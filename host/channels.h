// Channel maps: read from text, named, and put in order.
//
// Three orders of the same channels meet in this host: the order in the input file, the canonical order in which the
// module's matrices expect the samples of a frame, and the order that the output file's channel mask demands.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "speakers.h"

namespace host {

// Host channel codes of the module interface, one a channel.
using ChannelMap = std::vector<uint32_t>;

// "FL"; a code without a name is shown as a number.
std::string speaker_name(uint32_t code);
// "FL FR FC"
std::string speaker_names(const ChannelMap& map, const char* separator = " ");

// Reads "FL,FR,FC" (also numeric codes). Throws Error for unknown names, empty slots and codes that are no speaker.
ChannelMap parse_map(const std::string& text);

// What the module takes a file's speakers for. Files know the surround pair by the name of backs or of sides, and have no
// mark for a top side pair: a lone pair of back speakers becomes the surround pair, a lone top pair the side one.
ChannelMap with_pairs_settled(ChannelMap map);

// Bits of a WAVE_FORMAT_EXTENSIBLE mask, one a channel; -1 where the mask has too few.
std::vector<int> bits_of_mask(uint32_t mask, size_t channels);
// The speaker of a bit, 0 for none.
uint32_t speaker_of_mask_bit(int bit);
// The speakers of such bits. Throws Error for a bit that is no speaker.
ChannelMap map_of_bits(const std::vector<int>& bits);
// For a file that leaves a channel nameless.
[[noreturn]] void throw_speaker_missing(size_t channel, size_t channels);

// order[c]: which channel of `map` stands at place c of the module's canonical order.
std::vector<size_t> canonical_order(const ChannelMap& map);

struct FileOrder {
    std::vector<size_t> order; // order[c]: which channel of the map is channel c of the file
    uint32_t mask;             // WAVE_FORMAT_EXTENSIBLE
    bool top_pair_renamed;     // the top middle pair, for which masks have no bit, is marked as top front
};
// The order in which files hold the channels of an output map: that of the mask bits.
FileOrder file_order(const ChannelMap& map);

template <class T> std::vector<T> reordered(const std::vector<T>& values, const std::vector<size_t>& order) {
    std::vector<T> result;
    result.reserve(order.size());
    for (size_t source : order)
        result.push_back(values[source]);
    return result;
}

// Reads "auto" (nothing), "stereo", "5.1", "7.1.4", ... in either case, or an index. Throws Error.
std::optional<uint32_t> parse_layout(const std::string& text);

// Every speaker set that can be put together from these pairs and single speakers, in canonical order.
std::vector<ChannelMap> candidate_inputs();

} // namespace host
