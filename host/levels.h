// Meters: peak, RMS and what is above full scale, by channel; full scale is 1.0.
#pragma once

#include <cmath>
#include <cstdint>
#include <optional>
#include <vector>

#include "matrix.h"
#include "samples.h"
#include "true_peak.h"

namespace host {

struct Level {
    double peak = 0.0;
    double rms = 0.0;
    uint64_t over = 0;               // samples above full scale
    std::optional<double> true_peak; // where it was asked for
};

class LevelMeter {
public:
    explicit LevelMeter(size_t channels) : levels_(channels), energy_(channels) {}

    // Interleaved frames.
    void add(const std::byte* data, size_t frames, SampleFormat format) {
        const size_t channels = levels_.size();
        for (size_t c = 0; c < channels; c++) {
            Level level = levels_[c];
            double energy = 0.0;
            for (size_t t = 0; t < frames; t++) {
                const double x = sample_value(data, format, t * channels + c);
                level.peak = std::fmax(level.peak, std::fabs(x));
                level.over += exceeds_full_scale(x);
                energy += x * x;
            }
            levels_[c] = level;
            energy_[c] += energy;
        }
        frames_ += frames;
    }

    std::vector<Level> levels() const {
        std::vector<Level> result = levels_;
        for (size_t c = 0; frames_ > 0 && c < result.size(); c++)
            result[c].rms = std::sqrt(energy_[c] / static_cast<double>(frames_));
        return result;
    }

private:
    std::vector<Level> levels_;
    std::vector<double> energy_;
    size_t frames_ = 0;
};

// What a stream's conversion to integers cuts off where nothing limits: it shows nowhere in the output, so it is computed
// from the input by the matrix.
class ClippingMeter {
public:
    // Channel c of the matrix is channel order[c] of the frames.
    ClippingMeter(const Matrix& matrix, const std::vector<size_t>& order, SampleFormat format)
        : gain_(matrix.gain), order_(order), format_(format), over_(matrix.gain.size()) {}

    void add(const std::byte* data, size_t frames) {
        for (size_t t = 0; t < frames; t++)
            for (size_t o = 0; o < gain_.size(); o++) {
                double sum = 0.0;
                for (size_t c = 0; c < order_.size(); c++)
                    sum += gain_[o][c] * sample_value(data, format_, t * order_.size() + order_[c]);
                over_[o] += exceeds_full_scale(sum);
            }
    }

    // By output of the matrix.
    const std::vector<uint64_t>& over() const { return over_; }

private:
    std::vector<std::vector<double>> gain_;
    std::vector<size_t> order_;
    SampleFormat format_;
    std::vector<uint64_t> over_;
};

} // namespace host
