// Hybrid bank: the three lowest QMF bands split once more by short complex-modulated filters.
#include "korla/dsp/hybrid.h"

#include <cstring>

#include "dsp/core/align.h"
#include "dsp/core/lanes.h"
#include "dsp/core/trig.h"
#include "dsp/fft/fastest.h"
#include "korla/dsp/vector.h"

// The taps carry the sign that is left when the phase factor of a tap is divided by the rotation of its FFT input and
// the FFT's own factor, so that all taps that meet in one FFT input share one rotation.
const float krl_hyb_p8_13[13] = {-0.00746082934f, -0.0227042101f, -0.0454686582f, -0.0726611391f, -0.0988510847f,
                                 0.117937103f,    0.125f,         0.117937103f,   0.0988510847f,  0.0726611391f,
                                 0.0454686582f,   0.0227042101f,  0.00746082934f};
const float krl_hyb_p4_13[13] = {
    -0.00305151916f, 0.00794862304f, 0.0f,           -0.0431892388f, -0.125424489f,  0.212278068f,  0.25f,
    0.212278068f,    0.125424489f,   -0.0431892388f, 0.0f,           0.00794862304f, 0.00305151916f};
const float krl_hyb_p2_6[6] = {0.0189948753f, -0.072931394f, 0.305966318f, 0.305966318f, -0.072931394f, 0.0189948753f};

struct krl_hybrid_analysis {
    uint32_t split;
    uint32_t interleaved;
    float* state;
    const krl_fft_pair* inverse4;
    const krl_fft_pair* inverse8;
};
static_assert(sizeof(krl_hybrid_analysis) == 32);

struct krl_hybrid_synthesis {
    uint32_t split;
    uint32_t interleaved;
};
static_assert(sizeof(krl_hybrid_synthesis) == 8);

namespace krl::hybrid {
namespace {

constexpr uint32_t taps = 13;
constexpr uint32_t lines = 3;              // QMF bands that are split
constexpr uint32_t line_floats = 2 * taps; // complex samples, oldest first
constexpr uint32_t state_floats = lines * line_floats;
constexpr uint32_t delay_slots = 6; // the prototypes are symmetric about tap 6

// Interleaved order: where y0 .. y7, z0 .. z3, w0 .. w3 go, and the sign of their imaginary parts.
constexpr uint8_t interleaved_order[16] = {0, 2, 4, 6, 7, 9, 3, 1, 12, 5, 8, 10, 13, 14, 15, 11};
constexpr float interleaved_sign[16] = {1, 1, 1, 1, 1, 1, -1, -1, 1, 1, 1, 1, 1, 1, 1, 1};

// ---- analysis ------------------------------------------------------------------------------------------------------

// The phase factor e^(2 pi i (q + 1/2)(6 - n) / ways) of tap n is, up to the sign that the table holds, e^(2 pi i m q /
// ways) with m = (6 - n) mod ways, which the inverse FFT supplies, times e^(i pi r / ways), r = m for m <= 1 and m -
// ways above.
template <int ways> struct Rotations {
    float cos[ways], sin[ways];
    constexpr Rotations() : cos{}, sin{} {
        for (int m = 0; m < ways; m++) {
            const sin_cos angle = sin_cos_turn(m <= 1 ? m : m - ways, 2 * ways);
            cos[m] = static_cast<float>(angle.cos);
            sin[m] = static_cast<float>(angle.sin);
        }
    }
};

// A complex sample as one element, so that it moves in one load or store.
KRL_INLINE double one_sample(const float* p) {
    double both;
    std::memcpy(&both, p, sizeof(both));
    return both;
}

// The samples n of one delay line, or of two neighbouring ones side by side.
template <int line_count> KRL_INLINE f32x4 load_sample(const float* line, uint32_t n) {
    const double second = line_count == 2 ? one_sample(line + line_floats + 2 * n) : 0.0;
    return bit_cast<f32x4>(f64x2{one_sample(line + 2 * n), second});
}

// Splits a delay line, or two neighbouring ones, into `ways` sub-bands each: fold the taps to the inputs of the inverse
// FFT, rotate, transform. `y` receives ways * line_count complex sub-bands.
template <int ways, int line_count>
KRL_INLINE void split(float* y, const float* line, const float* prototype, krl_fft_kernel* inverse_fft) {
    static constexpr Rotations<ways> rotations;
    alignas(32) float u[line_count][2 * ways];
    for (uint32_t m = 0; m < ways; m++) {
        f32x4 sum = {};
        for (uint32_t n = (6 + ways - m) % ways; n < taps; n += ways)
            if (prototype[n] != 0.0f) // a sample without weight does not count, finite or not
                sum = mul_add(splat<f32x4>(prototype[n]), load_sample<line_count>(line, n), sum);
        const float c = rotations.cos[m], s = rotations.sin[m];
        const f32x4 rotated = mul_add(sum, splat<f32x4>(c), swap_pairs(sum) * f32x4{-s, s, -s, s});
        std::memcpy(&u[0][2 * m], &rotated, 8);
        if constexpr (line_count == 2)
            std::memcpy(&u[1][2 * m], reinterpret_cast<const char*>(&rotated) + 8, 8);
    }
    for (int i = 0; i < line_count; i++)
        inverse_fft(y + 2 * ways * i, u[i], ways);
}

// Bands 1 and 2 side by side: a half-band filter and its complement. out: low and high of band 1, low and high of
// band 2.
KRL_INLINE void split_in_two(float* out, const float* line) {
    f32x4 sides = splat<f32x4>(krl_hyb_p2_6[0]) * load_sample<2>(line, 1);
    for (uint32_t i = 1; i < 6; i++)
        sides = mul_add(splat<f32x4>(krl_hyb_p2_6[i]), load_sample<2>(line, 2 * i + 1), sides);
    const f32x4 centre = 0.5f * load_sample<2>(line, 6);
    const auto [band1, band2] = interleave_complex(centre + sides, centre - sides);
    store(out, band1);
    store(out + 4, band2);
}

// Every delay line moves down by one sample; what slides from one line into the next is overwritten with the new
// samples.
void append(float* state, const float* in) {
    uint32_t i = 0;
#pragma GCC unroll 32
    for (; i + lanes<f32v> <= state_floats - 2; i += lanes<f32v>)
        store(state + i, load<f32v>(state + i + 2));
    if constexpr (lanes<f32v> == 8)
        store(state + i, load<f32x4>(state + i + 2));
    static_assert((state_floats - 2) % 8 == 4);
    for (uint32_t band = 0; band < lines; band++)
        std::memcpy(state + line_floats * (band + 1) - 2, in + 2 * band, 2 * sizeof(float));
}

void analyse16(const krl_hybrid_analysis& bank, float* out) {
    alignas(32) float y[32];
    float* target = bank.interleaved ? y : out;
    split<8, 1>(target, bank.state, krl_hyb_p8_13, bank.inverse8->unscaled);
    split<4, 2>(target + 16, bank.state + line_floats, krl_hyb_p4_13, bank.inverse4->unscaled);
    if (bank.interleaved)
        for (uint32_t q = 0; q < 16; q++) {
            out[2 * interleaved_order[q]] = y[2 * q];
            out[2 * interleaved_order[q] + 1] = interleaved_sign[q] * y[2 * q + 1];
        }
}

void analyse10(const krl_hybrid_analysis& bank, float* out) {
    alignas(32) float y[16];
    split<8, 1>(y, bank.state, krl_hyb_p8_13, bank.inverse8->unscaled);
    const f32x4 y23 = load<f32x4>(y + 4), y54 = reverse_complex(load<f32x4>(y + 8));
    store(out, load<f32x4>(y));
    store(out + 4, y23 + y54);
    store(out + 8, load<f32x4>(y + 12));
    split_in_two(out + 12, bank.state + line_floats);
}

// ---- synthesis -----------------------------------------------------------------------------------------------------

// The sum of an even number of complex samples, two at a time.
KRL_INLINE void add_up(float* out, const float* y, uint32_t count) {
    f32x4 sum = load<f32x4>(y);
    for (uint32_t i = 2; i < count; i += 2)
        sum += load<f32x4>(y + 2 * i);
    sum += reverse_complex(sum);
    std::memcpy(out, &sum, 2 * sizeof(float));
}

// ---- instances -----------------------------------------------------------------------------------------------------

bool is_valid(int32_t config) { return (config & 2) == 0; }
uint32_t split_of(int32_t config) { return static_cast<uint32_t>(config) & 3; }
uint32_t interleaved_of(int32_t config) { return static_cast<uint32_t>(config) & 4; }

uint32_t report_bytes(uint32_t* state, uint32_t* scratch, uint32_t* instance, uint32_t state_size,
                      uint32_t instance_size) {
    if (state)
        *state = state_size;
    if (scratch)
        *scratch = 0;
    if (instance)
        *instance = instance_size;
    return instance_size;
}

} // namespace
} // namespace krl::hybrid

using namespace krl::hybrid;

uint32_t KRL_hybrid_analysisCL_query_mem(int32_t, uint32_t* state, uint32_t* scratch, uint32_t* instance) {
    return report_bytes(state, scratch, instance, sizeof(float) * state_floats + 31, sizeof(krl_hybrid_analysis) + 7);
}

krl_hybrid_analysis* KRL_hybrid_analysisCL_open(int32_t config, void* state_memory, void*, void* instance_memory) {
    if (!is_valid(config) || !state_memory || !instance_memory)
        return nullptr;
    auto* bank = krl::align_up<krl_hybrid_analysis>(instance_memory, 8);
    bank->split = split_of(config);
    bank->interleaved = interleaved_of(config);
    bank->state = krl::align_up<float>(state_memory, krl::strict_alignment);
    bank->inverse4 = krl::fft::fastest_inverse(4);
    bank->inverse8 = krl::fft::fastest_inverse(8);
    KRL_hybrid_analysisCL_init(bank);
    return bank;
}

void KRL_hybrid_analysisCL_init(krl_hybrid_analysis* bank) {
    if (bank)
        std::memset(bank->state, 0, sizeof(float) * state_floats);
}

uint32_t KRL_hybrid_analysisCL_get_delay(const krl_hybrid_analysis*) { return delay_slots; }

uint32_t KRL_hybrid_analysisCL_get_scale(const krl_hybrid_analysis* bank) {
    return bank ? krl_vec_UnormLU_flex(bank->state, state_floats) : 0;
}

void KRL_hybrid_analysisCL_shl(krl_hybrid_analysis* bank, int32_t shift) {
    if (bank)
        krl_vec_LshlLIU_inplace_flex(bank->state, shift, state_floats);
}

void KRL_hybrid_analysisCL_close(krl_hybrid_analysis*) {}

void KRL_CLhybrid_analysisCL(krl_hybrid_analysis* bank, float* out, const float* in) {
    if (!bank || !out || !in)
        return;
    append(bank->state, in);
    if (bank->split)
        analyse16(*bank, out);
    else
        analyse10(*bank, out);
}

uint32_t KRL_hybrid_synthesisCL_query_mem(int32_t, uint32_t* state, uint32_t* scratch, uint32_t* instance) {
    return report_bytes(state, scratch, instance, 0, sizeof(krl_hybrid_synthesis) + 7);
}

krl_hybrid_synthesis* KRL_hybrid_synthesisCL_open(int32_t config, void*, void*, void* instance_memory) {
    if (!is_valid(config) || !instance_memory)
        return nullptr;
    auto* bank = krl::align_up<krl_hybrid_synthesis>(instance_memory, 8);
    bank->split = split_of(config);
    bank->interleaved = interleaved_of(config);
    return bank;
}

void KRL_hybrid_synthesisCL_init(krl_hybrid_synthesis*) {}
uint32_t KRL_hybrid_synthesisCL_get_delay(const krl_hybrid_synthesis*) { return delay_slots; }
void KRL_hybrid_synthesisCL_close(krl_hybrid_synthesis*) {}

void KRL_CLhybrid_synthesisCL(krl_hybrid_synthesis* bank, float* out, const float* in) {
    if (!bank || !out || !in)
        return;
    alignas(32) float y[32];
    if (bank->split && bank->interleaved) {
        for (uint32_t q = 0; q < 16; q++) {
            y[2 * q] = in[2 * interleaved_order[q]];
            y[2 * q + 1] = interleaved_sign[q] * in[2 * interleaved_order[q] + 1];
        }
        in = y;
    }
    const uint32_t parts = bank->split ? 8 : 6, side_parts = bank->split ? 4 : 2; // of band 0, of bands 1 and 2
    float sums[6]; // before the first store: out may be in
    add_up(sums, in, parts);
    add_up(sums + 2, in + 2 * parts, side_parts);
    add_up(sums + 4, in + 2 * (parts + side_parts), side_parts);
    std::memcpy(out, sums, sizeof(sums));
}
