#include <korla/dsp/fft.h>
#include <korla/dsp/rfft.h>

#include <map>

#include "guarded_buffer.h"
#include "reference/dft.h"
#include "signals.h"

using namespace korla_test;

namespace {

std::vector<float> signal_of(uint32_t n) { return Random(n).vector(2 * n); }

// The packed spectrum of signal_of(n), bins 0 and n in element 0; computed once.
const Spectrum& packed_spectrum(uint32_t n) {
    static std::map<uint32_t, Spectrum> known;
    auto& s = known[n];
    if (s.empty()) {
        const auto signal = signal_of(n);
        s = direct_dft(Spectrum(signal.begin(), signal.end()), -1, n + 1);
        s[0] = {s[0].real(), s[n].real()};
        s.resize(n);
    }
    return s;
}
double bound(uint32_t n) { return 0x1p-24 * (2.0 + 0.6 * std::log2(n)); }

// Every way to transform a real signal of length 2n, stateless and through a state. The state of a state-based row
// covers n up to 2048.
using Forward = void (*)(const krl_fft_state*, float* in, float* out, uint32_t n);
struct ForwardRow {
    const char* name;
    Forward run;
    double gain_over_n;
    bool keeps_input, needs_state;
};
const ForwardRow forward_rows[] = {
    {"KRL_r4_rfft_nn", [](const krl_fft_state*, float* in, float* out, uint32_t n) { KRL_r4_rfft_nn(in, out, n); }, 0,
     false, false},
    {"KRL_r4_rfft_nn_s", [](const krl_fft_state*, float* in, float* out, uint32_t n) { KRL_r4_rfft_nn_s(in, out, n); },
     0.5, false, false},
    {"KRL_r4_rsplit_fft_nn",
     [](const krl_fft_state*, float* in, float* out, uint32_t n) { KRL_r4_rsplit_fft_nn(in + n, in, out, n); }, 1, true,
     false},
    {"KRL_r4_rsplit_fft_nn_s",
     [](const krl_fft_state*, float* in, float* out, uint32_t n) { KRL_r4_rsplit_fft_nn_s(in + n, in, out, n); }, 0.5,
     true, false},
    {"KRL_fft_CLfwd_unscaledL",
     [](const krl_fft_state* s, float* in, float* out, uint32_t) { KRL_fft_CLfwd_unscaledL(s, out, in); }, 0, false,
     true},
    {"KRL_fft_CLfwd_scaledL",
     [](const krl_fft_state* s, float* in, float* out, uint32_t) { KRL_fft_CLfwd_scaledL(s, out, in); }, 0.5, false,
     true}};
using Inverse = void (*)(const krl_fft_state*, float* spectrum, float* out, uint32_t n);
struct InverseRow {
    const char* name;
    Inverse run;
    bool scaled, needs_state;
};
const InverseRow inverse_rows[] = {
    {"KRL_r4_inv_rfft_nn",
     [](const krl_fft_state*, float* in, float* out, uint32_t n) { KRL_r4_inv_rfft_nn(in, out, n); }, false, false},
    {"KRL_r4_inv_rfft_half_n",
     [](const krl_fft_state*, float* in, float* out, uint32_t n) { KRL_r4_inv_rfft_half_n(in, out, n); }, false, false},
    {"KRL_r4_inv_rfft_nn_s",
     [](const krl_fft_state*, float* in, float* out, uint32_t n) { KRL_r4_inv_rfft_nn_s(in, out, n); }, true, false},
    {"KRL_fft_Linv_unscaledCL",
     [](const krl_fft_state* s, float* in, float* out, uint32_t) { KRL_fft_Linv_unscaledCL(s, out, in); }, false, true},
    {"KRL_fft_Linv_scaledCL",
     [](const krl_fft_state* s, float* in, float* out, uint32_t) { KRL_fft_Linv_scaledCL(s, out, in); }, true, true}};

class RealFft : public ::testing::TestWithParam<uint32_t> {
protected:
    const uint32_t n = GetParam();
    const size_t length = 2 * n;
    const std::vector<float> signal = signal_of(n);
    alignas(8) uint8_t memory[47];
    const krl_fft_state* state = KRL_fft_init(memory, n, 0xf0);
};

TEST_P(RealFft, ForwardGivesThePackedSpectrum) {
    for (const ForwardRow& row : forward_rows) {
        if (row.needs_state && state == nullptr)
            continue;
        GuardedBuffer<float> in(signal, 1), out(length, 2);
        row.run(state, in.data(), out.data(), n);
        const double gain = row.gain_over_n == 0 ? 1.0 : row.gain_over_n / n;
        const Error e = error_of(out.data(), packed_spectrum(n), gain);
        EXPECT_LT(e.rms, bound(n)) << row.name;
        EXPECT_LT(e.worst, 5 * bound(n)) << row.name;
        if (row.keeps_input) {
            EXPECT_BITS_EQ(in.data(), signal, length) << row.name;
        }
    }
}

TEST_P(RealFft, InverseOfTheSpectrumGivesTheSignal) {
    const Spectrum expected = complex_of(signal.data(), n);
    for (const InverseRow& row : inverse_rows) {
        if (row.needs_state && state == nullptr)
            continue;
        GuardedBuffer<float> in(length, 1), out(length, 2);
        const Spectrum& exact = packed_spectrum(n);
        for (size_t k = 0; k < n; k++) {
            in[2 * k] = static_cast<float>(exact[k].real());
            in[2 * k + 1] = static_cast<float>(exact[k].imag());
        }
        row.run(state, in.data(), out.data(), n);
        EXPECT_LT(error_of(out.data(), expected, row.scaled ? 1.0 : 2.0 * n).rms, bound(n)) << row.name;
    }
}

TEST_P(RealFft, ConstantSignalHasOnlyItsMean) {
    for (const ForwardRow& row : forward_rows) {
        if (row.needs_state && state == nullptr)
            continue;
        GuardedBuffer<float> in(std::vector<float>(length, 0.5f)), out(length);
        row.run(state, in.data(), out.data(), n);
        std::vector<float> expected(length);
        expected[0] = static_cast<float>(n * (row.gain_over_n == 0 ? 1.0 : row.gain_over_n / n));
        for (size_t i = 0; i < length; i++)
            EXPECT_EQ(out[i], expected[i]) << row.name << ' ' << i;
    }
}

INSTANTIATE_TEST_SUITE_P(Lengths, RealFft, ::testing::Values(2, 4, 8, 16, 32, 64, 128, 256, 512, 1024, 2048, 4096));

TEST(RealFftByHand, FourSamples) {
    GuardedBuffer<float> in({1, 2, 4, 8}), out(4);
    KRL_r4_rfft_nn(in.data(), out.data(), 2);
    EXPECT_EQ(out.values(), (std::vector<float>{15, -5, 1 - 4, 8 - 2}));
}

TEST(RealFftLengths, UnsupportedOnesWriteNothing) {
    for (uint32_t n : {0u, 1u, 3u, 6u, 480u, 4095u, 8192u}) {
        GuardedBuffer<float> in(std::vector<float>(8, 1.0f)), out(8);
        for (const ForwardRow& row : forward_rows)
            if (!row.needs_state)
                row.run(nullptr, in.data(), out.data(), n);
        for (const InverseRow& row : inverse_rows)
            if (!row.needs_state)
                row.run(nullptr, in.data(), out.data(), n);
        EXPECT_EQ(in.values(), std::vector<float>(8, 1.0f)) << n;
        EXPECT_EQ(out.values(), std::vector<float>(8, 0.0f)) << n;
    }
}

} // namespace
