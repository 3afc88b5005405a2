// QMF banks by the definition of a modulated bank: every sample is one sum over the whole prototype, in double.
#pragma once

#include "reference/cosine_transforms.h"

namespace korla_test {

class QmfModel {
public:
    using complex = std::complex<double>;

    QmfModel(size_t M, size_t P, const std::vector<float>& table, uint32_t mode, bool real)
        : M(M), width(real ? M : 2 * M), real(real), taps_(table.begin(), table.end()), phasor_(M) {
        // The tables carry the signs of the modulation's half periods; four periods have another pattern.
        for (size_t n = 0; n < taps_.size(); n++)
            taps_[n] *= (P == 5 ? "++--++--++" : "-++--++-")[n / M] == '-' ? -1.0 : 1.0;
        for (size_t m = 0; m < M; m++)
            rotations_.push_back(real ? 1.0 : rotation(static_cast<double>(m), static_cast<double>(M), mode));
    }

    // The rows of all slots; samples before the start are 0. The analysis table holds taps 1..2PM of the prototype.
    std::vector<double> analyse(const std::vector<float>& x) const {
        std::vector<double> X;
        for (size_t end = M; end <= x.size(); end += M)
            for (size_t q = 0; q < M; q++) {
                complex sum = 0.0;
                for (size_t n = 1; n <= taps_.size(); n++)
                    if (end + n > taps_.size())
                        sum += taps_[n - 1] * x[end + n - taps_.size() - 1] * std::conj(carrier(q, n));
                sum *= rotations_[q] / static_cast<double>(2 * M);
                X.push_back(sum.real());
                if (!real)
                    X.push_back(sum.imag());
            }
        return X;
    }

    // The samples of all slots. The synthesis table holds taps 0..2PM-1 of the prototype.
    std::vector<double> synthesise(const std::vector<float>& X) const {
        std::vector<double> y(X.size() / width * M);
        for (size_t s = 0; s < X.size() / width; s++)
            for (size_t q = 0; q < M; q++) {
                const float* in = X.data() + s * width + (real ? q : 2 * q);
                const complex subband = real ? 4.0 * in[0] : 2.0 * complex(in[0], in[1]) * std::conj(rotations_[q]);
                for (size_t n = 0; n < taps_.size() && s * M + n < y.size(); n++)
                    y[s * M + n] += taps_[n] * (subband * carrier(q, n)).real();
            }
        return y;
    }

    const size_t M, width;
    const bool real;

private:
    static complex rotation(double m, double M, uint32_t mode) {
        using std::numbers::pi;
        if (mode == 0)
            return 1.0;
        if (mode == 8)
            return std::polar(1.0, pi * (2 * m + 1) * (64 - M) / (256 * M));
        const double unit = pi / (M == 64 ? 256 : 128);
        const double theta = m < M / 2 ? unit * (2 * m + 1) : pi / 2 - unit * (2 * (M - 1 - m) + 1);
        return {-std::cos(theta), std::sin(theta)};
    }
    // exp(j pi (2q + 1) n / (2M)); half a slot earlier for real sub-bands, whose cosine is its real part
    complex carrier(size_t q, size_t n) const { return phasor_((2 * q + 1) * (real ? n + 4 * M - M / 2 : n)); }

    std::vector<double> taps_;
    std::vector<complex> rotations_;
    Phasor phasor_;
};

} // namespace korla_test
