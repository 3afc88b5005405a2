// A scalar model of the downmix engine, one step after the other, bit for bit.
#pragma once

#include <korla/downmixer.h>

#include <cmath>
#include <cstdint>
#include <cstring>
#include <vector>

#include "reference/layouts.h"
#include "reference/limiter_reference.h"

namespace korla_test {

constexpr bool is_integer(uint32_t format) {
    return format >= KORVEX_FORMAT_INT16 && format <= KORVEX_FORMAT_INT32_IN_64;
}
constexpr bool is_known(uint32_t format) { return format >= KORVEX_FORMAT_FLOAT && format <= KORVEX_FORMAT_DOUBLE; }
constexpr size_t slot_bytes(uint32_t format) {
    return format == KORVEX_FORMAT_INT16                                           ? 2
           : format == KORVEX_FORMAT_INT32_IN_64 || format == KORVEX_FORMAT_DOUBLE ? 8
                                                                                   : 4;
}

template <class T> T load_as(const void* p) {
    T v;
    std::memcpy(&v, p, sizeof v);
    return v;
}
inline float to_float(uint32_t format, const void* slot) {
    return format == KORVEX_FORMAT_INT16    ? static_cast<float>(load_as<int16_t>(slot)) * 0x1p-15f
           : is_integer(format)             ? static_cast<float>(load_as<int32_t>(slot)) * 0x1p-31f
           : format == KORVEX_FORMAT_DOUBLE ? static_cast<float>(load_as<double>(slot))
                                            : load_as<float>(slot);
}
// Integers round in the current mode and saturate.
inline void from_float(uint32_t format, float x, void* slot) {
    const double wide = x, full_scale = format == KORVEX_FORMAT_INT16 ? 0x1p15 : 0x1p31;
    const double scaled = std::isnan(x) ? 0.0 : std::clamp(wide * full_scale, -full_scale, full_scale - 1.0);
    const int64_t integer = std::lrint(scaled);
    const void* value = is_integer(format)               ? static_cast<const void*>(&integer)
                        : format == KORVEX_FORMAT_DOUBLE ? static_cast<const void*>(&wide)
                                                         : &x;
    std::memcpy(slot, value, slot_bytes(format)); // little-endian: the low bytes of an integer
}

// Sample t of channel c stands at base[c * step + t * stride], in slots; all stand in the first `slots`.
struct Placement {
    uint32_t format;
    size_t stride, step, slots;
    size_t offset(size_t c, size_t t) const { return (c * step + t * stride) * slot_bytes(format); }
};
// Frames in a wider buffer are gapped; apart are channels that each lie, with the stride of frames, in memory of their
// own.
enum Arrangement { planar, interleaved, gapped, apart };
inline Placement placement(uint32_t format, int arrangement, size_t channels, size_t frames) {
    switch (arrangement) {
    case planar: return {format, 1, frames, frames * channels};
    case interleaved: return {format, channels, 1, frames * channels};
    case gapped: return {format, channels + 1, 1, frames * (channels + 1)};
    default: return {format, channels, frames * channels, frames * channels * channels};
    }
}

constexpr float engine_boost = std::bit_cast<float>(0x3C20C2BFu);

class EngineModel {
public:
    EngineModel(uint32_t block, uint32_t rate, std::vector<float> matrix, size_t inputs, size_t outputs)
        : block_(block), inputs_(inputs), outputs_(outputs), matrix_(std::move(matrix)),
          limiter_(static_cast<uint32_t>(outputs), 32), in_work_(block * inputs), out_work_(block * outputs) {
        limiter_.peak = std::bit_cast<float>(0x3ECBD4B4u);
        limiter_.set_boost(engine_boost, engine_boost);
        limiter_.set_sample_rate(rate);
        limiter_.block_size = block;
        limiter_.num_channels = static_cast<uint32_t>(outputs);
    }

    // The work buffers keep what earlier calls left behind `frames`; the limiter always takes the whole block. Input in
    // KORVEX_FORMAT_FLOAT is mixed into the caller's buffer itself, which takes the place of the output work buffer.
    void process(const uint8_t* in, Placement from, uint8_t* out, Placement to, size_t frames) {
        const bool direct = from.format == KORVEX_FORMAT_FLOAT;
        frames = std::min(frames, block_);
        for (size_t c = 0; c < inputs_; c++)
            for (size_t t = 0; t < frames; t++)
                in_work_[t * inputs_ + c] = to_float(from.format, in + from.offset(c, t));
        for (size_t o = 0; o < outputs_; o++)
            for (size_t t = 0; t < block_; t++) {
                float& sum = out_work_[t * outputs_ + o];
                if (direct && t >= frames)
                    sum = load_as<float>(out + to.offset(o, t));
                if (t < frames)
                    sum = 0.0f;
                for (size_t i = 0; t < frames && i < inputs_; i++)
                    if (matrix_[o * inputs_ + i] != 0.0f)
                        sum += in_work_[t * inputs_ + i] * matrix_[o * inputs_ + i];
            }
        std::vector<float*> channels;
        for (size_t o = 0; o < outputs_; o++)
            channels.push_back(out_work_.data() + o);
        limiter_.process(channels.data(), channels.data(), channels.data(), outputs_, outputs_, limiter_.num_channels);
        for (size_t o = 0; o < outputs_ && is_known(to.format); o++)
            for (size_t t = 0; t < (direct ? block_ : frames); t++)
                from_float(to.format, out_work_[t * outputs_ + o], out + to.offset(o, t));
    }

private:
    size_t block_, inputs_, outputs_;
    std::vector<float> matrix_;
    LimiterModel limiter_;
    std::vector<float> in_work_, out_work_;
};

// The routes that are measured when one channel at a time is hot: run(in) takes and gives 256 frames of interleaved
// float samples. A settled 0.25 comes out as 0.25 * gain * 2^8 * boost.
template <class Run> std::string measured_routes(const std::string& inputs, const std::string& outputs, Run run) {
    const auto ins = words(inputs), outs = words(outputs);
    std::string routes;
    for (size_t c = 0; c < ins.size(); c++) {
        std::vector<float> in(256 * ins.size());
        for (size_t t = 0; t < 128; t++)
            in[t * ins.size() + c] = 0.25f;
        const std::vector<float> out = run(in);
        routes += (c ? " " : "") + ins[c] + '>';
        for (size_t o = 0; o < outs.size(); o++)
            if (const float level = out[32 * outs.size() + o]; level != 0.0f) {
                routes += routes.back() == '>' ? "" : "+";
                char letter = '?';
                for (const Gain& gain : gains)
                    if (std::fabs(level - 0.25f * gain.value * 256.0f * engine_boost) < 1e-6f)
                        letter = gain.letter;
                routes += letter + outs[o];
            }
    }
    return routes;
}

} // namespace korla_test
