// What the compiler makes of plain loops over one block, the peer of the block operations.
#include "block_plain.h"

#include <cstdarg>
#include <cstring>

namespace korla_bench {

#define IN const float* __restrict
#define EACH(name, arguments, ...)                                                                                     \
    void name arguments {                                                                                              \
        for (int i = 0; i < 32; i++)                                                                                   \
            d[i] = __VA_ARGS__;                                                                                        \
    }
static float power(uint32_t u) { return static_cast<float>(1u << u); }
static float greater(float a, float b) { return a > b ? a : b; }
static float lesser(float a, float b) { return a < b ? a : b; }

EACH(plain_blk_LabsL, (float* __restrict d, IN x), __builtin_fabsf(x[i]))
EACH(plain_blk_LclipL, (float* __restrict d, IN limits, IN x), lesser(greater(x[i], limits[0]), limits[1]))
EACH(plain_blk_LcmpLL, (float* __restrict d, IN values, IN a, IN b), a[i] > b[i] ? values[0] : values[1])
EACH(plain_blk_Lconst, (float* __restrict d, float c), c)
EACH(plain_blk_LmaxLL, (float* __restrict d, IN a, IN b), greater(a[i], b[i]))
EACH(plain_blk_LminLL, (float* __restrict d, IN a, IN b), lesser(a[i], b[i]))
EACH(plain_blk_LmaxLLL, (float* __restrict d, IN a, IN b, IN c), greater(greater(a[i], b[i]), c[i]))
EACH(plain_blk_LminLLL, (float* __restrict d, IN a, IN b, IN c), lesser(lesser(a[i], b[i]), c[i]))
EACH(plain_blk_LsaddLL, (float* __restrict d, IN a, IN b), a[i] + b[i])
EACH(plain_blk_LsubLL, (float* __restrict d, IN a, IN b), a[i] - b[i])
EACH(plain_blk_Lmpy_shlLSU, (float* __restrict d, IN a, IN b, uint32_t u), a[i] * b[i] * power(u))
EACH(plain_blk_Lmpy_shlLLU, (float* __restrict d, IN a, IN b, uint32_t u),
     static_cast<float>(static_cast<double>(a[i]) * b[i] * power(u)))
EACH(plain_blk_LmixL, (float* __restrict d, IN g, IN x0), g[0] * x0[i])
EACH(plain_blk_LmixLL, (float* __restrict d, IN g, IN x0, IN x1), g[0] * x0[i] + g[1] * x1[i])
EACH(plain_blk_LmixLLL, (float* __restrict d, IN g, IN x0, IN x1, IN x2), g[0] * x0[i] + g[1] * x1[i] + g[2] * x2[i])
EACH(plain_blk_LmixLLLL, (float* __restrict d, IN g, IN x0, IN x1, IN x2, IN x3),
     g[0] * x0[i] + g[1] * x1[i] + g[2] * x2[i] + g[3] * x3[i])
EACH(plain_blk_Lmix_shlUL, (float* __restrict d, IN g, uint32_t u, IN x0), g[0] * x0[i] * power(u))
EACH(plain_blk_Lmix_shlULL, (float* __restrict d, IN g, uint32_t u, IN x0, IN x1),
     (g[0] * x0[i] + g[1] * x1[i]) * power(u))
EACH(plain_blk_Lmix_shlULLL, (float* __restrict d, IN g, uint32_t u, IN x0, IN x1, IN x2),
     (g[0] * x0[i] + g[1] * x1[i] + g[2] * x2[i]) * power(u))
EACH(plain_blk_Lmix_shlULLLL, (float* __restrict d, IN g, uint32_t u, IN x0, IN x1, IN x2, IN x3),
     (g[0] * x0[i] + g[1] * x1[i] + g[2] * x2[i] + g[3] * x3[i]) * power(u))
EACH(plain_BLmaxBLL, (float* __restrict d, IN x, float y), greater(x[i], y))
EACH(plain_BLmpy_scaleBLSU, (float* __restrict d, IN x, float g, uint32_t u), x[i] * (g * power(u)))
EACH(plain_BLmpy_scale_xBLSU, (float* __restrict d, IN x, float g, uint32_t u),
     static_cast<float>(static_cast<double>(x[i]) * (g * power(u))))
EACH(plain_BLsaddBLL, (float* __restrict d, IN x, float y), x[i] + y)

void plain_blk_LLdeshuffleLL_inplace(float* __restrict a, float* __restrict b) {
    for (int i = 0; i < 32; i++) {
        const float sum = a[i] + b[i];
        b[i] = a[i] - b[i], a[i] = sum;
    }
}
void plain_blk_LLshuffleLL_inplace(float* __restrict a, float* __restrict b) {
    for (int i = 0; i < 32; i++) {
        const float half = 0.5f * (a[i] + b[i]);
        b[i] = 0.5f * (a[i] - b[i]), a[i] = half;
    }
}

// Sums in an array that the compiler keeps in registers.
static void add_block(float* __restrict sum, float gain, IN x) {
    for (int i = 0; i < 32; i++)
        sum[i] += gain * x[i];
}
void plain_blk_LmixnL(float* d, const float* g, uint32_t n, ...) {
    float sum[32] = {};
    va_list inputs;
    va_start(inputs, n);
    for (uint32_t j = 0; j < n; j++)
        add_block(sum, g[j], va_arg(inputs, const float*));
    va_end(inputs);
    std::memcpy(d, sum, sizeof sum);
}
void plain_blk_Lmix_shlUnL(float* d, const float* g, uint32_t u, uint32_t n, const float* x0, ...) {
    float sum[32] = {};
    add_block(sum, g[0] * power(u), x0);
    va_list inputs;
    va_start(inputs, x0);
    for (uint32_t j = 1; j < n; j++)
        add_block(sum, g[j] * power(u), va_arg(inputs, const float*));
    va_end(inputs);
    std::memcpy(d, sum, sizeof sum);
}
void plain_blk_Lmix_shlaL(float* d, const float* g, uint32_t n, const float* x, uint32_t u) {
    float sum[32] = {};
    for (uint32_t j = 0; j < n; j++)
        add_block(sum, g[j], x + 32 * j);
    for (int i = 0; i < 32; i++)
        d[i] = sum[i] * power(u);
}

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
