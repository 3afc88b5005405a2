// The modulated bank from its definition, in double precision: every band a sum over the prototype's ten blocks, every
// output sample a sum over the bands. No polyphase form, no FFT, no ring.
#pragma once

#include <cmath>
#include <complex>
#include <cstddef>
#include <numbers>
#include <vector>

namespace korla_test {

struct ModulatedBank {
    using complex = std::complex<double>;

    // c[jM + k] in time order. legacy: the phases of the legacy analysis, whose table holds every block reversed.
    // offset: d of the twiddle e^(-i pi (2k + d) / (4M)). delay: D of the synthesis, in samples.
    ModulatedBank(size_t bands, const std::vector<double>& c, bool legacy, int offset, size_t delay)
        : M(bands), analysis(c), phase(M), advance(45 * M - delay) { // 36M more than 9M: whole periods keep it positive
        for (size_t m = 0; m < M; m++) {
            const double sign = m % 2 == 0 ? 1.0 : -1.0;
            phase[m] = std::polar(1.0, sign * std::numbers::pi * (0.5 - offset / static_cast<double>(4 * M)));
            if (legacy)
                phase[m] = std::conj(phase[m]) * turn(m, M - 1);
        }
        for (size_t n = 0; legacy && n < 10 * M; n++)
            analysis[n] = c[n / M * M + M - 1 - n % M];
        // All delays but nine blocks (and its neighbour) belong to prototypes that the synthesis runs backwards.
        synthesis = analysis;
        if (delay != 9 * M)
            synthesis.assign(analysis.rbegin(), analysis.rend());
    }

    // All slots: M samples each to M bands, real and imaginary parts in turn.
    std::vector<double> analyse(const std::vector<float>& x) const {
        std::vector<double> bands;
        for (size_t end = M; end <= x.size(); end += M)
            for (size_t m = 0; m < M; m++) {
                complex sum = 0;
                for (size_t n = end < 10 * M ? 10 * M - end : 0; n < 10 * M; n++)
                    sum += analysis[n] * x[end + n - 10 * M] * std::conj(turn(m, n));
                sum *= phase[m] / static_cast<double>(2 * M);
                bands.insert(bands.end(), {sum.real(), sum.imag()});
            }
        return bands;
    }

    // All slots: M bands each to M samples.
    std::vector<double> synthesise(const std::vector<float>& bands) const {
        std::vector<double> x(bands.size() / 2);
        for (size_t i = 0; i < x.size(); i++) { // band m of a slot
            const size_t m = i % M, start = i - m;
            const complex band = complex(bands[2 * i], bands[2 * i + 1]) * std::conj(phase[m]);
            for (size_t n = 0; n < 10 * M && start + n < x.size(); n++)
                x[start + n] += 2 * synthesis[n] * (band * turn(m, n + advance)).real();
        }
        return x;
    }

    // e^(i pi (2m + 1) n / (2M))
    complex turn(size_t m, size_t n) const { return turns[(2 * m + 1) * n % (4 * M)]; }

    size_t M;
    std::vector<double> analysis, synthesis;
    std::vector<complex> phase, turns = [this] {
        std::vector<complex> all(4 * M);
        for (size_t n = 0; n < 4 * M; n++)
            all[n] = std::polar(1.0, std::numbers::pi * static_cast<double>(n) / static_cast<double>(2 * M));
        return all;
    }();
    size_t advance;
};

} // namespace korla_test
