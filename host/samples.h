// Sample formats of a stream, and the move between interleaved file order and stream order.
#pragma once

#include <korla/acli.h>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <vector>

namespace host {

// s24 stands in the low bits of four bytes; the module has no such format.
enum class SampleFormat { s16, s24, s32, f32 };

inline size_t bytes_per_sample(SampleFormat f) { return f == SampleFormat::s16 ? 2 : 4; }
inline const char* format_name(SampleFormat f) {
    return f == SampleFormat::s16 ? "s16" : f == SampleFormat::s24 ? "s24" : f == SampleFormat::s32 ? "s32" : "f32";
}
inline uint32_t module_code(SampleFormat f) {
    return f == SampleFormat::s16   ? ACLI_SAMPLE_INT16
           : f == SampleFormat::s32 ? ACLI_SAMPLE_INT32
                                    : ACLI_SAMPLE_FLOAT32;
}

// Sample i of a buffer, full scale 1.0.
inline double sample_value(const std::byte* buffer, SampleFormat f, size_t i) {
    auto load = [&](auto value, double scale) {
        std::memcpy(&value, buffer + i * sizeof value, sizeof value);
        return static_cast<double>(value) * scale;
    };
    switch (f) {
    case SampleFormat::s16: return load(int16_t{}, 0x1p-15);
    case SampleFormat::s24: return load(int32_t{}, 0x1p-23);
    case SampleFormat::s32: return load(int32_t{}, 0x1p-31);
    default: return load(float{}, 1.0);
    }
}

// A millionth is left to rounding: to the limiter's, and to that of measured gains.
inline bool exceeds_full_scale(double x) { return std::fabs(x) > 1.0 + 0x1p-20; }

// The nearest integer of so many bits, ties to even, so that rounding has no mean; NaN is silence. noise: added before, in steps.
inline int32_t quantised(double x, int bits, double noise = 0.0) {
    const double scale = std::ldexp(1.0, bits - 1);
    return std::isnan(x) ? 0 : static_cast<int32_t>(std::lrint(std::clamp(x * scale + noise, -scale, scale - 1.0)));
}

// Whole numbers of so many bits; 0 for floats.
inline int bits_of(SampleFormat f) {
    return f == SampleFormat::s16 ? 16 : f == SampleFormat::s24 ? 24 : f == SampleFormat::s32 ? 32 : 0;
}

// Noise with a triangular density of two steps' width, which makes the error of rounding independent of the signal: its mean is
// 0 and its variance constant. S. P. Lipshitz, R. A. Wannamaker, J. Vanderkooy, "Quantization and dither: a theoretical survey",
// J. Audio Eng. Soc. 40(5), 1992. The same in every run.
class Dither {
public:
    double next() { return uniform() - uniform(); } // in steps

private:
    double uniform() {
        state_ ^= state_ << 13, state_ ^= state_ >> 7, state_ ^= state_ << 17; // G. Marsaglia's xorshift
        return static_cast<double>(state_ >> 11) * 0x1p-53;
    }
    uint64_t state_ = 0x9e3779b97f4a7c15;
};

// Place of a sample in a stream buffer. Planar streams hold, for each chunk of 256 frames, one channel after another;
// the host only ever sends whole chunks.
inline size_t stream_place(size_t frame, size_t channel, size_t channels, bool planar) {
    if (!planar)
        return frame * channels + channel;
    const size_t chunk = frame / ACLI_MAX_CHUNK, within = frame % ACLI_MAX_CHUNK;
    return (chunk * channels + channel) * ACLI_MAX_CHUNK + within;
}

// order[c]: channel of the file that is channel c of the stream.
inline void file_to_stream(const std::byte* file, std::byte* stream, size_t frames, const std::vector<size_t>& order,
                           size_t sample_bytes, bool planar) {
    const size_t channels = order.size();
    for (size_t c = 0; c < channels; c++)
        for (size_t t = 0; t < frames; t++)
            std::memcpy(stream + stream_place(t, c, channels, planar) * sample_bytes,
                        file + (t * channels + order[c]) * sample_bytes, sample_bytes);
}

// order[c]: channel of the stream that is channel c of the file.
inline void stream_to_file(const std::byte* stream, std::byte* file, size_t frames, const std::vector<size_t>& order,
                           size_t sample_bytes, bool planar) {
    const size_t channels = order.size();
    for (size_t c = 0; c < channels; c++)
        for (size_t t = 0; t < frames; t++)
            std::memcpy(file + (t * channels + c) * sample_bytes,
                        stream + stream_place(t, order[c], channels, planar) * sample_bytes, sample_bytes);
}

} // namespace host
