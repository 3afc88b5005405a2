// Cosine transforms beside FFTW: its own REDFT10 and REDFT01, and its real FFT with a plain reorder and rotation.
//
// One line a length and transform: ns per call, the rate by 2.5 N log2 N, and the ratio of the better peer to ours
// (above 1: we are faster). Arguments are lengths to run; without any, all supported lengths run.
//
// All contenders work on zeros: transforms that destroy their input can then repeat inside a timed batch without ever
// meeting a subnormal number, and vector arithmetic takes the same time for any other value.
#include <fftw3.h>
#include <korla/dsp/dct.h>

#include <cstdlib>
#include <memory>
#include <numbers>

#include "alternating.h"

using namespace korla_bench;

namespace {

struct alignas(64) Buffer {
    float data[8192 + 64];
};
Buffer in, out, work;

// Under the counting emulator the time that a plan takes says nothing.
constexpr unsigned fftw_effort = counted ? FFTW_ESTIMATE : FFTW_PATIENT;

using Plan = std::shared_ptr<fftwf_plan_s>;
Plan plan_dct(int N, fftwf_r2r_kind kind) {
    return {fftwf_plan_r2r_1d(N, in.data, out.data, kind, fftw_effort | FFTW_DESTROY_INPUT), fftwf_destroy_plan};
}

// cos and sin of pi k / (2N), k = 0..N/2, times gain.
std::vector<float> rotations(int N, double gain) {
    std::vector<float> t;
    for (int k = 0; k <= N / 2; k++)
        for (double offset : {0.5, 0.0})
            t.push_back(static_cast<float>(gain * std::sin(std::numbers::pi * (k / (2.0 * N) + offset))));
    return t;
}

// A plain DCT-II on a real FFT: from `in` to `out`.
class PlainDct2 {
public:
    explicit PlainDct2(int length)
        : N(length), rotation(rotations(N, 1.0)),
          fft(fftwf_plan_dft_r2c_1d(N, out.data, reinterpret_cast<fftwf_complex*>(work.data),
                                    fftw_effort | FFTW_DESTROY_INPUT),
              fftwf_destroy_plan) {}
    void operator()() const {
        for (int j = 0; j < N / 2; j++) {
            out.data[j] = in.data[2 * j];
            out.data[N - 1 - j] = in.data[2 * j + 1];
        }
        fftwf_execute(fft.get());
        out.data[0] = work.data[0];
        for (int k = 1; k <= N / 2; k++) {
            const float re = work.data[2 * k], im = work.data[2 * k + 1], c = rotation[2 * k], s = rotation[2 * k + 1];
            out.data[k] = re * c + im * s;
            out.data[N - k] = re * s - im * c;
        }
    }

private:
    int N;
    std::vector<float> rotation;
    Plan fft;
};

// A plain scaled DCT-III on a real inverse FFT.
class PlainDct3 {
public:
    explicit PlainDct3(int length)
        : N(length), rotation(rotations(N, 0.5 / N)),
          fft(fftwf_plan_dft_c2r_1d(N, reinterpret_cast<fftwf_complex*>(work.data), in.data,
                                    fftw_effort | FFTW_DESTROY_INPUT),
              fftwf_destroy_plan) {}
    void operator()() const {
        work.data[0] = 2 * rotation[0] * in.data[0];
        work.data[1] = 0.0f;
        for (int k = 1; k <= N / 2; k++) {
            const float a = in.data[k], b = in.data[N - k], c = rotation[2 * k], s = rotation[2 * k + 1];
            work.data[2 * k] = a * c + b * s;
            work.data[2 * k + 1] = a * s - b * c;
        }
        fftwf_execute(fft.get());
        for (int j = 0; j < N / 2; j++) {
            out.data[2 * j] = in.data[j];
            out.data[2 * j + 1] = in.data[N - 1 - j];
        }
    }

private:
    int N;
    std::vector<float> rotation;
    Plan fft;
};

template <class Call> Contender contender(const char* name, Call call) {
    return {name, [call](int repeats) {
                for (int i = 0; i < repeats; i++) {
                    call();
                    keep(out.data);
                }
            }};
}

void clear() {
    for (Buffer* b : {&in, &out, &work})
        for (float& v : b->data)
            v = 0.0f;
}

// The contenders must compute the same transform, up to a factor.
void check(const std::vector<Contender>& contenders, int N) {
    std::vector<float> reference;
    for (const auto& c : contenders) {
        for (int i = 0; i < N; i++)
            in.data[i] = i == 0 ? 0.0f : static_cast<float>((i * 37 + 11) % 64 - 31) / 32.0f;
        c.run(1);
        double cross = 0.0, own = 0.0, first = 0.0;
        if (reference.empty())
            reference.assign(out.data, out.data + N);
        for (int i = 0; i < N; i++) {
            cross += static_cast<double>(out.data[i]) * reference[i];
            own += static_cast<double>(out.data[i]) * out.data[i];
            first += static_cast<double>(reference[i]) * reference[i];
        }
        if (cross < 0.99999 * std::sqrt(own * first)) {
            std::printf("%s of length %d is another transform\n", c.name.c_str(), N);
            std::exit(1);
        }
    }
}

double compare(const char* name, std::vector<Contender> contenders, int N) {
    check(contenders, N);
    clear();
    measure(contenders);
    const double peer = std::min(contenders[1].ns, contenders[2].ns), ratio = peer / contenders[0].ns;
    std::printf("%-20s %5d  %s %9.1f  GFLOP/s %6.2f  redft %9.1f  rfft+rotation %9.1f  ratio %5.2f\n", name, N, unit(),
                contenders[0].ns, 2.5 * N * std::log2(N) / contenders[0].ns, contenders[1].ns, contenders[2].ns, ratio);
    return ratio;
}

} // namespace

int main(int argc, char** argv) {
    std::vector<int> lengths;
    for (int i = 1; i < argc; i++)
        lengths.push_back(std::atoi(argv[i]));
    if (lengths.empty())
        for (int N = 4; N <= 8192; N += 4)
            if (KRL_r4_cplx_fwd_pair(N / 2))
                lengths.push_back(N);
    fftwf_set_timelimit(2.0);
    GeometricMean second, third;
    for (int N : lengths) {
        std::vector<float> table(N);
        for (int m = 0; m < N; m++)
            table[m] = static_cast<float>(std::sin(std::numbers::pi * m / (2.0 * N)));
        const float* t = table.data();
        const krl_fft_pair* pair = KRL_r8_cplx_fwd_pair(N / 2);
        if (!krl_valid_pair_ptr(pair))
            pair = KRL_r4_cplx_fwd_pair(N / 2);
        const Plan redft10 = plan_dct(N, FFTW_REDFT10), redft01 = plan_dct(N, FFTW_REDFT01);
        second.add(compare("krl_dctII_unscaled",
                           {contender("ours", [=] { krl_dctII_unscaled(pair, t, out.data, in.data, N); }),
                            contender("redft10", [=] { fftwf_execute(redft10.get()); }),
                            contender("rfft and rotation", PlainDct2(N))},
                           N));
        third.add(compare("krl_dctIII_scaled",
                          {contender("ours", [=] { krl_dctIII_scaled(pair, t, out.data, in.data, N); }),
                           contender("redft01", [=] { fftwf_execute(redft01.get()); }),
                           contender("rfft and rotation", PlainDct3(N))},
                          N));
    }
    std::printf("DCT-II: geometric mean %.2f over %d lengths\n", second.value(), second.count());
    std::printf("DCT-III: geometric mean %.2f over %d lengths\n", third.value(), third.count());
}
