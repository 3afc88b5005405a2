// Real transforms, stateless and through a state, against the defining sum.
#include <korla/dsp/fft.h>
#include <korla/dsp/rfft.h>

#include <map>
#include <string>

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

// A state that was asked for one transform runs it.
using ThroughState = void (*)(const krl_fft_state*, float* out, float* in);
template <ThroughState transform, uint32_t bit> void run_state(float* in, float* out, uint32_t n) {
    alignas(8) uint8_t memory[47];
    const krl_fft_state* state = KRL_fft_init(memory, n, bit);
    ASSERT_NE(state, nullptr);
    transform(state, out, in);
}
template <auto rsplit> void run_halves(float* in, float* out, uint32_t n) { rsplit(in + n, in, out, n); }

// Every way to transform a real signal of length 2n, and back.
struct Transform {
    const char* name;
    void (*run)(float* in, float* out, uint32_t n);
    bool inverse;
    double (*gain)(double n);
    bool keeps_input = false;
    uint32_t longest = 4096;
};
void PrintTo(const Transform& t, std::ostream* out) { *out << t.name; }
double one(double) { return 1.0; }
double by_n(double n) { return 1.0 / n; }
double by_2n(double n) { return 0.5 / n; }
double times_2n(double n) { return 2.0 * n; }
const Transform transforms[] = {
    {"rfft_nn", KRL_r4_rfft_nn, false, one},
    {"rfft_nn_s", KRL_r4_rfft_nn_s, false, by_2n},
    {"rsplit_fft_nn", run_halves<KRL_r4_rsplit_fft_nn>, false, by_n, true},
    {"rsplit_fft_nn_s", run_halves<KRL_r4_rsplit_fft_nn_s>, false, by_2n, true},
    {"fwd_unscaledL", run_state<KRL_fft_CLfwd_unscaledL, KRL_FFT_REAL_FWD_UNSCALED>, false, one, false, 2048},
    {"fwd_scaledL", run_state<KRL_fft_CLfwd_scaledL, KRL_FFT_REAL_FWD_SCALED>, false, by_2n, false, 2048},
    {"inv_rfft_nn", KRL_r4_inv_rfft_nn, true, times_2n},
    {"inv_rfft_half_n", KRL_r4_inv_rfft_half_n, true, times_2n},
    {"inv_rfft_nn_s", KRL_r4_inv_rfft_nn_s, true, one},
    {"inv_unscaledCL", run_state<KRL_fft_Linv_unscaledCL, KRL_FFT_REAL_INV_UNSCALED>, true, times_2n, false, 2048},
    {"inv_scaledCL", run_state<KRL_fft_Linv_scaledCL, KRL_FFT_REAL_INV_SCALED>, true, one, false, 2048}};

class RealFft : public ::testing::TestWithParam<Transform> {
protected:
    const Transform& t = GetParam();
};

TEST_P(RealFft, GivesThePackedSpectrumOrItsSignal) {
    for (uint32_t n = 2; n <= t.longest; n *= 2) {
        const auto signal = signal_of(n);
        const Spectrum &spectrum = packed_spectrum(n), samples = complex_of(signal.data(), n);
        std::vector<float> given = signal;
        for (size_t i = 0; t.inverse && i < 2 * n; i++)
            given[i] = static_cast<float>(i % 2 == 0 ? spectrum[i / 2].real() : spectrum[i / 2].imag());
        GuardedBuffer<float> in(given, 1), out(2 * n, 2);
        t.run(in.data(), out.data(), n);
        const Error e = error_of(out.data(), t.inverse ? samples : spectrum, t.gain(n));
        EXPECT_LT(e.rms, rms_bound(4 * n)) << n; // the split is one stage more
        EXPECT_LT(e.worst, 5 * rms_bound(4 * n)) << n;
        if (t.keeps_input) {
            EXPECT_BITS_EQ(in.data(), given, 2 * n) << n;
        }
    }
}

TEST_P(RealFft, ConstantSignalHasOnlyItsMean) {
    for (uint32_t n = 2; n <= t.longest; n *= 2) {
        std::vector<float> signal(2 * n, 0.5f), mean(2 * n);
        mean[0] = static_cast<float>(t.inverse ? 0.5 : n * t.gain(n)); // of 2n samples
        GuardedBuffer<float> in(t.inverse ? mean : signal), out(2 * n);
        if (t.inverse)
            std::fill(signal.begin(), signal.end(), static_cast<float>(0.5 / (2.0 * n) * t.gain(n)));
        t.run(in.data(), out.data(), n);
        EXPECT_EQ(out.values(), t.inverse ? signal : mean) << n;
    }
}

TEST_P(RealFft, UnsupportedLengthsWriteNothing) {
    if (t.longest < 4096)
        return; // a state refuses them
    for (uint32_t n : {0u, 1u, 3u, 6u, 480u, 4095u, 8192u}) {
        GuardedBuffer<float> in(std::vector<float>(8, 1.0f)), out(8);
        t.run(in.data(), out.data(), n);
        EXPECT_EQ(in.values(), std::vector<float>(8, 1.0f)) << n;
        EXPECT_EQ(out.values(), std::vector<float>(8, 0.0f)) << n;
    }
}

INSTANTIATE_TEST_SUITE_P(All, RealFft, ::testing::ValuesIn(transforms),
                         [](const auto& test) { return std::string(test.param.name); });

TEST(RealFftByHand, FourSamples) {
    GuardedBuffer<float> in({1, 2, 4, 8}), out(4);
    KRL_r4_rfft_nn(in.data(), out.data(), 2);
    EXPECT_EQ(out.values(), (std::vector<float>{15, -5, 1 - 4, 8 - 2}));
}

} // namespace
