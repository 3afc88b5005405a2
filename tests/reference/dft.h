// The discrete Fourier transform as its defining sum, in double precision.
#pragma once

#include <algorithm>
#include <cmath>
#include <complex>
#include <cstdint>
#include <vector>

namespace korla_test {

using Spectrum = std::vector<std::complex<double>>;

// e^(sign * 2*pi*i*k/n) for k = 0..n-1.
inline Spectrum full_turn(size_t n, int sign) {
    Spectrum turn(n);
    for (size_t k = 0; k < n; k++)
        turn[k] = std::polar(1.0, sign * 2.0 * M_PI * static_cast<double>(k) / static_cast<double>(n));
    return turn;
}

// sum over n of in[n] * e^(sign * 2*pi*i*n*k/N), sign -1 forward, +1 inverse; the first `bins` bins, all by default.
inline Spectrum direct_dft(const Spectrum& in, int sign, size_t bins = SIZE_MAX) {
    const size_t n = in.size();
    const Spectrum turn = full_turn(n, sign);
    Spectrum out(std::min(n, bins));
    for (size_t k = 0; k < out.size(); k++) {
        double re = 0.0, im = 0.0;
        for (size_t i = 0, t = 0; i < n; i++) {
            re += in[i].real() * turn[t].real() - in[i].imag() * turn[t].imag();
            im += in[i].real() * turn[t].imag() + in[i].imag() * turn[t].real();
            t += k;
            if (t >= n)
                t -= n;
        }
        out[k] = {re, im};
    }
    return out;
}

// The same in passes, first radix first, with the factors between passes rounded to six decimals: radix R turns input q
// of transforms of length L by the rounded e^(sign * 2*pi*i*q*k/(R*L)).
inline Spectrum six_decimal_dft(Spectrum in, const std::vector<int>& radices, int sign) {
    const size_t n = in.size();
    const Spectrum turn = full_turn(n, sign);
    const auto six = [](double x) { return std::round(x * 1e6) / 1e6; };
    size_t L = 1;
    for (int radix : radices) {
        const auto R = static_cast<size_t>(radix);
        Spectrum out(n);
        for (size_t i = 0; i < n; i++) {
            if (in[i] == 0.0)
                continue;
            const size_t q = i / (n / R), j = i % (n / R), k = j % L;
            const std::complex<double> w = turn[q * k * (n / (R * L))],
                                       turned = in[i] * std::complex(six(w.real()), six(w.imag()));
            for (size_t m = 0; m < R; m++)
                out[(j - k) * R + k + m * L] += turned * turn[q * m % R * (n / R)];
        }
        L *= R;
        in = out;
    }
    return in;
}

inline Spectrum complex_of(const float* samples, size_t n) {
    Spectrum z(n);
    for (size_t i = 0; i < n; i++)
        z[i] = {samples[2 * i], samples[2 * i + 1]};
    return z;
}

// Difference to the exact result, relative to the root mean square of the exact result.
struct Error {
    double worst = 0.0, rms = 0.0;
};
inline Error error_of(const float* actual, const Spectrum& exact, double factor = 1.0) {
    double square = 0.0, difference = 0.0, worst = 0.0;
    for (size_t k = 0; k < exact.size(); k++) {
        const std::complex<double> e = factor * exact[k];
        const double d = std::norm(std::complex<double>(actual[2 * k], actual[2 * k + 1]) - e);
        square += std::norm(e);
        difference += d;
        worst = std::fmax(worst, d);
        if (!(d == d)) // NaN
            worst = difference = INFINITY;
    }
    return {std::sqrt(worst / (square / static_cast<double>(exact.size()))), std::sqrt(difference / square)};
}

// What Error::rms of a transform of n points stays below. Rounding errors add up at random: a fifth of a unit a stage,
// with half as much again in hand. Six decimals turn every twiddle factor by up to 0.7e-6, in up to four passes.
inline double rms_bound(double n, bool six_decimals = false) {
    return 0x1p-24 * (0.75 + 0.2 * std::log2(n)) + (six_decimals ? 0.75e-6 : 0.0);
}

} // namespace korla_test
