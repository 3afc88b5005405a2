// The QMF and the modulated bank from their definition, in double precision: every band a sum over the whole prototype,
// every output sample a sum over the bands. No polyphase form, no FFT, no ring.
#pragma once

#include "reference/cosine_transforms.h"

#include <algorithm>
#include <string>

namespace korla_test {

// Band m is centred at (2m+1)/(4M) of the sampling rate. Real bands are the real parts of complex ones.
struct ModulatedBank {
    using complex = std::complex<double>;
    size_t M, delay;                         // of analysis and synthesis, in samples
    std::vector<double> analysis, synthesis; // the taps in time order
    bool real = false;
    std::vector<complex> phase{}, turns{}; // of the bands; exp(j pi n / (2M))

    // phase_of(m), for which turn() is ready.
    template <class Phase> void set_phases(Phase phase_of) {
        for (size_t n = 0; n < 4 * M; n++)
            turns.push_back(phasor(n, M));
        for (size_t m = 0; m < M; m++)
            phase.push_back(phase_of(m));
    }
    complex turn(size_t m, size_t n) const { return turns[(2 * m + 1) * n % (4 * M)]; }

    // The rows of all slots, complex ones as pairs; samples before the start are 0.
    std::vector<double> analyse(const std::vector<float>& x) const {
        std::vector<double> X;
        for (size_t end = M, length = analysis.size(); end <= x.size(); end += M)
            for (size_t m = 0; m < M; m++) {
                complex sum = 0.0;
                for (size_t n = end < length ? length - end : 0; n < length; n++)
                    sum += analysis[n] * x[end + n - length] * std::conj(turn(m, n));
                sum *= phase[m] / static_cast<double>(2 * M);
                X.push_back(sum.real());
                if (!real)
                    X.push_back(sum.imag());
            }
        return X;
    }

    // The samples of all slots. sign: of the imaginary parts that arrive.
    std::vector<double> synthesise(const std::vector<float>& X, double sign = 1.0) const {
        const size_t parts = real ? 1 : 2, shift = synthesis.size() + 39 * M - delay; // 40 M: whole turns, not negative
        std::vector<double> y(X.size() / parts);
        for (size_t i = 0; i < y.size(); i++) {
            const size_t m = i % M, start = i - m;
            const complex band = real ? 2.0 * X[i] : complex(X[2 * i], sign * X[2 * i + 1]);
            for (size_t n = 0; n < synthesis.size() && start + n < y.size(); n++)
                y[start + n] += 2 * synthesis[n] * (band * std::conj(phase[m]) * turn(m, n + shift)).real();
        }
        return y;
    }
};

// The rotation of complex QMF sub-bands.
inline std::complex<double> qmf_rotation(size_t m, size_t M, uint32_t mode) {
    if (mode == 0 || mode == 8) // (64 - M) / (256M) is 7/256, 3/256, 1/256, 1/768 and 0
        return phasor(mode == 0 ? 0 : (2 * m + 1) * (64 - M), 128 * M);
    const auto e = phasor(2 * std::min(m, M - 1 - m) + 1, M == 64 ? 128 : 64);
    return m < M / 2 ? std::complex(-e.real(), e.imag()) : std::complex(-e.imag(), e.real());
}

// A QMF bank with the same table on both sides. It holds taps 1 .. 2PM of the prototype for the analysis and 0 .. 2PM-1
// for the synthesis, with the signs of the modulation's half periods; four periods have another pattern.
inline ModulatedBank qmf_model(size_t M, size_t P, const float* table, uint32_t mode, bool real) {
    // By name: with its undefined-behaviour checks, GCC misreads a literal that is chosen in place.
    static constexpr char five_periods[] = "++--++--++", four_periods[] = "-++--++-";
    const char* const signs = P == 5 ? five_periods : four_periods;
    std::vector<double> taps(table, table + 2 * P * M);
    for (size_t n = 0; n < taps.size(); n++)
        taps[n] *= signs[n / M] == '-' ? -1 : 1;
    ModulatedBank bank{M, 2 * P * M + 1 - M, taps, taps, real};
    bank.set_phases(
        [&](size_t m) { return std::conj(bank.turn(m, 1)) * (real ? bank.turn(m, M / 2) : qmf_rotation(m, M, mode)); });
    return bank;
}

// A modulated bank with the prototype c in time order. legacy: with the phases of the legacy analysis, whose table
// holds every block reversed. offset: d of the twiddle e^(-i pi (2k + d) / (4M)). All delays but nine blocks (and its
// neighbour) belong to prototypes that the synthesis runs backwards.
inline ModulatedBank mfb_model(size_t M, std::vector<double> c, bool legacy, int offset, size_t delay) {
    for (size_t block = 0; legacy && block < 10; block++)
        std::reverse(&c[block * M], &c[block * M] + M);
    ModulatedBank bank{M, delay, c, c};
    if (delay != 9 * M)
        std::reverse(bank.synthesis.begin(), bank.synthesis.end());
    bank.set_phases([&](size_t m) {
        const double angle = std::numbers::pi * (0.5 - offset / static_cast<double>(4 * M));
        const auto direct = std::polar(1.0, m % 2 == 0 ? angle : -angle);
        return legacy ? std::conj(direct) * bank.turn(m, M - 1) : direct;
    });
    return bank;
}

} // namespace korla_test
