// A scalar model of the limiter, one step after the other, bit for bit.
#pragma once

#include <algorithm>
#include <array>
#include <bit>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <utility>
#include <vector>

namespace korla_test {

constexpr std::array<uint32_t, 9> limiter_rates = {192000, 176400, 96000, 88200, 64000, 48000, 44100, 32000, 24000};
constexpr std::array<uint32_t, 5> limiter_lengths = {32, 40, 64, 128, 256};

// Smoothing coefficients times 32768, in the order of the sub-block's duration: what the slow gain keeps while it falls
// and while it recovers (the rest of 32768 is new), release, and one that nobody uses.
constexpr float limiter_coefficient_sets[21][4] = {
    {32673, 32744, 32020, 32392}, {32665, 32742, 31954, 32359}, {32650, 32738, 31835, 32298},
    {32639, 32736, 31754, 32257}, {32579, 32721, 31288, 32020}, {32562, 32716, 31159, 31953},
    {32532, 32709, 30929, 31835}, {32511, 32704, 30771, 31754}, {32485, 32697, 30574, 31652},
    {32415, 32679, 30048, 31379}, {32392, 32673, 29875, 31288}, {32359, 32665, 29632, 31161},
    {32298, 32650, 29193, 30929}, {32257, 32639, 28896, 30771}, {32205, 32626, 28526, 30574},
    {32066, 32591, 27554, 30048}, {32020, 32579, 27238, 29875}, {31954, 32563, 26796, 29632},
    {31835, 32532, 26008, 29193}, {31652, 32485, 24834, 28526}, {31288, 32392, 22641, 27238}};
inline std::array<float, 8> limiter_coefficients(int set) {
    const auto& [fall, recovery, release, unused] = limiter_coefficient_sets[set];
    std::array<float, 8> c = {fall, 32768.0f - fall, recovery, 32768.0f - recovery, release, unused};
    std::ranges::for_each(c, [](float& x) { x /= 32768.0f; });
    return c;
}

// The set for a length and a rate, -1 where the rate is not offered.
inline int limiter_coefficient_set(uint32_t length, uint32_t rate) {
    constexpr int8_t sets[5][9] = {{0, 1, 4, 5, 8, 10, 11, 14, 16},
                                   {2, 3, 6, 7, 9, 12, 13, 15, 18},
                                   {4, 5, 10, 11, 14, 16, 17, 19, 20},
                                   {10, 11, 16, 17, 19, 20, -1, -1, -1},
                                   {16, 17, 20, -1, -1, -1, -1, -1, -1}};
    const auto row = std::find(limiter_lengths.begin(), limiter_lengths.end(), length) - limiter_lengths.begin();
    const auto column = std::find(limiter_rates.begin(), limiter_rates.end(), rate) - limiter_rates.begin();
    return row < 5 && column < 9 ? sets[row][column] : -1;
}

inline std::vector<float> limiter_window(uint32_t length) {
    std::vector<float> w(length);
    for (uint32_t i = 0; i < length; i++) {
        const double s = std::sin(3.14159265358979323846 * (i + 0.5) / (2.0 * length));
        w[i] = static_cast<float>(std::min(32767.0, std::floor(32768.0 * s * s + 0.5)) / 32768.0);
    }
    return w;
}

class LimiterModel {
public:
    LimiterModel(uint32_t max_channels, uint32_t length)
        : block_size(length), length_(length), window_(limiter_window(length)), delay_(max_channels) {
        history_.assign(length == 32 ? 3 : length == 40 ? 2 : 1, 1.0f);
        clear_delay();
    }

    float peak = 1.0f;
    bool hard_clip = false;
    uint32_t num_channels = 0, block_size;

    void set_boost(float now, float boost) { prev_boost_ = now, boost_ = boost; }
    void set_sample_rate(uint32_t rate) {
        const int set = limiter_coefficient_set(length_, rate);
        if (set < 0 || rate == rate_)
            return;
        rate_ = rate, slow_ = smooth_ = 1.0f, c_ = limiter_coefficients(set);
    }
    float limiter_gain() const { return gain_; }
    void clear_delay() {
        for (auto& line : delay_)
            line.assign(length_, 0.0f);
    }
    void reset_state() {
        smooth_ = slow_ = gain_ = prev_gain_ = 1.0f;
        prev_peak_ = 0.0f, position_ = 0;
        clear_delay();
    }

    void process(float* const* out, const float* const* detect, const float* const* in, size_t in_stride,
                 size_t out_stride, uint32_t detect_channels) {
        if (hard_clip)
            return clip(out, in, in_stride, out_stride);
        for (size_t k = 0; k < block_size / length_; k++) {
            if (rate_)
                update_gain(detected_peak(detect, detect_channels, k * length_, in_stride));
            for (uint32_t c = 0; c < num_channels; c++)
                if (in[c])
                    apply(out[c] + k * length_ * out_stride, in[c] + k * length_ * in_stride, in_stride, out_stride,
                          delay_[c]);
            prev_boost_ = boost_;
        }
    }

private:
    void clip(float* const* out, const float* const* in, size_t in_stride, size_t out_stride) const {
        const bool by_blocks = in_stride == 1 && out_stride == 1 && length_ != 40;
        for (uint32_t c = 0; c < num_channels; c++)
            for (size_t i = 0; in[c] && i < block_size; i++) {
                const float x = in[c][i * in_stride], y = x < peak ? std::max(x, -peak) : peak; // NaN is the peak
                out[c][i * out_stride] = by_blocks ? y * (boost_ * 256.0f) : (y * boost_) * 256.0f;
            }
    }

    // The vector maximum of aligned data propagates NaN, so that the channel does not count; elsewhere a NaN sample is
    // ignored.
    float detected_peak(const float* const* detect, uint32_t channels, size_t first, size_t stride) const {
        float p = 0.0f;
        for (uint32_t c = 0; c < channels; c++) {
            if (!detect[c])
                continue;
            const float* x = detect[c] + first * stride;
            const bool propagates = stride == 1 && reinterpret_cast<uintptr_t>(x) % 32 == 0;
            float magnitude = p;
            for (size_t i = 0; i < length_ && !std::isnan(magnitude); i++)
                if (const float m = std::fabs(x[i * stride]); m > magnitude || (propagates && std::isnan(m)))
                    magnitude = m;
            p = std::isnan(magnitude) ? p : magnitude;
        }
        return p;
    }

    void update_gain(float p) {
        const float level = std::max(prev_peak_, p) * slow_;
        prev_gain_ = gain_, prev_peak_ = p;
        float target = level > peak ? static_cast<float>(1.0 / static_cast<double>(level)) * peak : 1.0f;
        target = std::isnan(target) ? 0.0f : target; // a peak of 0 below a level without a reciprocal
        const float least = std::min(target, *std::ranges::min_element(history_));
        history_[position_] = target;
        position_ = (position_ + 1) % history_.size();

        const float s = slow_, tg = target * s;
        const bool attack = tg < gain_;
        if (attack)
            smooth_ = target;
        else if (std::isfinite(least)) // else, with a denormal peak, nothing is released
            smooth_ = std::fma(smooth_, c_[4], std::fma(-c_[4], least, least));
        gain_ = attack ? tg : std::min(std::max(gain_, s * smooth_), tg);
        slow_ = smooth_ < std::bit_cast<float>(0x3F576600u)
                    ? std::fma((smooth_ * s) * std::bit_cast<float>(0x3F98209Cu), c_[1], s * c_[0])
                    : std::fma(s, c_[2], c_[3]);
    }

    void apply(float* out, const float* in, size_t in_stride, size_t out_stride, std::vector<float>& delay) const {
        const float a = prev_gain_ * prev_boost_, b = gain_ * boost_;
        for (size_t i = 0; i < length_; i++) {
            const float x = in[i * in_stride], y = std::exchange(delay[i], x);
            out[i * out_stride] = std::fma(window_[length_ - 1 - i], a * y, (b * y) * window_[i]) * 256.0f;
        }
    }

    uint32_t length_, rate_ = 0;
    std::vector<float> window_, history_;
    std::vector<std::vector<float>> delay_;
    std::array<float, 8> c_ = {};
    float boost_ = 0x1p-8f, prev_boost_ = 0x1p-8f;
    float prev_peak_ = 0.0f, prev_gain_ = 1.0f, gain_ = 1.0f, slow_ = 1.0f, smooth_ = 1.0f;
    size_t position_ = 0;
};

} // namespace korla_test
