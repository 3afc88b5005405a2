// QMF banks by the definition of a modulated bank: every sub-band sample is one sum over the whole prototype, in
// double.
#pragma once

#include <cmath>
#include <complex>
#include <cstddef>
#include <cstdint>
#include <numbers>
#include <vector>

namespace korla_test {

class QmfModel {
public:
    using complex = std::complex<double>;

    QmfModel(size_t M, size_t P, const std::vector<float>& table, uint32_t mode = 0)
        : M(M), P(P), taps_(table.size()), rotation_(M), turn_(4 * M) {
        // The tables carry the signs of the modulation's half periods; four periods have another pattern.
        for (size_t n = 0; n < table.size(); n++)
            taps_[n] = (P == 5 ? "++--++--++"[n / M] : "-++--++-"[n / M]) == '-' ? -table[n] : table[n];
        for (size_t i = 0; i < 4 * M; i++)
            turn_[i] = std::polar(1.0, std::numbers::pi * static_cast<double>(i) / static_cast<double>(2 * M));
        for (size_t m = 0; m < M; m++)
            rotation_[m] = rotation(m, mode);
    }

    // Slot s of x; samples before the start are 0. The analysis table holds taps 1..2PM of the prototype.
    std::vector<double> analyse_real(const std::vector<float>& x, size_t slot) const {
        std::vector<double> X(M);
        for (size_t q = 0; q < M; q++)
            for (size_t n = 1; n <= 2 * P * M; n++)
                X[q] += tap_times_sample(x, slot, n) * phase(q, n + 4 * M - M / 2).real();
        return X;
    }
    std::vector<complex> analyse_complex(const std::vector<float>& x, size_t slot) const {
        std::vector<complex> X(M);
        for (size_t q = 0; q < M; q++) {
            for (size_t n = 1; n <= 2 * P * M; n++)
                X[q] += tap_times_sample(x, slot, n) * std::conj(phase(q, n));
            X[q] *= rotation_[q];
        }
        return X;
    }

    // The samples of all slots. The synthesis table holds taps 0..2PM-1 of the prototype.
    std::vector<double> synthesise_real(const std::vector<std::vector<float>>& X) const {
        return overlap_add(X.size(), [&](size_t s, size_t q, size_t n) {
            return 4 * static_cast<double>(X[s][q]) * phase(q, n + 4 * M - M / 2).real();
        });
    }
    std::vector<double> synthesise_complex(const std::vector<std::vector<float>>& X) const {
        return overlap_add(X.size(), [&](size_t s, size_t q, size_t n) {
            return 2 * (complex(X[s][2 * q], X[s][2 * q + 1]) * std::conj(rotation_[q]) * phase(q, n)).real();
        });
    }

    const size_t M, P;

private:
    complex rotation(size_t m, uint32_t mode) const {
        using std::numbers::pi;
        const double odd = static_cast<double>(2 * m + 1);
        if (mode == 0 || (mode == 8 && M == 64))
            return 1.0;
        if (mode == 8)
            return std::polar(1.0, pi * odd *
                                       (M == 8    ? 7.0 / 256
                                        : M == 16 ? 3.0 / 256
                                        : M == 32 ? 1.0 / 256
                                                  : 1.0 / 768));
        const double T = M == 64 ? 64 : 32;
        const double theta =
            m < M / 2 ? pi * odd / (4 * T) : pi / 2 - pi * (2.0 * static_cast<double>(M - m) - 1) / (4 * T);
        return {-std::cos(theta), std::sin(theta)};
    }
    // exp(j pi (2q + 1) n / (2M))
    complex phase(size_t q, size_t n) const { return turn_[(2 * q + 1) * n % (4 * M)]; }

    double tap_times_sample(const std::vector<float>& x, size_t slot, size_t n) const {
        const size_t ahead = (slot + 1) * M + n, behind = 2 * P * M + 1; // sample (slot + 1) M - 1 - 2PM + n
        return ahead < behind ? 0.0
                              : taps_[n - 1] * static_cast<double>(x[ahead - behind]) / static_cast<double>(2 * M);
    }
    template <class Term>
    std::vector<double> overlap_add(size_t slots, Term term) const {
        std::vector<double> y(slots * M);
        for (size_t s = 0; s < slots; s++)
            for (size_t n = 0; n < 2 * P * M && s * M + n < y.size(); n++)
                for (size_t q = 0; q < M; q++)
                    y[s * M + n] += taps_[n] * term(s, q, n);
        return y;
    }

    std::vector<double> taps_;
    std::vector<complex> rotation_, turn_;
};

} // namespace korla_test
