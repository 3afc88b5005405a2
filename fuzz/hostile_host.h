// What targets need that drive the module: an allocator that can fail, exact buffers, streams.
#pragma once

#include <korla/acli.h>
#include <korla/diag.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "bytes.h"

// The next call of calloc by the library after so many successful ones fails; negative: none does.
inline int callocs_until_failure = -1;

extern "C" void* __real_calloc(size_t n, size_t size);
extern "C" inline void* __attribute__((used)) __wrap_calloc(size_t n, size_t size) {
    if (callocs_until_failure >= 0 && callocs_until_failure-- == 0)
        return nullptr;
    return __real_calloc(n, size);
}

namespace korla_fuzz {

using korla_test::Bytes;

inline void require(bool condition, const char* file = __builtin_FILE(), int line = __builtin_LINE()) {
    if (!condition) {
        std::fprintf(stderr, "%s:%d: does not hold\n", file, line);
        std::abort();
    }
}

inline void silence_the_log() {
    kpf_log_set_callback([](void*, const char*) {}, nullptr);
}

// An instance; its handle is null when there was no memory for it.
class Stream {
public:
    Stream() { require((ACLI.create(0, 0, &handle_) == ACLI_OK) == (handle_ != nullptr)); }
    ~Stream() { require(ACLI.destroy(handle_) == (handle_ ? ACLI_OK : ACLI_FAILED)); }
    Stream(const Stream&) = delete;
    Stream& operator=(const Stream&) = delete;
    explicit operator bool() const { return handle_; }
    void* handle() const { return handle_; }

    acli_media_format send(acli_media_format format, uint32_t mode, uint32_t parameter = ACLI_PARAM_MEDIA_FORMAT) {
        acli_param_value value = {mode, 0, &format};
        require(ACLI.set_param(handle_, parameter, 0, 0, &value) == ACLI_OK);
        return format;
    }
    // With or without memory for the engine.
    bool process(const acli_buffer& in, acli_buffer& out, bool out_of_memory) {
        const uint32_t capacity = out.bytes;
        callocs_until_failure = out_of_memory ? 0 : -1;
        const int32_t result = ACLI.process(handle_, &in, &out);
        callocs_until_failure = -1;
        require(result == ACLI_OK ? out.bytes <= capacity : result == ACLI_FAILED && out.bytes == capacity);
        return result == ACLI_OK;
    }

private:
    void* handle_ = nullptr;
};

// A block: either any 36 bytes of fields, or a few bytes that choose sensible ones; then one byte per map entry, where
// 255 stands for a code far outside the table.
inline acli_media_format media_format(Bytes& bytes) {
    acli_media_format format = {};
    const uint8_t choice = bytes.u8();
    if (choice & 1) {
        uint8_t fields[36];
        for (uint8_t& field : fields)
            field = bytes.u8();
        std::memcpy(&format, fields, sizeof fields);
    } else {
        constexpr uint32_t sample_formats[] = {ACLI_SAMPLE_FLOAT32, ACLI_SAMPLE_INT16, ACLI_SAMPLE_INT32, 1};
        format.interleaved = choice >> 1 & 1;
        format.explicit_layout = choice >> 2 & 1;
        format.sample_format = sample_formats[choice >> 3 & 3];
        format.sample_rate = choice >> 5 & 1 ? 12345 : 48000;
        format.layout_index = bytes.u8() % 33u;
        format.input_channel_count = bytes.u8() % 17u;
    }
    format.output_channel_count = 0; // still 0 after a refusal
    const uint32_t entries = bytes.u8();
    for (uint32_t i = 0; i < entries; i++) {
        const uint8_t code = bytes.u8();
        format.input_channel_map[i] = code == 255 ? 0xFFFFFFF0u : code;
    }
    return format;
}

// A buffer of exactly `size` bytes, `misalignment` bytes behind an aligned address, so that a byte too far is seen.
class Buffer {
public:
    Buffer(size_t size, size_t misalignment)
        : size_(size), misalignment_(misalignment), bytes_(new uint8_t[size + misalignment]) {
        for (size_t i = 0; i < size; i++)
            data()[i] = static_cast<uint8_t>(i * 37 + size);
    }
    uint8_t* data() { return bytes_.get() + misalignment_; }
    size_t size() const { return size_; }

private:
    size_t size_, misalignment_;
    std::unique_ptr<uint8_t[]> bytes_;
};

} // namespace korla_fuzz
