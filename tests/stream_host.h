// Programs that use korla-stream, as small as they can be.
#pragma once

#include <gtest/gtest.h>

#include <korla/stream.h>

#include <cmath>
#include <cstring>
#include <string>
#include <vector>

#include "signals.h"

namespace korla_test {

using Bytes = std::vector<std::byte>;

inline korla_layout layout(const std::string& text) {
    korla_layout result = {};
    char reason[200] = "";
    EXPECT_EQ(korla_layout_parse(text.c_str(), &result, reason, sizeof reason), KORLA_OK) << reason;
    return result;
}

inline std::vector<std::string> layout_names() {
    std::vector<std::string> names;
    for (uint32_t i = 0; const char* name = korla_layout_at(i, nullptr); i++)
        names.push_back(name);
    return names;
}

// Interleaved float, push and pull, unless changed.
inline korla_stream_config stream_config(const korla_layout& in, const korla_layout& out) {
    korla_stream_config config = {};
    config.size = sizeof config;
    config.rate = 48000;
    config.in = in, config.out = out;
    config.in_format = config.out_format = KORLA_F32;
    return config;
}
inline korla_stream_config stream_config(const std::string& in, const std::string& out) {
    return stream_config(layout(in), layout(out));
}

// Samples of one side of a stream: bytes as the stream takes them, interleaved or one channel after another.
struct Samples {
    uint32_t channels = 0, format = 0;
    bool planar = false;
    size_t frames = 0;
    Bytes bytes;

    Samples(uint32_t c, uint32_t f, bool p, size_t n)
        : channels(c), format(f), planar(p), frames(n), bytes(c * n * korla_format_bytes(f)) {}
    size_t place(size_t frame, size_t channel) const {
        return (planar ? channel * frames + frame : frame * channels + channel) * korla_format_bytes(format);
    }
    // The planes from a frame on, for the calls of the stream.
    std::vector<void*> planes(size_t frame) {
        std::vector<void*> result;
        for (size_t c = 0; c < (planar ? channels : 1); c++)
            result.push_back(bytes.data() + place(frame, c));
        return result;
    }
    double get(size_t frame, size_t channel) const {
        const std::byte* p = bytes.data() + place(frame, channel);
        int32_t i = 0;
        float f = 0;
        double d = 0;
        switch (format) {
        case KORLA_S16: return std::memcpy(reinterpret_cast<char*>(&i) + 2, p, 2), i * 0x1p-31;
        case KORLA_S24: return std::memcpy(reinterpret_cast<char*>(&i) + 1, p, 3), i * 0x1p-31;
        case KORLA_S24_32: return std::memcpy(&i, p, 4), i * 0x1p-23;
        case KORLA_S32: return std::memcpy(&i, p, 4), i * 0x1p-31;
        case KORLA_F32: return std::memcpy(&f, p, 4), f;
        default: return std::memcpy(&d, p, 8), d;
        }
    }
    void set(size_t frame, size_t channel, double x) {
        std::byte* p = bytes.data() + place(frame, channel);
        const auto whole = [x](double full) {
            return static_cast<int32_t>(std::fmin(std::nearbyint(x * full), full - 1));
        };
        const auto f = static_cast<float>(x);
        int32_t i;
        switch (format) {
        case KORLA_S16: i = whole(0x1p15), std::memcpy(p, &i, 2); break;
        case KORLA_S24: i = whole(0x1p23), std::memcpy(p, &i, 3); break;
        case KORLA_S24_32: i = whole(0x1p23), std::memcpy(p, &i, 4); break;
        case KORLA_S32: i = whole(0x1p31), std::memcpy(p, &i, 4); break;
        case KORLA_F32: std::memcpy(p, &f, 4); break;
        default: std::memcpy(p, &x, 8);
        }
    }
    Samples& fill(auto f) {
        for (size_t t = 0; t < frames; t++)
            for (size_t c = 0; c < channels; c++)
                set(t, c, f(t, c));
        return *this;
    }
};

inline double peak(const Samples& samples) {
    double largest = 0;
    for (size_t t = 0; t < samples.frames; t++)
        for (size_t c = 0; c < samples.channels; c++)
            largest = std::fmax(largest, std::fabs(samples.get(t, c)));
    return largest;
}

// Calls of 0 to 5,000 frames, small ones more often.
inline auto random_calls(uint64_t seed) {
    return [random = Random(seed)]() mutable {
        const uint32_t most[] = {3, 40, 300, 5000};
        return random.bits() % (most[random.bits() % 4] + 1);
    };
}

class KorlaStream {
public:
    explicit KorlaStream(const korla_stream_config& config) : config_(config) {
        char reason[200] = "";
        EXPECT_EQ(korla_stream_open(&config, nullptr, 0, &stream_, reason, sizeof reason), KORLA_OK) << reason;
    }
    ~KorlaStream() { korla_stream_close(stream_); }
    KorlaStream(const KorlaStream&) = delete;
    KorlaStream& operator=(const KorlaStream&) = delete;
    operator korla_stream*() const { return stream_; }

    Samples input(size_t frames) const { return {config_.in.count, config_.in_format, config_.in_planar != 0, frames}; }
    void set(uint32_t control, float value) { EXPECT_EQ(korla_stream_set(stream_, control, value), KORLA_OK); }
    korla_meters meters() {
        korla_meters meters = {};
        meters.size = sizeof meters;
        EXPECT_EQ(korla_stream_meters(stream_, &meters), KORLA_OK);
        return meters;
    }

    // Feeds all of `in` in calls of next() frames each, then drains. What has come out, in one piece.
    template <class Next> Samples run(Samples in, Next next) {
        const size_t latency = config_.mode == KORLA_PUSH ? 0 : korla_stream_latency(stream_);
        Samples out(config_.out.count, config_.out_format, config_.out_planar != 0, in.frames + latency);
        size_t taken = 0, given = 0, produced = 0;
        while (taken < in.frames) {
            const size_t n = std::min<size_t>(next(), in.frames - taken);
            EXPECT_EQ(korla_stream_process(stream_, in.planes(taken).data(), n, out.planes(given).data(),
                                           out.frames - given, &produced),
                      KORLA_OK);
            taken += n, given += produced;
        }
        EXPECT_EQ(korla_stream_drain(stream_, out.planes(given).data(), out.frames - given, &produced), KORLA_OK);
        EXPECT_EQ(given + produced, out.frames);
        return out;
    }
    Samples run(const Samples& in) {
        return run(in, [&in] { return in.frames; });
    }

private:
    korla_stream_config config_;
    korla_stream* stream_ = nullptr;
};

} // namespace korla_test
