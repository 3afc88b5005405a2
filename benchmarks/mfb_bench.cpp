// The modulated bank: ns per slot and per sample, and as a multiple of its FFT alone, timed in the same alternating
// rounds.
//
// Traffic is what one slot of one channel reads and writes outside the FFT, per sample: state (analysis 9 floats read,
// 1 written; synthesis 9 and 9), prototype 10, twiddle 2, time signal 1, bands 2, and the way through scratch
// memory, 4.
#include <korla/dsp/mfb.h>

#include <memory>
#include <vector>

#include "alternating.h"

namespace {

struct Tables {
    uint32_t bands;
    const float *prototype, *twiddle;
};
constexpr Tables sizes[] = {{64, KRL_MFB_P10KM_P64KVX301, KRL_MFB_TWID64E},
                            {128, KRL_MFB_P10KM_P4_319SC_128M, KRL_MFB_TWID128E},
                            {256, KRL_MFB_P10KM_P4_319SC_256M, KRL_MFB_TWID256E}};

// One channel, one instance for each direction, and calls of sixteen slots, all with the same input.
constexpr uint32_t slots_per_call = 16;

struct Bench {
    explicit Bench(const Tables& t)
        : tables(t), analysis_memory(KRL_mfb_p10km_analysisL_query_mem(1, 0, t.bands)),
          synthesis_memory(KRL_mfb_p10km_synthesisCL_query_mem(1, 0, t.bands)),
          scratch(KRL_mfb_p10km_analysisL_query_scratch(0, 0, t.bands)), time(t.bands), bands(2 * t.bands),
          time_out(t.bands), bands_out(2 * t.bands),
          analysis(KRL_CLmfb_p10km_analysisL_init(1, 0, t.bands, analysis_memory.data())),
          synthesis(KRL_Lmfb_p10km_synthesisCL_init(1, 0, t.bands, synthesis_memory.data())) {
        for (uint32_t i = 0; i < 2 * t.bands; i++) {
            bands[i] = static_cast<float>((i * 37) % 64) / 64.0f - 0.5f;
            time[i / 2] = bands[i];
        }
    }
    void analyse(decltype(&KRL_CLmfb_p10km_analysisL) function, int repeats) {
        const float* in[] = {time.data()};
        float* out[] = {bands_out.data()};
        const std::vector<const float* const*> in_slots(slots_per_call, in);
        const std::vector<float* const*> out_slots(slots_per_call, out);
        for (int i = 0; i < repeats; i++)
            function(analysis, tables.prototype, tables.twiddle, scratch.data(), 1, slots_per_call, tables.bands,
                     out_slots.data(), in_slots.data());
        korla_bench::keep(bands_out.data());
    }
    void synthesise(decltype(&KRL_Lmfb_p10km_synthesisCL_symmetric) function, int repeats) {
        const float* in[] = {bands.data()};
        float* out[] = {time_out.data()};
        const std::vector<const float* const*> in_slots(slots_per_call, in);
        const std::vector<float* const*> out_slots(slots_per_call, out);
        for (int i = 0; i < repeats; i++)
            function(synthesis, tables.prototype, tables.twiddle, scratch.data(), 1, slots_per_call, tables.bands,
                     out_slots.data(), in_slots.data());
        korla_bench::keep(time_out.data());
    }

    Tables tables;
    std::vector<char> analysis_memory, synthesis_memory, scratch;
    std::vector<float> time, bands, time_out, bands_out;
    krl_mfb_analysis* analysis;
    krl_mfb_synthesis* synthesis;
};

} // namespace

int main() {
    korla_bench::GeometricMean all;
    for (const Tables& size : sizes) {
        const uint32_t m = size.bands;
        Bench bench(size);
        std::vector<float> fft_in(2 * m), fft_out(2 * m);
        const krl_fft_pair* pair = KRL_r8_cplx_fwd_pair(m);

        std::vector<korla_bench::Contender> contenders;
        contenders.push_back({"FFT alone", [&](int repeats) { // zeros stay zeros, so that no repeat overflows
                                  for (int i = 0; i < repeats; i++)
                                      pair->scaled(fft_out.data(), fft_in.data(), m);
                                  korla_bench::keep(fft_out.data());
                              }});
#define ANALYSIS(function) contenders.push_back({#function, [&](int repeats) { bench.analyse(function, repeats); }});
#define SYNTHESIS(function)                                                                                            \
    contenders.push_back({#function, [&](int repeats) { bench.synthesise(function, repeats); }});
        ANALYSIS(KRL_CLmfb_p10km_analysisL)
        ANALYSIS(KRL_CLmfb_p10km_analysisL_legacy)
        SYNTHESIS(KRL_Lmfb_p10km_synthesisCL_symmetric)
        SYNTHESIS(KRL_Lmfb_p10km_synthesisCL_legacy)
        SYNTHESIS(KRL_Lmfb_p10km_synthesisCL_legacy_extra_latency)
        SYNTHESIS(KRL_Lmfb_p10km_synthesisCL_even_0)
        SYNTHESIS(KRL_Lmfb_p10km_synthesisCL_even_1)
        SYNTHESIS(KRL_Lmfb_p10km_synthesisCL_even_2)
        SYNTHESIS(KRL_Lmfb_p10km_synthesisCL_even_3)
        korla_bench::measure(contenders, 61);

        for (auto& c : contenders)
            if (&c != &contenders[0])
                c.ns /= slots_per_call;
        const double fft = contenders[0].ns;
        std::printf(
            "%u bands, in %s                                per slot  per sample  x FFT  bytes/sample    GB/s\n", m,
            korla_bench::unit());
        for (const auto& c : contenders) {
            std::printf("  %-48s %8.1f", c.name.c_str(), c.ns);
            if (&c != &contenders[0]) {
                const bool is_analysis = c.name.find("analysis") != std::string::npos;
                const int bytes = 4 * (10 + 2 + 1 + 2 + 2 + 2 + (is_analysis ? 10 : 18));
                std::printf("   %8.3f %6.2f %13d %7.1f", c.ns / m, c.ns / fft, bytes, bytes * m / (c.ns - fft));
                all.add(c.ns / fft);
            }
            std::printf("\n");
        }
    }
    std::printf("modulated bank: geometric mean %.2f times the FFT (%d cases)\n", all.value(), all.count());
}
