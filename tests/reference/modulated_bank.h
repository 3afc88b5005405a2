// The modulated bank from its definition, in double precision: every band a sum over the prototype's ten blocks, every
// output sample a sum over the bands. No polyphase form, no FFT, no ring.
#pragma once

#include <cmath>
#include <complex>
#include <cstddef>
#include <numbers>
#include <vector>

namespace korla_test {

class ModulatedBank {
public:
    using complex = std::complex<double>;

    // c[jM + k] in time order. legacy: the phases of the legacy analysis, whose table holds every block reversed.
    // offset: d of the twiddle e^(-i pi (2k + d) / (4M)). delay: D of the synthesis, in samples.
    ModulatedBank(size_t bands, std::vector<double> c, bool legacy, int offset, size_t delay)
        : m_(bands), analysis_(c), turn_(4 * bands) {
        for (size_t n = 0; n < turn_.size(); n++)
            turn_[n] = std::polar(1.0, 2 * std::numbers::pi * static_cast<double>(n) / static_cast<double>(4 * m_));
        const auto angle = std::numbers::pi * offset / static_cast<double>(4 * m_);
        for (size_t m = 0; m < m_; m++) {
            const double sign = m % 2 == 0 ? 1.0 : -1.0;
            complex phase = sign * complex(0, 1) * std::polar(1.0, -sign * angle);
            if (legacy)
                phase = std::conj(phase) * turn((2 * m + 1) * (m_ - 1));
            phase_.push_back(phase);
        }
        if (legacy)
            for (size_t n = 0; n < analysis_.size(); n++)
                analysis_[n] = c[n / m_ * m_ + m_ - 1 - n % m_];
        // All delays but nine blocks (and its neighbour) belong to prototypes that the synthesis runs backwards.
        synthesis_ = analysis_;
        if (delay != 9 * m_)
            synthesis_.assign(analysis_.rbegin(), analysis_.rend());
        advance_ = 36 * m_ + 9 * m_ - delay; // a multiple of the period 4M keeps it positive
        past_.assign(10 * m_, 0.0);
        future_.assign(10 * m_, 0.0);
    }

    // One slot: M samples to M bands.
    std::vector<complex> analyse(const float* x) {
        past_.erase(past_.begin(), past_.begin() + static_cast<ptrdiff_t>(m_));
        past_.insert(past_.end(), x, x + m_);
        std::vector<complex> bands(m_);
        for (size_t m = 0; m < m_; m++) {
            complex sum = 0;
            for (size_t n = 0; n < 10 * m_; n++)
                sum += analysis_[n] * past_[n] * std::conj(turn((2 * m + 1) * n));
            bands[m] = phase_[m] * sum / (2.0 * static_cast<double>(m_));
        }
        return bands;
    }

    // One slot: M bands to M samples.
    std::vector<double> synthesise(const float* bands) {
        for (size_t n = 0; n < 10 * m_; n++) {
            double sum = 0;
            for (size_t m = 0; m < m_; m++)
                sum += (complex(bands[2 * m], bands[2 * m + 1]) * std::conj(phase_[m]) *
                        turn((2 * m + 1) * (n + advance_)))
                           .real();
            future_[n] += 2 * synthesis_[n] * sum;
        }
        const std::vector<double> out(future_.begin(), future_.begin() + static_cast<ptrdiff_t>(m_));
        future_.erase(future_.begin(), future_.begin() + static_cast<ptrdiff_t>(m_));
        future_.resize(10 * m_, 0.0);
        return out;
    }

private:
    complex turn(size_t n) const { return turn_[n % turn_.size()]; } // e^(i pi n / (2M))

    size_t m_;
    std::vector<double> analysis_, synthesis_;
    std::vector<complex> turn_, phase_;
    size_t advance_;
    std::vector<double> past_, future_;
};

} // namespace korla_test
