// The choice of a matrix and the gains of the controls.
#include "stream/matrix.h"

#include <cmath>

#include "downmixer/gains.h"
#include "stream/derived_matrix.h"
#include "stream/module_matrix.h"
#include "stream/speakers.h"

namespace korla::stream {
namespace {

// The input channels in the order of the speaker table.
void order_columns(const korla_layout& in, Downmix& downmix) {
    for (uint32_t i = 0; i < in.count; i++) {
        uint32_t column = 0;
        for (uint32_t j = 0; j < in.count; j++)
            column += rank_of(in.speakers[j]) < rank_of(in.speakers[i]);
        downmix.channel[column] = static_cast<uint8_t>(i);
        downmix.group[column] = static_cast<uint8_t>(find(in.speakers[i])->group);
    }
}

bool is_lfe(const Downmix& downmix, uint32_t column) {
    return downmix.group[column] == static_cast<uint8_t>(Group::lfe);
}

bool column_is_zero(const Downmix& downmix, uint32_t column) {
    for (uint32_t o = 0; o < downmix.outputs; o++)
        if (downmix.gains.of[o][column] != 0.0f)
            return false;
    return true;
}

korla_status take_given(const float* given, Downmix& downmix, const Reason& reason) {
    for (uint32_t o = 0; o < downmix.outputs; o++)
        for (uint32_t c = 0; c < downmix.inputs; c++) {
            const uint32_t i = downmix.channel[c];
            const float gain = given[o * downmix.inputs + i];
            if (!std::isfinite(gain))
                return reason.give(KORLA_BAD_MATRIX, "the gain of row %u, column %u is not finite", o + 1, i + 1);
            downmix.gains.of[o][c] = gain * gain_minus_8_db;
        }
    downmix.source = KORLA_MATRIX_GIVEN;
    return KORLA_OK;
}

void derive(const korla_layout& in, const korla_layout& out, uint32_t column, Downmix& downmix) {
    double gains[KORLA_MAX_SPEAKERS];
    derive_column(in.speakers[downmix.channel[column]], out, gains);
    for (uint32_t o = 0; o < downmix.outputs; o++)
        downmix.gains.of[o][column] = static_cast<float>(gains[o] * gain_minus_8_db);
}

} // namespace

float linear_of_db(float db) { return db == 0.0f ? 1.0f : std::pow(10.0f, db / 20.0f); }

korla_status choose_downmix(const korla_layout& in, const korla_layout& out, const float* given, Downmix& downmix,
                            const Reason& reason) {
    downmix = {};
    downmix.inputs = in.count;
    downmix.outputs = out.count;
    order_columns(in, downmix);
    if (given)
        return take_given(given, downmix, reason);

    const bool module_has_one = module_matrix(in, out, downmix);
    downmix.source = module_has_one ? KORLA_MATRIX_MODULE : KORLA_MATRIX_DERIVED;
    for (uint32_t c = 0; c < downmix.inputs; c++) {
        // The module drops the LFE where the output has none; its way is there for those who ask.
        const bool folds = is_lfe(downmix, c) && !contains(out, downmixer::LFE) && column_is_zero(downmix, c);
        if (!module_has_one || folds)
            derive(in, out, c, downmix);
        downmix.lfe_is_folded |= folds;
        if (!is_lfe(downmix, c) && column_is_zero(downmix, c))
            return reason.give(KORLA_BAD_MATRIX, "nothing but the LFE stands in the output: %s has nowhere to go",
                               find(in.speakers[downmix.channel[c]])->name);
    }
    return KORLA_OK;
}

Controls default_controls(const Downmix& downmix) {
    Controls controls{};
    if (downmix.lfe_is_folded)
        controls.value[KORLA_LFE_DB] = -INFINITY;
    controls.value[KORLA_LIMITER] = 1.0f;
    return controls;
}

void apply_controls(Gains& result, const Downmix& downmix, const Controls& controls) {
    const float overall = linear_of_db(controls.value[KORLA_GAIN_DB]);
    auto gain_of = [&](uint8_t group) {
        switch (static_cast<Group>(group)) {
        case Group::dialogue: return overall * linear_of_db(controls.value[KORLA_DIALOGUE_DB]);
        case Group::surround: return overall * linear_of_db(controls.value[KORLA_SURROUND_DB]);
        case Group::height: return overall * linear_of_db(controls.value[KORLA_HEIGHT_DB]);
        case Group::lfe: return overall * linear_of_db(controls.value[KORLA_LFE_DB]);
        default: return overall;
        }
    };
    for (uint32_t c = 0; c < downmix.inputs; c++) {
        const float gain = gain_of(downmix.group[c]);
        for (uint32_t o = 0; o < downmix.outputs; o++)
            result.of[o][c] = downmix.gains.of[o][c] * gain;
    }
}

void show_gains(float* result, const Downmix& downmix, const Gains& gains) {
    for (uint32_t o = 0; o < downmix.outputs; o++)
        for (uint32_t c = 0; c < downmix.inputs; c++)
            result[o * downmix.inputs + downmix.channel[c]] =
                static_cast<float>(static_cast<double>(gains.of[o][c]) / gain_minus_8_db);
}

} // namespace korla::stream

using namespace korla::stream;

korla_status korla_layout_matrix(const korla_layout* in, const korla_layout* out, float* gains, uint32_t* source,
                                 char* reason_text, size_t reason_bytes) {
    const Reason reason(reason_text, reason_bytes);
    if (!in || !out || !gains)
        return reason.give(KORLA_BAD_ARGUMENT, "a null pointer");
    if (const korla_status status = check(*in, "input", reason); status != KORLA_OK)
        return status;
    if (const korla_status status = check(*out, "output", reason); status != KORLA_OK)
        return status;
    Downmix downmix;
    if (const korla_status status = choose_downmix(*in, *out, nullptr, downmix, reason); status != KORLA_OK)
        return status;
    Gains applied;
    apply_controls(applied, downmix, default_controls(downmix));
    show_gains(gains, downmix, applied);
    if (source)
        *source = downmix.source;
    return KORLA_OK;
}
