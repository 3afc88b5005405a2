// True peaks, between the samples too (ITU-R BS.1770-4, annex 2), by libebur128 where the host is built with it.
#pragma once

#include <cstddef>
#include <memory>
#include <vector>

#include "samples.h"

namespace host {

bool measures_true_peaks();

class TruePeakMeter {
public:
    // Throws Error where there is no libebur128, or where it does not take the rate.
    TruePeakMeter(size_t channels, uint32_t rate);

    // Interleaved frames.
    void add(const std::byte* data, size_t frames, SampleFormat format);
    // Linear; full scale is 1.0.
    double peak(size_t channel) const;

private:
    std::shared_ptr<void> state_; // of libebur128
    size_t channels_;
    std::vector<float> samples_;
};

} // namespace host
