// One scenario for each function, pair or family with a state.
#include "memory_rules.h"

#include <korla/diag.h>
#include <korla/downmixer.h>
#include <korla/dsp/block.h>
#include <korla/dsp/block_filter.h>
#include <korla/dsp/block_scalar.h>
#include <korla/dsp/complex.h>
#include <korla/dsp/dct.h>
#include <korla/dsp/fft.h>
#include <korla/dsp/hybrid.h>
#include <korla/dsp/mfb.h>
#include <korla/dsp/phase90_hilbert.h>
#include <korla/dsp/qmf.h>
#include <korla/dsp/rfft.h>
#include <korla/dsp/support.h>
#include <korla/dsp/time_counter.h>
#include <korla/dsp/vector.h>
#include <korla/limiter.h>

#include <algorithm>
#include <cmath>
#include <cstring>

namespace korla_test {
namespace {

constexpr size_t block = KRL_BLK_LEN;

// One function, or a pair; its arguments are evaluated once.
#define ONE(f, ...)                                                                                                    \
    MemoryRules {                                                                                                      \
        {#f}, [](Call& c) { f(__VA_ARGS__); }                                                                          \
    }
#define NAMES(op)                                                                                                      \
    { "krl_" #op "_flex", "KRL_" #op "_strict" }
#define PAIR(op, ...)                                                                                                  \
    MemoryRules {                                                                                                      \
        NAMES(op), [](Call& c) {                                                                                       \
            [[maybe_unused]] const uint32_t n = c.n;                                                                   \
            (c.strict ? KRL_##op##_strict : krl_##op##_flex)(__VA_ARGS__);                                             \
        }                                                                                                              \
    }
#define VALUE(op, ...)                                                                                                 \
    MemoryRules {                                                                                                      \
        NAMES(op), [](Call& c) { c.keep((c.strict ? KRL_##op##_strict : krl_##op##_flex)(__VA_ARGS__)); }              \
    }
#define V c.in(c.n)
#define C c.in(2 * n)
#define B c.in(block)
#define VV c.out(n)
#define CC c.out(2 * n)
#define BB c.out(block)

void add_vectors(std::vector<MemoryRules>& all) {
    const MemoryRules rules[] = {
        PAIR(vec_LmaskLSU, VV, V, V, n),
        PAIR(vec_Lmask_rev_coefLSU, VV, V, V, static_cast<int32_t>(n)),
        PAIR(vec_LmpyLSU, VV, V, c.number(), n),
        PAIR(vec_LmpyLSU_inplace, VV, c.number(), n),
        PAIR(vec_LsetLU, VV, c.number(), n),
        PAIR(vec_LshlLIU, VV, V, c.any_signed(), n),
        PAIR(vec_LshlLIU_inplace, VV, c.any_signed(), n),
        PAIR(vec_SshlSIU_inplace, VV, c.any_signed(), n),
        VALUE(vec_IeqLLU, V, V, c.n, c.number()),
        VALUE(vec_Labs_maxLU, V, c.n),
        VALUE(vec_Sabs_maxSU, V, c.n),
        VALUE(vec_LdotLLU, V, V, c.n),
        VALUE(vec_NdotLLU, V, V, c.n),
        VALUE(vec_Lsum_sqrLUU, V, c.any(), c.n),
        VALUE(vec_Lmean_sqrLU, V, c.n),
        VALUE(vec_UnormLU, V, c.n),
        VALUE(vec_UnormSU, V, c.n),
    };
    all.insert(all.end(), std::begin(rules), std::end(rules));
}

// Several complex vectors one behind the other; behind the last one nothing is read.
const float* stacked(Call& c, size_t vectors) { return c.in(2 * ((c.n + 3) / 4 * 4 * (vectors - 1) + c.n)); }

void add_complex(std::vector<MemoryRules>& all) {
    const MemoryRules rules[] = {
        PAIR(CLaddCLCLU, CC, C, C, n),
        PAIR(CLsubCLCLU, CC, C, C, n),
        PAIR(CLcopyCLU, CC, C, n),
        PAIR(CLzeroCLU, CC, n),
        PAIR(CLmpyCLSU, CC, C, c.number(), n),
        PAIR(CLmpyCLVSU, CC, C, V, n),
        PAIR(CLmpyCLCSU, CC, C, C, n),
        PAIR(CLmacCLCLU, CC, C, C, n),
        PAIR(CLmacCLLU, CC, C, c.number(), n),
        PAIR(cvec_Lmpy_conjLLIU, CC, C, C, c.any_signed(), n),
        PAIR(VLsquaredmagCLIU, VV, C, c.any_signed(), n),
        PAIR(CLmixCLCLSSU, CC, C, C, c.number(), c.number(), n),
        PAIR(CLmix4CL4SU, CC, stacked(c, 4), c.coef(4), n),
        PAIR(CLCLmix4CL8SU, CC, CC, stacked(c, 4), c.coef(8), n),
        PAIR(CLCLmix6CL12SU, CC, CC, stacked(c, 6), c.coef(12), n),
        PAIR(CLCLmix7CL14SU, CC, CC, stacked(c, 7), c.coef(14), n),
        PAIR(CLshlCLUU, CC, C, c.any(), n),
        PAIR(CLshrCLUU, CC, C, c.any(), n),
        PAIR(CLmpy_shlCLSIU, CC, C, c.number(), c.any_signed(), n),
        PAIR(CLmpy_shlCLSIU_inplace, CC, c.number(), c.any_signed(), n),
        PAIR(CLrecipCLUU, CC, C, c.any(), n),
        PAIR(CLmpy_recipCLLIU, CC, C, c.number(), c.any_signed(), n),
        PAIR(CLdivCLCLU, CC, C, C, n),
    };
    all.insert(all.end(), std::begin(rules), std::end(rules));
}

// Up to nine blocks as variable arguments, and none behind them.
template <class F> void mix(Call& c, F f) {
    const uint32_t inputs = c.below(10);
    const float* x[9] = {};
    for (uint32_t j = 0; j < inputs; j++)
        x[j] = B;
    f(inputs, BB, c.coef(inputs), x);
}

void add_blocks(std::vector<MemoryRules>& all) {
    const MemoryRules rules[] = {
        PAIR(blk_LabsL, BB, B),
        PAIR(blk_LclipL, BB, c.coef(2), B),
        PAIR(blk_LcmpLL, BB, c.coef(2), B, B),
        PAIR(blk_Lconst, BB, c.number()),
        PAIR(blk_LmaxLL, BB, B, B),
        PAIR(blk_LminLL, BB, B, B),
        PAIR(blk_LmaxLLL, BB, B, B, B),
        PAIR(blk_LminLLL, BB, B, B, B),
        PAIR(blk_LsaddLL, BB, B, B),
        PAIR(blk_LsubLL, BB, B, B),
        PAIR(blk_LLdeshuffleLL_inplace, BB, BB),
        PAIR(blk_LLshuffleLL_inplace, BB, BB),
        PAIR(blk_Lmpy_shlLSU, BB, B, B, c.any()),
        PAIR(blk_Lmpy_shlLLU, BB, B, B, c.any()),
        PAIR(blk_LmixL, BB, c.coef(1), B),
        PAIR(blk_LmixLL, BB, c.coef(2), B, B),
        PAIR(blk_LmixLLL, BB, c.coef(3), B, B, B),
        PAIR(blk_LmixLLLL, BB, c.coef(4), B, B, B, B),
        PAIR(blk_Lmix_shlUL, BB, c.coef(1), c.any(), B),
        PAIR(blk_Lmix_shlULL, BB, c.coef(2), c.any(), B, B),
        PAIR(blk_Lmix_shlULLL, BB, c.coef(3), c.any(), B, B, B),
        PAIR(blk_Lmix_shlULLLL, BB, c.coef(4), c.any(), B, B, B, B),
        {{"KRL_blk_LmixnL", "KRL_blk_LmixnL_strict"},
         [](Call& c) {
             mix(c, [&](uint32_t n, float* d, const float* g, const float* const* x) {
                 (c.strict ? KRL_blk_LmixnL_strict : KRL_blk_LmixnL)(d, g, n, x[0], x[1], x[2], x[3], x[4], x[5], x[6],
                                                                     x[7], x[8]);
             });
         }},
        {{"KRL_blk_Lmix_shlUnL", "KRL_blk_Lmix_shlUnL_strict"},
         [](Call& c) {
             mix(c, [&](uint32_t n, float* d, const float* g, const float* const* x) {
                 (c.strict ? KRL_blk_Lmix_shlUnL_strict : KRL_blk_Lmix_shlUnL)(d, g, c.any(), n, x[0], x[1], x[2], x[3],
                                                                               x[4], x[5], x[6], x[7], x[8]);
             });
         }},
        {{"KRL_blk_Lmix_shlaL", "KRL_blk_Lmix_shlaL_strict"},
         [](Call& c) {
             const uint32_t n = c.below(12);
             (c.strict ? KRL_blk_Lmix_shlaL_strict : KRL_blk_Lmix_shlaL)(BB, c.coef(n), n, c.in(n * block), c.any());
         }},
        PAIR(BLmaxBLL, BB, B, c.number()),
        PAIR(BLmaxBLL_inplace, BB, c.number()),
        PAIR(BLmpyBLS_inplace, BB, c.number()),
        PAIR(BLmpy_scaleBLSU, BB, B, c.number(), c.any()),
        PAIR(BLmpy_scaleBLSU_inplace, BB, c.number(), c.any()),
        PAIR(BLmpy_scale_xBLSU, BB, B, c.number(), c.any()),
        PAIR(BLsaddBLL, BB, B, c.number()),
    };
    all.insert(all.end(), std::begin(rules), std::end(rules));
}

// A filter over two blocks.
#define FILTER(op, ...)                                                                                                \
    MemoryRules {                                                                                                      \
        {"krl_" #op "_flex", "KRL_" #op "_strict", "KRL_" #op "_setup", "KRL_" #op "_set_coef"}, [](Call& c) {         \
            auto* const s = c.record(KRL_##op##_setup);                                                                \
            KRL_##op##_setup(s);                                                                                       \
            KRL_##op##_set_coef(nullptr);                                                                              \
            for (int i = 0; i < 2; i++)                                                                                \
                (c.strict ? KRL_##op##_strict : krl_##op##_flex)(__VA_ARGS__);                                         \
        }                                                                                                              \
    }

void parallel_sections(Call& c) {
    std::vector<float*> blocks(c.below(11));
    std::vector<krl_iir2ss_state*> states(blocks.size());
    for (size_t k = 0; k < blocks.size(); k++) {
        blocks[k] = BB, states[k] = c.record<krl_iir2ss_state>();
        KRL_blk_Liir2ssv3aLU_inplace_setup(states[k]);
    }
    KRL_blk_Liir2ssv3aLU_inplace_set_coef(nullptr);
    (c.strict ? KRL_blk_Liir2ssv3aLU_inplace_strict : KRL_blk_Liir2ssv3aLU_inplace)(
        c.list(blocks), c.coef(5), c.list(states), static_cast<uint32_t>(blocks.size()));
}

void fir(Call& c) {
    const uint32_t taps = c.below(300);
    float* const state = static_cast<float*>(c.samples(taps ? 4 * taps - 4 : 0, 4, false));
    KRL_blk_LfirUL_setup(state, taps);
    KRL_blk_LfirUL_set_coef(nullptr);
    for (int i = 0; i < 2; i++)
        (c.strict ? KRL_blk_LfirUL_strict : krl_blk_LfirUL_flex)(BB, B, taps, c.coef(taps), state);
}

void reciprocal(Call& c) {
    auto* const state = c.record<krl_reciprocal_state>();
    const uint32_t u = c.any();
    KRL_blk_LnrrecipLU_setup(state, u);
    (c.strict ? KRL_blk_LnrrecipLU_strict : krl_blk_LnrrecipLU_flex)(BB, B, u, state);
}

void crossfade(Call& c) {
    auto* const state = c.record<krl_crossfade_state>();
    const uint32_t length = c.strict ? 32 * (1 + c.below(9)) : c.below(300);
    const float* const window = c.coef(length);
    KRL_blk_Lcrossfade_gainLS_setup(state, window, length);
    if (!c.strict)
        state->pos = c.any();
    for (int i = 0; i < 3; i++)
        (c.strict ? KRL_blk_Lcrossfade_gainLS_strict : krl_blk_Lcrossfade_gainLS_flex)(BB, state, B, window, c.number(),
                                                                                       c.number());
}

void delay_line(Call& c) {
    const uint32_t longest = c.below(700);
    auto* const state = c.record<krl_delay_state>();
    float* const buffer = c.out((longest + 31) / 32 * 32 + 64);
    (c.strict ? KRL_blk_delay_setup_strict : krl_blk_delay_setup_flex)(state, buffer, longest);
    const auto clear = c.strict ? KRL_blk_delay_clear_strict : krl_blk_delay_clear_flex;
    float* end = clear(state, nullptr, c.strict ? 32 * c.below(20) : c.any());
    if (end)
        clear(state, end, c.strict ? 32 * c.below(20) : c.any());
    for (int i = 0; i < 4; i++) {
        (c.strict ? KRL_blk_delayL_strict : krl_blk_delayL_flex)(state, B);
        const uint32_t late = c.strict ? 32 * c.below(longest / 32 + 1) : c.any();
        (c.strict ? KRL_blk_LdelayU_strict : krl_blk_LdelayU_flex)(state, BB, late);
        const float* const place = KRL_blk_refLdelayU(state, c.any());
        c.check(place >= buffer && place + block <= buffer + state->len + block, "a reference outside the line");
    }
}

void add_filters(std::vector<MemoryRules>& all) {
    const MemoryRules rules[] = {
        FILTER(blk_Liir1L, BB, B, c.coef(3), s),
        FILTER(blk_Liir1_shlLU, BB, B, c.coef(3), s, c.any()),
        FILTER(blk_Liir1_shl_addLL, BB, B, B, c.coef(3), s),
        FILTER(blk_Liir1xL, BB, B, c.coef(3), s),
        FILTER(blk_Liir2df1L, BB, B, c.coef(5), s),
        FILTER(blk_Liir2ssv1L, BB, B, c.coef(5), s),
        FILTER(blk_Liir2ssv1efL, BB, B, c.coef(5), s),
        FILTER(blk_Liir2ssv1_dsmpL, BB, c.in(2 * block), c.coef(5), s),
        FILTER(blk_Liir2ssv1_usmpL, c.out(2 * block), B, c.coef(5), s),
        FILTER(blk_Liir2ssv2L, BB, B, c.coef(5), s),
        FILTER(blk_Liir2ssv2L_inplace, BB, c.coef(5), s),
        FILTER(blk_Liir2ssv2_shlLU, BB, B, c.coef(5), s, c.any()),
        FILTER(blk_Liir2ssv3L_inplace, BB, c.coef(5), s),
        {{"KRL_blk_Liir2ssv3aLU_inplace", "KRL_blk_Liir2ssv3aLU_inplace_strict", "KRL_blk_Liir2ssv3aLU_inplace_setup",
          "KRL_blk_Liir2ssv3aLU_inplace_set_coef"},
         parallel_sections},
        FILTER(blk_Lfir2L, BB, B, c.coef(2), s),
        FILTER(blk_Lfir3L, BB, B, c.coef(3), s),
        {{"krl_blk_LfirUL_flex", "KRL_blk_LfirUL_strict", "KRL_blk_LfirUL_setup", "KRL_blk_LfirUL_set_coef"}, fir},
        FILTER(blk_Lattack_decay_iir1L, BB, B, c.coef(2), s),
        FILTER(blk_Lattack_decay_peak_iir1L, BB, B, c.coef(3), s),
        FILTER(blk_LintegrateL, BB, B, c.coef(2), s),
        {{"krl_blk_LnrrecipLU_flex", "KRL_blk_LnrrecipLU_strict", "KRL_blk_LnrrecipLU_setup"}, reciprocal},
        {{"krl_blk_Lcrossfade_gainLS_flex", "KRL_blk_Lcrossfade_gainLS_strict", "KRL_blk_Lcrossfade_gainLS_setup"},
         crossfade},
        {{"krl_blk_delay_setup_flex", "KRL_blk_delay_setup_strict", "krl_blk_delayL_flex", "KRL_blk_delayL_strict",
          "krl_blk_LdelayU_flex", "KRL_blk_LdelayU_strict", "KRL_blk_refLdelayU", "krl_blk_delay_clear_flex",
          "KRL_blk_delay_clear_strict"},
         delay_line},
    };
    all.insert(all.end(), std::begin(rules), std::end(rules));
}

// ---- transforms

#define LIST(N) N,
constexpr std::initializer_list<uint32_t> fft_lengths = {KRL_FFT_POWERS_OF_TWO(LIST) KRL_FFT_MIXED_LENGTHS(LIST)};

void add_kernels(std::vector<MemoryRules>& all) {
    const auto kernel = [&](const char* name, krl_fft_kernel* f, size_t length) {
        all.push_back({{name}, [=](Call& c) {
                           const bool in_place = c.below(2) && (length <= 8 || length == 16);
                           float* const out = c.out(2 * length);
                           f(out, in_place ? out : c.work(2 * length), c.any());
                       }});
    };
    // For powers of two a work area of its own leaves the input alone, and no input stands for the output.
    const auto entry = [&](const char* name, krl_fft_entry* f, size_t length) {
        all.push_back({{name}, [=](Call& c) {
                           float* const out = c.out(2 * length);
                           const bool power_of_two = (length & (length - 1)) == 0;
                           const uint32_t form = power_of_two ? c.below(3) : 0;
                           if (form == 0) {
                               float* const in = c.work(2 * length);
                               f(out, in, power_of_two ? in : nullptr);
                           } else {
                               float* const in = form == 1 ? nullptr : const_cast<float*>(c.in(2 * length));
                               f(out, in, length <= 8 || length == 16 ? nullptr : c.work(2 * length));
                           }
                       }});
    };
#define KERNEL(f, N) kernel(#f, f, N);
#define KERNELS(radix, N)                                                                                              \
    KERNEL(KRL_##radix##_fft_##N, N)                                                                                   \
    KERNEL(KRL_##radix##_fft_##N##_s, N)                                                                               \
    KERNEL(KRL_##radix##_inv_fft_##N, N)                                                                               \
    KERNEL(KRL_##radix##_inv_fft_##N##_s, N)
#define RADIX4(N) KERNELS(r4, N)
#define RADIX8(N) KERNELS(r8, N)
    KRL_FFT_POWERS_OF_TWO(RADIX4)
    KRL_FFT_MIXED_LENGTHS(RADIX4)
    KRL_FFT_RADIX8_POWERS_OF_TWO(RADIX8)
    KRL_FFT_RADIX8_MIXED_LENGTHS(RADIX8)
#define ENTRY(f, N) entry(#f, f, N);
#define ENTRIES(N)                                                                                                     \
    ENTRY(krl_fft_fwd_scl_##N, N)                                                                                      \
    ENTRY(krl_fft_fwd_usc_##N, N)                                                                                      \
    ENTRY(krl_fft_inv_scl_##N, N)                                                                                      \
    ENTRY(krl_fft_inv_usc_##N, N)
    KRL_FFT_ENTRY_POWERS_OF_TWO(ENTRIES)
    KRL_FFT_MIXED_LENGTHS(ENTRIES)
}

void fft_state(Call& c) {
    const uint32_t length = c.one_of(fft_lengths), mask = c.below(2) ? 1u << c.below(8) : c.any();
    const uint32_t bytes = KRL_fft_state_query_mem(length, mask);
    c.check(KRL_fft_is_supported(length, mask) == (bytes > 0), "a size for what is not supported");
    c.check(KRL_fft_scratch_query_mem() == 0, "scratch memory");
    krl_fft_state* const state = KRL_fft_init(c.memory(bytes), length, mask);
    c.check((state != nullptr) == (bytes > 0), "a state for what is not supported");
    using Transform = void (*)(const krl_fft_state*, float*, float*);
    constexpr Transform by_bit[] = {KRL_fft_CLfwd_scaledCL,   KRL_fft_CLfwd_unscaledCL, KRL_fft_CLinv_scaledCL,
                                    KRL_fft_CLinv_unscaledCL, KRL_fft_CLfwd_scaledL,    KRL_fft_CLfwd_unscaledL,
                                    KRL_fft_Linv_scaledCL,    KRL_fft_Linv_unscaledCL};
    for (size_t bit = 0; state && bit < 8; bit++)
        if (mask >> bit & 1)
            by_bit[bit](state, c.out(2 * length), c.work(2 * length));
    KRL_fft_shutdown(state);
}

void fft_selectors(Call& c) {
    const uint32_t length = c.one_of(fft_lengths);
    for (auto* select :
         {KRL_r4_cplx_fwd_unscaled, KRL_r4_cplx_fwd_scaled, KRL_r4_cplx_inv_unscaled, KRL_r4_cplx_inv_scaled})
        c.keep(select(length) != nullptr);
    for (auto* select : {KRL_r4_cplx_fwd_pair, KRL_r4_cplx_inv_pair, KRL_r8_cplx_fwd_pair, KRL_r8_cplx_inv_pair})
        c.keep(krl_valid_pair_ptr(select(length)));
}

// The kernels of a length, or none, which means that they are looked up.
const krl_fft_pair* pair_for(Call& c, uint32_t length) {
    const uint32_t choice = c.below(3);
    return choice == 0 ? nullptr : choice == 1 ? KRL_r4_cplx_fwd_pair(length) : KRL_r8_cplx_fwd_pair(length);
}

// Lengths that are refused get buffers of no length.
template <class F> void real_fft(Call& c, F f, bool input_is_kept) {
    const uint32_t length = c.one_of({2, 4, 8, 16, 32, 64, 128, 256, 512, 1024, 2048, 4096, 0, 3, 48, 8192});
    const bool supported = length >= 2 && length <= 4096 && (length & (length - 1)) == 0;
    const size_t floats = supported ? length : 0;
    float* const out = c.out(2 * floats);
    if constexpr (std::is_invocable_v<F, const float*, const float*, float*, uint32_t>)
        f(c.in(floats), c.in(floats), out, length);
    else
        f(input_is_kept ? const_cast<float*>(c.in(2 * floats)) : c.work(2 * floats), out, length);
}
#define REAL_FFT(f)                                                                                                    \
    MemoryRules {                                                                                                      \
        {#f}, [](Call& c) { real_fft(c, f, false); }                                                                   \
    }

template <class F> void cosine(Call& c, F f) {
    uint32_t length = c.one_of({4, 8, 12, 16, 32, 64, 96, 128, 480, 1024, 1920, 2048, 4096, 8192, 0, 20, 44, 63, 100});
    const krl_fft_pair* pair = length % 4 == 0 && length > 0 ? pair_for(c, length / 2) : nullptr;
    const bool in_place = std::is_invocable_v<F, const krl_fft_pair*, const float*, float*, uint32_t>;
    const bool supported =
        length > 0 && length % 4 == 0 && length <= (in_place ? 2048 : 8192) && KRL_r4_cplx_fwd_pair(length / 2);
    const size_t floats = supported ? length : 0;
    if constexpr (in_place) // they copy first
        f(pair, c.coef(floats), c.out(length <= 2048 ? length : 0), length);
    else
        f(pair, c.coef(floats), c.out(floats), c.work(floats), length);
}
#define COSINE(f)                                                                                                      \
    MemoryRules {                                                                                                      \
        {#f}, [](Call& c) { cosine(c, f); }                                                                            \
    }

void add_transforms(std::vector<MemoryRules>& all) {
    const MemoryRules rules[] = {
        {{"KRL_fft_is_supported", "KRL_fft_state_query_mem", "KRL_fft_scratch_query_mem", "KRL_fft_init",
          "KRL_fft_shutdown", "KRL_fft_CLfwd_scaledCL", "KRL_fft_CLfwd_unscaledCL", "KRL_fft_CLinv_scaledCL",
          "KRL_fft_CLinv_unscaledCL", "KRL_fft_CLfwd_scaledL", "KRL_fft_CLfwd_unscaledL", "KRL_fft_Linv_scaledCL",
          "KRL_fft_Linv_unscaledCL"},
         fft_state},
        {{"KRL_r4_cplx_fwd_unscaled", "KRL_r4_cplx_fwd_scaled", "KRL_r4_cplx_inv_unscaled", "KRL_r4_cplx_inv_scaled",
          "KRL_r4_cplx_fwd_pair", "KRL_r4_cplx_inv_pair", "KRL_r8_cplx_fwd_pair", "KRL_r8_cplx_inv_pair",
          "krl_valid_pair_ptr"},
         fft_selectors},
        REAL_FFT(KRL_r4_rfft_nn),
        REAL_FFT(KRL_r4_rfft_nn_s),
        REAL_FFT(KRL_r4_rsplit_fft_nn),
        REAL_FFT(KRL_r4_rsplit_fft_nn_s),
        REAL_FFT(KRL_r4_inv_rfft_nn),
        REAL_FFT(KRL_r4_inv_rfft_half_n),
        REAL_FFT(KRL_r4_inv_rfft_nn_s),
        COSINE(krl_dctII_scaled),
        COSINE(krl_dctII_unscaled),
        COSINE(krl_dctIII_scaled),
        COSINE(_krl_ldct2_scaled_iplu),
        COSINE(_krl_ldct2_unscaled_iplu),
        COSINE(_krl_ldct3_scaled_iplu),
        ONE(krl_dct4_premodulation, c.out(2 * c.n), c.in(2 * c.n), V, V, c.n),
        ONE(krl_dct4_postmodulation_shl0, c.out(2 * c.n), c.in(2 * c.n), V, V, c.n),
        ONE(krl_dct4_postmodulation_shl1, c.out(2 * c.n), c.in(2 * c.n), V, V, c.n),
        ONE(krl_dct4_postmodulation_shl2, c.out(2 * c.n), c.in(2 * c.n), V, V, c.n),
        ONE(krl_dct4_postmodulation_shl, c.out(2 * c.n), c.in(2 * c.n), V, V, c.any_signed(), c.n),
    };
    all.insert(all.end(), std::begin(rules), std::end(rules));
}

// ---- filter banks

#define QMF_FUNCTIONS(X, F)                                                                                            \
    X(query_analysis, KRL_qmf_analysis##F##_query_mem)                                                                 \
    X(open_analysis, krl_qmf_analysis##F##_open)                                                                       \
    X(reconfigure, krl_qmf_analysis##F##_reconfig)                                                                     \
    X(clear_analysis, KRL_qmf_analysis##F##_init)                                                                      \
    X(set_analysis_increment, KRL_qmf_analysis##F##_set_slot_increment)                                                \
    X(analysis_delay, KRL_qmf_analysis##F##_get_delay)                                                                 \
    X(state_length, KRL_qmf_analysis##F##_get_filter_state_length)                                                     \
    X(longest_state, KRL_qmf_analysis##F##_get_max_filter_state_length)                                                \
    X(load, KRL_load_CLqmf_analysis##F##_filter_stateL)                                                                \
    X(unload, KRL_Lunload_CLqmf_analysis##F##_filter_state)                                                            \
    X(analyse_real, KRL_Lqmf_analysis##F)                                                                              \
    X(analyse_complex, KRL_CLqmf_analysis##F)                                                                          \
    X(close_analysis, KRL_qmf_analysis##F##_close)                                                                     \
    X(query_synthesis, KRL_qmf_synthesis##F##_query_mem)                                                               \
    X(open_synthesis, krl_qmf_synthesis##F##_open)                                                                     \
    X(clear_synthesis, KRL_qmf_synthesis##F##_init)                                                                    \
    X(set_synthesis_increment, KRL_qmf_synthesis##F##_set_slot_increment)                                              \
    X(synthesis_delay, KRL_qmf_synthesis##F##_get_delay)                                                               \
    X(copy_states, KRL_qmf_synthesis##F##_copy_states)                                                                 \
    X(synthesise_real, KRL_##F##qmf_synthesisL)                                                                        \
    X(synthesise_complex, KRL_##F##qmf_synthesisCL)                                                                    \
    X(close_synthesis, KRL_qmf_synthesis##F##_close)
#define MEMBER(member, f) decltype(&f) member;
#define NAME(member, f) #f,
#define POINTER(member, f) f,
struct QmfFamily {
    bool sized_by_class; // room for 64 or for 32 bands
    QMF_FUNCTIONS(MEMBER, L)
};
constexpr QmfFamily qmf_l = {false, QMF_FUNCTIONS(POINTER, L)}, qmf_s = {true, QMF_FUNCTIONS(POINTER, S)};

template <class Open, class Query> auto open_qmf(Call& c, Query query, Open open, const uint32_t (&setup)[4]) {
    uint32_t bytes[3];
    query(setup[0], setup[3], &bytes[0], &bytes[1], &bytes[2]);
    const uint32_t left_out = c.below(20); // a block or the prototype
    const float* const prototype =
        left_out == 3 ? nullptr : c.coef(setup[3] <= 5 && setup[0] <= 64 ? 2 * setup[3] * setup[0] : 0);
    void* blocks[3];
    for (uint32_t i = 0; i < 3; i++)
        blocks[i] = left_out == i ? nullptr : c.memory(bytes[i]);
    return open(setup[0], setup[1], setup[2], setup[3], prototype, blocks[0], blocks[1], blocks[2]);
}

void qmf(Call& c, const QmfFamily& family) {
    const uint32_t setup[] = {c.one_of({8, 16, 32, 48, 64}), c.below(4), c.one_of({0, 1, 8}), c.one_of({4, 5})};
    const uint32_t M = setup[0], slots = setup[1], P = setup[3];
    krl_qmf_analysis* const analysis = open_qmf(c, family.query_analysis, family.open_analysis, setup);
    krl_qmf_synthesis* const synthesis = open_qmf(c, family.query_synthesis, family.open_synthesis, setup);
    c.keep(analysis != nullptr), c.keep(synthesis != nullptr);
    c.keep(family.analysis_delay(analysis)), c.keep(family.synthesis_delay(synthesis));
    c.keep(family.longest_state(P));
    uint32_t analysis_gap = 0, synthesis_gap = 0;
    const uint32_t opened_with[] = {M, P};
    for (int step = 0; step < 3 && analysis && synthesis; step++) {
        const auto rows = [&](size_t floats, bool out) {
            std::vector<float*> list;
            for (uint32_t i = 0; i < slots; i++)
                list.push_back(out ? c.out(floats) : const_cast<float*>(c.in(floats)));
            return c.list(list);
        };
        const auto real = [&](uint32_t gap) { return slots ? (slots - 1) * (M + gap) + M : 0; };
        switch (c.below(8)) {
        case 0:
            analysis_gap = c.below(30);
            family.set_analysis_increment(analysis, M + analysis_gap);
            break;
        case 1: {
            const uint32_t most = family.sized_by_class && opened_with[0] <= 32 ? 32 : opened_with[0];
            const uint32_t bands = c.one_of({8, 16, 32, 48, 64}), periods = c.one_of({4, 5}), bands_mode = c.any();
            if (bands > most || periods > opened_with[1]) // what the memory was not made for
                break;
            const bool stays = family.reconfigure(analysis, bands, slots, bands_mode, periods,
                                                  c.coef(periods <= 5 ? 2 * bands * periods : 0)) != 0;
            if (!stays && (bands != M || periods != P))
                return; // the synthesis has the old ones
            analysis_gap = stays ? analysis_gap : 0;
            break;
        }
        case 2: family.analyse_real(analysis, c.out(real(analysis_gap)), c.coef(slots * M)); break;
        case 3: family.analyse_complex(analysis, rows(2 * M, true), c.coef(slots * M)); break;
        case 4:
            synthesis_gap = c.below(30);
            family.set_synthesis_increment(synthesis, M + synthesis_gap);
            family.synthesise_real(synthesis, c.out(slots * M), c.coef(real(synthesis_gap)));
            break;
        case 5: family.synthesise_complex(synthesis, c.out(slots * M), rows(2 * M, false)); break;
        case 6:
            c.check(family.state_length(P == 5, M) == (P == 5 ? 9 : 7) * M, "length of the history");
            family.load(analysis, c.coef(9 * M));
            family.unload(analysis, c.out(9 * M));
            if (!family.sized_by_class)
                KRL_Lqmf_synthesisCL_Head1Bit(synthesis, c.out(slots * M), rows(2 * M, false));
            break;
        default:
            family.copy_states(synthesis, c.below(2) ? synthesis : nullptr);
            c.below(2) ? family.clear_analysis(analysis) : family.clear_synthesis(synthesis);
        }
    }
    family.close_analysis(analysis);
    family.close_synthesis(synthesis);
}

// M that is refused gets buffers of no length.
uint32_t modulation_length(Call& c, size_t& floats) {
    const uint32_t M = c.one_of({8, 16, 24, 48, 64, 96, 320, 512, 960, 1024, 0, 4, 12, 56, 63});
    floats = M > 0 && M % 8 == 0 && KRL_r4_cplx_fwd_pair(M) && KRL_r4_cplx_fwd_pair(M / 2) ? M : 0;
    return floats || M % 8 ? M : 0;
}

void add_modulation(std::vector<MemoryRules>& all) {
    all.push_back({{"krl_forwardModulationReal"}, [](Call& c) {
                       size_t floats;
                       const uint32_t M = modulation_length(c, floats);
                       float* const out = c.out(floats);
                       krl_forwardModulationReal(c.coef(2 * floats), out, M, pair_for(c, M / 2), c.coef(floats),
                                                 c.below(2) ? out : c.work(floats));
                   }});
    all.push_back({{"krl_inverseModulationReal"}, [](Call& c) {
                       size_t floats;
                       const uint32_t M = modulation_length(c, floats);
                       const bool one_buffer = c.below(2);
                       float* const X = c.out(one_buffer ? 2 * floats : floats);
                       krl_inverseModulationReal(X, one_buffer ? X : c.out(floats), M, pair_for(c, M / 2),
                                                 c.coef(floats));
                   }});
    all.push_back({{"krl_forwardModulationComplex", "krl_inverseModulationComplex"}, [](Call& c) {
                       size_t floats;
                       const uint32_t M = modulation_length(c, floats), mode = c.one_of({0, 1, 8});
                       const float* const twiddle =
                           mode == 0 || c.below(2) ? nullptr : c.coef(mode == 8 ? 2 * floats : floats);
                       if (c.below(2))
                           krl_forwardModulationComplex(c.work(2 * floats), c.out(2 * floats), c.work(2 * floats), M,
                                                        mode, twiddle, pair_for(c, M));
                       else
                           krl_inverseModulationComplex(c.in(2 * floats), c.out(2 * floats), c.work(2 * floats), M,
                                                        mode, twiddle, pair_for(c, M));
                   }});
}

// One call of the modulated bank: any number of slots and channels up to those of the instance.
template <class Run> void mfb_call(Call& c, uint32_t m, size_t time, size_t bands, bool analysis, Run run) {
    const uint32_t channels = c.below(3), slots = c.below(3);
    std::vector<float* const*> out;
    std::vector<const float* const*> in;
    for (uint32_t s = 0; s < slots; s++) {
        std::vector<float*> results;
        std::vector<const float*> sources;
        for (uint32_t ch = 0; ch < channels; ch++) {
            results.push_back(c.out(analysis ? bands : time));
            sources.push_back(c.coef(analysis ? time : bands));
        }
        out.push_back(c.list(results)), in.push_back(c.list(sources));
    }
    run(c.coef(10 * time), c.coef(2 * time), channels, slots, m, c.list(out), c.list(in));
}

uint32_t mfb_length(Call& c) { return c.one_of({8, 16, 24, 64, 96, 128, 256, 960, 2048, 0, 4, 20, 56}); }

void mfb_analysis(Call& c) {
    const uint32_t m = mfb_length(c), channels = 1 + c.below(2);
    const size_t bytes = m <= 4096 ? KRL_mfb_p10km_analysisL_query_mem(channels, 0, m) : 0;
    auto* const bank = KRL_CLmfb_p10km_analysisL_init(channels, 0, m, c.below(20) ? c.memory(bytes) : nullptr);
    c.keep(bank != nullptr);
    const size_t length = bank ? m : 0;
    for (int i = 0; i < 2; i++) {
        void* const scratch = c.memory(bank ? KRL_mfb_p10km_analysisL_query_scratch(0, 0, m) : 0);
        mfb_call(c, m, length, 2 * length, true, [&](const float* prototype, const float* twiddle, auto... rest) {
            switch (c.below(3)) {
            case 0: return KRL_CLmfb_p10km_analysisL(bank, prototype, twiddle, scratch, rest...);
            case 1: return KRL_CLmfb_p10km_analysisL_legacy(bank, prototype, twiddle, scratch, rest...);
            default:
                KRL_CLmfb_p10km_analysisL_legacy_twiddle(bank, prototype, twiddle, scratch, c.coef(2 * length),
                                                         rest...);
            }
        });
        KRL_mfb_p10km_analysisL_reset_channel(bank, m, c.any());
    }
    KRL_load_mfb_p10km_analysisL_filter_state(bank, nullptr);
    KRL_unload_mfb_p10km_analysisL_filter_state(bank, nullptr);
    KRL_CLmfb_p10km_analysisL_close(bank);
}

void mfb_synthesis(Call& c) {
    const uint32_t m = mfb_length(c), channels = 1 + c.below(2);
    const size_t bytes = m <= 4096 ? KRL_mfb_p10km_synthesisCL_query_mem(channels, 0, m) : 0;
    auto* const bank = KRL_Lmfb_p10km_synthesisCL_init(channels, 0, m, c.below(20) ? c.memory(bytes) : nullptr);
    c.keep(bank != nullptr);
    const size_t length = bank ? m : 0;
    constexpr decltype(&KRL_Lmfb_p10km_synthesisCL_symmetric) forms[] = {
        KRL_Lmfb_p10km_synthesisCL_symmetric,
        KRL_Lmfb_p10km_synthesisCL_legacy,
        KRL_Lmfb_p10km_synthesisCL_legacy_extra_latency,
        KRL_Lmfb_p10km_synthesisCL_even_0,
        KRL_Lmfb_p10km_synthesisCL_even_1,
        KRL_Lmfb_p10km_synthesisCL_even_2,
        KRL_Lmfb_p10km_synthesisCL_even_3};
    for (int i = 0; i < 2; i++) {
        void* const scratch = c.memory(bank ? KRL_mfb_p10km_synthesisCL_query_scratch(0, 0, m) : 0);
        mfb_call(c, m, length, 2 * length, false, [&](const float* prototype, const float* twiddle, auto... rest) {
            forms[c.below(7)](bank, prototype, twiddle, scratch, rest...);
        });
    }
    KRL_Lmfb_p10km_synthesisCL_close(bank);
}

void hybrid(Call& c) {
    const int32_t config = static_cast<int32_t>(c.one_of({0, 1, 4, 5}));
    uint32_t sizes[3], other[3];
    KRL_hybrid_analysisCL_query_mem(config, &sizes[0], &sizes[1], &sizes[2]);
    KRL_hybrid_synthesisCL_query_mem(config, &other[0], &other[1], &other[2]);
    auto* const analysis =
        KRL_hybrid_analysisCL_open(config, c.memory(sizes[0]), c.memory(sizes[1]), c.memory(sizes[2]));
    auto* const synthesis =
        KRL_hybrid_synthesisCL_open(config, c.memory(other[0]), c.memory(other[1]), c.memory(other[2]));
    c.keep(analysis != nullptr), c.keep(synthesis != nullptr);
    const size_t bands = !analysis ? 0 : config & 1 ? 32 : 20;
    for (int i = 0; i < 3; i++) {
        const bool in_place = c.below(2);
        float* const out = c.out(bands);
        KRL_CLhybrid_analysisCL(analysis, out, in_place ? out : c.coef(analysis ? 6 : 0));
        KRL_hybrid_analysisCL_shl(analysis, c.any_signed());
        float* const back = in_place ? out : c.out(synthesis ? 6 : 0);
        KRL_CLhybrid_synthesisCL(synthesis, back, out);
    }
    if (analysis)
        c.keep(KRL_hybrid_analysisCL_get_scale(analysis)), c.keep(KRL_hybrid_analysisCL_get_delay(analysis));
    if (synthesis)
        c.keep(KRL_hybrid_synthesisCL_get_delay(synthesis));
    KRL_hybrid_analysisCL_init(analysis), KRL_hybrid_synthesisCL_init(synthesis);
    KRL_hybrid_analysisCL_close(analysis), KRL_hybrid_synthesisCL_close(synthesis);
}

void phase90(Call& c) {
    const uint32_t length = c.one_of({512, 1024, 2048});
    size_t bytes[3];
    getRequiredBufferSize_Phase90Hilbert(length, &bytes[0], &bytes[1], &bytes[2]);
    Phase90Hilbert* filter;
    c.keep(init_Phase90Hilbert(&filter, length, c.memory(bytes[0], 8), static_cast<float*>(c.memory(bytes[1], 4)),
                               static_cast<float*>(c.memory(bytes[2], 4))));
    for (int i = 0; i < 2; i++) {
        c.keep(process_Phase90Hilbert(filter, c.out(filter ? length : 0)));
        if (c.below(3) == 0)
            c.keep(reset_Phase90Hilbert(filter));
    }
}

void add_banks(std::vector<MemoryRules>& all) {
    const MemoryRules rules[] = {
        {{QMF_FUNCTIONS(NAME, L) "KRL_Lqmf_synthesisCL_Head1Bit"}, [](Call& c) { qmf(c, qmf_l); }},
        {{QMF_FUNCTIONS(NAME, S)}, [](Call& c) { qmf(c, qmf_s); }},
        {{"KRL_mfb_p10km_analysisL_query_mem", "KRL_mfb_p10km_analysisL_query_scratch",
          "KRL_CLmfb_p10km_analysisL_init", "KRL_mfb_p10km_analysisL_reset_channel", "KRL_CLmfb_p10km_analysisL",
          "KRL_CLmfb_p10km_analysisL_legacy", "KRL_CLmfb_p10km_analysisL_legacy_twiddle",
          "KRL_load_mfb_p10km_analysisL_filter_state", "KRL_unload_mfb_p10km_analysisL_filter_state",
          "KRL_CLmfb_p10km_analysisL_close"},
         mfb_analysis},
        {{"KRL_mfb_p10km_synthesisCL_query_mem", "KRL_mfb_p10km_synthesisCL_query_scratch",
          "KRL_Lmfb_p10km_synthesisCL_init", "KRL_Lmfb_p10km_synthesisCL_close", "KRL_Lmfb_p10km_synthesisCL_symmetric",
          "KRL_Lmfb_p10km_synthesisCL_legacy", "KRL_Lmfb_p10km_synthesisCL_legacy_extra_latency",
          "KRL_Lmfb_p10km_synthesisCL_even_0", "KRL_Lmfb_p10km_synthesisCL_even_1", "KRL_Lmfb_p10km_synthesisCL_even_2",
          "KRL_Lmfb_p10km_synthesisCL_even_3"},
         mfb_synthesis},
        {{"KRL_hybrid_analysisCL_query_mem", "KRL_hybrid_analysisCL_open", "KRL_hybrid_analysisCL_init",
          "KRL_hybrid_analysisCL_get_delay", "KRL_hybrid_analysisCL_get_scale", "KRL_hybrid_analysisCL_shl",
          "KRL_hybrid_analysisCL_close", "KRL_CLhybrid_analysisCL", "KRL_hybrid_synthesisCL_query_mem",
          "KRL_hybrid_synthesisCL_open", "KRL_hybrid_synthesisCL_init", "KRL_hybrid_synthesisCL_get_delay",
          "KRL_hybrid_synthesisCL_close", "KRL_CLhybrid_synthesisCL"},
         hybrid},
        {{"getRequiredBufferSize_Phase90Hilbert", "init_Phase90Hilbert", "process_Phase90Hilbert",
          "reset_Phase90Hilbert"},
         phase90},
    };
    all.insert(all.end(), std::begin(rules), std::end(rules));
    add_modulation(all);
}

// ---- limiter, engine, helpers

void limiter(Call& c) {
    const uint32_t most = 1 + c.below(4), length = c.one_of({32, 40, 64, 128, 256});
    size_t state, buffer;
    const size_t bytes = korvex_ht_kvlim_query_memory(most, &state, &buffer, length);
    const bool valid = length == 32 || length == 40 || length == 64 || length == 128 || length == 256;
    const bool apart = c.below(2);
    void* const memory = c.memory(!valid ? 0 : apart ? state : bytes);
    auto* const limiter = korvex_ht_kvlim_init(most, length, memory, apart ? c.memory(valid ? buffer : 0) : nullptr);
    c.check((limiter != nullptr) == valid, "a limiter of a length that there is not");
    c.keep(korvex_ht_kvlim_get_version()->major);
    if (!limiter)
        return;
    for (int i = 0; i < 3; i++) {
        c.keep(korvex_ht_kvlim_set_sample_rate(limiter, c.one_of({24000, 44100, 48000, 96000, 192000})));
        c.keep(korvex_ht_kvlim_set_block_size(limiter, c.below(2) ? length * c.below(4) : c.below(999) % (4 * length)));
        c.keep(korvex_ht_kvlim_set_num_channels(limiter, c.any() % (most + 2)));
        korvex_ht_kvlim_set_enable(limiter, c.below(8) != 0);
        korvex_ht_kvlim_set_hard_clip(limiter, c.below(4) == 0);
        korvex_ht_kvlim_set_peak(limiter, std::fabs(c.number()));
        korvex_ht_kvlim_set_boost(limiter, c.number() / 256, c.number() / 256);
        c.keep(korvex_ht_kvlim_get_enable(limiter)), c.keep(korvex_ht_kvlim_get_hard_clip(limiter));
        c.keep(korvex_ht_kvlim_get_peak(limiter)), c.keep(korvex_ht_kvlim_get_boost(limiter));
        c.keep(korvex_ht_kvlim_get_sample_rate(limiter)), c.keep(korvex_ht_kvlim_get_latency(limiter));
        const uint32_t samples = korvex_ht_kvlim_get_block_size(limiter);
        const uint32_t channels = korvex_ht_kvlim_get_num_channels(limiter);
        const uint32_t in_stride = 1 + c.below(3), out_stride = 1 + c.below(3), detected = c.below(3);
        const auto floats = [&](uint32_t stride) { return samples ? (samples - 1) * stride + 1 : 0; };
        std::vector<float*> out;
        std::vector<const float*> in, detect;
        const bool in_place = in_stride == out_stride && c.below(2);
        for (uint32_t ch = 0; ch < channels; ch++) {
            out.push_back(c.out(floats(out_stride)));
            in.push_back(c.below(9) == 0 ? nullptr : in_place ? out.back() : c.coef(floats(in_stride)));
        }
        for (uint32_t ch = 0; ch < detected; ch++)
            detect.push_back(c.below(9) == 0 ? nullptr : c.coef(floats(in_stride)));
        if (c.below(2))
            korvex_ht_kvlim_process(limiter, c.list(out), c.list(in), in_stride, out_stride);
        else
            korvex_ht_kvlim_process_indirect(limiter, c.list(out), c.list(detect), c.list(in), in_stride, out_stride,
                                             detected);
        c.keep(korvex_ht_kvlim_get_limiter_gain(limiter));
        if (c.below(4) == 0)
            korvex_ht_kvlim_reset_state(limiter);
    }
}

void downmix_engine(Call& c) {
    const uint32_t frames_at_once = c.below(12) ? 32 * (1 + c.below(8)) : c.below(300);
    auto* const codes = static_cast<uint8_t*>(c.memory(256));
    std::fill_n(codes, 256, uint8_t{42});
    const uint32_t entries = c.below(14);
    constexpr uint8_t seven_one_four[] = {0, 1, 2, 3, 9, 10, 4, 5, 28, 29, 33, 34};
    const bool usual = c.below(2);
    uint32_t inputs = 0;
    bool known = true;
    for (uint32_t i = 0; i < entries; i++) {
        codes[i] = usual && i < 12 ? seven_one_four[i] : static_cast<uint8_t>(c.any() % 45);
        inputs += codes[i] != 42;
        known &= codes[i] <= 42;
    }
    uint32_t outputs = 0;
    uint64_t bytes = 1;
    kpf_log_set_callback([](void*, const char*) {}, nullptr);
    c.keep(korvex_downmixer_get_num_of_out_channels(codes, &outputs)), c.keep(outputs);
    const bool own = c.below(2);
    if (own)
        outputs = c.below(20) ? 1 + c.below(12) : c.any();
    korvex_downmixer_mem(frames_at_once, codes, outputs, &bytes);
    c.keep(static_cast<double>(bytes));
    const bool possible = bytes > 0 && bytes < guarded_capacity / 2 && known;
    if (!possible)
        return;
    void* const memory = c.memory(bytes);
    std::memset(memory, 0, bytes);
    auto* const engine = korvex_downmixer_init(frames_at_once, c.one_of({48000, 44100, 96000}), codes, outputs,
                                               own ? c.coef(outputs * inputs) : nullptr, memory);
    c.keep(korvex_downmixer_get_latency(engine));
    for (int i = 0; engine && i < 2; i++) {
        const uint32_t frames = c.below(frames_at_once + 1);
        const uint32_t formats[] = {3 + c.below(6), 3 + c.below(6)}; // those of korla/downmixer.h
        const bool straight = formats[0] == KORVEX_FORMAT_FLOAT;
        const auto side = [&](uint32_t format, uint32_t channels, uint32_t length, bool source, bool aligned) {
            constexpr size_t slot[] = {4, 2, 4, 8, 4, 8};
            const size_t width = slot[format - 3];
            const bool interleaved = c.below(2);
            auto* const at = static_cast<uint8_t*>(c.samples(width * channels * length, aligned ? 4 : 1, source));
            std::vector<void*> pointers;
            for (uint32_t ch = 0; ch < channels; ch++)
                pointers.push_back(at + width * (interleaved ? ch : size_t{ch} * length));
            return korvex_downmixer_buffer{channels, interleaved ? channels : 1u, format, c.list(pointers)};
        };
        auto in = side(formats[0], inputs, frames, true, straight);
        auto out = side(straight ? uint32_t{KORVEX_FORMAT_FLOAT} : formats[1], outputs,
                        straight ? frames_at_once : frames, false, straight);
        c.keep(korvex_downmixer_process(engine, &in, &out, frames));
    }
}

void diagnostics(Call& c) {
    kpf_log_set_callback(
        [](void* user, const char* line) { static_cast<Call*>(user)->keep(double(std::strlen(line))); }, &c);
    const uint32_t level = c.any();
    auto* const text = static_cast<char*>(c.memory(c.n + 1));
    text[c.n] = '\0';
    kpf_log(level, c.below(2) ? text : nullptr, c.any_signed(), "%s", text);
    kpf_log_set_level(c.any());
    kpf_log(level, text, 0, "%s", "");
    kpf_log_set_level(0);
    kpf_log_set_callback(nullptr, nullptr);
    static bool aborted;
    aborted = false;
    kpf_abort_handle([] { aborted = true; });
    kpf_abort();
    kpf_abort_handle(nullptr);
    c.check(aborted, "kpf_abort did not call its handler");
}

void add_the_rest(std::vector<MemoryRules>& all) {
    const MemoryRules rules[] = {
        {{"korvex_ht_kvlim_get_version",      "korvex_ht_kvlim_query_memory",     "korvex_ht_kvlim_init",
          "korvex_ht_kvlim_set_enable",       "korvex_ht_kvlim_get_enable",       "korvex_ht_kvlim_set_peak",
          "korvex_ht_kvlim_get_peak",         "korvex_ht_kvlim_set_boost",        "korvex_ht_kvlim_get_boost",
          "korvex_ht_kvlim_get_limiter_gain", "korvex_ht_kvlim_set_hard_clip",    "korvex_ht_kvlim_get_hard_clip",
          "korvex_ht_kvlim_set_sample_rate",  "korvex_ht_kvlim_get_sample_rate",  "korvex_ht_kvlim_set_block_size",
          "korvex_ht_kvlim_get_block_size",   "korvex_ht_kvlim_set_num_channels", "korvex_ht_kvlim_get_num_channels",
          "korvex_ht_kvlim_get_latency",      "korvex_ht_kvlim_reset_state",      "korvex_ht_kvlim_process",
          "korvex_ht_kvlim_process_indirect"},
         limiter},
        {{"korvex_downmixer_get_num_of_out_channels", "korvex_downmixer_mem", "korvex_downmixer_init",
          "korvex_downmixer_get_latency", "korvex_downmixer_process"},
         downmix_engine},
        {{"kpf_log", "kpf_log_set_level", "kpf_log_set_callback", "kpf_abort", "kpf_abort_handle"}, diagnostics},
        {{"KRL_dsplib_init", "KRL_Lpow05I16"},
         [](Call& c) {
             c.keep(KRL_dsplib_init());
             c.keep(KRL_Lpow05I16(static_cast<uint16_t>(c.any())));
         }},
        {{"KRL_time_init", "KRL_time_end", "KRL_time_reset", "KRL_time_add", "KRL_time_sub", "KRL_time_div",
          "KRL_time_lt"},
         [](Call& c) {
             auto* const time = c.record<uint64_t>();
             KRL_time_init(time), KRL_time_end(time), KRL_time_reset(time);
             const uint64_t a = c.any(), b = c.any();
             c.keep(static_cast<double>(KRL_time_add(a, b))), c.keep(static_cast<double>(KRL_time_sub(a, b)));
             c.keep(KRL_time_div(a, c.any())), c.keep(KRL_time_lt(a, b)), c.keep(static_cast<double>(*time));
         }},
    };
    all.insert(all.end(), std::begin(rules), std::end(rules));
}

} // namespace

const std::vector<MemoryRules>& memory_rules() {
    static const auto rules = [] {
        std::vector<MemoryRules> all;
        for (auto* add :
             {add_vectors, add_complex, add_blocks, add_filters, add_kernels, add_transforms, add_banks, add_the_rest})
            add(all);
        return all;
    }();
    return rules;
}

} // namespace korla_test
