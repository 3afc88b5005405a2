#include <korla/limiter.h>

#include <limits>
#include <memory>

#include "guarded_buffer.h"
#include "reference/limiter_reference.h"
#include "signals.h"

using namespace korla_test;

namespace {

constexpr float nan = std::numeric_limits<float>::quiet_NaN();
constexpr float inf = std::numeric_limits<float>::infinity();
constexpr float unity = 1.0f / 256.0f;
// What rounding may add to the peak: a division, three products and a fused sum.
constexpr float ceiling = 1.0f + 6.0f * 0x1p-24f;

// A limiter in memory of exactly the reported size, with canaries around it.
class Limiter {
public:
    struct Placement {
        size_t misalignment = 0;
        bool separate_buffer = false;
    };
    Limiter(uint32_t max_channels, uint32_t length) : Limiter(max_channels, length, Placement{}) {}
    Limiter(uint32_t max_channels, uint32_t length, Placement placement)
        : memory_(bytes(max_channels, length), placement.misalignment),
          buffer_(buffer_bytes_, placement.misalignment + 3) {
        handle_ = korvex_ht_kvlim_init(max_channels, length, memory_.data(),
                                       placement.separate_buffer ? buffer_.data() : nullptr);
    }
    // Ready to limit `channels` channels in blocks of `block`.
    Limiter(uint32_t channels, uint32_t length, uint32_t rate, uint32_t block, float peak = 0.5f)
        : Limiter(channels, length) {
        EXPECT_EQ(korvex_ht_kvlim_set_sample_rate(handle_, rate), 0);
        EXPECT_EQ(korvex_ht_kvlim_set_block_size(handle_, block), 0);
        EXPECT_EQ(korvex_ht_kvlim_set_num_channels(handle_, channels), 0);
        korvex_ht_kvlim_set_peak(handle_, peak);
        korvex_ht_kvlim_set_enable(handle_, 1);
    }
    operator korvex_ht_kvlim*() const { return handle_; }

    // One channel, contiguous, out of place.
    std::vector<float> run(const std::vector<float>& signal) {
        const uint32_t block = korvex_ht_kvlim_get_block_size(handle_);
        std::vector<float> out(signal.size());
        for (size_t t = 0; t + block <= signal.size(); t += block) {
            const float* in = signal.data() + t;
            float* to = out.data() + t;
            korvex_ht_kvlim_process(handle_, &to, &in, 1, 1);
        }
        return out;
    }

private:
    size_t bytes(uint32_t max_channels, uint32_t length) {
        size_t state;
        return korvex_ht_kvlim_query_memory(max_channels, &state, &buffer_bytes_, length);
    }
    size_t buffer_bytes_ = 0;
    GuardedBuffer<uint8_t> memory_, buffer_;
    korvex_ht_kvlim* handle_;
};

// Loudness in plateaus from silence to far above full scale, so that attack, release and the slow gain all work.
std::vector<float> programme(size_t n, uint64_t seed) {
    Random random(seed);
    std::vector<float> x(n);
    float level = 0.0f;
    for (size_t i = 0; i < n; i++) {
        if (i % 97 == 0) {
            const float mantissa = random.uniform(0.0f, 1.0f);
            level = std::ldexp(mantissa, static_cast<int>(random.bits() % 6) - 3);
        }
        x[i] = level * random.uniform();
    }
    return x;
}

float peak_of(const std::vector<float>& x) {
    float p = 0.0f;
    for (float v : x)
        p = std::max(p, std::isnan(v) ? inf : std::fabs(v));
    return p;
}

TEST(LimiterTables, WindowsAndConstantsAreTheStatedNumbers) {
    const float* windows[] = {korvex_ht_a_kvlim_win_32, korvex_ht_a_kvlim_win_40, korvex_ht_a_kvlim_win_64,
                              korvex_ht_a_kvlim_win_128, korvex_ht_a_kvlim_win_256};
    constexpr int first[5][4] = {
        {20, 177, 491, 958}, {13, 114, 315, 615}, {5, 44, 123, 241}, {1, 11, 31, 60}, {0, 3, 8, 15}};
    for (int i = 0; i < 5; i++) {
        const uint32_t n = limiter_lengths[i];
        EXPECT_BITS_EQ(windows[i], limiter_window(n), n) << n;
        for (uint32_t j = 0; j < 4; j++)
            EXPECT_EQ(windows[i][j] * 32768.0f, static_cast<float>(first[i][j]));
        for (uint32_t j = n == 256 ? 1 : 0; j < n / 2; j++)
            EXPECT_EQ(windows[i][j] + windows[i][n - 1 - j], 1.0f);
    }
    EXPECT_EQ(windows[4][255], 32767.0f / 32768.0f);
    EXPECT_EQ(korvex_ht_KVLIM_ONE_OVER_256_S, unity);
    EXPECT_EQ(korvex_ht_KVLIM_ONE_OVER_256_L, unity);
}

TEST(LimiterTables, CoefficientsAreTheStatedNumbers) {
    const float* const* tables[] = {korvex_ht_ap_kvlim_coefs_32, korvex_ht_ap_kvlim_coefs_40,
                                    korvex_ht_ap_kvlim_coefs_64, korvex_ht_ap_kvlim_coefs_128,
                                    korvex_ht_ap_kvlim_coefs_256};
    for (int i = 0; i < 5; i++)
        for (int r = 0; r < 9; r++) {
            const int set = limiter_coefficient_set(limiter_lengths[i], limiter_rates[r]);
            ASSERT_EQ(tables[i][r] == nullptr, set < 0) << limiter_lengths[i] << " at " << limiter_rates[r];
            for (int c = 0; set >= 0 && c < 8; c++)
                EXPECT_EQ(tables[i][r][c] * 32768.0f,
                          c < 6 ? static_cast<float>(limiter_coefficient_sets[set][c]) : 0.0f);
        }
}

TEST(LimiterControl, MemoryIsWhatIsReportedAtAnyAlignment) {
    size_t state = 0, buffer = 0;
    EXPECT_EQ(korvex_ht_kvlim_query_memory(2, &state, &buffer, 32), 489u);
    EXPECT_EQ(state, 202u);
    EXPECT_EQ(buffer, 287u);
    EXPECT_EQ(korvex_ht_kvlim_query_memory(2, nullptr, nullptr, 33), 159u + 2 * 33 * 4 + 31);
    EXPECT_EQ(korvex_ht_kvlim_query_memory(2, &state, nullptr, 256), 159u + 31 + 4 + 2 * 256 * 4 + 31);
    EXPECT_EQ(state, 202u) << "one pointer alone is not written through";
    EXPECT_GE(korvex_ht_kvlim_query_memory(UINT32_MAX, &state, &buffer, UINT32_MAX), buffer);
    EXPECT_GE(buffer, size_t{UINT32_MAX} * UINT32_MAX);

    for (uint32_t length : limiter_lengths)
        for (size_t misalignment = 0; misalignment < 33; misalignment += length == 32 ? 1 : 11)
            for (bool separate : {false, true}) {
                Limiter limiter(3, length, Limiter::Placement{misalignment, separate});
                ASSERT_NE(limiter, nullptr);
                korvex_ht_kvlim_set_num_channels(limiter, 3);
                korvex_ht_kvlim_set_sample_rate(limiter, 192000);
                korvex_ht_kvlim_set_enable(limiter, 1);
                std::vector<float> x(3 * length, 2.0f);
                float* channels[] = {x.data(), x.data() + 1, x.data() + 2};
                for (int i = 0; i < 5; i++)
                    korvex_ht_kvlim_process(limiter, channels, channels, 3, 3);
            }
}

TEST(LimiterControl, DefaultsSettersAndRefusals) {
    const korvex_ht_kvlim_version* version = korvex_ht_kvlim_get_version();
    const uint32_t numbers[] = {version->major, version->minor, version->patch, version->build};
    EXPECT_EQ(std::vector<uint32_t>(numbers, numbers + 4), (std::vector<uint32_t>{1, 8, 2, 0}));
    for (uint32_t length : {0u, 1u, 33u, 48u, 512u})
        EXPECT_EQ(Limiter(2, length), nullptr) << length;

    for (uint32_t length : limiter_lengths) {
        Limiter limiter(4, length);
        EXPECT_EQ(korvex_ht_kvlim_get_enable(limiter), 0u);
        EXPECT_EQ(korvex_ht_kvlim_get_peak(limiter), 1.0f);
        EXPECT_EQ(korvex_ht_kvlim_get_boost(limiter), unity);
        EXPECT_EQ(korvex_ht_kvlim_get_limiter_gain(limiter), 1.0f);
        EXPECT_EQ(korvex_ht_kvlim_get_hard_clip(limiter), 0u);
        EXPECT_EQ(korvex_ht_kvlim_get_sample_rate(limiter), 0xFFFFFFFFu);
        EXPECT_EQ(korvex_ht_kvlim_get_block_size(limiter), length);
        EXPECT_EQ(korvex_ht_kvlim_get_num_channels(limiter), 0u);
        EXPECT_EQ(korvex_ht_kvlim_get_latency(limiter), 0u);

        korvex_ht_kvlim_set_peak(limiter, 0.25f);
        EXPECT_EQ(korvex_ht_kvlim_get_peak(limiter), 0.25f);
        korvex_ht_kvlim_set_boost(limiter, 0.5f, 0.125f);
        EXPECT_EQ(korvex_ht_kvlim_get_boost(limiter), 0.125f);
        korvex_ht_kvlim_set_enable(limiter, 7);
        EXPECT_NE(korvex_ht_kvlim_get_enable(limiter), 0u);
        EXPECT_EQ(korvex_ht_kvlim_get_latency(limiter), length);
        korvex_ht_kvlim_set_hard_clip(limiter, 1);
        EXPECT_NE(korvex_ht_kvlim_get_hard_clip(limiter), 0u);
        EXPECT_EQ(korvex_ht_kvlim_get_latency(limiter), 0u);

        EXPECT_EQ(korvex_ht_kvlim_set_block_size(limiter, 3 * length), 0);
        EXPECT_EQ(korvex_ht_kvlim_set_block_size(limiter, 3 * length + 4), -1);
        EXPECT_EQ(korvex_ht_kvlim_get_block_size(limiter), 3 * length);
        EXPECT_EQ(korvex_ht_kvlim_set_block_size(limiter, 0), 0);
        EXPECT_EQ(korvex_ht_kvlim_set_num_channels(limiter, 4), 0);
        EXPECT_EQ(korvex_ht_kvlim_set_num_channels(limiter, 5), -1);
        EXPECT_EQ(korvex_ht_kvlim_get_num_channels(limiter), 4u);
        EXPECT_EQ(korvex_ht_kvlim_set_num_channels(limiter, 0), 0);
        for (uint32_t rate : {0u, 8000u, 44101u, 384000u, 0xFFFFFFFEu})
            EXPECT_EQ(korvex_ht_kvlim_set_sample_rate(limiter, rate), -1) << rate;
        EXPECT_EQ(korvex_ht_kvlim_get_sample_rate(limiter), 0xFFFFFFFFu);
        for (uint32_t rate : limiter_rates) {
            const uint32_t before = korvex_ht_kvlim_get_sample_rate(limiter);
            const bool offered = limiter_coefficient_set(length, rate) >= 0;
            EXPECT_EQ(korvex_ht_kvlim_set_sample_rate(limiter, rate), offered ? 0 : -1) << length << " at " << rate;
            EXPECT_EQ(korvex_ht_kvlim_get_sample_rate(limiter), offered ? rate : before);
        }
    }
}

// Every length, every rate, every path through the strides.
class LimiterAt : public ::testing::TestWithParam<std::tuple<uint32_t, uint32_t>> {
protected:
    uint32_t length() const { return std::get<0>(GetParam()); }
    uint32_t rate() const { return std::get<1>(GetParam()); }
};

TEST_P(LimiterAt, GivesTheBitsOfTheModelOnEveryStridePath) {
    struct Path {
        size_t in_stride, out_stride;
        bool in_place;
    };
    constexpr uint32_t channels = 3;
    const uint32_t n = length(), block = 2 * n;
    for (const Path path : {Path{1, 1, false}, {1, 1, true}, {1, 3, false}, {3, 1, false}, {3, 4, false}, {3, 3, true}})
        for (size_t misalignment : {0, 5}) {
            Limiter limiter(channels, n, rate(), block);
            LimiterModel model(channels, n);
            model.set_sample_rate(rate());
            model.peak = 0.5f, model.block_size = block, model.num_channels = channels;
            for (int call = 0; call < 12; call++) {
                if (call == 3) { // a ramp
                    korvex_ht_kvlim_set_boost(limiter, unity, 2.5f * unity);
                    model.set_boost(unity, 2.5f * unity);
                } else if (call == 6) { // at once
                    korvex_ht_kvlim_set_boost(limiter, 0.7f * unity, 0.7f * unity);
                    model.set_boost(0.7f * unity, 0.7f * unity);
                } else if (call == 8) {
                    korvex_ht_kvlim_set_peak(limiter, model.peak = 0.3f);
                } else if (call == 10) { // keeps the history of target gains
                    korvex_ht_kvlim_reset_state(limiter);
                    model.reset_state();
                }
                const auto signal = programme(block * 3, 100 * rate() + call);
                GuardedBuffer<float> in(signal, misalignment);
                GuardedBuffer<float> out(path.in_place ? signal : std::vector<float>(block * path.out_stride * 3),
                                         path.in_place ? misalignment : 5 - misalignment);
                std::vector<float> expected = out.values();
                const float* from[channels];
                float *to[channels], *model_to[channels];
                for (uint32_t c = 0; c < channels; c++) {
                    from[c] = in.data() + (path.in_stride == 1 ? c * block : c);
                    const size_t first = path.out_stride == 1 ? c * block : c;
                    to[c] = out.data() + first;
                    model_to[c] = expected.data() + first;
                }
                model.process(model_to, from, from, path.in_stride, path.out_stride, channels);
                korvex_ht_kvlim_process(limiter, to, path.in_place ? to : from, path.in_stride, path.out_stride);
                ASSERT_TRUE(bit_equal(out.data(), expected, expected.size()))
                    << "strides " << path.in_stride << ", " << path.out_stride << ", call " << call;
                ASSERT_EQ(korvex_ht_kvlim_get_limiter_gain(limiter), model.limiter_gain());
            }
        }
}

TEST_P(LimiterAt, ImpulseComesOutAfterTheReportedLatency) {
    for (uint32_t at : {0u, 1u, length() - 1, length(), 2 * length() + 7}) {
        Limiter limiter(1, length(), rate(), length());
        std::vector<float> impulse(5 * length());
        impulse[at] = 0.25f;
        const auto out = limiter.run(impulse);
        const uint32_t latency = korvex_ht_kvlim_get_latency(limiter);
        for (size_t t = 0; t < out.size(); t++)
            ASSERT_NEAR(out[t], t == at + latency ? 0.25f : 0.0f, 1e-5f) << at;
    }
}

TEST_P(LimiterAt, NothingExceedsThePeak) {
    const uint32_t n = length();
    constexpr float peak = 0.5f;
    // One limiter takes all signals; what it remembers of one must not let the next one through.
    Limiter limiter(1, n, rate(), n, peak);
    std::vector<std::vector<float>> signals;
    auto add = [&](size_t first, size_t size, float value) {
        std::vector<float> x(5 * n);
        for (size_t i = first; i < first + size; i++)
            x[i] = value;
        signals.push_back(x);
    };
    for (uint32_t at = 0; at < 2 * n; at++)
        add(at, 1, at % 2 ? -1.0f : 1.0f); // lone impulses
    for (uint32_t size = 1; size <= 2 * n + 1; size++)
        add((size * 7) % n, size, size % 3 ? 1.0f : 40.0f); // bursts around the look-ahead
    for (uint32_t edge : {0u, 1u, n - 1, n, n + 1, 2 * n - 1, 2 * n})
        add(edge, 5 * n - edge, edge % 2 ? 1.0f : -3.0f);    // steps around block edges
    for (uint32_t period : {1u, 2u, 31u, n - 1, n, n + 1}) { // full-scale squares
        std::vector<float> x(8 * n);
        for (size_t i = 0; i < x.size(); i++)
            x[i] = i / period % 2 ? -1.0f : 1.0f;
        signals.push_back(x);
    }
    float greatest = 0.0f;
    for (const auto& signal : signals)
        greatest = std::max(greatest, peak_of(limiter.run(signal)));
    EXPECT_LE(greatest, peak * ceiling);
    EXPECT_GE(greatest, peak * 0.999f) << "the limiter takes away more than it has to";
}

TEST_P(LimiterAt, RecoversAfterNanAndInfinity) {
    for (float bad : {nan, inf, -inf})
        for (size_t stride : {1, 2}) {
            Limiter limiter(1, length(), rate(), length());
            LimiterModel model(1, length());
            model.set_sample_rate(rate());
            model.peak = 0.5f, model.num_channels = 1;
            std::vector<float> x(2 * length()), expected(2 * length());
            const uint32_t blocks = rate() / length(); // one second
            for (uint32_t b = 0; b < blocks; b++) {
                for (size_t i = 0; i < x.size(); i++)
                    x[i] = i % 2 ? 0.25f : -0.25f;
                if (b == 2)
                    x[0] = x[2 * 17] = x[17] = x[length() - 2] = bad;
                float *channel = x.data(), *model_channel = expected.data();
                model.process(&model_channel, &channel, &channel, stride, stride, 1);
                korvex_ht_kvlim_process(limiter, &channel, &channel, stride, stride);
                for (size_t i = 0; i < length(); i++) {
                    ASSERT_TRUE(same_bits(x[i * stride], expected[i * stride])) << bad << ", block " << b;
                    if (b > 3) {
                        ASSERT_LE(std::fabs(x[i * stride]), 0.25f) << bad << ", block " << b;
                    }
                }
            }
            EXPECT_GT(std::fabs(x[0]), 0.24f) << "still down a second after " << bad;
            EXPECT_GT(korvex_ht_kvlim_get_limiter_gain(limiter), 0.97f);
        }
}

std::vector<std::tuple<uint32_t, uint32_t>> offered_combinations() {
    std::vector<std::tuple<uint32_t, uint32_t>> all;
    for (uint32_t length : limiter_lengths)
        for (uint32_t rate : limiter_rates)
            if (limiter_coefficient_set(length, rate) >= 0)
                all.emplace_back(length, rate);
    return all;
}
INSTANTIATE_TEST_SUITE_P(AllOffered, LimiterAt, ::testing::ValuesIn(offered_combinations()), [](const auto& info) {
    return std::to_string(std::get<0>(info.param)) + "at" + std::to_string(std::get<1>(info.param));
});

TEST(Limiter, LoneFullScaleImpulseLeavesAtThePeak) {
    Limiter limiter(1, 32, 48000, 32);
    std::vector<float> x(96);
    x[40] = 1.0f;
    const auto out = limiter.run(x);
    EXPECT_NEAR(out[72], 0.5f, 1e-7f);
    EXPECT_LT(korvex_ht_kvlim_get_limiter_gain(limiter), 1.0f);
}

TEST(Limiter, DetectionFromOtherSignalsDrivesTheGain) {
    constexpr uint32_t n = 64;
    for (size_t stride : {1, 2}) {
        Limiter limiter(2, n, 48000, n);
        LimiterModel model(2, n);
        model.set_sample_rate(48000);
        model.peak = 0.5f, model.num_channels = 2;
        for (int call = 0; call < 6; call++) {
            const auto loud = programme(n * stride, call), quiet = Random(call).vector(n * stride, -0.1f, 0.1f);
            const float* detect[] = {nullptr, quiet.data(), loud.data()};
            // The second channel is skipped: its output stays as it is.
            const float* in[] = {quiet.data(), nullptr};
            std::vector<float> out0(n * stride, 9.0f), out1 = out0, expected = out0;
            float *out[] = {out0.data(), out1.data()}, *model_out[] = {expected.data(), nullptr};
            korvex_ht_kvlim_process_indirect(limiter, out, detect, in, stride, stride, 3);
            model.process(model_out, detect, in, stride, stride, 3);
            EXPECT_BITS_EQ(out0, expected, expected.size());
            EXPECT_EQ(out1, std::vector<float>(n * stride, 9.0f));
            EXPECT_EQ(korvex_ht_kvlim_get_limiter_gain(limiter), model.limiter_gain());
        }
        const std::vector<float> loud(n * stride, 4.0f);
        const float* detect[] = {loud.data()};
        EXPECT_EQ(korvex_ht_kvlim_set_num_channels(limiter, 0), 0);
        korvex_ht_kvlim_process_indirect(limiter, nullptr, detect, nullptr, stride, stride, 1);
        EXPECT_EQ(korvex_ht_kvlim_get_limiter_gain(limiter), 0.125f) << "no channels: the gain goes on all the same";
    }
}

TEST(Limiter, AnAlignedBlockWithNanDoesNotCountAndElsewhereOnlyTheNanDoesNot) {
    for (size_t misalignment : {0, 1}) {
        Limiter limiter(1, 32, 48000, 32);
        GuardedBuffer<float> x(std::vector<float>(32, 2.0f), misalignment);
        x[9] = nan;
        float* channel = x.data();
        korvex_ht_kvlim_process(limiter, &channel, &channel, 1, 1);
        EXPECT_EQ(korvex_ht_kvlim_get_limiter_gain(limiter), misalignment ? 0.25f : 1.0f);
    }
}

TEST(Limiter, WithoutARateDelaysAndBoostsOnly) {
    for (uint32_t length : limiter_lengths) {
        Limiter limiter(1, length);
        LimiterModel model(1, length);
        EXPECT_EQ(korvex_ht_kvlim_set_sample_rate(limiter, 22050), -1);
        korvex_ht_kvlim_set_num_channels(limiter, model.num_channels = 1);
        korvex_ht_kvlim_set_peak(limiter, model.peak = 0.1f);
        korvex_ht_kvlim_set_enable(limiter, 1);
        korvex_ht_kvlim_set_boost(limiter, unity, 2 * unity);
        model.set_boost(unity, 2 * unity);
        const auto signal = programme(4 * length, length);
        const auto out = limiter.run(signal);
        std::vector<float> expected(signal.size());
        for (size_t t = 0; t < signal.size(); t += length) {
            float* to = expected.data() + t;
            const float* from = signal.data() + t;
            model.process(&to, &from, &from, 1, 1, 1);
        }
        EXPECT_BITS_EQ(out, expected, out.size()) << length;
        for (size_t t = 2 * length; t < out.size(); t++)
            ASSERT_NEAR(out[t], 2 * signal[t - length], 2e-4f * std::fabs(signal[t - length]));
        EXPECT_EQ(korvex_ht_kvlim_get_limiter_gain(limiter), 1.0f);
    }
}

TEST(Limiter, TheRateInForceSurvivesARefusalAndTheSameRateAgain) {
    Limiter limiter(1, 32, 48000, 32), undisturbed(1, 32, 48000, 32);
    const auto signal = programme(32 * 40, 5);
    for (int i = 0; i < 2; i++) {
        EXPECT_EQ(limiter.run(signal), undisturbed.run(signal));
        EXPECT_EQ(korvex_ht_kvlim_set_sample_rate(limiter, 48001), -1);
        EXPECT_EQ(korvex_ht_kvlim_set_sample_rate(limiter, 48000), 0);
    }
    LimiterModel model(1, 32); // another rate restarts the slow gain, and nothing else
    model.peak = 0.5f, model.num_channels = 1;
    Limiter switched(1, 32, 48000, 32);
    for (uint32_t rate : {48000u, 96000u, 48000u}) {
        EXPECT_EQ(korvex_ht_kvlim_set_sample_rate(switched, rate), 0);
        model.set_sample_rate(rate);
        std::vector<float> expected(signal.size());
        for (size_t t = 0; t < signal.size(); t += 32) {
            float* to = expected.data() + t;
            const float* from = signal.data() + t;
            model.process(&to, &from, &from, 1, 1, 1);
        }
        EXPECT_BITS_EQ(switched.run(signal), expected, expected.size());
    }
}

TEST(Limiter, DisabledAndEmptyBlocksTouchNothing) {
    Limiter limiter(1, 32, 48000, 32);
    std::vector<float> in(32, 3.0f), out(32, 7.0f);
    float* to = out.data();
    const float* from = in.data();
    korvex_ht_kvlim_set_enable(limiter, 0);
    korvex_ht_kvlim_process(limiter, &to, &from, 1, 1);
    korvex_ht_kvlim_set_enable(limiter, 1);
    korvex_ht_kvlim_set_block_size(limiter, 0);
    korvex_ht_kvlim_process(limiter, &to, &from, 1, 1);
    EXPECT_EQ(out, std::vector<float>(32, 7.0f));
    EXPECT_EQ(korvex_ht_kvlim_get_limiter_gain(limiter), 1.0f);
}

TEST(Limiter, SwitchingOnLeavingHardClipAndResetClearTheDelay) {
    for (int way = 0; way < 4; way++) {
        Limiter limiter(1, 32, 48000, 32);
        (void)limiter.run(std::vector<float>(32, 0.25f));
        switch (way) {
        case 0:
            korvex_ht_kvlim_set_enable(limiter, 0), korvex_ht_kvlim_set_enable(limiter, 1);
            break;
        case 1:
            korvex_ht_kvlim_set_hard_clip(limiter, 1), korvex_ht_kvlim_set_hard_clip(limiter, 0);
            break;
        case 2:
            korvex_ht_kvlim_reset_state(limiter);
            break;
        case 3:
            korvex_ht_kvlim_set_enable(limiter, 1);
            break; // was on: the delay goes on
        }
        EXPECT_NEAR(peak_of(limiter.run(std::vector<float>(32))), way == 3 ? 0.25f : 0.0f, 1e-6f) << way;
    }
    // Off and on again in hard clip leaves the delay alone; so does leaving hard clip while off.
    Limiter limiter(1, 32, 48000, 32);
    (void)limiter.run(std::vector<float>(32, 0.25f));
    korvex_ht_kvlim_set_hard_clip(limiter, 1);
    korvex_ht_kvlim_set_enable(limiter, 0), korvex_ht_kvlim_set_enable(limiter, 1);
    EXPECT_EQ(limiter.run(std::vector<float>(32, 0.125f)), std::vector<float>(32, 0.125f)) << "no delay";
    korvex_ht_kvlim_set_enable(limiter, 0);
    korvex_ht_kvlim_set_hard_clip(limiter, 0);
    korvex_ht_kvlim_set_hard_clip(limiter, 1);
    korvex_ht_kvlim_set_enable(limiter, 1);
    korvex_ht_kvlim_set_enable(limiter, 0);
    korvex_ht_kvlim_set_hard_clip(limiter, 0);
    korvex_ht_kvlim_set_enable(limiter, 1);
    EXPECT_EQ(peak_of(limiter.run(std::vector<float>(32))), 0.0f);
}

TEST(Limiter, HardClipClampsAndBoostsWithoutDelay) {
    for (uint32_t length : limiter_lengths)
        for (size_t in_stride : {1, 3})
            for (size_t out_stride : {1, 3})
                for (size_t misalignment : {0, 3}) {
                    const uint32_t block = 2 * length;
                    Limiter limiter(2, length, 192000, block);
                    korvex_ht_kvlim_set_hard_clip(limiter, 1);
                    korvex_ht_kvlim_set_boost(limiter, 3 * unity, 1.7f * unity);
                    LimiterModel model(2, length);
                    model.hard_clip = true, model.peak = 0.5f, model.block_size = block, model.num_channels = 2;
                    model.set_boost(3 * unity, 1.7f * unity);
                    auto signal = programme(block * 3, length);
                    signal[0] = 0.7f, signal[3] = -0.9f, signal[6] = 0.2f, signal[9] = nan, signal[12] = -inf;
                    GuardedBuffer<float> in(signal, misalignment);
                    GuardedBuffer<float> out(std::vector<float>(block * 3, 9.0f), misalignment);
                    std::vector<float> expected = out.values();
                    const float* from[] = {in.data(), nullptr};
                    float *to[] = {out.data(), nullptr}, *model_to[] = {expected.data(), nullptr};
                    korvex_ht_kvlim_process(limiter, to, from, in_stride, out_stride);
                    model.process(model_to, from, from, in_stride, out_stride, 2);
                    EXPECT_BITS_EQ(out.data(), expected, expected.size())
                        << length << ' ' << in_stride << ' ' << out_stride;
                    EXPECT_FLOAT_EQ(out[0], 0.5f * 1.7f);
                    const size_t second = in_stride == 3 ? out_stride : 3 * out_stride;
                    EXPECT_FLOAT_EQ(out[second], -0.5f * 1.7f);
                    EXPECT_FLOAT_EQ(out[2 * second], 0.2f * 1.7f);
                }
}

} // namespace
