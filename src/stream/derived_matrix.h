// The matrix of a pair of layouts by rule, for pairs that the module has none for.
#pragma once

#include "korla/speakers.h"

namespace korla::stream {

// The gains of one input speaker into the speakers of a layout, linear, 1 keeps a level: gains[out.count]. All zero only
// when the layout has no speaker but the LFE. The LFE's gains are those of the path that it takes when asked to.
void derive_column(uint32_t speaker, const korla_layout& out, double* gains);

} // namespace korla::stream
