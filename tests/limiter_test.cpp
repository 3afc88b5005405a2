// The limiter: tables and control, the bits of its model, and properties that hold whatever the tables say.
#include <korla/limiter.h>

#include <array>
#include <functional>
#include <iterator>
#include <limits>
#include <map>

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

// A limiter in memory of exactly the reported size, with canaries around it; on, with peak 0.5.
class Limiter {
public:
    Limiter(uint32_t channels, uint32_t length, uint32_t rate = 48000, size_t misalignment = 0, bool apart = false)
        : memory_(korvex_ht_kvlim_query_memory(channels, &state_, &buffer_, length), misalignment) {
        handle_ = korvex_ht_kvlim_init(channels, length, memory_.data(), apart ? memory_.data() + state_ : nullptr);
        if (!handle_)
            return;
        korvex_ht_kvlim_set_sample_rate(handle_, rate);
        EXPECT_EQ(korvex_ht_kvlim_set_num_channels(handle_, channels), 0);
        korvex_ht_kvlim_set_peak(handle_, 0.5f);
        korvex_ht_kvlim_set_enable(handle_, 1);
    }
    operator korvex_ht_kvlim*() const { return handle_; }
    // Interleaved frames, block by block, in place.
    std::vector<float> run(std::vector<float> signal) const {
        const size_t channels = korvex_ht_kvlim_get_num_channels(handle_);
        for (size_t at = 0; at < signal.size(); at += channels * korvex_ht_kvlim_get_block_size(handle_)) {
            std::vector<float*> pointers;
            for (size_t c = 0; c < channels; c++)
                pointers.push_back(&signal[at + c]);
            korvex_ht_kvlim_process(handle_, pointers.data(), pointers.data(), channels, channels);
        }
        return signal;
    }
    float gain() const { return korvex_ht_kvlim_get_limiter_gain(handle_); }

private:
    size_t state_, buffer_;
    GuardedBuffer<uint8_t> memory_;
    korvex_ht_kvlim* handle_;
};

float peak_of(const std::vector<float>& x) {
    float p = 0.0f;
    for (float v : x)
        p = std::max(p, std::isnan(v) ? inf : std::fabs(v));
    return p;
}

// f(length, rate, coefficients) for every combination that is offered.
void for_each_combination(const std::function<void(uint32_t, uint32_t, const float*)>& f) {
    for (const LimiterTables& table : limiter_tables)
        for (int r = 0; r < 9; r++)
            if (table.coefficients[r]) {
                SCOPED_TRACE(std::to_string(table.length) + " at " + std::to_string(limiter_rates[r]));
                f(table.length, limiter_rates[r], table.coefficients[r]);
            }
}

TEST(LimiterTables, AreTheStatedNumbers) {
    constexpr int offered[] = {9, 9, 9, 6, 3}; // rates, the highest ones
    std::map<double, const float*> by_duration;
    for (int i = 0; i < 5; i++) {
        const auto& [length, history, window, coefficients] = limiter_tables[i];
        for (uint32_t k = 0; k < length; k++) {
            const double s = std::sin(3.14159265358979323846 * (k + 0.5) / (2.0 * length));
            EXPECT_EQ(window[k] * 32768.0f, std::min(32767.0, std::floor(32768.0 * s * s + 0.5))) << length;
        }
        for (int r = 0; r < 9; r++) {
            ASSERT_EQ(coefficients[r] != nullptr, r < offered[i]) << length << " at " << limiter_rates[r];
            const float*& set = by_duration[1.0 * length / limiter_rates[r]];
            EXPECT_TRUE(!set || set == coefficients[r]) << "one set for one duration";
            set = coefficients[r];
        }
    }
    // Times 32768, by the duration of a sub-block: what the slow gain keeps while it falls and while it recovers (the
    // rest of 32768 is new), release, and one that nobody uses.
    constexpr float sets[21][4] = {
        {32673, 32744, 32020, 32392}, {32665, 32742, 31954, 32359}, {32650, 32738, 31835, 32298},
        {32639, 32736, 31754, 32257}, {32579, 32721, 31288, 32020}, {32562, 32716, 31159, 31953},
        {32532, 32709, 30929, 31835}, {32511, 32704, 30771, 31754}, {32485, 32697, 30574, 31652},
        {32415, 32679, 30048, 31379}, {32392, 32673, 29875, 31288}, {32359, 32665, 29632, 31161},
        {32298, 32650, 29193, 30929}, {32257, 32639, 28896, 30771}, {32205, 32626, 28526, 30574},
        {32066, 32591, 27554, 30048}, {32020, 32579, 27238, 29875}, {31954, 32563, 26796, 29632},
        {31835, 32532, 26008, 29193}, {31652, 32485, 24834, 28526}, {31288, 32392, 22641, 27238}};
    std::erase_if(by_duration, [](const auto& entry) { return !entry.second; });
    ASSERT_EQ(by_duration.size(), std::size(sets));
    const auto* set = sets;
    for (const auto& [duration, c] : by_duration) {
        const auto& [fall, recovery, release, unused] = *set++;
        const float expected[] = {fall, 32768 - fall, recovery, 32768 - recovery, release, unused, 0, 0};
        for (int k = 0; k < 8; k++)
            EXPECT_EQ(c[k] * 32768.0f, expected[k]) << "set " << set - sets - 1;
    }
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
    for (const auto& [length, history, window, coefficients] : limiter_tables) {
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
        korvex_ht_kvlim_set_hard_clip(l, 0);
        EXPECT_EQ(korvex_ht_kvlim_set_block_size(l, 0), 0);
        korvex_ht_kvlim_process(l, nullptr, nullptr, 1, 1); // an empty block: nothing is read
        uint32_t accepted = 0xFFFFFFFF;
        for (uint32_t r : {0u, 6u, 9u, 5u, 2u, 3u, 9u, 1u, 7u, 8u, 4u}) {
            const uint32_t rate = r < 9 ? limiter_rates[r] : 48001;
            const bool offered = r < 9 && coefficients[r];
            EXPECT_EQ(korvex_ht_kvlim_set_sample_rate(l, rate), offered ? 0 : -1) << rate;
            EXPECT_EQ(korvex_ht_kvlim_get_sample_rate(l), accepted = offered ? rate : accepted);
        }
    }
}

// ---- the bits of the model -----------------------------------------------------------------------------------------

// What is set between the calls of a stream.
void set_for_call(int call, uint32_t rate, const Limiter& limiter, LimiterModel& model) {
    if (call == 3 || call == 6) { // a ramp, and at once
        const float now = call == 3 ? unity : 0.7f * unity, boost = call == 3 ? 2.5f * unity : now;
        korvex_ht_kvlim_set_boost(limiter, now, boost);
        model.set_boost(now, boost);
    }
    if (call == 10) { // keeps the history of target gains
        korvex_ht_kvlim_reset_state(limiter);
        model.reset_state();
    }
    if (call == 15)
        model.clear_delay(); // hard clip ends
    korvex_ht_kvlim_set_peak(limiter, model.peak = call < 8 ? 0.5f : call == 20 ? 0.0f : call == 21 ? 1e-40f : 0.3f);
    korvex_ht_kvlim_set_hard_clip(limiter, model.hard_clip = call == 13 || call == 14);
    korvex_ht_kvlim_set_num_channels(limiter, model.num_channels = call == 15 ? 0 : 3); // without any, the gain goes on
    // A refusal and the same rate change nothing; another rate restarts the slow gain, and nothing else.
    if (call >= 16 && call < 20) {
        const uint32_t other = std::array{22050u, rate, 192000u, rate}[call - 16];
        korvex_ht_kvlim_set_sample_rate(limiter, other);
        model.set_sample_rate(other);
    }
}

std::vector<float> signal_of_call(int call, uint32_t rate, size_t block) {
    auto signal = programme(3 * block, 100 * rate + call);
    if (call >= 12 && call < 16) { // an aligned sub-block with a NaN does not count, elsewhere only the NaN does not
        signal[0] = signal[3 * block / 2] = nan;
        signal[6] = -0.0f, signal[9] = call > 12 ? inf : 4.0f;
    }
    for (float& x : signal)
        x *= call >= 20 ? 1e-39f : 1.0f;
    return signal;
}

// Channels stand one behind the other where the stride is 1, else interleaved.
struct Shape {
    size_t in_stride, out_stride;
    bool in_place, other_detection; // the gain follows other signals, and the second channel is skipped
    size_t misalignment;
};

void expect_bits_of_model(const Limiter& limiter, LimiterModel& model, const std::vector<float>& signal, Shape shape) {
    const size_t block = signal.size() / 3;
    GuardedBuffer<float> in(signal, shape.misalignment), loud(programme(signal.size(), signal.size()));
    GuardedBuffer<float> out(std::vector<float>(3 * block * shape.out_stride, 9.0f), 5 - shape.misalignment);
    GuardedBuffer<float>& result = shape.in_place ? in : out;
    auto expected = result.values();
    const float *from[3], *detect[3];
    float *to[3], *model_to[3];
    for (size_t c = 0; c < 3; c++) {
        const size_t first = c * (shape.out_stride == 1 ? block : 1);
        from[c] = detect[c] = in.data() + c * (shape.in_stride == 1 ? block : 1);
        to[c] = result.data() + first, model_to[c] = expected.data() + first;
    }
    if (shape.other_detection)
        detect[0] = from[1] = nullptr, detect[2] = loud.data();
    const uint32_t detected = shape.other_detection ? 3 : model.num_channels;
    model.process(model_to, detect, from, shape.in_stride, shape.out_stride, detected);
    korvex_ht_kvlim_process_indirect(limiter, to, detect, from, shape.in_stride, shape.out_stride, detected);
    EXPECT_BITS_EQ(result.data(), expected, expected.size());
    EXPECT_EQ(limiter.gain(), model.limiter_gain());
}

TEST(Limiter, GivesTheBitsOfTheModelOnEveryStridePath) {
    for_each_combination([](uint32_t length, uint32_t rate, const float*) {
        for (int way = 0; way < 15; way++) { // apart, in place where the strides are equal, with other detection
            constexpr size_t strides[5][2] = {{1, 1}, {1, 3}, {3, 1}, {3, 4}, {3, 3}};
            const auto [in_stride, out_stride] = strides[way % 5];
            const bool in_place = way / 5 == 1 && in_stride == out_stride;
            const Shape shape = {in_stride, out_stride, in_place, way / 5 == 2, way / 5 == 1 ? size_t{5} : 0};
            Limiter limiter(3, length, rate, 2 * way + 1, way % 2); // any memory will do
            LimiterModel model(3, length);
            model.set_sample_rate(rate);
            korvex_ht_kvlim_set_block_size(limiter, model.block_size = 2 * length);
            for (int call = 0; call < 22; call++) {
                SCOPED_TRACE("way " + std::to_string(way) + ", call " + std::to_string(call));
                set_for_call(call, rate, limiter, model);
                expect_bits_of_model(limiter, model, signal_of_call(call, rate, 2 * length), shape);
            }
        }
    });
}

// ---- properties ----------------------------------------------------------------------------------------------------

TEST(Limiter, AnImpulseComesOutOfItsOwnChannelAfterTheReportedLatency) {
    for (const LimiterTables& table : limiter_tables)
        for (int r = 0; r <= 9; r++)
            for (uint32_t at : {0u, 1u, table.length - 1, table.length, 2 * table.length + 7}) {
                const uint32_t rate = r < 9 ? limiter_rates[r] : 22050;
                const bool rests = r == 9 || !table.coefficients[r]; // then nothing is limited
                const float level = rests ? 4.0f : 0.25f;
                SCOPED_TRACE(std::to_string(table.length) + " at " + std::to_string(rate));
                Limiter limiter(3, table.length, rate);
                std::vector<float> impulse(5 * table.length * 3);
                impulse[3 * at + at % 3] = level;
                auto out = limiter.run(impulse);
                const size_t expected = 3 * (at + korvex_ht_kvlim_get_latency(limiter)) + at % 3;
                EXPECT_NEAR(std::exchange(out[expected], 0.0f), level, 1e-4f * level);
                EXPECT_EQ(peak_of(out), 0.0f) << "not where it belongs";
                EXPECT_EQ(limiter.gain(), 1.0f);
            }
}

TEST(Limiter, NothingExceedsThePeak) {
    for_each_combination([](uint32_t n, uint32_t rate, const float*) {
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
        Random random(n);
        for (int i = 0; i < 200; i++) // levels of every mantissa, over what the slow gain made of the past
            feed([level = random.uniform(0.6f, 2.0f)](uint32_t k) { return k % 2 ? -level : level; });
        EXPECT_LE(greatest, 0.5f * (1.0f + 0x1p-21f)) << "eight roundings, as the header says";
        EXPECT_GE(greatest, 0.5f * 0.999f) << "the limiter takes away more than it has to";
    });
}

TEST(Limiter, ComesToRestAsCloseToOneAsTheHeaderSays) {
    for_each_combination([](uint32_t length, uint32_t rate, const float* set) {
        const float below_one = std::floor(0.5f / set[3]) + std::floor(0.5f / (1.0f - set[4]));
        const float bound = 1.0f - below_one * 0x1p-24f;
        for (auto [trouble, peak] :
             {std::pair{0.6f, 0.5f}, {nan, 0.5f}, {inf, 0.5f}, {1e-41f, 0.0f}, {2e-40f, 1e-40f}}) {
            SCOPED_TRACE("after " + std::to_string(trouble));
            Limiter limiter(1, length, rate), fresh(1, length, rate);
            korvex_ht_kvlim_set_block_size(limiter, 8 * length);
            const std::vector<float> quiet(8 * length, 0.25f);
            korvex_ht_kvlim_set_peak(limiter, peak);
            limiter.run(quiet);
            limiter.run(std::vector<float>(8 * length, trouble));
            limiter.run(quiet); // the last of it leaves the delay line
            korvex_ht_kvlim_set_peak(limiter, 0.5f);
            for (uint32_t i = 0; i < 3 * rate; i += 8 * length)
                ASSERT_LE(peak_of(limiter.run(quiet)), 0.25f);
            const float gain = limiter.gain();
            EXPECT_TRUE(trouble == inf ? gain == bound : gain >= bound) << gain << " for " << bound;
            limiter.run(quiet);
            EXPECT_EQ(limiter.gain(), gain) << "not at rest";
            korvex_ht_kvlim_reset_state(limiter);
            const auto signal = programme(64 * length, rate);
            EXPECT_EQ(limiter.run(signal), fresh.run(signal)) << "a reset makes it a fresh one";
        }
    });
}

TEST(Limiter, SwitchingOnLeavingHardClipAndResetClearTheDelay) {
    for (int way = 0; way < 4; way++) {
        Limiter limiter(1, 32);
        auto peak_after = [&](float level) { return peak_of(limiter.run(std::vector<float>(32, level))); };
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
        EXPECT_NEAR(peak_after(0.0f), way == 3 ? 0.25f : 0.0f, 1e-6f) << way;
    }
}

} // namespace
