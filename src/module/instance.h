// The record behind a host's handle.
#pragma once

#include <cstddef>
#include <cstdint>

#include "korla/acli.h"
#include "korla/downmixer.h"

namespace korla::module {

struct Instance {
    korvex_downmixer_state* engine;          // inside engine_memory; null until initialised
    const float* custom_matrix;              // chosen with an explicit layout, else null: the engine's built-in mode
    void* engine_memory;                     // owned
    uint8_t engine_ready;                    // for the current configuration
    uint8_t pass_through;                    // frames are copied, no engine is involved
    uint8_t engine_codes[ACLI_MAX_CHANNELS]; // of the last block, even a refused one
    uint8_t matrix_columns;                  // of custom_matrix; stands in what would be padding
    void* input_channels[ACLI_MAX_CHANNELS]; // the channel pointers of the current chunk
    void* output_channels[ACLI_MAX_CHANNELS];
    acli_media_format format; // as last applied
};
static_assert(sizeof(Instance) == 6472 && offsetof(Instance, format) + sizeof(acli_media_format) == 6472);
static_assert(offsetof(Instance, engine_codes) == 26 && offsetof(Instance, input_channels) == 288);

// Reads a media format into an instance and fills in the block's output fields. False: refused.
bool parse_media_format(Instance& instance, acli_media_format& block);

// Mixes or copies one buffer. False: failed.
bool process(Instance& instance, const acli_buffer& in, acli_buffer& out);

} // namespace korla::module
