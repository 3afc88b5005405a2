// The module's matrix of a pair of layouts.
#pragma once

#include "stream/matrix.h"

namespace korla::stream {

// Fills in the gains and returns true when the module has a matrix for exactly these sets of speakers.
bool module_matrix(const korla_layout& in, const korla_layout& out, Downmix& downmix);

} // namespace korla::stream
