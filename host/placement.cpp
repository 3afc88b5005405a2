// Finding the speakers that a matrix loses or moves to another side.
#include "placement.h"

#include <cmath>

namespace host {
namespace {

// The power of one input channel in what comes out of it.
struct Power {
    double left = 0.0, right = 0.0, main = 0.0, lfe = 0.0;
};

Power power_of(size_t input, const Matrix& matrix) {
    const ChannelMap& outputs = matrix.outputs;
    Power power;
    for (size_t o = 0; o < outputs.size(); o++) {
        const double p = matrix.gain[o][input] * matrix.gain[o][input];
        const Speaker* speaker = find_speaker(outputs[o]);
        (outputs[o] == lfe_code ? power.lfe : power.main) += p;
        if (speaker && speaker->side != Side::centre)
            (speaker->side == Side::left ? power.left : power.right) += p;
    }
    return power;
}

bool on_wrong_side(const Speaker& speaker, const Power& power) {
    constexpr double tolerance = 1.01;
    const bool more_left = power.left > tolerance * power.right, more_right = power.right > tolerance * power.left;
    switch (speaker.side) {
    case Side::left: return more_right;
    case Side::right: return more_left;
    default: return more_left || more_right;
    }
}

} // namespace

Placement placement(const Matrix& matrix) {
    const ChannelMap &inputs = matrix.inputs, &outputs = matrix.outputs;
    Placement result;
    for (size_t c = 0; c < inputs.size(); c++) {
        const bool is_lfe = inputs[c] == lfe_code;
        const Power power = power_of(c, matrix);
        if (power.main + power.lfe == 0.0) {
            if (!is_lfe)
                result.lost.push_back(inputs[c]);
            continue;
        }
        const Speaker* speaker = find_speaker(inputs[c]);
        if ((is_lfe || power.main > 0.0) && !(speaker && on_wrong_side(*speaker, power)))
            continue;
        result.moved.push_back({inputs[c], {}});
        for (size_t o = 0; o < outputs.size(); o++)
            if (matrix.gain[o][c] != 0.0)
                result.moved.back().heard_from.push_back(outputs[o]);
    }
    return result;
}

} // namespace host
