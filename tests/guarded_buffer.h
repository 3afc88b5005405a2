// A buffer with canaries on both sides, at a chosen distance from a 64-byte boundary. Each buffer has a canary of its
// own, so that a copy that takes the canary of one to that of another is seen too.
//
// Where AddressSanitizer is on, it also reports who touches a canary, reads included.
#pragma once

#include <gtest/gtest.h>
#include <sanitizer/asan_interface.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <vector>

namespace korla_test {

// T data()[size] starts `misalignment` elements behind a 64-byte boundary. The destructor reports every canary that
// changed, so a write in front of or behind the buffer fails the test that made it.
template <class T> class GuardedBuffer {
public:
    explicit GuardedBuffer(size_t size, size_t misalignment = 0)
        : size_(size), storage_(size * sizeof(T) + 2 * guard + 64 + misalignment * sizeof(T), canary_) {
        auto base = reinterpret_cast<uintptr_t>(storage_.data()) + guard;
        base = (base + 63) / 64 * 64 + misalignment * sizeof(T);
        data_ = reinterpret_cast<T*>(base);
        std::fill_n(data_, size, T{});
        ASAN_POISON_MEMORY_REGION(storage_.data(), storage_.size());
        ASAN_UNPOISON_MEMORY_REGION(data_, size * sizeof(T));
    }
    GuardedBuffer(const std::vector<T>& values, size_t misalignment = 0) : GuardedBuffer(values.size(), misalignment) {
        if (!values.empty())
            std::memcpy(data_, values.data(), values.size() * sizeof(T));
    }
    GuardedBuffer(const GuardedBuffer&) = delete;
    GuardedBuffer& operator=(const GuardedBuffer&) = delete;
    ~GuardedBuffer() {
        EXPECT_TRUE(intact()) << "a byte outside the buffer was written";
        ASAN_UNPOISON_MEMORY_REGION(storage_.data(), storage_.size());
    }

    T* data() { return data_; }
    const T* data() const { return data_; }
    size_t size() const { return size_; }
    T& operator[](size_t i) { return data_[i]; }
    std::vector<T> values() const { return {data_, data_ + size_}; }

    __attribute__((no_sanitize("address"))) bool intact() const {
        const auto* first = reinterpret_cast<const uint8_t*>(data_);
        const auto* last = first + size_ * sizeof(T);
        for (const uint8_t* p = storage_.data(); p < storage_.data() + storage_.size(); p++)
            if ((p < first || p >= last) && *p != canary_)
                return false;
        return true;
    }

private:
    static constexpr size_t guard = 64;
    static inline uint8_t next_canary = 0xa5;
    uint8_t canary_ = next_canary++;
    size_t size_;
    std::vector<uint8_t> storage_;
    T* data_ = nullptr;
};

} // namespace korla_test
