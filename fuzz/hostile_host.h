// What both fuzz targets need: numbers out of the fuzzer's bytes, an allocator that can fail, exact buffers.
#pragma once

#include <korla/acli.h>
#include <korla/diag.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>

// The next call of calloc by the library after so many successful ones fails; negative: none does.
inline int callocs_until_failure = -1;

extern "C" void* __real_calloc(size_t n, size_t size);
extern "C" inline void* __attribute__((used)) __wrap_calloc(size_t n, size_t size) {
    if (callocs_until_failure >= 0 && callocs_until_failure-- == 0)
        return nullptr;
    return __real_calloc(n, size);
}

namespace korla_fuzz {

// Little-endian numbers; zeros behind the end.
class Bytes {
public:
    Bytes(const uint8_t* data, size_t size) : data_(data), size_(size) {}
    bool empty() const { return at_ >= size_; }
    uint8_t u8() { return at_ < size_ ? data_[at_++] : uint8_t{0}; }
    uint32_t u16() { return u8() | u8() << 8; }
    uint32_t u32() { return u16() | u16() << 16; }

private:
    const uint8_t* data_;
    size_t size_, at_ = 0;
};

inline void require(bool condition) {
    if (!condition)
        std::abort();
}

inline void silence_the_log() {
    kpf_log_set_callback([](void*, const char*) {}, nullptr);
}

// A block out of 36 bytes of fields and one byte per map entry; 255 stands for a code far outside the table.
inline acli_media_format media_format(Bytes& bytes) {
    acli_media_format format = {};
    uint8_t fields[36];
    for (uint8_t& field : fields)
        field = bytes.u8();
    std::memcpy(&format, fields, sizeof fields);
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
    Buffer(size_t size, size_t misalignment) : misalignment_(misalignment), bytes_(new uint8_t[size + misalignment]) {
        for (size_t i = 0; i < size; i++)
            data()[i] = static_cast<uint8_t>(i * 37 + size);
    }
    uint8_t* data() { return bytes_.get() + misalignment_; }

private:
    size_t misalignment_;
    std::unique_ptr<uint8_t[]> bytes_;
};

} // namespace korla_fuzz
