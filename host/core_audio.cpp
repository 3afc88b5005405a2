// Reading and writing Core Audio's layout chunk.
#include "core_audio.h"

#include <algorithm>
#include <cstring>
#include <vector>

#include "error.h"
#include "text.h"

namespace host {
namespace {

// A Core Audio 'chan' chunk begins with a tag: two special ones, else a layout's number and its channel count.
constexpr uint32_t by_descriptions = 0, by_bitmap = 1u << 16;
constexpr uint32_t discrete_layout = 147, unknown_layout = 0xffff;
constexpr uint32_t first_recent_layout = 180; // which many readers do not know

constexpr struct {
    uint32_t number;
    const char* order;
} core_audio_layouts[] = {
    {100, "FC"},
    {101, "FL,FR"},
    {108, "FL,FR,SL,SR"},
    {109, "FL,FR,SL,SR,FC"},
    {110, "FL,FR,SL,SR,FC,BC"},
    {111, "FL,FR,BL,BR,FC,BC,SL,SR"},
    {113, "FL,FR,FC"},
    {114, "FC,FL,FR"},
    {115, "FL,FR,FC,BC"},
    {116, "FC,FL,FR,BC"},
    {117, "FL,FR,FC,SL,SR"},
    {118, "FL,FR,SL,SR,FC"},
    {119, "FL,FC,FR,SL,SR"},
    {120, "FC,FL,FR,SL,SR"},
    {121, "FL,FR,FC,LFE,SL,SR"},
    {122, "FL,FR,SL,SR,FC,LFE"},
    {123, "FL,FC,FR,SL,SR,LFE"},
    {124, "FC,FL,FR,SL,SR,LFE"},
    {125, "FL,FR,FC,LFE,SL,SR,BC"},
    {126, "FL,FR,FC,LFE,SL,SR,FLC,FRC"},
    {127, "FC,FLC,FRC,FL,FR,SL,SR,LFE"},
    {128, "FL,FR,FC,LFE,SL,SR,BL,BR"},
    {129, "FL,FR,SL,SR,FC,LFE,FLC,FRC"},
    {131, "FL,FR,BC"},
    {132, "FL,FR,SL,SR"},
    {133, "FL,FR,LFE"},
    {134, "FL,FR,LFE,BC"},
    {135, "FL,FR,LFE,SL,SR"},
    {136, "FL,FR,FC,LFE"},
    {137, "FL,FR,FC,LFE,BC"},
    {138, "FL,FR,SL,SR,LFE"},
    {139, "FL,FR,SL,SR,FC,BC"},
    {140, "FL,FR,SL,SR,FC,BL,BR"},
    {141, "FC,FL,FR,SL,SR,BC"},
    {142, "FC,FL,FR,SL,SR,BC,LFE"},
    {143, "FC,FL,FR,SL,SR,BL,BR"},
    {144, "FC,FL,FR,SL,SR,BL,BR,BC"},
    {183, "FC,FL,FR,SL,SR,BL,BR,LFE"},
    {188, "FL,FR,FC,LFE,BC,SL,SR"},
    {189, "FL,FR,FC,LFE,BL,BR,SL,SR"},
    {192, "FL,FR,FC,LFE,SL,SR,BL,BR,TFL,TFR,TBL,TBR"},
    {194, "FL,FR,FC,LFE,SL,SR,TSL,TSR"},
    {195, "FL,FR,FC,LFE,SL,SR,TFL,TFR,TBL,TBR"},
    {196, "FL,FR,FC,LFE,SL,SR,BL,BR,TSL,TSR"},
};

// A big-endian number of a chunk, 0 behind its end.
uint32_t word(const std::vector<unsigned char>& chunk, size_t index) {
    uint32_t value = 0;
    for (size_t i = 4 * index; i < 4 * index + 4; i++)
        value = value << 8 | (i < chunk.size() ? chunk[i] : 0u);
    return value;
}

std::vector<unsigned char> chunk_of(SNDFILE* file, const char* name) {
    std::vector<unsigned char> data;
    SF_CHUNK_INFO chunk{};
    std::memcpy(chunk.id, name, 4);
    chunk.id_size = 4;
    const SF_CHUNK_ITERATOR* found = sf_get_chunk_iterator(file, &chunk);
    if (found && sf_get_chunk_size(found, &chunk) == SF_ERR_NO_ERROR && chunk.datalen < 4096) {
        data.resize(chunk.datalen);
        chunk.data = data.data();
        sf_get_chunk_data(found, &chunk);
    }
    return data;
}

// Core Audio's labels 1 to 18 are the mask bits, except that beside rear surrounds (33, 34) the surrounds (5, 6) stand
// at the sides.
uint32_t code_of_label(uint32_t label, bool rear_surrounds) {
    static constexpr struct {
        uint32_t label, code;
    } others[] = {{33, 8}, {34, 9}, {35, 31}, {36, 32}, {42, 3}, {49, 25}, {51, 26}, {52, 37}, {54, 38}};
    for (const auto& other : others)
        if (label == other.label)
            return other.code;
    const uint32_t code = label >= 1 && label <= 18 ? speaker_of_mask_bit(static_cast<int>(label) - 1) : 0;
    return rear_surrounds && (code == 8 || code == 9) ? code - 4 : code;
}

// The descriptions of a 'chan' chunk: 20 bytes a channel, which begin with its label.
ChannelMap described_speakers(const std::vector<unsigned char>& chunk, size_t channels) {
    std::vector<uint32_t> labels;
    for (size_t c = 0; c < channels; c++)
        labels.push_back(word(chunk, 3 + 5 * c));
    const bool rear_surrounds = std::count(labels.begin(), labels.end(), 33u) > 0;
    ChannelMap map;
    for (uint32_t label : labels) {
        map.push_back(code_of_label(label, rear_surrounds));
        if (map.back() == 0)
            throw_speaker_missing(map.size() - 1, channels);
    }
    return map;
}

} // namespace

std::optional<ChannelMap> core_audio_speakers(SNDFILE* file, const char* chunk_name, size_t channels) {
    const auto chunk = chunk_of(file, chunk_name);
    if (chunk.size() < 12)
        return std::nullopt;
    const uint32_t tag = word(chunk, 0);
    if (tag == by_bitmap)
        return map_of_bits(bits_of_mask(word(chunk, 1), channels));
    if (tag == by_descriptions)
        return described_speakers(chunk, channels);
    if (tag >> 16 == discrete_layout || tag >> 16 == unknown_layout)
        return std::nullopt;
    for (const auto& layout : core_audio_layouts)
        if (tag >> 16 == layout.number) {
            const ChannelMap map = parse_map(layout.order);
            if (map.size() == channels)
                return map;
        }
    throw Error(Status::layout, format_text("the file's channel layout (Core Audio's number %u) is not one that the "
                                            "module can serve; name its %zu channels with --map",
                                            tag >> 16, channels));
}

bool mark_core_audio(SNDFILE* file, uint32_t mask, size_t channels) {
    const std::string order = speaker_names(map_of_bits(bits_of_mask(mask, channels)), ",");
    const auto* known = std::find_if(std::begin(core_audio_layouts), std::end(core_audio_layouts), [&](auto& layout) {
        return layout.number < first_recent_layout && order == layout.order;
    });
    const bool by_number = known != std::end(core_audio_layouts);
    const uint32_t tag = by_number ? known->number << 16 | static_cast<uint32_t>(channels) : by_bitmap;
    const uint32_t words[3] = {tag, by_number ? 0 : mask, 0}; // no descriptions
    unsigned char data[sizeof words];
    for (size_t i = 0; i < sizeof data; i++)
        data[i] = static_cast<unsigned char>(words[i / 4] >> (24 - 8 * (i % 4)));
    SF_CHUNK_INFO chunk{};
    std::memcpy(chunk.id, "chan", 4);
    chunk.id_size = 4;
    chunk.datalen = sizeof data;
    chunk.data = data;
    return sf_set_chunk(file, &chunk) == SF_ERR_NO_ERROR;
}

} // namespace host
