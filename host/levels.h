// Peak and RMS per channel, full scale 1.0.
#pragma once

#include <cmath>
#include <vector>

#include "samples.h"

namespace host {

struct Level {
    double peak = 0.0;
    double rms = 0.0;
};

class LevelMeter {
public:
    explicit LevelMeter(size_t channels) : peak_(channels), energy_(channels) {}

    // Interleaved frames.
    void add(const std::byte* data, size_t frames, SampleFormat format) {
        const size_t channels = peak_.size();
        for (size_t c = 0; c < channels; c++) {
            double peak = peak_[c], energy = 0.0;
            for (size_t t = 0; t < frames; t++) {
                const double x = sample_value(data, format, t * channels + c);
                peak = std::fmax(peak, std::fabs(x));
                energy += x * x;
            }
            peak_[c] = peak;
            energy_[c] += energy;
        }
        frames_ += frames;
    }

    std::vector<Level> levels() const {
        std::vector<Level> result;
        for (size_t c = 0; c < peak_.size(); c++)
            result.push_back({peak_[c], frames_ ? std::sqrt(energy_[c] / static_cast<double>(frames_)) : 0.0});
        return result;
    }

private:
    std::vector<double> peak_, energy_;
    size_t frames_ = 0;
};

} // namespace host
