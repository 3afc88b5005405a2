// QMF banks by the definition of a modulated bank: every sample is one sum over the whole prototype, in double.
#pragma once

#include "reference/cosine_transforms.h"

#include <algorithm>
#include <string>

namespace korla_test {

class QmfModel {
public:
    using complex = std::complex<double>;

    QmfModel(size_t M, size_t P, const std::vector<float>& table, uint32_t mode, bool real)
        : M(M), length(2 * P * M), width(real ? M : 2 * M) {
        // The tables carry the signs of the modulation's half periods; four periods have another pattern.
        const std::string signs = P == 5 ? "++--++--++" : "-++--++-";
        for (size_t n = 0; n < length; n++)
            taps.push_back(signs[n / M] == '-' ? -table[n] : table[n]);
        for (size_t q = 0; q < M; q++)
            for (size_t n = 0; n <= length; n++)
                carrier.push_back(real ? phasor((2 * q + 1) * (n + 4 * M - M / 2), M).real()
                                       : phasor((2 * q + 1) * n, M) * std::conj(rotation(q, mode)));
    }

    // The rows of all slots; samples before the start are 0. The analysis table holds taps 1..2PM of the prototype.
    std::vector<double> analyse(const std::vector<float>& x) const {
        std::vector<double> X;
        for (size_t end = M; end <= x.size(); end += M)
            for (size_t q = 0; q < M; q++) {
                complex sum = 0.0;
                for (size_t n = end < length ? length - end + 1 : 1; n <= length; n++)
                    sum += taps[n - 1] * x[end + n - length - 1] * std::conj(carrier[q * (length + 1) + n]);
                X.push_back(sum.real() / static_cast<double>(2 * M));
                if (width != M)
                    X.push_back(sum.imag() / static_cast<double>(2 * M));
            }
        return X;
    }

    // The samples of all slots. The synthesis table holds taps 0..2PM-1 of the prototype.
    std::vector<double> synthesise(const std::vector<float>& X) const {
        std::vector<double> y(X.size() / width * M);
        for (size_t s = 0; s < X.size() / width; s++)
            for (size_t q = 0; q < M; q++) {
                const float* in = &X[s * width + q * width / M];
                const complex subband = width == M ? 4.0 * in[0] : 2.0 * complex(in[0], in[1]);
                for (size_t n = 0; n < length && s * M + n < y.size(); n++)
                    y[s * M + n] += taps[n] * (subband * carrier[q * (length + 1) + n]).real();
            }
        return y;
    }

private:
    complex rotation(size_t m, uint32_t mode) const {
        if (mode == 0 || mode == 8) // (64 - M) / (256M) is 7/256, 3/256, 1/256, 1/768 and 0
            return phasor(mode == 0 ? 0 : (2 * m + 1) * (64 - M), 128 * M);
        const complex e = phasor(2 * std::min(m, M - 1 - m) + 1, M == 64 ? 128 : 64);
        return m < M / 2 ? complex(-e.real(), e.imag()) : complex(-e.imag(), e.real());
    }

    size_t M, length, width; // of the prototype, of a row of sub-bands
    std::vector<double> taps;
    std::vector<complex> carrier; // of band q at tap n: exp(j pi (2q + 1) n / (2M)), half a slot earlier when real
};

} // namespace korla_test
