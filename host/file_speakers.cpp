// Speaker marks of audio files: what libsndfile knows of WAVE files, FLAC's tag, and the order of Vorbis.
#include "file_speakers.h"

#include <FLAC/metadata.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <memory>

#include "audio_formats.h"
#include "core_audio.h"
#include "error.h"
#include "text.h"

namespace host {
namespace {

constexpr char flac_tag[] = "WAVEFORMATEXTENSIBLE_CHANNEL_MASK";

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

[[noreturn]] void throw_ambisonics() {
    throw Error(Status::layout,
                "the file holds ambisonics, not speakers; decode it first, or name the channels with --map");
}

std::optional<ChannelMap> wave_speakers(SNDFILE* file, size_t channels) {
    if (sf_command(file, SFC_WAVEX_GET_AMBISONIC, nullptr, 0) == SF_AMBISONIC_B_FORMAT)
        throw_ambisonics();
    std::vector<int> positions(channels);
    if (!sf_command(file, SFC_GET_CHANNEL_MAP_INFO, positions.data(), static_cast<int>(channels * sizeof(int))))
        return std::nullopt;
    std::transform(positions.begin(), positions.end(), positions.begin(), bit_of_position);
    return map_of_bits(positions);
}

// Opus says in its header what its channels are: speakers (families 0 and 1), ambisonics (2 and 3) or nothing.
std::optional<ChannelMap> ogg_speakers(const std::string& path, size_t channels) {
    constexpr size_t opus_head = 28, family_at = opus_head + 18; // behind the header of the first page
    char head[family_at + 1] = {};
    std::ifstream(path, std::ios::binary).read(head, sizeof head);
    if (std::memcmp(head + opus_head, "OpusHead", 8) == 0) {
        const auto family = static_cast<unsigned char>(head[family_at]);
        if (family == 2 || family == 3)
            throw_ambisonics();
        if (family > 1)
            return std::nullopt;
    }
    if (channels >= std::size(vorbis_orders))
        return std::nullopt;
    return parse_map(vorbis_orders[channels]);
}

using FlacBlock = std::unique_ptr<FLAC__StreamMetadata, decltype(&FLAC__metadata_object_delete)>;
using FlacIterator = std::unique_ptr<FLAC__Metadata_SimpleIterator, decltype(&FLAC__metadata_simple_iterator_delete)>;

std::optional<ChannelMap> flac_speakers(const std::string& path, size_t channels) {
    FLAC__StreamMetadata* tags = nullptr;
    if (FLAC__metadata_get_tags(path.c_str(), &tags)) {
        const FlacBlock owner(tags, FLAC__metadata_object_delete);
        const int place = FLAC__metadata_object_vorbiscomment_find_entry_from(tags, 0, flac_tag);
        if (place >= 0) {
            const auto& entry = tags->data.vorbis_comment.comments[place];
            const std::string text(reinterpret_cast<const char*>(entry.entry), entry.length);
            const auto mask = static_cast<uint32_t>(std::strtoul(text.c_str() + sizeof flac_tag, nullptr, 0));
            if (mask == 0) // the channels are for no speakers in particular
                return std::nullopt;
            return map_of_bits(bits_of_mask(mask, channels));
        }
    }
    return customary_speakers(channels); // FLAC's own order
}

// Mono and stereo are what every reader takes one and two channels for.
bool needs_flac_tag(uint32_t mask) { return mask != 0x4 && mask != 0x3; }
std::string flac_entry(uint32_t mask) { return format_text("%s=0x%04X", flac_tag, mask); }

} // namespace

std::optional<ChannelMap> file_speakers(SNDFILE* file, const SF_INFO& info, const std::string& path) {
    const auto channels = static_cast<size_t>(info.channels);
    switch (container(info.format)) {
    case SF_FORMAT_OGG: return ogg_speakers(path, channels);
    case SF_FORMAT_FLAC: return flac_speakers(path, channels);
    case SF_FORMAT_CAF: return core_audio_speakers(file, "chan", channels);
    case SF_FORMAT_AIFF: return core_audio_speakers(file, "CHAN", channels);
    default: return wave_speakers(file, channels);
    }
}

ChannelMap customary_speakers(size_t channels) {
    return channels < std::size(wave_orders) ? parse_map(wave_orders[channels]) : ChannelMap{};
}

bool comment_is_taken(const SF_INFO& info, uint32_t mask) {
    return container(info.format) == SF_FORMAT_FLAC && needs_flac_tag(mask);
}

bool mark_speakers(SNDFILE* file, const SF_INFO& info, uint32_t mask) {
    const auto channels = static_cast<size_t>(info.channels);
    if (container(info.format) == SF_FORMAT_CAF)
        return mark_core_audio(file, mask, channels);
    if (container(info.format) == SF_FORMAT_FLAC) {
        // Keeps the place of the tag, which libsndfile cannot write: a comment of the same length.
        if (comment_is_taken(info, mask))
            sf_set_string(file, SF_STR_COMMENT, flac_entry(mask).c_str() + std::strlen("comment="));
        return true;
    }
    std::vector<int> positions;
    for (int bit : bits_of_mask(mask, channels))
        positions.push_back(bit >= 0 && bit < mask_bits ? positions_by_bit[bit] : SF_CHANNEL_MAP_INVALID);
    return sf_command(file, SFC_SET_CHANNEL_MAP_INFO, positions.data(),
                      static_cast<int>(positions.size() * sizeof(int))) != SF_FALSE;
}

bool finish_marks(const SF_INFO& info, uint32_t mask, const std::string& path) {
    if (!comment_is_taken(info, mask))
        return true;
    const FlacIterator blocks(FLAC__metadata_simple_iterator_new(), FLAC__metadata_simple_iterator_delete);
    if (!blocks || !FLAC__metadata_simple_iterator_init(blocks.get(), path.c_str(), false, false))
        return false;
    while (FLAC__metadata_simple_iterator_get_block_type(blocks.get()) != FLAC__METADATA_TYPE_VORBIS_COMMENT)
        if (!FLAC__metadata_simple_iterator_next(blocks.get()))
            return false;
    const FlacBlock tags(FLAC__metadata_simple_iterator_get_block(blocks.get()), FLAC__metadata_object_delete);
    std::string text = flac_entry(mask);
    FLAC__StreamMetadata_VorbisComment_Entry entry{};
    entry.length = static_cast<FLAC__uint32>(text.size());
    entry.entry = reinterpret_cast<FLAC__byte*>(text.data());
    return tags && tags->data.vorbis_comment.num_comments > 0 &&
           FLAC__metadata_object_vorbiscomment_set_comment(tags.get(), 0, entry, true) &&
           FLAC__metadata_simple_iterator_set_block(blocks.get(), tags.get(), true);
}

} // namespace host
