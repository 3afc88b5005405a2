// The calls of libebur128, or the refusal of a host without it.
#include "true_peak.h"

#include "error.h"

#if KORLA_HAS_EBUR128
#    include <ebur128.h>
#endif

namespace host {

#if KORLA_HAS_EBUR128

namespace {
ebur128_state* state_of(const std::shared_ptr<void>& state) { return static_cast<ebur128_state*>(state.get()); }
} // namespace

bool measures_true_peaks() { return true; }

TruePeakMeter::TruePeakMeter(size_t channels, uint32_t rate) : channels_(channels) {
    ebur128_state* state = ebur128_init(static_cast<unsigned>(channels), rate, EBUR128_MODE_TRUE_PEAK);
    if (!state)
        throw Error(Status::processing, "true peaks cannot be measured at this sample rate; leave out --true-peak");
    state_ = std::shared_ptr<void>(state, [](ebur128_state* s) { ebur128_destroy(&s); });
}

void TruePeakMeter::add(const std::byte* data, size_t frames, SampleFormat format) {
    samples_.resize(frames * channels_);
    for (size_t i = 0; i < samples_.size(); i++)
        samples_[i] = static_cast<float>(sample_value(data, format, i));
    if (ebur128_add_frames_float(state_of(state_), samples_.data(), frames) != EBUR128_SUCCESS)
        throw Error(Status::processing, "out of memory for true peaks");
}

double TruePeakMeter::peak(size_t channel) const {
    double peak = 0.0;
    ebur128_true_peak(state_of(state_), static_cast<unsigned>(channel), &peak);
    return peak;
}

#else

bool measures_true_peaks() { return false; }
TruePeakMeter::TruePeakMeter(size_t, uint32_t) : channels_(0) {
    throw Error(Status::usage, "this korla-host is built without libebur128 (Debian: libebur128-dev), which measures "
                               "true peaks; leave out --true-peak");
}
void TruePeakMeter::add(const std::byte*, size_t, SampleFormat) {}
double TruePeakMeter::peak(size_t) const { return 0.0; }

#endif

} // namespace host
