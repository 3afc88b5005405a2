// The greatest values of several channels over time, in some hundred steps however long the time gets.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace host {

class Envelope {
public:
    explicit Envelope(size_t channels = 0) : channels_(channels) {}

    // A value that holds for some frames from `first` on.
    void add(uint64_t first, uint64_t frames, size_t channel, double value) {
        if (frames == 0)
            return;
        while ((first + frames - 1) / step_ >= most_steps)
            halve();
        const size_t last = (first + frames - 1) / step_;
        if (last >= steps())
            values_.resize((last + 1) * channels_);
        for (size_t step = first / step_; step <= last; step++)
            at(step, channel) = std::max(at(step, channel), value);
    }

    size_t channels() const { return channels_; }
    size_t steps() const { return channels_ == 0 ? 0 : values_.size() / channels_; }
    uint64_t step_frames() const { return step_; }
    double value(size_t step, size_t channel) const { return values_[step * channels_ + channel]; }

private:
    static constexpr size_t most_steps = 1024;

    double& at(size_t step, size_t channel) { return values_[step * channels_ + channel]; }
    void halve() {
        values_.resize((steps() + 1) / 2 * 2 * channels_);
        for (size_t step = 0; step < steps() / 2; step++)
            for (size_t c = 0; c < channels_; c++)
                at(step, c) = std::max(at(2 * step, c), at(2 * step + 1, c));
        values_.resize(steps() / 2 * channels_);
        step_ *= 2;
    }

    size_t channels_;
    uint64_t step_ = 256; // frames
    std::vector<double> values_;
};

} // namespace host
