// FIR filters as plain loops, compiled with everything the compiler may do (-O3, reordered and fused sums).
#pragma once

#include <cstddef>

namespace korla_bench {

// z holds taps - 1 old inputs and then a block; moves them on by a block afterwards, as a filter has to.
void plain_fir_by_outputs(float* y, float* z, const float* x, const float* h, size_t taps);
void plain_fir_by_taps(float* y, float* z, const float* x, const float* h, size_t taps);
void plain_fir_by_taps_for_eight(float* y, float* z, const float* x, const float* h, size_t taps);

} // namespace korla_bench
