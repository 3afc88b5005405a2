// Block operations and FIR filters as plain loops, compiled with everything the compiler may do (-O3, reordered and fused sums).
#pragma once

#include <cstddef>
#include <cstdint>

namespace korla_bench {

// The arguments of the operation whose name follows.
void plain_blk_LabsL(float* d, const float* x);
void plain_blk_LclipL(float* d, const float* limits, const float* x);
void plain_blk_LcmpLL(float* d, const float* values, const float* a, const float* b);
void plain_blk_Lconst(float* d, float c);
void plain_blk_LmaxLL(float* d, const float* a, const float* b);
void plain_blk_LminLL(float* d, const float* a, const float* b);
void plain_blk_LmaxLLL(float* d, const float* a, const float* b, const float* c);
void plain_blk_LminLLL(float* d, const float* a, const float* b, const float* c);
void plain_blk_LsaddLL(float* d, const float* a, const float* b);
void plain_blk_LsubLL(float* d, const float* a, const float* b);
void plain_blk_LLdeshuffleLL_inplace(float* a, float* b);
void plain_blk_LLshuffleLL_inplace(float* a, float* b);
void plain_blk_Lmpy_shlLSU(float* d, const float* a, const float* b, uint32_t u);
void plain_blk_Lmpy_shlLLU(float* d, const float* a, const float* b, uint32_t u); // in double precision
void plain_blk_LmixL(float* d, const float* g, const float* x0);
void plain_blk_LmixLL(float* d, const float* g, const float* x0, const float* x1);
void plain_blk_LmixLLL(float* d, const float* g, const float* x0, const float* x1, const float* x2);
void plain_blk_LmixLLLL(float* d, const float* g, const float* x0, const float* x1, const float* x2, const float* x3);
void plain_blk_Lmix_shlUL(float* d, const float* g, uint32_t u, const float* x0);
void plain_blk_Lmix_shlULL(float* d, const float* g, uint32_t u, const float* x0, const float* x1);
void plain_blk_Lmix_shlULLL(float* d, const float* g, uint32_t u, const float* x0, const float* x1, const float* x2);
void plain_blk_Lmix_shlULLLL(float* d, const float* g, uint32_t u, const float* x0, const float* x1, const float* x2,
                             const float* x3);
void plain_blk_LmixnL(float* d, const float* g, uint32_t n, ...);
void plain_blk_Lmix_shlUnL(float* d, const float* g, uint32_t u, uint32_t n, const float* x0, ...);
void plain_blk_Lmix_shlaL(float* d, const float* g, uint32_t n, const float* x, uint32_t u);
void plain_BLmaxBLL(float* d, const float* x, float y);
void plain_BLmpy_scaleBLSU(float* d, const float* x, float g, uint32_t u);
void plain_BLmpy_scale_xBLSU(float* d, const float* x, float g, uint32_t u); // in double precision
void plain_BLsaddBLL(float* d, const float* x, float y);

// z holds taps - 1 old inputs and then a block; moves them on by a block afterwards, as a filter has to.
void plain_fir_by_outputs(float* y, float* z, const float* x, const float* h, size_t taps);
void plain_fir_by_taps(float* y, float* z, const float* x, const float* h, size_t taps);
void plain_fir_by_taps_for_eight(float* y, float* z, const float* x, const float* h, size_t taps);

} // namespace korla_bench
