// A host of the module, as small as it can be: it knows ACLI and nothing else.
#pragma once

#include <gtest/gtest.h>

#include <korla/acli.h>

#include <cstring>
#include <utility>
#include <vector>

#include "reference/layouts.h"

namespace korla_test {

constexpr int automatic = -1;

inline acli_media_format media_format(const std::string& inputs, int layout_index = automatic,
                                      uint32_t sample_format = ACLI_SAMPLE_FLOAT32, bool interleaved = true,
                                      uint32_t rate = 48000) {
    acli_media_format format = {};
    const auto input_codes = codes(inputs, &Speaker::host);
    format.input_channel_count = static_cast<uint32_t>(input_codes.size());
    format.sample_rate = rate;
    format.interleaved = interleaved;
    format.explicit_layout = layout_index != automatic;
    format.layout_index = layout_index == automatic ? 0 : static_cast<uint32_t>(layout_index);
    format.sample_format = sample_format;
    std::ranges::copy(input_codes, format.input_channel_map);
    return format;
}

inline acli_buffer buffer_of(const void* data, size_t bytes, size_t channels = 0, size_t bits = 0) {
    acli_buffer buffer = {};
    buffer.bytes = static_cast<uint32_t>(bytes), buffer.data = const_cast<void*>(data);
    buffer.channels = static_cast<uint32_t>(channels), buffer.bits_per_sample = static_cast<uint32_t>(bits);
    return buffer;
}

class Stream {
public:
    Stream() { EXPECT_EQ(ACLI.create(1, 2, &handle_), ACLI_OK); }
    explicit Stream(const acli_media_format& format) : Stream() { apply(format); }
    Stream(Stream&& other) noexcept : applied(other.applied), handle_(std::exchange(other.handle_, nullptr)) {}
    Stream& operator=(Stream&&) = delete;
    ~Stream() { EXPECT_TRUE(!handle_ || ACLI.destroy(handle_) == ACLI_OK); }
    operator void*() const { return handle_; }

    // What the module wrote into the block.
    acli_media_format set(acli_media_format format, uint32_t mode) {
        acli_param_value value = {mode, 0, &format};
        EXPECT_EQ(ACLI.set_param(handle_, ACLI_PARAM_MEDIA_FORMAT, 11, 12, &value), ACLI_OK);
        return format;
    }
    const acli_media_format& apply(const acli_media_format& format) { return applied = set(format, ACLI_MODE_APPLY); }

    int32_t process(const acli_buffer& in, acli_buffer& out) { return ACLI.process(handle_, &in, &out); }

    // A whole call: as many frames as `in` holds, in slots of T. Nothing comes out when it fails.
    template <class T> std::vector<T> try_run(const std::vector<T>& in) {
        const size_t channels = applied.input_channel_count;
        std::vector<T> out(in.size() / channels * applied.output_channel_count);
        const acli_buffer source = buffer_of(in.data(), in.size() * sizeof(T), channels, 8 * sizeof(T));
        acli_buffer target = buffer_of(out.data(), out.size() * sizeof(T));
        if (process(source, target) != ACLI_OK)
            return {};
        EXPECT_EQ(target.bytes, out.size() * sizeof(T));
        return out;
    }
    template <class T> std::vector<T> run(const std::vector<T>& in) {
        const auto out = try_run(in);
        EXPECT_TRUE(in.empty() || !out.empty());
        return out;
    }

    acli_media_format applied = {};

private:
    void* handle_ = nullptr;
};

} // namespace korla_test
