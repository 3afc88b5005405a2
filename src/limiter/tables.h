// What the limiter looks up by sub-block length and sample rate: window, history length, smoothing coefficients.
#pragma once

#include <cstdint>

namespace korla::limiter {

inline constexpr uint32_t min_subblock_length = 32, max_subblock_length = 256;

// Entries of a coefficient set.
enum Coefficient {
    slow_fall_keep, // while more than about 1.5 dB of limiting is in force
    slow_fall_new,
    slow_recovery_keep, // otherwise
    slow_recovery_new,
    release
};

struct SubblockTables {
    const float* window;
    const float* const* coefficients; // coefficient sets by rate index, null where not offered
    uint32_t history_length;          // target gains remembered
};

// All null and 0 for a length that is not one of the five.
SubblockTables tables_of(uint32_t subblock_length);

// Index into SubblockTables::coefficients, or -1.
int rate_index(uint32_t rate_hz);

} // namespace korla::limiter
