// The hybrid bank: ns per slot, and as a multiple of the FFTs inside (one of 8 points; split 1 also two of 4).
#include <korla/dsp/hybrid.h>

#include <vector>

#include "alternating.h"

int main() {
    korla_bench::GeometricMean all;
    for (const int32_t config : {0, 1, 5}) {
        std::vector<char> state(343), analysis_memory(39), synthesis_memory(15);
        auto* analysis = KRL_hybrid_analysisCL_open(config, state.data(), nullptr, analysis_memory.data());
        auto* synthesis = KRL_hybrid_synthesisCL_open(config, nullptr, nullptr, synthesis_memory.data());
        float in[6] = {0.1f, -0.2f, 0.3f, -0.4f, 0.5f, -0.6f}, bands[32] = {}, out[6], u[16] = {}, y[16];
        const krl_fft_pair *fft8 = KRL_r4_cplx_inv_pair(8), *fft4 = KRL_r4_cplx_inv_pair(4);
        std::vector<korla_bench::Contender> contenders;
        contenders.push_back({"FFTs alone", [&](int repeats) {
                                  for (int i = 0; i < repeats; i++) {
                                      fft8->unscaled(y, u, 8);
                                      if (config & 1) {
                                          fft4->unscaled(y, u, 4);
                                          fft4->unscaled(y + 8, u + 8, 4);
                                      }
                                  }
                                  korla_bench::keep(y);
                              }});
        contenders.push_back({"KRL_CLhybrid_analysisCL", [&](int repeats) {
                                  for (int i = 0; i < repeats; i++)
                                      KRL_CLhybrid_analysisCL(analysis, bands, in);
                                  korla_bench::keep(bands);
                              }});
        contenders.push_back({"KRL_CLhybrid_synthesisCL", [&](int repeats) {
                                  for (int i = 0; i < repeats; i++)
                                      KRL_CLhybrid_synthesisCL(synthesis, out, bands);
                                  korla_bench::keep(out);
                              }});
        korla_bench::measure(contenders, 61);
        std::printf("configuration %d       %12s/slot  x FFTs\n", config, korla_bench::unit());
        for (const auto& c : contenders)
            std::printf("  %-26s %9.1f %7.2f\n", c.name.c_str(), c.ns, c.ns / contenders[0].ns);
        all.add(contenders[1].ns / contenders[0].ns);
    }
    std::printf("hybrid analysis: geometric mean %.2f times its FFTs (%d cases)\n", all.value(), all.count());
}
