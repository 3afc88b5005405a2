// What the compiler makes of plain loops over one block, the peer of the block operations.
#include "block_plain.h"

#include <cstring>

namespace korla_bench {

void plain_fir_by_outputs(float* __restrict y, float* __restrict z, const float* x, const float* __restrict h,
                          size_t taps) {
    std::memcpy(z + taps - 1, x, 32 * sizeof(float));
    for (size_t n = 0; n < 32; n++) {
        float sum = 0.0f;
        for (size_t k = 0; k < taps; k++)
            sum += h[k] * z[taps - 1 + n - k];
        y[n] = sum;
    }
    std::memmove(z, z + 32, (taps - 1) * sizeof(float));
}

void plain_fir_by_taps(float* __restrict y, float* __restrict z, const float* x, const float* __restrict h,
                       size_t taps) {
    std::memcpy(z + taps - 1, x, 32 * sizeof(float));
    float sum[32] = {};
    for (size_t k = 0; k < taps; k++)
        for (size_t n = 0; n < 32; n++)
            sum[n] += h[k] * z[taps - 1 + n - k];
    std::memcpy(y, sum, sizeof(sum));
    std::memmove(z, z + 32, (taps - 1) * sizeof(float));
}

void plain_fir_by_taps_for_eight(float* __restrict y, float* __restrict z, const float* x, const float* __restrict h,
                                 size_t taps) {
    std::memcpy(z + taps - 1, x, 32 * sizeof(float));
    for (size_t n = 0; n < 32; n += 8) {
        float sum[8] = {};
        for (size_t k = 0; k < taps; k++)
            for (size_t i = 0; i < 8; i++)
                sum[i] += h[k] * z[taps - 1 + n + i - k];
        std::memcpy(y + n, sum, sizeof(sum));
    }
    std::memmove(z, z + 32, (taps - 1) * sizeof(float));
}

} // namespace korla_bench
