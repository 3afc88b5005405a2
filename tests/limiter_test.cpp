#include <korla/limiter.h>

#include <functional>
#include <iterator>
#include <limits>

#include "guarded_buffer.h"
#include "reference/limiter_reference.h"
#include "signals.h"

using namespace korla_test;

namespace {

constexpr float nan = std::numeric_limits<float>::quiet_NaN();
constexpr float inf = std::numeric_limits<float>::infinity();
constexpr float unity = 1.0f / 256.0f;

// Loudness in plateaus from silence to far above full scale, so that attack, release and the slow gain all work.
std::vector<float> programme(size_t n, uint64_t seed) {
    Random random(seed);
    std::vector<float> x(n);
    float level = 0.0f;
    for (size_t i = 0; i < n; i++) {
        if (i % 97 == 0)
            level = random.uniform(0.0f, 8.0f) * random.uniform(0.0f, 1.0f);
        x[i] = level * random.uniform();
    }
    return x;
}

struct Shape {
    size_t in_stride = 1, out_stride = 1;
    bool in_place = false;
    size_t misalignment = 0;
    bool other_detection = false; // the gain follows other signals, and the second channel is skipped
};

// A limiter in memory of exactly the reported size, with canaries around it, and the model that it has to follow.
class Limiter {
public:
    Limiter(uint32_t channels, uint32_t length, uint32_t rate = 48000, size_t misalignment = 0, bool apart = false)
        : model(channels, length), memory_(bytes(channels, length), misalignment), buffer_(buffer_bytes_, 3) {
        handle_ = korvex_ht_kvlim_init(channels, length, memory_.data(), apart ? buffer_.data() : nullptr);
        if (!handle_)
            return;
        set_rate(rate);
        EXPECT_EQ(korvex_ht_kvlim_set_num_channels(handle_, channels), 0);
        korvex_ht_kvlim_set_peak(handle_, 0.5f);
        korvex_ht_kvlim_set_enable(handle_, 1);
    }
    operator korvex_ht_kvlim*() const { return handle_; }
    void set_rate(uint32_t rate) {
        const uint32_t before = korvex_ht_kvlim_get_sample_rate(handle_);
        const bool offered = limiter_coefficient_set(korvex_ht_kvlim_get_block_size(handle_), rate) >= 0;
        EXPECT_EQ(korvex_ht_kvlim_set_sample_rate(handle_, rate), offered ? 0 : -1) << rate;
        EXPECT_EQ(korvex_ht_kvlim_get_sample_rate(handle_), offered ? rate : before);
        model.set_sample_rate(rate);
    }
    void set_boost(float now, float boost) {
        korvex_ht_kvlim_set_boost(handle_, now, boost);
        model.set_boost(now, boost);
    }

    // One block through limiter and model, which must agree to the bit. Channels stand one behind the other where the
    // stride is 1, else interleaved.
    std::vector<float> process(const std::vector<float>& signal, Shape shape = {}) {
        const uint32_t channels = model.num_channels = korvex_ht_kvlim_get_num_channels(handle_);
        const uint32_t block = model.block_size = korvex_ht_kvlim_get_block_size(handle_);
        model.peak = korvex_ht_kvlim_get_peak(handle_);
        model.hard_clip = korvex_ht_kvlim_get_hard_clip(handle_);
        const auto loud = programme(signal.size(), signal.size());
        GuardedBuffer<float> in(signal, shape.misalignment);
        GuardedBuffer<float> out(std::vector<float>(block * channels * shape.out_stride, 9.0f), 5 - shape.misalignment);
        float* const base = shape.in_place ? in.data() : out.data();
        std::vector<float> expected(base, base + (shape.in_place ? in.size() : out.size()));
        std::vector<const float*> from;
        std::vector<float*> to, model_to;
        for (uint32_t c = 0; c < channels; c++) {
            const size_t first = c * (shape.out_stride == 1 ? block : 1);
            from.push_back(in.data() + c * (shape.in_stride == 1 ? block : 1));
            to.push_back(base + first), model_to.push_back(expected.data() + first);
        }
        auto detect = from;
        if (shape.other_detection)
            detect = {nullptr, in.data(), loud.data()};
        if (shape.other_detection && channels > 1)
            from[1] = nullptr;
        model.process(model_to.data(), detect.data(), from.data(), shape.in_stride, shape.out_stride,
                      static_cast<uint32_t>(detect.size()));
        if (shape.other_detection)
            korvex_ht_kvlim_process_indirect(handle_, to.data(), detect.data(), from.data(), shape.in_stride,
                                             shape.out_stride, static_cast<uint32_t>(detect.size()));
        else
            korvex_ht_kvlim_process(handle_, to.data(), from.data(), shape.in_stride, shape.out_stride);
        EXPECT_BITS_EQ(base, expected, expected.size()) << shape.in_stride << ", " << shape.out_stride;
        EXPECT_EQ(korvex_ht_kvlim_get_limiter_gain(handle_), model.limiter_gain());
        return expected;
    }
    // A mono signal, block by block.
    std::vector<float> run(const std::vector<float>& signal) {
        const uint32_t block = korvex_ht_kvlim_get_block_size(handle_);
        std::vector<float> all;
        for (auto from = signal.begin(); from != signal.end(); from += block)
            std::ranges::copy(process({from, from + block}), std::back_inserter(all));
        return all;
    }
    LimiterModel model;

private:
    size_t bytes(uint32_t channels, uint32_t length) {
        size_t state;
        return korvex_ht_kvlim_query_memory(channels, &state, &buffer_bytes_, length);
    }
    size_t buffer_bytes_ = 0;
    GuardedBuffer<uint8_t> memory_, buffer_;
    korvex_ht_kvlim* handle_;
};

float peak_of(const std::vector<float>& x) {
    float p = 0.0f;
    for (float v : x)
        p = std::max(p, std::isnan(v) ? inf : std::fabs(v));
    return p;
}

TEST(LimiterTables, AreTheStatedNumbers) {
    const float* windows[] = {korvex_ht_a_kvlim_win_32, korvex_ht_a_kvlim_win_40, korvex_ht_a_kvlim_win_64,
                              korvex_ht_a_kvlim_win_128, korvex_ht_a_kvlim_win_256};
    const float* const* tables[] = {korvex_ht_ap_kvlim_coefs_32, korvex_ht_ap_kvlim_coefs_40,
                                    korvex_ht_ap_kvlim_coefs_64, korvex_ht_ap_kvlim_coefs_128,
                                    korvex_ht_ap_kvlim_coefs_256};
    for (int i = 0; i < 5; i++) {
        EXPECT_BITS_EQ(windows[i], limiter_window(limiter_lengths[i]), limiter_lengths[i]);
        for (int r = 0; r < 9; r++) {
            const int set = limiter_coefficient_set(limiter_lengths[i], limiter_rates[r]);
            ASSERT_EQ(tables[i][r] == nullptr, set < 0) << limiter_lengths[i] << " at " << limiter_rates[r];
            EXPECT_TRUE(set < 0 || bit_equal(tables[i][r], limiter_coefficients(set), 8));
        }
    }
    EXPECT_TRUE(windows[0][3] == 958.0f / 32768.0f && windows[4][255] == 32767.0f / 32768.0f);
    EXPECT_TRUE(korvex_ht_KVLIM_ONE_OVER_256_S == unity && korvex_ht_KVLIM_ONE_OVER_256_L == unity);
}

TEST(LimiterControl, MemoryFollowsTheFormula) {
    size_t state = 0, buffer = 0;
    EXPECT_EQ(korvex_ht_kvlim_query_memory(2, &state, &buffer, 32), 489u);
    EXPECT_TRUE(state == 202 && buffer == 287);
    EXPECT_EQ(korvex_ht_kvlim_query_memory(2, nullptr, nullptr, 33), 159u + 2 * 33 * 4 + 31);
    EXPECT_EQ(korvex_ht_kvlim_query_memory(2, &state, nullptr, 256), 159u + 31 + 4 + 2 * 256 * 4 + 31);
    EXPECT_EQ(state, 202u) << "one pointer alone is not written through";
    EXPECT_GE(korvex_ht_kvlim_query_memory(UINT32_MAX, &state, &buffer, UINT32_MAX), buffer);
    EXPECT_GE(buffer, size_t{UINT32_MAX} * UINT32_MAX);
}

TEST(LimiterControl, DefaultsAndRefusals) {
    const auto version = *korvex_ht_kvlim_get_version();
    EXPECT_EQ(version.major * 1000 + version.minor * 100 + version.patch * 10 + version.build, 1820u);
    for (uint32_t length : {0u, 1u, 33u, 48u, 512u})
        EXPECT_EQ(Limiter(2, length), nullptr) << length;
    for (uint32_t length : limiter_lengths) {
        GuardedBuffer<uint8_t> memory(korvex_ht_kvlim_query_memory(4, nullptr, nullptr, length));
        korvex_ht_kvlim* l = korvex_ht_kvlim_init(4, length, memory.data(), nullptr);
        const auto integers = [l] {
            return std::vector<uint32_t>{korvex_ht_kvlim_get_enable(l),       korvex_ht_kvlim_get_hard_clip(l),
                                         korvex_ht_kvlim_get_num_channels(l), korvex_ht_kvlim_get_block_size(l),
                                         korvex_ht_kvlim_get_sample_rate(l),  korvex_ht_kvlim_get_latency(l)};
        };
        EXPECT_EQ(integers(), (std::vector<uint32_t>{0, 0, 0, length, 0xFFFFFFFF, 0}));
        EXPECT_TRUE(korvex_ht_kvlim_get_peak(l) == 1.0f && korvex_ht_kvlim_get_limiter_gain(l) == 1.0f);
        EXPECT_EQ(korvex_ht_kvlim_get_boost(l), unity);
        korvex_ht_kvlim_set_enable(l, 1);
        EXPECT_EQ(korvex_ht_kvlim_get_latency(l), length);
        korvex_ht_kvlim_set_hard_clip(l, 1);
        for (uint32_t excess : {0u, 1u}) {
            EXPECT_EQ(korvex_ht_kvlim_set_block_size(l, 3 * length + 4 * excess), excess ? -1 : 0);
            EXPECT_EQ(korvex_ht_kvlim_set_num_channels(l, 4 + excess), excess ? -1 : 0);
        }
        EXPECT_EQ(integers(), (std::vector<uint32_t>{1, 1, 4, 3 * length, 0xFFFFFFFF, 0}));
    }
}

// f(length, rate) for every combination that is offered.
void for_each_combination(const std::function<void(uint32_t, uint32_t)>& f) {
    for (uint32_t length : limiter_lengths)
        for (uint32_t rate : limiter_rates)
            if (limiter_coefficient_set(length, rate) >= 0) {
                SCOPED_TRACE(std::to_string(length) + " at " + std::to_string(rate));
                f(length, rate);
            }
}

TEST(Limiter, GivesTheBitsOfTheModelOnEveryStridePath) {
    for_each_combination([](uint32_t length, uint32_t rate) {
        for (int way = 0; way < 15; way++) { // apart, in place where the strides are equal, with other detection
            constexpr size_t strides[5][2] = {{1, 1}, {1, 3}, {3, 1}, {3, 4}, {3, 3}};
            const auto [in_stride, out_stride] = strides[way % 5];
            const bool in_place = way / 5 == 1 && in_stride == out_stride, other_detection = way / 5 == 2;
            const size_t misalignment = way / 5 == 1 ? 5 : 0;
            const Shape shape = {in_stride, out_stride, in_place, misalignment, other_detection};
            Limiter limiter(3, length, rate, 2 * way + 1, way % 2); // any memory will do
            korvex_ht_kvlim_set_block_size(limiter, 2 * length);
            for (int call = 0; call < 16; call++) {
                if (call == 3 || call == 6) // a ramp, and at once
                    limiter.set_boost(call == 3 ? unity : 0.7f * unity, call == 3 ? 2.5f * unity : 0.7f * unity);
                if (call == 8)
                    korvex_ht_kvlim_set_peak(limiter, 0.3f);
                if (call == 10) { // keeps the history of target gains
                    korvex_ht_kvlim_reset_state(limiter);
                    limiter.model.reset_state();
                }
                korvex_ht_kvlim_set_hard_clip(limiter, call == 13 || call == 14);
                korvex_ht_kvlim_set_num_channels(limiter, call == 15 ? 0 : 3); // without channels the gain goes on
                auto signal = programme(2 * length * 3, 100 * rate + call);
                if (call >= 12) // an aligned block with a NaN does not count, elsewhere only the NaN does not
                    signal[0] = signal[3 * length] = nan, signal[6] = -0.0f, signal[9] = call > 12 ? inf : 4.0f;
                limiter.process(signal, shape);
            }
        }
    });
}

TEST(Limiter, ImpulseComesOutAfterTheReportedLatency) {
    for_each_combination([](uint32_t length, uint32_t rate) {
        for (uint32_t at : {0u, 1u, length - 1, length, 2 * length + 7}) {
            Limiter limiter(1, length, rate);
            std::vector<float> impulse(5 * length);
            impulse[at] = 0.25f;
            const auto out = limiter.run(impulse);
            for (size_t t = 0; t < out.size(); t++)
                ASSERT_NEAR(out[t], t == at + korvex_ht_kvlim_get_latency(limiter) ? 0.25f : 0.0f, 1e-5f) << at;
        }
    });
}

TEST(Limiter, NothingExceedsThePeak) {
    for_each_combination([](uint32_t n, uint32_t rate) {
        // One limiter takes all signals; what it remembers of one must not let the next one through.
        Limiter limiter(1, n, rate);
        float greatest = 0.0f;
        auto feed = [&](auto value_at) {
            std::vector<float> x(6 * n);
            for (uint32_t i = 0; i < x.size(); i++)
                x[i] = value_at(i);
            greatest = std::max(greatest, peak_of(limiter.run(x)));
        };
        for (uint32_t at = 0; at < 2 * n; at++) // lone impulses
            feed([=](uint32_t i) { return i != at ? 0.0f : at % 2 ? -1.0f : 1.0f; });
        for (uint32_t size = 1; size <= 2 * n + 1; size++) // bursts around the look-ahead
            feed([=](uint32_t i) { return i - size * 7 % n >= size ? 0.0f : size % 3 ? 1.0f : 40.0f; });
        for (uint32_t edge : {0u, 1u, n - 1, n, n + 1, 2 * n - 1, 2 * n}) // steps around block edges
            feed([=](uint32_t i) { return i < edge ? 0.0f : edge % 2 ? 1.0f : -3.0f; });
        for (uint32_t period : {1u, 2u, 31u, n - 1, n, n + 1}) // full-scale squares
            feed([=](uint32_t i) { return i / period % 2 ? -1.0f : 1.0f; });
        // Rounding may add to the peak in a division, three products and a fused sum.
        EXPECT_LE(greatest, 0.5f * (1.0f + 6.0f * 0x1p-24f));
        EXPECT_GE(greatest, 0.5f * 0.999f) << "the limiter takes away more than it has to";
    });
}

TEST(Limiter, RecoversAfterNanAndInfinity) {
    for_each_combination([](uint32_t length, uint32_t rate) {
        for (float bad : {nan, inf, -inf}) {
            Limiter limiter(1, length, rate);
            std::vector<float> wave(length, 0.25f), hit = wave;
            hit[0] = hit[17] = hit[length - 2] = bad;
            float level = 0.0f;
            for (uint32_t block = 0; block < rate / length; block++) { // one second
                level = peak_of(limiter.process(block == 2 ? hit : wave));
                ASSERT_TRUE(block == 2 || block == 3 || level <= 0.25f) << bad << ", block " << block;
            }
            EXPECT_GT(level, 0.24f) << "still down a second after " << bad;
        }
    });
}

TEST(Limiter, RatesThatAreNotOfferedLeaveItAsItIs) {
    for (uint32_t length : limiter_lengths)
        for (uint32_t rate : {24000u, 32000u, 44100u, 48000u, 64000u, 88200u, 22050u, 0u})
            if (limiter_coefficient_set(length, rate) < 0) {
                Limiter resting(1, length, rate); // delays and boosts only
                resting.set_boost(unity, 2 * unity);
                resting.run(programme(8 * length, length));
                EXPECT_EQ(korvex_ht_kvlim_get_limiter_gain(resting), 1.0f);
            }
    // A refusal or the same rate again changes nothing; another one restarts the slow gain, and nothing else.
    Limiter limiter(1, 32);
    for (uint32_t rate : {48000u, 48001u, 48000u, 96000u, 48000u}) {
        limiter.set_rate(rate);
        limiter.run(programme(32 * 40, rate));
    }
}

TEST(Limiter, SwitchingOnLeavingHardClipAndResetClearTheDelay) {
    for (int way = 0; way < 4; way++) {
        Limiter limiter(1, 32);
        auto peak_after = [&](float level) {
            std::vector<float> x(32, level);
            float* channel = x.data();
            korvex_ht_kvlim_process(limiter, &channel, &channel, 1, 1);
            return peak_of(x);
        };
        peak_after(0.25f);
        if (way == 2)
            korvex_ht_kvlim_reset_state(limiter);
        if (way < 2) { // neither disabled nor in hard clip is there a delay
            korvex_ht_kvlim_set_enable(limiter, way);
            korvex_ht_kvlim_set_hard_clip(limiter, way);
            EXPECT_EQ(peak_after(0.125f), 0.125f);
            korvex_ht_kvlim_set_hard_clip(limiter, 0);
        }
        korvex_ht_kvlim_set_enable(limiter, 1); // in the last way it was on and nothing else happened
        korvex_ht_kvlim_set_block_size(limiter, 0);
        EXPECT_EQ(peak_after(7.0f), 7.0f) << "an empty block";
        korvex_ht_kvlim_set_block_size(limiter, 32);
        EXPECT_NEAR(peak_after(0.0f), way == 3 ? 0.25f : 0.0f, 1e-6f) << way;
    }
}

} // namespace
