// The media format: from host channel codes to engine codes, an output layout and a matrix.
#include <cstring>
#include <iterator>

#include "module/channel_codes.h"
#include "module/custom_matrices.h"
#include "module/instance.h"

namespace korla::module {
namespace {

// Channels by group. The LFE counts once however often it occurs; codes above the height group are not counted.
struct ChannelCounts {
    uint32_t main, height, lfe;
    uint32_t total() const { return main + height + lfe; }
};

ChannelCounts classify_channels(const uint8_t* codes) {
    ChannelCounts counts{};
    for (int i = 0; i < ACLI_MAX_CHANNELS; i++) {
        if (codes[i] == 3)
            counts.lfe = 1;
        else if (codes[i] <= 24)
            counts.main++;
        else if (codes[i] <= 36)
            counts.height++;
    }
    return counts;
}

uint32_t mask_of(const uint8_t* codes) {
    uint32_t mask = 0;
    for (int i = 0; i < ACLI_MAX_CHANNELS; i++)
        for (size_t bit = 0; bit < std::size(layout_bits); bit++)
            if (codes[i] != empty_slot &&
                (codes[i] == layout_bits[bit].codes[0] || codes[i] == layout_bits[bit].codes[1]))
                mask |= 1u << bit;
    return mask;
}

// The engine codes of a layout mask in listing order; returns their number.
uint32_t list_channels(uint32_t mask, uint8_t* codes) {
    uint32_t count = 0;
    for (int bit = 0; bit < listed_bits; bit++)
        if (mask >> bit & 1)
            for (uint8_t code : layout_bits[bit].codes)
                if (code != empty_slot)
                    codes[count++] = code;
    return count;
}

// The layout that a built-in mode with `outputs` rows fills; 0 where the rows have no listing. False: no such mode.
bool automatic_layout(uint32_t outputs, uint32_t input_heights, uint32_t& mask) {
    switch (outputs) {
    case 2: mask = mask_stereo; return true;
    case 6: mask = mask_5_1; return true;
    case 8: mask = input_heights == 2 ? mask_5_1_2 : input_heights <= 1 ? mask_7_1 : 0; return true;
    case 10: mask = input_heights == 2 ? mask_7_1_2 : input_heights == 4 ? mask_5_1_4 : 0; return true;
    case 12: mask = mask_7_1_4; return true;
    default: return false;
    }
}

// The matrix must have one column per channel of the map, so none is chosen where the class counts fewer.
const float* explicit_matrix(const uint8_t* codes, uint32_t channels, uint32_t output_mask) {
    if (classify_channels(codes).total() != channels)
        return nullptr;
    return custom_matrix(channels, mask_of(codes), output_mask);
}

bool translate_map(const uint32_t* host_map, uint8_t* engine_codes) {
    for (int i = 0; i < ACLI_MAX_CHANNELS; i++)
        if (host_map[i] >= host_code_count)
            return false;
    for (int i = 0; i < ACLI_MAX_CHANNELS; i++)
        engine_codes[i] = engine_code_of_host[host_map[i]];
    return true;
}

} // namespace

bool parse_media_format(Instance& instance, acli_media_format& block) {
    // Values outside the code tables leave everything but the report of the refusal alone.
    const bool index_is_known = block.layout_index < std::size(output_layouts);
    if (block.explicit_layout && !index_is_known) {
        block.output_channel_count = 0;
        return false;
    }
    uint8_t codes[ACLI_MAX_CHANNELS];
    if (!translate_map(block.input_channel_map, codes)) {
        block.output_channel_count = 0;
        return false;
    }
    block.output_layout_mask = index_is_known ? output_layouts[block.layout_index] : 0;
    std::memcpy(instance.engine_codes, codes, sizeof codes); // also when the block is refused below

    uint8_t outputs[ACLI_MAX_CHANNELS];
    uint32_t output_mask;
    const uint32_t channels = downmixer::speakers_of(codes).count;
    const float* matrix = nullptr;
    if (block.explicit_layout) {
        output_mask = block.output_layout_mask;
        block.output_channel_count = list_channels(output_mask, outputs);
        matrix = explicit_matrix(codes, channels, output_mask);
    } else {
        if (korvex_downmixer_get_num_of_out_channels(codes, &block.output_channel_count) != 0)
            return false;
        if (!automatic_layout(block.output_channel_count, classify_channels(codes).height, output_mask))
            return false;
    }

    const uint32_t listed = list_channels(output_mask, outputs);
    std::memset(block.output_channel_map, 0, sizeof block.output_channel_map);
    for (uint32_t i = 0; i < block.output_channel_count && i < listed; i++)
        block.output_channel_map[i] = host_code_of_engine(outputs[i]);

    const bool same_map =
        std::memcmp(block.input_channel_map, block.output_channel_map, sizeof block.input_channel_map) == 0;
    instance.pass_through = same_map || (block.explicit_layout && !matrix);
    instance.custom_matrix = matrix;
    instance.matrix_columns = matrix ? static_cast<uint8_t>(channels) : uint8_t{0};
    instance.format = block;
    instance.engine_ready = 0;
    return true;
}

} // namespace korla::module
