// Speaker marks of audio files, as libsndfile knows them.
#include "file_speakers.h"

#include <algorithm>

namespace host {
namespace {

// libsndfile's names of the bits of a WAVE_FORMAT_EXTENSIBLE mask.
constexpr int positions_by_bit[] = {SF_CHANNEL_MAP_LEFT,
                                    SF_CHANNEL_MAP_RIGHT,
                                    SF_CHANNEL_MAP_CENTER,
                                    SF_CHANNEL_MAP_LFE,
                                    SF_CHANNEL_MAP_REAR_LEFT,
                                    SF_CHANNEL_MAP_REAR_RIGHT,
                                    SF_CHANNEL_MAP_FRONT_LEFT_OF_CENTER,
                                    SF_CHANNEL_MAP_FRONT_RIGHT_OF_CENTER,
                                    SF_CHANNEL_MAP_REAR_CENTER,
                                    SF_CHANNEL_MAP_SIDE_LEFT,
                                    SF_CHANNEL_MAP_SIDE_RIGHT,
                                    SF_CHANNEL_MAP_TOP_CENTER,
                                    SF_CHANNEL_MAP_TOP_FRONT_LEFT,
                                    SF_CHANNEL_MAP_TOP_FRONT_CENTER,
                                    SF_CHANNEL_MAP_TOP_FRONT_RIGHT,
                                    SF_CHANNEL_MAP_TOP_REAR_LEFT,
                                    SF_CHANNEL_MAP_TOP_REAR_CENTER,
                                    SF_CHANNEL_MAP_TOP_REAR_RIGHT};
constexpr int mask_bits = std::size(positions_by_bit);

int bit_of_position(int position) {
    switch (position) {
    case SF_CHANNEL_MAP_MONO:
    case SF_CHANNEL_MAP_FRONT_CENTER: position = SF_CHANNEL_MAP_CENTER; break;
    case SF_CHANNEL_MAP_FRONT_LEFT: position = SF_CHANNEL_MAP_LEFT; break;
    case SF_CHANNEL_MAP_FRONT_RIGHT: position = SF_CHANNEL_MAP_RIGHT; break;
    default: break;
    }
    const auto* found = std::find(std::begin(positions_by_bit), std::end(positions_by_bit), position);
    return found == std::end(positions_by_bit) ? -1 : static_cast<int>(found - positions_by_bit);
}

std::optional<ChannelMap> wave_speakers(SNDFILE* file, size_t channels) {
    std::vector<int> positions(channels);
    if (!sf_command(file, SFC_GET_CHANNEL_MAP_INFO, positions.data(), static_cast<int>(channels * sizeof(int))))
        return std::nullopt;
    std::transform(positions.begin(), positions.end(), positions.begin(), bit_of_position);
    return map_of_bits(positions);
}

} // namespace

std::optional<ChannelMap> file_speakers(SNDFILE* file, const SF_INFO& info, const std::string&) {
    return wave_speakers(file, static_cast<size_t>(info.channels));
}

ChannelMap customary_speakers(size_t channels) {
    return channels < std::size(wave_orders) ? parse_map(wave_orders[channels]) : ChannelMap{};
}

bool mark_speakers(SNDFILE* file, const SF_INFO& info, uint32_t mask) {
    const auto channels = static_cast<size_t>(info.channels);
    std::vector<int> positions;
    for (int bit : bits_of_mask(mask, channels))
        positions.push_back(bit >= 0 && bit < mask_bits ? positions_by_bit[bit] : SF_CHANNEL_MAP_INVALID);
    return sf_command(file, SFC_SET_CHANNEL_MAP_INFO, positions.data(),
                      static_cast<int>(positions.size() * sizeof(int))) != SF_FALSE;
}

bool finish_marks(const SF_INFO&, uint32_t, const std::string&) { return true; }

} // namespace host
