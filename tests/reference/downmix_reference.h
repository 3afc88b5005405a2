// A scalar model of the downmix engine, one step after the other, bit for bit.
#pragma once

#include <korla/downmixer.h>

#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>
#include <memory>
#include <vector>

#include "reference/limiter_reference.h"

namespace korla_test {

inline size_t slot_bytes(uint32_t format) {
    return format == KORVEX_FORMAT_INT16                                           ? 2
           : format == KORVEX_FORMAT_INT32_IN_64 || format == KORVEX_FORMAT_DOUBLE ? 8
                                                                                   : 4;
}

template <class T>
T load_as(const void* p) {
    T v;
    std::memcpy(&v, p, sizeof v);
    return v;
}

inline float to_float(uint32_t format, const void* slot) {
    switch (format) {
    case KORVEX_FORMAT_INT16:
        return static_cast<float>(load_as<int16_t>(slot)) * 0x1p-15f;
    case KORVEX_FORMAT_INT32:
    case KORVEX_FORMAT_INT32_IN_64:
        return static_cast<float>(load_as<int32_t>(slot)) * 0x1p-31f;
    case KORVEX_FORMAT_DOUBLE:
        return static_cast<float>(load_as<double>(slot));
    default:
        return load_as<float>(slot);
    }
}

inline int32_t to_int32(float x) {
    if (std::isnan(x))
        return 0;
    if (x >= 1.0f)
        return INT32_MAX;
    return static_cast<int32_t>(std::lrint(std::max(x * 0x1p31f, -0x1p31f)));
}

inline int16_t to_int16(float x) {
    if (std::isnan(x))
        return 0;
    return static_cast<int16_t>(std::lrint(std::min(std::max(x * 0x1p15f, -0x1p15f), 32767.0f)));
}

inline void from_float(uint32_t format, float x, void* slot) {
    const int16_t i16 = to_int16(x);
    const int64_t i64 = to_int32(x);
    const double wide = x;
    switch (format) {
    case KORVEX_FORMAT_INT16:
        std::memcpy(slot, &i16, 2);
        break;
    case KORVEX_FORMAT_INT32:
        std::memcpy(slot, &i64, 4);
        break;
    case KORVEX_FORMAT_INT32_IN_64:
        std::memcpy(slot, &i64, 8);
        break;
    case KORVEX_FORMAT_DOUBLE:
        std::memcpy(slot, &wide, 8);
        break;
    default:
        std::memcpy(slot, &x, 4);
    }
}

// Sample t of channel c stands at base[c * step + t * stride], in slots.
struct Placement {
    uint32_t format;
    size_t stride, step;
    size_t offset(uint32_t c, size_t t) const { return (c * step + t * stride) * slot_bytes(format); }
};

class EngineModel {
public:
    EngineModel(uint32_t block, uint32_t rate, std::vector<float> matrix, uint32_t inputs, uint32_t outputs)
        : block_(block), inputs_(inputs), outputs_(outputs), matrix_(std::move(matrix)), limiter_(outputs, 32),
          in_work_(block * inputs), out_work_(block * outputs) {
        limiter_.peak = std::bit_cast<float>(0x3ECBD4B4u);
        limiter_.set_boost(std::bit_cast<float>(0x3C20C2BFu), std::bit_cast<float>(0x3C20C2BFu));
        limiter_.set_sample_rate(rate);
        limiter_.block_size = block;
        limiter_.num_channels = outputs;
    }
    uint32_t inputs() const { return inputs_; }
    uint32_t outputs() const { return outputs_; }

    // The work buffers keep what earlier calls left behind `frames`; the limiter always takes the whole block. Input in
    // KORVEX_FORMAT_FLOAT is mixed into the caller's buffer itself, which takes the place of the output work buffer.
    void process(const uint8_t* in, Placement from, uint8_t* out, Placement to, size_t frames) {
        const bool direct = from.format == KORVEX_FORMAT_FLOAT;
        std::vector<float> caller_in(block_ * inputs_), caller_out(block_ * outputs_);
        std::vector<float>& source = direct ? caller_in : in_work_;
        std::vector<float>& mix = direct ? caller_out : out_work_;
        if (known(from.format))
            for (uint32_t c = 0; c < inputs_; c++)
                for (size_t t = 0; t < frames; t++)
                    source[t * inputs_ + c] = to_float(from.format, in + from.offset(c, t));
        for (uint32_t o = 0; direct && o < outputs_; o++)
            for (size_t t = frames; t < block_; t++)
                mix[t * outputs_ + o] = load_as<float>(out + to.offset(o, t));
        for (uint32_t o = 0; o < outputs_; o++)
            for (size_t t = 0; t < frames; t++) {
                float sum = 0.0f;
                for (uint32_t i = 0; i < inputs_; i++)
                    if (matrix_[o * inputs_ + i] != 0.0f)
                        sum += source[t * inputs_ + i] * matrix_[o * inputs_ + i];
                mix[t * outputs_ + o] = sum;
            }
        std::vector<float*> channels;
        for (uint32_t o = 0; o < outputs_; o++)
            channels.push_back(mix.data() + o);
        limiter_.process(channels.data(), channels.data(), channels.data(), outputs_, outputs_, outputs_);
        if (known(to.format))
            for (uint32_t o = 0; o < outputs_; o++)
                for (size_t t = 0; t < (direct ? block_ : frames); t++)
                    from_float(to.format, mix[t * outputs_ + o], out + to.offset(o, t));
    }

private:
    static bool known(uint32_t format) { return format >= KORVEX_FORMAT_FLOAT && format <= KORVEX_FORMAT_DOUBLE; }

    uint32_t block_, inputs_, outputs_;
    std::vector<float> matrix_;
    LimiterModel limiter_;
    std::vector<float> in_work_, out_work_;
};

} // namespace korla_test
