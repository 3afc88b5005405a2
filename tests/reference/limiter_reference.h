// A scalar model of the limiter, one step after the other, bit for bit.
#pragma once

#include <korla/limiter.h>

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <iterator>
#include <utility>
#include <vector>

namespace korla_test {

constexpr uint32_t limiter_rates[] = {192000, 176400, 96000, 88200, 64000, 48000, 44100, 32000, 24000};

// The exported tables by sub-block length; their numbers have a test of their own.
struct LimiterTables {
    uint32_t length, history;
    const float* window;
    const float* const* coefficients; // by rate, null where it is not offered
};
inline const LimiterTables limiter_tables[] = {{32, 3, korvex_ht_a_kvlim_win_32, korvex_ht_ap_kvlim_coefs_32},
                                               {40, 2, korvex_ht_a_kvlim_win_40, korvex_ht_ap_kvlim_coefs_40},
                                               {64, 1, korvex_ht_a_kvlim_win_64, korvex_ht_ap_kvlim_coefs_64},
                                               {128, 1, korvex_ht_a_kvlim_win_128, korvex_ht_ap_kvlim_coefs_128},
                                               {256, 1, korvex_ht_a_kvlim_win_256, korvex_ht_ap_kvlim_coefs_256}};

class LimiterModel {
public:
    LimiterModel(uint32_t max_channels, uint32_t length)
        : block_size(length), tables_(*std::ranges::find(limiter_tables, length, &LimiterTables::length)),
          length_(length), history_(tables_.history, 1.0f), delay_(max_channels) {
        clear_delay();
    }

    float peak = 1.0f;
    bool hard_clip = false;
    uint32_t num_channels = 0, block_size;

    void set_boost(float now, float boost) { prev_boost_ = now, boost_ = boost; }
    void set_sample_rate(uint32_t rate) {
        const auto known = std::ranges::find(limiter_rates, rate);
        const auto* c = known == std::end(limiter_rates) ? nullptr : tables_.coefficients[known - limiter_rates];
        if (c && c != c_)
            c_ = c, slow_ = smooth_ = 1.0f;
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
            if (c_)
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
            out[i * out_stride] =
                std::fma(tables_.window[length_ - 1 - i], a * y, (b * y) * tables_.window[i]) * 256.0f;
        }
    }

    const LimiterTables& tables_;
    uint32_t length_;
    std::vector<float> history_;
    std::vector<std::vector<float>> delay_;
    const float* c_ = nullptr;
    float boost_ = 0x1p-8f, prev_boost_ = 0x1p-8f;
    float prev_peak_ = 0.0f, prev_gain_ = 1.0f, gain_ = 1.0f, slow_ = 1.0f, smooth_ = 1.0f;
    size_t position_ = 0;
};

} // namespace korla_test
