// The bits of the module path over a long stream, as one number per format. They are the same on every processor, in
// every build: a change here is a change of what integrators hear.
#include <algorithm>
#include <cmath>
#include <cstdint>
#include <type_traits>

#include "module_host.h"
#include "signals.h"

using namespace korla_test;

namespace {

// Noise in plateaus of a few thousand samples between silence and four times full scale; integers by bits alone.
template <class T> T sample(Random& random, float level) {
    const float x = level * random.uniform();
    if constexpr (std::is_same_v<T, float>)
        return x;
    const double full_scale = sizeof(T) == 2 ? 0x1p15 : 0x1p31;
    return static_cast<T>(std::clamp(x * full_scale, -full_scale, full_scale - 1.0));
}

template <class T> uint64_t digest(uint32_t sample_format) {
    struct Leg {
        const char* inputs;
        int layout;
        bool interleaved;
        uint32_t rate;
    };
    // One stream, configured anew for every leg.
    const Leg legs[] = {{"FL FR FC LFE SL SR", 0, true, 48000},
                        {"FL FR FC LFE FLC FRC", automatic, true, 44100},
                        {"FL FR FC SL SR BC TFC", automatic, false, 96000},
                        {"FL FR FC LFE SL SR BL BR", 15, false, 192000},
                        {"FL FR FC LFE SL SR SL2 SR2", automatic, true, 24000},
                        {"FC LFE", automatic, true, 32000},
                        {"FC", 27, false, 22050}};
    uint64_t hash = 0xCBF29CE484222325u; // FNV-1a
    Stream stream;
    Random random(2026);
    for (const Leg& leg : legs) {
        stream.apply(media_format(leg.inputs, leg.layout, sample_format, leg.interleaved, leg.rate));
        const size_t channels = stream.applied.input_channel_count;
        float level = 0.0f;
        for (int call = 0; call < 160; call++) {
            // Mostly whole chunks, now and then a length that is none.
            const size_t frames = call % 16 == 15 ? 1 + random.bits() % 700 : 256 * (1 + random.bits() % 4);
            if (call % 5 == 0)
                level = random.uniform(0.0f, 1.0f), level = std::ldexp(level, static_cast<int>(random.bits() % 8) - 5);
            std::vector<T> in(frames * channels);
            for (T& x : in)
                x = sample<T>(random, level);
            const auto out = stream.run(in);
            for (size_t i = 0; i < out.size() * sizeof(T); i++)
                hash = (hash ^ reinterpret_cast<const uint8_t*>(out.data())[i]) * 0x100000001B3u;
        }
    }
    return hash;
}

TEST(GoldenDigest, Int16) { EXPECT_EQ(digest<int16_t>(ACLI_SAMPLE_INT16), 0x45639A4A76A9C83Au); }
TEST(GoldenDigest, Int32) { EXPECT_EQ(digest<int32_t>(ACLI_SAMPLE_INT32), 0x69DCB8ECEE05B99Fu); }
TEST(GoldenDigest, Float) { EXPECT_EQ(digest<float>(ACLI_SAMPLE_FLOAT32), 0x2730911D20279AEBu); }

} // namespace
