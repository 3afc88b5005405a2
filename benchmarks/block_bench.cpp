// Block primitives against what bounds them: element-wise members and mixes against plain loops and against memcpy or memset of the
// bytes they move, recursions against their dependency chain, FIR filters against plain loops.
#include <korla/dsp/block.h>
#include <korla/dsp/block_filter.h>
#include <korla/dsp/block_scalar.h>

#include <algorithm>
#include <cstring>

#include "alternating.h"
#include "block_plain.h"

using namespace korla_bench;

namespace {

constexpr int block = KRL_BLK_LEN;

alignas(64) float x[16][block], y[2 * block], other[block], coef[1024], state[1024 + 2 * block];

// Calls f as often as asked, one call after the other; the compiler sees neither which function it is nor its effect.
template <class F, class... A> Contender calls(const char* name, F* f, A... arguments) {
    return {name, [=](int repeats) {
                F* function = f;
                asm volatile("" : "+r"(function) : : "memory");
                for (int i = 0; i < repeats; i++)
                    function(arguments...);
            }};
}
#define CALLS(function, ...) calls(#function, function, __VA_ARGS__)

// Filters that work in place get the same input every time, so that none is fed with its own output; pairs of blocks
// are taken in turn, so that no call waits for what the one before has stored.
template <class F, class... A> Contender calls_in_place(const char* name, F* f, A... arguments) {
    return {name, [=](int repeats) {
                F* function = f;
                asm volatile("" : "+r"(function) : : "memory");
                for (int i = 0; i < repeats; i++) {
                    std::memcpy(other, x[0], sizeof(other));
                    function(other, arguments...);
                }
            }};
}
#define CALLS_IN_PLACE(function, ...) calls_in_place(#function, function, __VA_ARGS__)
template <class F> Contender calls_on_pairs(const char* name, F* f) { // for operations that take two blocks
    return {name, [=](int repeats) {
                F* function = f;
                asm volatile("" : "+r"(function) : : "memory");
                for (int i = 0; i < repeats; i++)
                    function(x[8 + 2 * (i & 3)], x[9 + 2 * (i & 3)]);
            }};
}
#define CALLS_ON_PAIRS(function) calls_on_pairs(#function, function)

void print_row(const Contender& c, const Contender& bound, double ratio) {
    std::printf("%-44s %8.2f %s   %-28s %8.2f %s   %5.2f\n", c.name.c_str(), c.ns, unit(), bound.name.c_str(), bound.ns,
                unit(), ratio);
}

// ---- element-wise members and mixes --------------------------------------------------------------------------------

struct Moving {
    Contender work;
    int blocks; // read and written
    Contender plain = {};
};
// Both entries of an operation and its plain loop.
#define BOTH(calls, op, blocks, ...)                                                                                   \
    {calls(krl_##op##_flex __VA_OPT__(, ) __VA_ARGS__), blocks, calls(plain_##op __VA_OPT__(, ) __VA_ARGS__)}, {       \
        calls(KRL_##op##_strict __VA_OPT__(, ) __VA_ARGS__), blocks, calls(plain_##op __VA_OPT__(, ) __VA_ARGS__)      \
    }
#define LISTED(op, blocks, ...)                                                                                        \
    {CALLS(KRL_##op, __VA_ARGS__), blocks, CALLS(plain_##op, __VA_ARGS__)}, {                                          \
        CALLS(KRL_##op##_strict, __VA_ARGS__), blocks, CALLS(plain_##op, __VA_ARGS__)                                  \
    }

struct Means {
    double of_moving, of_plain;
};

Means bench_moving(std::vector<Moving> rows) {
    GeometricMean moving, plain;
    for (auto& row : rows) {
        const bool is_fill = row.blocks == 1;
        const size_t bytes = row.blocks * sizeof(float) * block / (is_fill ? 1 : 2);
        std::vector<Contender> all = {row.work};
        if (is_fill)
            all.push_back(calls("memset", std::memset, static_cast<void*>(y), 0, bytes));
        else
            all.push_back(calls("memcpy", std::memcpy, static_cast<void*>(y), static_cast<const void*>(x[0]), bytes));
        if (!row.plain.name.empty())
            all.push_back(row.plain);
        measure(all);
        moving.add(all[0].ns / all[1].ns);
        std::printf("%-40s %8.2f %s   %s %8.2f  %5.2f", all[0].name.c_str(), all[0].ns, unit(), all[1].name.c_str(),
                    all[1].ns, all[0].ns / all[1].ns);
        if (all.size() > 2) {
            plain.add(all[0].ns / all[2].ns);
            std::printf("   plain loop %8.2f  %5.2f", all[2].ns, all[0].ns / all[2].ns);
        }
        std::printf("\n");
    }
    return {moving.value(), plain.value()};
}

std::vector<Moving> elementwise() {
    float* const d = y;
    return {
        BOTH(CALLS, blk_LabsL, 2, d, x[0]),
        BOTH(CALLS, blk_LclipL, 2, d, coef, x[0]),
        BOTH(CALLS, blk_LcmpLL, 3, d, coef, x[0], x[1]),
        BOTH(CALLS, blk_Lconst, 1, d, 1.0f),
        BOTH(CALLS, blk_LmaxLL, 3, d, x[0], x[1]),
        BOTH(CALLS, blk_LminLL, 3, d, x[0], x[1]),
        BOTH(CALLS, blk_LmaxLLL, 4, d, x[0], x[1], x[2]),
        BOTH(CALLS, blk_LminLLL, 4, d, x[0], x[1], x[2]),
        BOTH(CALLS, blk_LsaddLL, 3, d, x[0], x[1]),
        BOTH(CALLS, blk_LsubLL, 3, d, x[0], x[1]),
        BOTH(CALLS_ON_PAIRS, blk_LLdeshuffleLL_inplace, 4),
        BOTH(CALLS_ON_PAIRS, blk_LLshuffleLL_inplace, 4),
        BOTH(CALLS, blk_Lmpy_shlLSU, 3, d, x[0], x[1], 3u),
        BOTH(CALLS, blk_Lmpy_shlLLU, 3, d, x[0], x[1], 3u),
        BOTH(CALLS, BLmaxBLL, 2, d, x[0], 0.5f),
        BOTH(CALLS, BLmpy_scaleBLSU, 2, d, x[0], 0.7f, 3u),
        BOTH(CALLS, BLmpy_scale_xBLSU, 2, d, x[0], 0.7f, 3u),
        BOTH(CALLS, BLsaddBLL, 2, d, x[0], 0.5f),
    };
}

std::vector<Moving> mixes() {
    float* const d = y;
    const float *x0 = x[0], *x1 = x[1], *x2 = x[2], *x3 = x[3], *x4 = x[4], *x5 = x[5], *x6 = x[6], *x7 = x[7];
    return {
        BOTH(CALLS, blk_LmixL, 2, d, coef, x0),
        BOTH(CALLS, blk_LmixLL, 3, d, coef, x0, x1),
        BOTH(CALLS, blk_LmixLLL, 4, d, coef, x0, x1, x2),
        BOTH(CALLS, blk_LmixLLLL, 5, d, coef, x0, x1, x2, x3),
        BOTH(CALLS, blk_Lmix_shlUL, 2, d, coef, 1u, x0),
        BOTH(CALLS, blk_Lmix_shlULL, 3, d, coef, 1u, x0, x1),
        BOTH(CALLS, blk_Lmix_shlULLL, 4, d, coef, 1u, x0, x1, x2),
        BOTH(CALLS, blk_Lmix_shlULLLL, 5, d, coef, 1u, x0, x1, x2, x3),
        LISTED(blk_LmixnL, 3, d, coef, 2u, x0, x1),
        LISTED(blk_LmixnL, 9, d, coef, 8u, x0, x1, x2, x3, x4, x5, x6, x7),
        LISTED(blk_Lmix_shlUnL, 9, d, coef, 1u, 8u, x0, x1, x2, x3, x4, x5, x6, x7),
        LISTED(blk_Lmix_shlaL, 3, d, coef, 2u, x0, 1u),
        LISTED(blk_Lmix_shlaL, 9, d, coef, 8u, x0, 1u),
    };
}

// The members of the filter family that move blocks without a recursion.
std::vector<Moving> moving_filters() {
    static krl_crossfade_state fade = {0, 128};
    static krl_delay_state delay = {0, 480, state};
    static krl_fir2_state two = {};
    static krl_fir3_state three = {};
    float* const d = y;
    return {
        {CALLS(krl_blk_Lfir2L_flex, d, x[0], coef, &two), 2},
        {CALLS(KRL_blk_Lfir2L_strict, d, x[0], coef, &two), 2},
        {CALLS(krl_blk_Lfir3L_flex, d, x[0], coef, &three), 2},
        {CALLS(KRL_blk_Lfir3L_strict, d, x[0], coef, &three), 2},
        {CALLS(krl_blk_Lcrossfade_gainLS_flex, d, &fade, x[0], coef, 0.5f, 1.0f), 4},
        {CALLS(KRL_blk_Lcrossfade_gainLS_strict, d, &fade, x[0], coef, 0.5f, 1.0f), 4},
        {CALLS(krl_blk_delayL_flex, &delay, x[0]), 2},
        {CALLS(KRL_blk_delayL_strict, &delay, x[0]), 2},
        {CALLS(krl_blk_LdelayU_flex, &delay, d, 77u), 2},
        {CALLS(KRL_blk_LdelayU_strict, &delay, d, 77u), 2},
    };
}

// ---- recursions ----------------------------------------------------------------------------------------------------

#if defined(__x86_64__)
#    define PIN(v) asm volatile("" : "+x"(v))
#else
#    define PIN(v) asm volatile("" : "+w"(v))
#endif

// ns of one operation that waits for the one before.
template <class T, class F> double latency(F operation) {
    std::vector<Contender> one = {{"", [operation](int repeats) {
                                       T v = 1.0f;
                                       for (int i = 0; i < repeats; i++) {
#pragma GCC unroll 32
                                           for (int j = 0; j < 32; j++) {
                                               v = static_cast<T>(operation(v));
                                               PIN(v);
                                           }
                                       }
                                   }}};
    measure(one);
    return one[0].ns / 32;
}

template <class T> struct Latencies {
    double add, mul, fma, max;
    Latencies() {
        T one = 1, zero = 0;
        PIN(one);
        PIN(zero);
        add = latency<T>([=](T v) { return v + zero; });
        mul = latency<T>([=](T v) { return v * one; });
        fma = latency<T>([=](T v) { return __builtin_fma(v, one, zero); });
        max = latency<T>([=](T v) { return v > one ? v : one; });
        if constexpr (sizeof(T) == 4)
            fma = latency<T>([=](T v) { return __builtin_fmaf(v, one, zero); });
#if defined(__aarch64__)
        max = latency<T>([=](T v) { return sizeof(T) == 4 ? __builtin_fmaxf(v, one) : __builtin_fmax(v, one); });
#endif
    }
};

struct Recursion {
    Contender work;
    double chain; // ns a sample; the longest path through the steps that wait for each other
    int samples = block;
};

double bench_recursions() {
    const Latencies<float> f;
    const Latencies<double> d;
    std::printf(
        "latencies in ns, float: add %.3f mul %.3f fma %.3f max %.3f; double: add %.3f mul %.3f fma %.3f max %.3f\n",
        f.add, f.mul, f.fma, f.max, d.add, d.mul, d.fma, d.max);

    static krl_iir1_state iir1;
    static krl_iir1x_state iir1x;
    static krl_iir2df1_state df1;
    static krl_iir2ss_state ss, many[8];
    static krl_envelope_state envelope;
    static krl_integrator_state integrator;
    static krl_reciprocal_state reciprocal = {1.0f};
    static float c1[] = {0.1f, 0.15f, 0.75f}, c2[] = {0.2f, 0.3f, -0.1f, 0.79f, -0.81f},
                 cs[] = {0.25f, 0.3f, -0.2f, 0.6f, 0.5f}, ct[] = {0.25f, 0.3f, -0.2f, 0.6f, -0.45f},
                 ce[] = {0.3f, 0.01f, 0.9f}, ci[] = {1.0f, -1.0f};
    static float* blocks[8] = {x[8], x[9], x[10], x[11], x[12], x[13], x[14], x[15]};
    static krl_iir2ss_state* records[8] = {many, many + 1, many + 2, many + 3, many + 4, many + 5, many + 6, many + 7};

    const double first_order = f.mul + 2 * f.fma, rotation = f.mul + 2 * f.fma;
    const double two_samples = std::max(2 * f.fma, (f.mul + 4 * f.fma) / 2); // a loop over two samples
    const double follow = d.mul + d.fma + d.max;
    const double integrate = latency<float>([](float v) {
        v += 0.25f;
        v = v > -1.0f ? v : -1.0f;
        return v < 1.0f ? v : 1.0f;
    });
    const double newton = 2 * f.mul + f.fma + f.max;
    std::vector<Recursion> rows = {
        {CALLS(krl_blk_Liir1L_flex, y, x[0], c1, &iir1), first_order},
        {CALLS(KRL_blk_Liir1L_strict, y, x[0], c1, &iir1), first_order},
        {CALLS(krl_blk_Liir1_shlLU_flex, y, x[0], c1, &iir1, 2u), first_order},
        {CALLS(KRL_blk_Liir1_shlLU_strict, y, x[0], c1, &iir1, 2u), first_order},
        {CALLS(krl_blk_Liir1_shl_addLL_flex, y, x[0], x[1], c1, &iir1), first_order},
        {CALLS(KRL_blk_Liir1_shl_addLL_strict, y, x[0], x[1], c1, &iir1), first_order},
        {CALLS(krl_blk_Liir1xL_flex, y, x[0], c1, &iir1x), 2 * d.fma},
        {CALLS(KRL_blk_Liir1xL_strict, y, x[0], c1, &iir1x), 2 * d.fma},
        {CALLS(krl_blk_Liir2df1L_flex, y, x[0], c2, &df1), two_samples},
        {CALLS(KRL_blk_Liir2df1L_strict, y, x[0], c2, &df1), two_samples},
        {CALLS(krl_blk_Liir2ssv1L_flex, y, x[0], cs, &ss), rotation},
        {CALLS(KRL_blk_Liir2ssv1L_strict, y, x[0], cs, &ss), rotation},
        {CALLS(krl_blk_Liir2ssv1efL_flex, y, x[0], cs, &ss), rotation},
        {CALLS(KRL_blk_Liir2ssv1efL_strict, y, x[0], cs, &ss), rotation},
        {CALLS(krl_blk_Liir2ssv1_dsmpL_flex, y, x[0], cs, &ss), rotation, 2 * block},
        {CALLS(KRL_blk_Liir2ssv1_dsmpL_strict, y, x[0], cs, &ss), rotation, 2 * block},
        {CALLS(krl_blk_Liir2ssv1_usmpL_flex, y, x[0], cs, &ss), rotation, 2 * block},
        {CALLS(KRL_blk_Liir2ssv1_usmpL_strict, y, x[0], cs, &ss), rotation, 2 * block},
        {CALLS(krl_blk_Liir2ssv2L_flex, y, x[0], ct, &ss), two_samples},
        {CALLS(KRL_blk_Liir2ssv2L_strict, y, x[0], ct, &ss), two_samples},
        {CALLS_IN_PLACE(krl_blk_Liir2ssv2L_inplace_flex, ct, &ss), two_samples},
        {CALLS_IN_PLACE(KRL_blk_Liir2ssv2L_inplace_strict, ct, &ss), two_samples},
        {CALLS(krl_blk_Liir2ssv2_shlLU_flex, y, x[0], ct, &ss, 2u), two_samples},
        {CALLS(KRL_blk_Liir2ssv2_shlLU_strict, y, x[0], ct, &ss, 2u), two_samples},
        {CALLS_IN_PLACE(krl_blk_Liir2ssv3L_inplace_flex, ct, &ss), rotation},
        {CALLS_IN_PLACE(KRL_blk_Liir2ssv3L_inplace_strict, ct, &ss), rotation},
        {CALLS(krl_blk_Lattack_decay_iir1L_flex, y, x[0], ce, &envelope), follow},
        {CALLS(KRL_blk_Lattack_decay_iir1L_strict, y, x[0], ce, &envelope), follow},
        {CALLS(krl_blk_Lattack_decay_peak_iir1L_flex, y, x[0], ce, &envelope), follow + d.max},
        {CALLS(KRL_blk_Lattack_decay_peak_iir1L_strict, y, x[0], ce, &envelope), follow + d.max},
        {CALLS(krl_blk_LintegrateL_flex, y, x[0], ci, &integrator), integrate},
        {CALLS(KRL_blk_LintegrateL_strict, y, x[0], ci, &integrator), integrate},
        {CALLS(krl_blk_LnrrecipLU_flex, y, x[0], 0u, &reciprocal), newton},
        {CALLS(KRL_blk_LnrrecipLU_strict, y, x[0], 0u, &reciprocal), newton},
        {CALLS(KRL_blk_Liir2ssv3aLU_inplace, blocks, ct, records, 8u), rotation, 8 * block},
        {CALLS(KRL_blk_Liir2ssv3aLU_inplace_strict, blocks, ct, records, 8u), rotation, 8 * block},
    };
    GeometricMean mean;
    for (auto& row : rows) {
        std::vector<Contender> one = {row.work};
        measure(one);
        const double ratio = one[0].ns / (row.chain * row.samples);
        if (row.samples <= 2 * block)
            mean.add(ratio);
        print_row(one[0], {"chain", nullptr, nullptr, row.chain * row.samples}, ratio);
    }
    return mean.value();
}

// ---- FIR -----------------------------------------------------------------------------------------------------------

double bench_fir() {
    GeometricMean mean;
    for (uint32_t taps : {4u, 8u, 12u, 16u, 24u, 32u, 64u, 100u, 128u, 256u, 512u}) {
        std::printf("%u taps\n", taps);
        static float plain_state[1024 + 2 * block];
        std::vector<Contender> all = {
            CALLS(krl_blk_LfirUL_flex, y, x[0], taps, coef, state),
            CALLS(KRL_blk_LfirUL_strict, y, x[0], taps, coef, state),
            calls("plain loop by outputs", plain_fir_by_outputs, y, plain_state, x[0], coef, size_t{taps}),
            calls("plain loop by taps", plain_fir_by_taps, y, plain_state, x[0], coef, size_t{taps}),
            calls("plain, eight outputs", plain_fir_by_taps_for_eight, y, plain_state, x[0], coef, size_t{taps}),
        };
        measure(all);
        const Contender& best = *std::min_element(all.begin() + 2, all.end(),
                                                  [](const Contender& a, const Contender& b) { return a.ns < b.ns; });
        for (int entry : {0, 1}) {
            mean.add(best.ns / all[entry].ns);
            print_row(all[entry], best, best.ns / all[entry].ns);
        }
    }
    return mean.value();
}

} // namespace

int main() {
    uint32_t seed = 1;
    auto noise = [&] { return static_cast<float>((seed = seed * 1664525u + 1013904223u) >> 8) * 0x1p-23f - 1.0f; };
    for (auto& b : x)
        for (float& v : b)
            v = noise();
    for (float& v : coef)
        v = 0.1f * noise();
    coef[0] = -0.5f, coef[1] = 0.5f; // limits, and gains that keep mixes ordinary
    const Means elementwise_means = bench_moving(elementwise()), mixes_means = bench_moving(mixes());
    const double filters_mean = bench_moving(moving_filters()).of_moving;
    const double recursions_mean = bench_recursions();
    const double fir_mean = bench_fir();
    std::printf("\ngeometric means\n");
    std::printf("element-wise blocks: %.2f of the time of memcpy or memset, %.2f of that of plain loops\n",
                elementwise_means.of_moving, elementwise_means.of_plain);
    std::printf("mixes: %.2f of the time of memcpy, %.2f of that of plain loops\n", mixes_means.of_moving,
                mixes_means.of_plain);
    std::printf("two and three taps, crossfade, delay line: %.2f of the time of memcpy\n", filters_mean);
    std::printf("recursions: %.2f of the time of their dependency chain\n", recursions_mean);
    std::printf("FIR: %.2f times as fast as the best plain loop\n", fir_mean);
}
