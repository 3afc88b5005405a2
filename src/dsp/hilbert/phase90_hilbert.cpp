// The 90-degree phase shifter: a chain of all-passes forward in time, a second one backward, both on two sample phases.
#include "korla/dsp/phase90_hilbert.h"

#include <cstring>

#include "dsp/core/align.h"
#include "dsp/core/lanes.h"

using namespace krl;

static_assert(sizeof(void*) != 8 || sizeof(Phase90Hilbert) == 104);

namespace {

constexpr int32_t ok = 0, refused = 2;
constexpr size_t delay = KRL_PHASE90_DELAY;

// The newest samples of the buffer warm up the first backward section alone.
constexpr size_t warm_up = 981;

constexpr float high_pass_gain = 0.49868774f, high_pass_pole = 0.994751f;
constexpr float forward_coefficients[3] = {0.979126f, 0.8451538f, 0.23730469f};
constexpr float backward_coefficients[3] = {0.99176025f, 0.94262695f, 0.61724854f};

inline bool supported(uint32_t block_length) {
    return block_length == 512 || block_length == 1024 || block_length == 2048;
}

// Every section is a function of z^-2, so even and odd samples are two independent signals: the first two lanes.
using phases = f32x4;
inline phases load_phases(const float* p) { return load_first<f32x4>(p, 2); }
inline void store_phases(float* p, phases v) { store_first(p, v, 2); }

// Three all-pass sections in series, y[n] = a (y[n-2] - x[n]) + x[n-2]. The output of one is the input of the next, so
// four delayed values are the state of all three.
struct AllPassChain {
    const float* a;
    phases delayed[4]; // input, outputs

    // The first `sections` of the three. Written so that y[n-2] meets one fused step: the recursion runs at its
    // latency.
    template <int sections = 3> KRL_INLINE phases step(phases x) {
#pragma GCC unroll 3
        for (int j = 0; j < sections; j++) {
            const phases k = splat<phases>(a[j]);
            const phases y = fma(k, delayed[j + 1], fma(-k, x, delayed[j]));
            delayed[j] = x;
            x = y;
        }
        delayed[sections] = x;
        return x;
    }
    void load(const float (*pairs)[2]) {
        for (int j = 0; j < 4; j++)
            delayed[j] = load_phases(pairs[j]);
    }
    void store(float (*pairs)[2]) const {
        for (int j = 0; j < 4; j++)
            store_phases(pairs[j], delayed[j]);
    }
};

// The high-pass h[n] = p h[n-2] - g x[n] + g x[n-2] and the forward chain.
void filter_forward(float (*state)[2], const float* x, float* y, size_t n) {
    phases scaled = load_phases(state[0]);
    AllPassChain chain{forward_coefficients, {}};
    chain.load(state + 1);
    for (size_t i = 0; i < n; i += 2) {
        const phases next = load_phases(x + i) * high_pass_gain;
        const phases h = fma(splat<phases>(high_pass_pole), chain.delayed[0], scaled - next);
        scaled = next;
        store_phases(y + i, chain.step(h));
    }
    store_phases(state[0], scaled);
    chain.store(state + 1);
}

// Input and output of the first backward section at the two positions behind the newest sample, as the forward chain's
// state lets expect them.
void expect_future(phases* delayed, const float (*forward)[2]) {
    constexpr float weights[2][5] = {{-0.1963725f, 0.005217236f, -0.0409322f, 0.79944104f, 0.23730469f},
                                     {0.6783012f, 0.9836525f, 0.6426439f, -0.6991622f, -0.23414071f}};
    for (int k = 0; k < 2; k++) {
        delayed[k] = load_phases(forward[0]) * weights[k][0];
        for (int j = 1; j < 5; j++)
            delayed[k] = fma(load_phases(forward[j]), splat<phases>(weights[k][j]), delayed[k]);
    }
}

// In place from the end of work towards its beginning, a pair of positions a step. The output of the third section goes
// one position ahead of where it was computed.
void filter_backward(float (*state)[2], const float (*forward)[2], float* work, size_t n) {
    const phases none{};
    AllPassChain chain{backward_coefficients, {}};
    expect_future(chain.delayed, forward);
    size_t i = n;
    while (i > n - warm_up + 1) {
        i -= 2;
        store_phases(work + i, chain.step<1>(load_phases(work + i)) * 2.0f);
    }
    // warm_up is odd: in this pair the odd position is the last to pass one section, the even one the first to pass
    // three.
    i -= 2;
    phases third = even_odd(chain.step(load_phases(work + i)), none);
    store_phases(work + i, even_odd(none, chain.delayed[1] * 2.0f));
    chain.delayed[2] = even_odd(chain.delayed[2], none);
    chain.delayed[3] = third;
    while (i > 0) {
        i -= 2;
        const phases next = chain.step(load_phases(work + i));
        store_phases(work + i, swap_pairs(even_odd(third, next)) * 2.0f);
        third = next;
    }
    chain.store(state);
}

// samples[n] = work[n] + (1 - n/N) step, where step leads from work[0] to the boundary value of the former block.
void fade_from_boundary(float* samples, const float* work, float boundary, size_t n, float inverse) {
    const float step = boundary - work[0];
    f32v weight;
    for (int i = 0; i < lanes<f32v>; i++)
        weight[i] = 1.0f - static_cast<float>(i) * inverse;
    for (size_t i = 0; i < n; i += lanes<f32v>) {
        store(samples + i, fma(weight, splat<f32v>(step), load<f32v>(work + i)));
        weight -= lanes<f32v> * inverse; // exact: multiples of 1/N
    }
    samples[0] = boundary; // without the rounding of two differences
}

} // namespace

int32_t getRequiredBufferSize_Phase90Hilbert(uint32_t block_length, size_t* instance_bytes, size_t* work_bytes,
                                             size_t* history_bytes) {
    const bool granted = supported(block_length) && instance_bytes && work_bytes && history_bytes;
    if (instance_bytes)
        *instance_bytes = granted ? sizeof(Phase90Hilbert) : 0;
    if (work_bytes)
        *work_bytes = granted ? (block_length + delay) * sizeof(float) : 0;
    if (history_bytes)
        *history_bytes = granted ? delay * sizeof(float) : 0;
    return granted ? ok : refused;
}

int32_t init_Phase90Hilbert(Phase90Hilbert** handle, uint32_t block_length, void* instance, float* work,
                            float* history) {
    if (!handle)
        return refused;
    *handle = nullptr;
    if (!supported(block_length) || !instance || !work || !history || !is_aligned(instance, alignof(Phase90Hilbert)) ||
        !is_aligned(work, alignof(float)) || !is_aligned(history, alignof(float)))
        return refused;
    auto* p = static_cast<Phase90Hilbert*>(instance);
    p->block_length = static_cast<uint16_t>(block_length);
    p->inverse_block_length = 1.0f / static_cast<float>(block_length);
    p->history = history;
    p->work = work;
    *handle = p;
    return reset_Phase90Hilbert(p);
}

int32_t process_Phase90Hilbert(Phase90Hilbert* instance, float* samples) {
    if (!instance || !samples || !is_aligned(samples, alignof(float)))
        return refused;
    const size_t n = instance->block_length;
    float *work = instance->work, *history = instance->history;
    std::memcpy(work, history, delay * sizeof(float));
    filter_forward(instance->forward, samples, work + delay, n);
    std::memcpy(history, work + n, delay * sizeof(float));
    filter_backward(instance->backward, instance->forward, work, n + delay);
    fade_from_boundary(samples, work, instance->boundary, n, instance->inverse_block_length);
    instance->boundary = work[n];
    return ok;
}

int32_t reset_Phase90Hilbert(Phase90Hilbert* instance) {
    if (!instance)
        return refused;
    std::memset(instance->backward, 0, sizeof(instance->backward));
    std::memset(instance->forward, 0, sizeof(instance->forward));
    instance->boundary = 0.0f;
    std::memset(instance->history, 0, delay * sizeof(float));
    return ok;
}
