// The matrices for explicit output layouts.
#pragma once

#include <cstdint>

namespace korla::module {

// The matrix from an input class to an output layout, rows and columns in the order of the layout mask, or null.
//
// The class follows from the number of input channels (three to seven of them with or without centre or LFE, as the
// input layout mask says). Layouts with height channels have no matrix.
const float* custom_matrix(uint32_t input_channels, uint32_t input_mask, uint32_t output_mask);

} // namespace korla::module
