// Numbers out of bytes that a fuzzer, or a test in its place, makes up.
#pragma once

#include <cstddef>
#include <cstdint>

namespace korla_test {

// Little-endian numbers; zeros behind the end.
class Bytes {
public:
    Bytes(const uint8_t* data, size_t size) : data_(data), size_(size) {}
    bool empty() const { return at_ >= size_; }
    const uint8_t* rest() const { return data_ + at_; }
    size_t rest_size() const { return size_ - at_; }
    uint8_t u8() { return at_ < size_ ? data_[at_++] : uint8_t{0}; }
    uint32_t u16() {
        const uint32_t low = u8();
        return low | uint32_t{u8()} << 8;
    }
    uint32_t u32() {
        const uint32_t low = u16();
        return low | u16() << 16;
    }

private:
    const uint8_t* data_;
    size_t size_, at_ = 0;
};

} // namespace korla_test
