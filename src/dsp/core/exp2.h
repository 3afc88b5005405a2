// Exact powers of two, made in the exponent field.
#pragma once

#include "dsp/core/lanes.h"

namespace krl {

// 2^e for -126 <= e <= 127. The wrapping arithmetic keeps exponents outside the range harmless: some float, no trap.
KRL_INLINE float exp2_int(int32_t e) { return bit_cast<float>((static_cast<uint32_t>(e) + 127u) << 23); }

} // namespace krl
