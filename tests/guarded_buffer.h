// A buffer with canaries on both sides, at a chosen distance from a 64-byte boundary.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <vector>

#if defined(__SANITIZE_ADDRESS__)
#    include <sanitizer/asan_interface.h>
#else
#    define ASAN_POISON_MEMORY_REGION(p, size) static_cast<void>(0)
#endif

namespace korla_test {

// T data()[size] starts `misalignment` elements behind a 64-byte boundary. The destructor reports every canary that
// changed, so a write in front of or behind the buffer fails the test that made it; AddressSanitizer stops reads, too.
template <class T> class GuardedBuffer {
public:
    explicit GuardedBuffer(size_t size, size_t misalignment = 0)
        : size_(size), storage_(size * sizeof(T) + 2 * guard + 64 + misalignment * sizeof(T), canary) {
        auto base = reinterpret_cast<uintptr_t>(storage_.data()) + guard;
        base = (base + 63) / 64 * 64 + misalignment * sizeof(T);
        data_ = reinterpret_cast<T*>(base);
        std::fill_n(data_, size, T{});
        ASAN_POISON_MEMORY_REGION(storage_.data(), base - reinterpret_cast<uintptr_t>(storage_.data()));
        ASAN_POISON_MEMORY_REGION(data_ + size,
                                  storage_.data() + storage_.size() - reinterpret_cast<uint8_t*>(data_ + size));
    }
    GuardedBuffer(const std::vector<T>& values, size_t misalignment = 0) : GuardedBuffer(values.size(), misalignment) {
        if (!values.empty())
            std::memcpy(data_, values.data(), values.size() * sizeof(T));
    }
    GuardedBuffer(const GuardedBuffer&) = delete;
    GuardedBuffer& operator=(const GuardedBuffer&) = delete;
    ~GuardedBuffer() { EXPECT_TRUE(intact()) << "a byte outside the buffer was written"; }

    T* data() { return data_; }
    const T* data() const { return data_; }
    size_t size() const { return size_; }
    T& operator[](size_t i) { return data_[i]; }
    std::vector<T> values() const { return {data_, data_ + size_}; }

    __attribute__((no_sanitize_address)) bool intact() const {
        const auto* first = reinterpret_cast<const uint8_t*>(data_);
        const auto* last = first + size_ * sizeof(T);
        for (const uint8_t* p = storage_.data(); p < storage_.data() + storage_.size(); p++)
            if ((p < first || p >= last) && *p != canary)
                return false;
        return true;
    }

private:
    static constexpr size_t guard = 64;
    static constexpr uint8_t canary = 0xa5;
    size_t size_;
    std::vector<uint8_t> storage_;
    T* data_ = nullptr;
};

} // namespace korla_test
