// The QMF banks: ns per sample, and each slot as a multiple of the FFT inside it.
//
// One line a bank: ns per time sample, ns per slot, the ratio of a slot to its FFT alone (length M for complex
// sub-bands, M/2 for real ones), and the bytes that a slot loads and stores beside its FFT, counted from the algorithm,
// with the rate that results.
#include <korla/dsp/qmf.h>

#include <cstdlib>

#include "alternating.h"

using namespace korla_bench;

namespace {

constexpr uint32_t slots = 16;

struct Memory {
    std::vector<char> state = std::vector<char>(4096), scratch = std::vector<char>(4096),
                      instance = std::vector<char>(256);
};

template <class Call> Contender contender(const char* name, Call call) {
    return {name, [call](int repeats) {
                for (int i = 0; i < repeats; i++)
                    call();
            }};
}

// Bytes per slot, in floats per band: what the filter, the modulation and the copies around the FFT load and store.
double bytes_per_slot(uint32_t M, uint32_t P, bool analysis, bool complex, bool twiddle) {
    const double taps = 2 * P, history = 2 * P - 1;
    double floats = taps;                 // prototype
    floats += analysis ? history + 1 + 1  // past blocks, new block, its place in the ring
                       : 2 * history + 1; // delay line in and out, output
    if (complex)
        floats += 2 + 2 + 2 + 2 + 2; // rotations, FFT in, FFT out, sub-bands, reordered
    else
        floats += analysis ? 2 + 2 + 2 + 4 : 1 + 4 + 4 + 2 + 2; // fold or expand, DCT around its FFT
    if (twiddle)
        floats += 2 + 2 + 2;
    return floats * M * sizeof(float);
}

void run(uint32_t M, uint32_t P, uint32_t mode, const float* ana, const float* syn, GeometricMean& ratios) {
    static std::vector<float> x(64 * slots), y(64 * slots), X(2 * 64 * slots), fft_in(128), fft_out(128);
    for (size_t i = 0; i < x.size(); i++)
        x[i] = static_cast<float>((i * 37) % 64) / 32.0f - 1.0f;
    std::vector<float*> rows;
    for (uint32_t s = 0; s < slots; s++)
        rows.push_back(X.data() + s * 2 * M);
    const float* const* in_rows = rows.data();

    Memory a, s;
    krl_qmf_analysis* analysis =
        krl_qmf_analysisL_open(M, slots, mode, P, ana, a.state.data(), a.scratch.data(), a.instance.data());
    krl_qmf_synthesis* synthesis =
        krl_qmf_synthesisL_open(M, slots, mode, P, syn, s.state.data(), s.scratch.data(), s.instance.data());
    const auto fft = [&](uint32_t n) {
        const krl_fft_pair* pair = KRL_r8_cplx_fwd_pair(n);
        krl_fft_kernel* kernel = krl_valid_pair_ptr(pair) ? pair->unscaled : KRL_r4_cplx_fwd_unscaled(n);
        return contender("fft", [=] {
            for (uint32_t i = 0; i < slots; i++) {
                kernel(fft_out.data(), fft_in.data(), n);
                keep(fft_out.data());
            }
        });
    };
    std::vector<Contender> contenders = {
        contender("KRL_CLqmf_analysisL", [&] { KRL_CLqmf_analysisL(analysis, rows.data(), x.data()); }),
        contender("KRL_Lqmf_synthesisCL", [&] { KRL_Lqmf_synthesisCL(synthesis, y.data(), in_rows); }),
        contender("KRL_Lqmf_analysisL", [&] { KRL_Lqmf_analysisL(analysis, X.data(), x.data()); }),
        contender("KRL_Lqmf_synthesisL", [&] { KRL_Lqmf_synthesisL(synthesis, y.data(), X.data()); }),
        fft(M),
        fft(M / 2)};
    contenders[0].run(1); // sub-bands of a signal, not zeros
    measure(contenders);
    for (int i = 0; i < (mode == 0 ? 4 : 2); i++) {
        const bool complex = i < 2;
        const double slot = contenders[i].ns / slots, ratio = contenders[i].ns / contenders[complex ? 4 : 5].ns;
        const double bytes = bytes_per_slot(M, P, i % 2 == 0, complex, complex && mode != 0 && !(mode == 8 && M == 64));
        std::printf(
            "%-22s M %2u P %u mode %u  %s/sample %6.2f  a slot %7.1f  slot/FFT %5.2f  bytes/slot %6.0f  GB/s %6.1f\n",
            contenders[i].name.c_str(), M, P, mode, unit(), slot / M, slot, ratio, bytes, bytes / slot);
        if (complex && M == 64)
            ratios.add(ratio);
    }
}

} // namespace

int main() {
    GeometricMean ratios;
    for (uint32_t mode : {0u, 8u, 1u}) {
        run(64, 5, mode, krl_qmf_filter_coeff_P5_vec_ana, krl_qmf_filter_coeff_P5_vec_syn, ratios);
        run(64, 4, mode, krl_qmf_filter_coeff_P4_vec_ana, krl_qmf_filter_coeff_P4_vec_syn, ratios);
        if (mode != 1)
            run(48, 5, mode, krl_qmf_filter_coeff_P5_p64kvx301_48_vec_ana, krl_qmf_filter_coeff_P5_p64kvx301_48_vec_syn,
                ratios);
        run(32, 5, mode, krl_qmf_filter_coeff_P5_32_vec_ana, krl_qmf_filter_coeff_P5_32_vec_syn, ratios);
        run(16, 5, mode, krl_qmf_filter_coeff_P5_p64kvx301_16_vec_ana, krl_qmf_filter_coeff_P5_p64kvx301_16_vec_syn,
            ratios);
        run(8, 5, mode, krl_qmf_filter_coeff_P5_p64kvx301_8_vec_ana, krl_qmf_filter_coeff_P5_p64kvx301_8_vec_syn,
            ratios);
    }
    std::printf("64-band complex slot over its FFT: geometric mean %.2f over %d banks\n", ratios.value(),
                ratios.count());
}
