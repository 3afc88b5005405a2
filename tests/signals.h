// Deterministic test signals and exact comparison.
#pragma once

#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <cstdint>
#include <vector>

namespace korla_test {

// The same numbers on every machine: a 64-bit linear congruential generator (Knuth's MMIX constants).
class Random {
public:
    explicit Random(uint64_t seed) : state_(seed * 2 + 1) {}
    uint32_t bits() {
        state_ = state_ * 6364136223846793005u + 1442695040888963407u;
        return static_cast<uint32_t>(state_ >> 32);
    }
    float uniform(float low = -1.0f, float high = 1.0f) {
        return low + (high - low) * static_cast<float>(bits() >> 8) * 0x1p-24f;
    }
    std::vector<float> vector(size_t n, float low = -1.0f, float high = 1.0f) {
        std::vector<float> v(n);
        for (float& x : v)
            x = uniform(low, high);
        return v;
    }

private:
    uint64_t state_;
};

// What a reconstruction is tried with: noise, one impulse, and a sine that sweeps over all frequencies.
inline std::vector<std::vector<float>> stimuli(size_t n) {
    std::vector<float> impulse(n), sweep(n);
    impulse[n / 3] = 1.0f;
    for (size_t i = 0; i < n; i++)
        sweep[i] = static_cast<float>(
            0.5 * std::sin(1.5707963267948966 * static_cast<double>(i * i) / static_cast<double>(n)));
    return {Random(n).vector(n), impulse, sweep};
}

// Equal to the bit, except that every NaN equals every NaN.
inline bool same_bits(float a, float b) {
    return std::bit_cast<uint32_t>(a) == std::bit_cast<uint32_t>(b) || (std::isnan(a) && std::isnan(b));
}
inline bool same_bits(double a, double b) {
    return std::bit_cast<uint64_t>(a) == std::bit_cast<uint64_t>(b) || (std::isnan(a) && std::isnan(b));
}

template <class A, class B>::testing::AssertionResult bit_equal(const A& actual, const B& expected, size_t n) {
    for (size_t i = 0; i < n; i++)
        if (!same_bits(actual[i], expected[i]))
            return ::testing::AssertionFailure() << "at " << i << ": " << actual[i] << ", expected " << expected[i];
    return ::testing::AssertionSuccess();
}
#define EXPECT_BITS_EQ(actual, expected, n) EXPECT_TRUE(::korla_test::bit_equal(actual, expected, n))

// Root mean square of the error, relative to what is expected; NaN when a value is not finite.
template <class A, class B> double relative_error(const A& actual, const B& expected, size_t n) {
    double square = 0, expected_square = 0;
    for (size_t i = 0; i < n; i++) {
        const double reference = expected[i], error = actual[i] - reference;
        square += error * error;
        expected_square += reference * reference;
    }
    return std::sqrt(square / expected_square);
}

} // namespace korla_test
