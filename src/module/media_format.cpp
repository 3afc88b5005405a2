// The media format: from host channel codes to engine codes, an output layout and a matrix.
#include <algorithm>
#include <cstring>
#include <iterator>

#include "downmixer/matrices.h"
#include "module/instance.h"

namespace korla::module {
namespace {

using namespace downmixer;

static_assert(map_length == ACLI_MAX_CHANNELS);

// False: a host code outside the table.
bool translate_map(const uint32_t* host_map, uint8_t* engine_codes) {
    for (int i = 0; i < map_length; i++) {
        if (host_map[i] >= std::size(speaker_of_host_code))
            return false;
        engine_codes[i] = speaker_of_host_code[host_map[i]];
    }
    return true;
}

} // namespace

bool parse_media_format(Instance& instance, acli_media_format& block) {
    // Values outside the code tables leave everything but the report of the refusal alone.
    const bool index_is_known = block.layout_index < std::size(output_layouts);
    uint8_t codes[map_length];
    if ((block.explicit_layout && !index_is_known) || !translate_map(block.input_channel_map, codes)) {
        block.output_channel_count = 0;
        return false;
    }
    const SpeakerSet indexed = index_is_known ? speakers_in(output_layouts[block.layout_index]) : SpeakerSet{};
    block.output_layout_mask = layout_mask_of(indexed);      // in automatic mode too
    std::memcpy(instance.engine_codes, codes, sizeof codes); // also when the block is refused below

    SpeakerSet outputs;
    LayoutMatrix matrix;
    if (block.explicit_layout) {
        outputs = indexed;
        block.output_channel_count = outputs.count();
        matrix = explicit_matrix(explicit_input(codes), outputs);
    } else {
        if (korvex_downmixer_get_num_of_out_channels(codes, &block.output_channel_count) != 0)
            return false;
        outputs = automatic_outputs(block.output_channel_count, std::count_if(codes, std::end(codes), is_height));
    }

    std::memset(block.output_channel_map, 0, sizeof block.output_channel_map);
    std::ranges::transform(SpeakerList(outputs), block.output_channel_map, host_code_of);

    const bool same_map =
        std::memcmp(block.input_channel_map, block.output_channel_map, sizeof block.input_channel_map) == 0;
    instance.pass_through = same_map || (block.explicit_layout && !matrix.gains);
    instance.custom_matrix = matrix.gains;
    instance.matrix_columns = static_cast<uint8_t>(matrix.inputs.count());
    instance.format = block;
    instance.engine_ready = 0;
    return true;
}

} // namespace korla::module
