// The modulated bank from its definition, in double precision: every band a sum over the prototype's ten blocks, every
// output sample a sum over the bands. No polyphase form, no FFT, no ring.
#pragma once

#include <cmath>
#include <complex>
#include <numbers>
#include <vector>

namespace korla_test {

struct ModulatedBank {
    using complex = std::complex<double>;
    size_t M;
    std::vector<double> analysis, synthesis; // prototypes
    std::vector<complex> phase, turns;       // e^(i pi n / (2M))
    size_t advance;

    // c[jM + k] in time order. legacy: the phases of the legacy analysis, whose table holds every block reversed.
    // offset: d of the twiddle e^(-i pi (2k + d) / (4M)). delay: D of the synthesis, in samples.
    ModulatedBank(size_t bands, const std::vector<double>& c, bool legacy, int offset, size_t delay)
        : M(bands), analysis(c), advance(45 * M - delay) { // 36M more than 9M: whole periods keep it positive
        for (size_t n = 0; n < 4 * M; n++)
            turns.push_back(std::polar(1.0, std::numbers::pi * static_cast<double>(n) / static_cast<double>(2 * M)));
        for (size_t m = 0; m < M; m++) {
            const double angle = std::numbers::pi * (0.5 - offset / static_cast<double>(4 * M));
            const complex direct = std::polar(1.0, m % 2 == 0 ? angle : -angle);
            phase.push_back(legacy ? std::conj(direct) * turn(m, M - 1) : direct);
        }
        for (size_t n = 0; legacy && n < 10 * M; n++)
            analysis[n] = c[n / M * M + M - 1 - n % M];
        // All delays but nine blocks (and its neighbour) belong to prototypes that the synthesis runs backwards.
        synthesis = analysis;
        if (delay != 9 * M)
            synthesis.assign(analysis.rbegin(), analysis.rend());
    }
    complex turn(size_t m, size_t n) const { return turns[(2 * m + 1) * n % (4 * M)]; }

    // Band m of the slot whose samples end before x[end]; what lies before x[0] is 0.
    complex analyse(const float* x, size_t end, size_t m) const {
        complex sum = 0;
        for (size_t n = end < 10 * M ? 10 * M - end : 0; n < 10 * M; n++)
            sum += analysis[n] * x[end + n - 10 * M] * std::conj(turn(m, n));
        return phase[m] * sum / static_cast<double>(2 * M);
    }

    // What band m of a slot adds to sample n of the ten blocks from that slot on.
    double synthesise(complex band, size_t m, size_t n) const {
        return 2 * synthesis[n] * (band * std::conj(phase[m]) * turn(m, n + advance)).real();
    }
};

} // namespace korla_test
