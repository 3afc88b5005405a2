// Which matrix a stream applies, and what the controls make of it.
#pragma once

#include <cstdint>

#include "korla/stream.h"
#include "stream/reason.h"

namespace korla::stream {

// Gains on the engine's scale, where -8 dB keeps a level: [output][column], KORLA_MAX_SPEAKERS a row.
struct Gains {
    float of[KORLA_MAX_SPEAKERS][KORLA_MAX_SPEAKERS];
};

// The matrix of a pair of layouts before any control. Columns stand in the module's canonical order, because products are
// added in column order and the module's sums are the reference; rows in the order of the output.
struct Downmix {
    uint32_t inputs, outputs;
    Gains gains;
    uint8_t channel[KORLA_MAX_SPEAKERS]; // of each column: the input channel
    uint8_t group[KORLA_MAX_SPEAKERS];   // of each column: its Group
    uint32_t source;                     // KORLA_MATRIX_*
    bool lfe_is_folded;                  // the LFE's path is taken only when a control asks for it
};

// Chooses: the caller's gains where given, else the module's matrix, else the derived one.
korla_status choose_downmix(const korla_layout& in, const korla_layout& out, const float* given, Downmix& downmix,
                            const Reason& reason);

// Exactly 1 for 0 dB.
float linear_of_db(float db);

// What the controls are before anybody sets them.
struct Controls {
    float value[KORLA_CONTROL_COUNT];
};
Controls default_controls(const Downmix& downmix);

// The matrix with the gains of the controls.
void apply_controls(Gains& result, const Downmix& downmix, const Controls& controls);

// As callers see it: linear, 1 keeps a level, columns in the order of the input.
void show_gains(float* result, const Downmix& downmix, const Gains& gains);

} // namespace korla::stream
