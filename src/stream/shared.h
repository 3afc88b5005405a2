// What a stream shares with other threads: its controls and its meters. No thread ever waits.
#pragma once

#include <atomic>

#include "stream/matrix.h"

namespace korla::stream {

// Set by any thread, taken by the processing one.
class SharedControls {
public:
    void start(const Controls& controls) {
        for (uint32_t i = 0; i < KORLA_CONTROL_COUNT; i++)
            value_[i].store(controls.value[i], std::memory_order_relaxed);
        changes_.store(0, std::memory_order_relaxed);
    }
    void set(uint32_t control, float value) {
        value_[control].store(value, std::memory_order_relaxed);
        changes_.fetch_add(1, std::memory_order_release);
    }
    float get(uint32_t control) const { return value_[control].load(std::memory_order_relaxed); }
    Controls all() const {
        Controls controls;
        for (uint32_t i = 0; i < KORLA_CONTROL_COUNT; i++)
            controls.value[i] = get(i);
        return controls;
    }
    // A number that differs from the last one when something was set since.
    uint32_t changes() const { return changes_.load(std::memory_order_acquire); }

private:
    std::atomic<float> value_[KORLA_CONTROL_COUNT];
    std::atomic<uint32_t> changes_;
};
static_assert(std::atomic<float>::is_always_lock_free && std::atomic<uint64_t>::is_always_lock_free);

// The extreme of something since the last reading: seen by the processing thread, taken and started anew by any.
template <bool (*beyond)(float, float)> class Extreme {
public:
    explicit Extreme(float neutral) : neutral_(neutral), value_(neutral) {}
    float seen() const { return value_.load(std::memory_order_relaxed); }
    void see(float x) {
        float before = seen();
        while (beyond(x, before) && !value_.compare_exchange_weak(before, x, std::memory_order_relaxed)) {
        }
    }
    float take() { return value_.exchange(neutral_, std::memory_order_relaxed); }

private:
    float neutral_;
    std::atomic<float> value_;
};
inline bool is_greater(float a, float b) { return a > b; }
inline bool is_less(float a, float b) { return a < b; }

struct Peak : Extreme<is_greater> {
    Peak() : Extreme(0.0f) {}
};
struct LeastGain : Extreme<is_less> {
    LeastGain() : Extreme(1.0f) {}
};

// A number that only the processing thread changes. Who sees a new value sees all that was counted before it, too.
class Count {
public:
    void add(uint64_t n) { value_.store(get() + n, std::memory_order_release); }
    void restart() { value_.store(0, std::memory_order_release); }
    uint64_t get() const { return value_.load(std::memory_order_acquire); }

private:
    std::atomic<uint64_t> value_{0};
};

// Filled by the processing thread, read by any.
struct SharedMeters {
    LeastGain least_gain;
    Peak input_peak[KORLA_MAX_SPEAKERS], output_peak[KORLA_MAX_SPEAKERS];
    Count frames_in, frames_out, silenced;
};

} // namespace korla::stream
