// Complex and real transforms beside FFTW (planned with MEASURE and PATIENT), libavutil's av_tx and KissFFT.
//
// One line a length: ns per forward transform of every contender, the ratio of the best peer to the better of our
// kernels (above 1: we are faster), and the rate by 5 N log2 N as a share of the measured FMA peak of this machine.
// Arguments are lengths to run; without any, all complex and real ones run, those on trial (plans.h) included.
//
// Kernels use their input as work area, so that a repeated call inside a timed batch works on what the last one left
// there. Values do not change the speed of vector arithmetic as long as none is subnormal, and transforms make them
// grow.
#include <fftw3.h>
#include <kissfft/kiss_fft.h>
#include <kissfft/kiss_fftr.h>
extern "C" {
#include <libavutil/mem.h>
#include <libavutil/tx.h>
}
#include <korla/dsp/fft.h>
#include <korla/dsp/rfft.h>

#include <cstdlib>
#include <memory>
#include <set>

#include "alternating.h"
#include "dsp/core/lanes.h"
#include "dsp/fft/kernels.h"

using namespace korla_bench;

namespace {

// Room for the longest transform on the boundaries that every contender likes best.
struct alignas(64) Buffer {
    float data[2 * 4096 + 16];
};
Buffer source, input, output;

void refresh_input() {
    for (size_t i = 0; i < std::size(input.data); i++)
        input.data[i] = source.data[i];
}

// Floating-point operations per nanosecond of fused multiply-adds that depend on nothing but themselves.
double measured_peak() {
    using namespace krl;
    std::vector<Contender> peak = {{"fma", [](int repeats) {
                                        f32v sum[10];
                                        for (int i = 0; i < 10; i++)
                                            sum[i] = splat<f32v>(static_cast<float>(i));
                                        f32v a = splat<f32v>(0.5f), b = splat<f32v>(0.25f);
                                        asm volatile("" : "+x"(a), "+x"(b));
                                        for (int r = 0; r < 100 * repeats; r++)
                                            for (auto& s : sum)
                                                s = fma(s, a, b);
                                        for (auto& s : sum)
                                            asm volatile("" : : "x"(s));
                                    }}};
    measure(peak);
    return 100 * 10 * 2.0 * lanes<f32v> / peak[0].ns;
}

struct PlanDeleter {
    void operator()(fftwf_plan_s* p) const { fftwf_destroy_plan(p); }
    void operator()(AVTXContext* c) const { av_tx_uninit(&c); }
    void operator()(void* p) const { std::free(p); }
};
using FftwPlan = std::unique_ptr<fftwf_plan_s, PlanDeleter>;

class Peers {
public:
    Peers(int n, bool real) {
        auto* in = input.data;
        auto* out = output.data;
        struct Effort {
            const char* name;
            unsigned flag;
        };
        // Under the counting emulator the time that a plan takes says nothing.
        const std::vector<Effort> efforts =
            counted ? std::vector<Effort>{{"fftw-estimate", FFTW_ESTIMATE}}
                    : std::vector<Effort>{{"fftw-measure", FFTW_MEASURE}, {"fftw-patient", FFTW_PATIENT}};
        for (const auto& [name, effort] : efforts) {
            auto plan = std::make_shared<FftwPlan>(
                real ? fftwf_plan_dft_r2c_1d(2 * n, in, reinterpret_cast<fftwf_complex*>(out),
                                             effort | FFTW_DESTROY_INPUT)
                     : fftwf_plan_dft_1d(n, reinterpret_cast<fftwf_complex*>(in), reinterpret_cast<fftwf_complex*>(out),
                                         FFTW_FORWARD, effort | FFTW_DESTROY_INPUT));
            all.push_back({name,
                           [plan](int repeats) {
                               for (int i = 0; i < repeats; i++)
                                   fftwf_execute(plan->get());
                           },
                           refresh_input});
        }
        AVTXContext* context = nullptr;
        av_tx_fn transform = nullptr;
        const float scale = 1.0f;
        if (av_tx_init(&context, &transform, real ? AV_TX_FLOAT_RDFT : AV_TX_FLOAT_FFT, 0, real ? 2 * n : n, &scale,
                       0) >= 0) {
            auto owner = std::shared_ptr<AVTXContext>(context, PlanDeleter{});
            all.push_back({"av_tx",
                           [owner, transform, real](int repeats) {
                               for (int i = 0; i < repeats; i++)
                                   transform(owner.get(), output.data, input.data,
                                             real ? sizeof(float) : 2 * sizeof(float));
                           },
                           refresh_input});
        }
        if (real) {
            auto plan = std::shared_ptr<kiss_fftr_state>(kiss_fftr_alloc(2 * n, 0, nullptr, nullptr), PlanDeleter{});
            all.push_back({"kissfft",
                           [plan](int repeats) {
                               for (int i = 0; i < repeats; i++)
                                   kiss_fftr(plan.get(), input.data, reinterpret_cast<kiss_fft_cpx*>(output.data));
                           },
                           refresh_input});
        } else {
            auto plan = std::shared_ptr<kiss_fft_state>(kiss_fft_alloc(n, 0, nullptr, nullptr), PlanDeleter{});
            all.push_back({"kissfft",
                           [plan](int repeats) {
                               for (int i = 0; i < repeats; i++)
                                   kiss_fft(plan.get(), reinterpret_cast<const kiss_fft_cpx*>(input.data),
                                            reinterpret_cast<kiss_fft_cpx*>(output.data));
                           },
                           refresh_input});
        }
    }
    std::vector<Contender> all;
};

Contender kernel_contender(const char* name, krl_fft_kernel* kernel, int n) {
    return {name,
            [kernel, n](int repeats) {
                for (int i = 0; i < repeats; i++)
                    kernel(output.data, input.data, static_cast<uint32_t>(n));
            },
            refresh_input};
}

// A length that the library does not export, compiled here from its plan.
template <int N> void on_trial(float* out, float* in, uint32_t) {
    krl::fft::kernel<N, krl::fft::direction::forward, false, krl::fft::rounding::full>(out, in);
}

const std::vector<const char*> columns =
    counted ? std::vector<const char*>{"radix4", "radix8", "fftw-estimate", "av_tx", "kissfft"}
            : std::vector<const char*>{"radix4", "radix8", "fftw-measure", "fftw-patient", "av_tx", "kissfft"};

// Runs and prints one length: `own` first, then the peers. Returns best peer / best own.
double compare(int n, std::vector<Contender> own, bool real, double peak) {
    const size_t count = own.size();
    std::vector<Contender> all = std::move(own);
    for (auto& peer : Peers(n, real).all)
        all.push_back(std::move(peer));
    measure(all);
    double best = INFINITY, best_peer = INFINITY;
    const char* peer_name = "";
    for (size_t i = 0; i < all.size(); i++)
        if (i < count)
            best = std::fmin(best, all[i].ns);
        else if (all[i].ns < best_peer)
            best_peer = all[i].ns, peer_name = all[i].name.c_str();
    const int points = real ? 2 * n : n;
    const double rate = (real ? 2.5 : 5.0) * points * std::log2(points) / best;
    std::printf("%6d", points);
    for (const char* name : columns) {
        double ns = NAN;
        for (const auto& c : all)
            if (c.name == name)
                ns = c.ns;
        std::isnan(ns) ? std::printf("             -") : std::printf(" %13.1f", ns);
    }
    std::printf("  %6.2f  %-13s %5.1f%%\n", best_peer / best, peer_name, 100.0 * rate / peak);
    std::fflush(stdout);
    return best_peer / best;
}

void print_heading(const char* what) {
    std::printf("\n%s\n%6s", what, "length");
    for (const char* name : columns)
        std::printf(" %13s", name);
    std::printf("  %6s  %-13s %s\n", "ratio", "best peer", "of peak");
}

} // namespace

int main(int argc, char** argv) {
    std::set<int> chosen;
    for (int i = 1; i < argc; i++)
        chosen.insert(std::atoi(argv[i]));
    const auto wanted = [&](int n) { return chosen.empty() || chosen.contains(n); };

    uint32_t random = 1;
    for (float& x : source.data) {
        random = random * 1664525u + 1013904223u;
        x = static_cast<float>(random >> 8) * 0x1p-23f - 1.0f;
    }
    const double peak = measured_peak();
    std::printf("FMA peak: %.1f GFLOP/s. Times in %s.\n", peak, unit());

    GeometricMean powers, mixed, trial, real;
    const auto run_complex = [&](int n, GeometricMean& mean, krl_fft_kernel* radix4, krl_fft_kernel* radix8) {
        if (!wanted(n))
            return;
        std::vector<Contender> own = {kernel_contender("radix4", radix4, n)};
        if (radix8)
            own.push_back(kernel_contender("radix8", radix8, n));
        mean.add(compare(n, std::move(own), false, peak));
    };
    const auto run_exported = [&](int n, GeometricMean& mean) {
        const auto length = static_cast<uint32_t>(n);
        const krl_fft_pair* radix8 = KRL_r8_cplx_fwd_pair(length);
        run_complex(n, mean, KRL_r4_cplx_fwd_unscaled(length), radix8 ? radix8->unscaled : nullptr);
    };
    print_heading("Complex, powers of two");
    for (int n : krl::fft::powers_of_two)
        run_exported(n, powers);
    print_heading("Complex, mixed lengths");
    for (int n : krl::fft::mixed_lengths)
        run_exported(n, mixed);
    print_heading("Complex, on trial");
    krl::fft::for_each_trial_length([&](auto n) { run_complex(n, trial, on_trial<n>, nullptr); });
    print_heading("Real (KRL_r4_rfft_nn)");
    for (int n : krl::fft::powers_of_two)
        if (wanted(2 * n))
            real.add(compare(n,
                             {{"radix4",
                               [n](int repeats) {
                                   for (int i = 0; i < repeats; i++)
                                       KRL_r4_rfft_nn(input.data, output.data, static_cast<uint32_t>(n));
                               },
                               refresh_input}},
                             true, peak));

    std::printf("\nGeometric means of best peer / own:");
    const std::pair<const char*, const GeometricMean&> means[] = {
        {"powers of two", powers}, {"mixed", mixed}, {"on trial", trial}, {"real", real}};
    for (const auto& [name, mean] : means)
        if (mean.count() > 0)
            std::printf("  %s %.3f (%d lengths)", name, mean.value(), mean.count());
    std::printf("\n");
}
