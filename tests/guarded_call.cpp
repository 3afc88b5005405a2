// Memory between pages without access, and what is watched there.
#include "guarded_call.h"

#include <sanitizer/asan_interface.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <cstring>

namespace korla_test {
namespace {

// Memory for buffers, each between pages without access.
class Pool {
public:
    static constexpr size_t count = 64, capacity = guarded_capacity;
    Pool() : page_(static_cast<size_t>(sysconf(_SC_PAGESIZE))) {
        void* const all = mmap(nullptr, count * pitch() + page_, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        if (all == MAP_FAILED)
            std::abort();
        first_ = static_cast<uint8_t*>(all) + page_;
        for (size_t i = 0; i < count; i++)
            if (mprotect(at(i), capacity, PROT_READ | PROT_WRITE) != 0)
                std::abort();
    }
    uint8_t* at(size_t i) const { return first_ + i * pitch(); }

private:
    size_t pitch() const { return capacity + page_; }
    size_t page_;
    uint8_t* first_;
};
const Pool& pool() {
    static const Pool pool;
    return pool;
}

constexpr uint8_t watched = 0xc5;
constexpr size_t reach = 128; // bytes beside a buffer that are watched

// Numbers that tell buffers and places in them apart, none of them special.
float number_at(size_t buffer, size_t i) {
    uint32_t x = static_cast<uint32_t>(i * 2654435761u + buffer * 40503u + 1);
    x ^= x >> 15, x *= 0x2c1b3c6du, x ^= x >> 12;
    return static_cast<float>(static_cast<int32_t>(x)) * 0x1p-31f;
}
uint8_t byte_at(size_t buffer, size_t i) {
    const float number = number_at(buffer, i / 4);
    uint8_t bytes[4];
    std::memcpy(bytes, &number, 4);
    return bytes[i % 4];
}

} // namespace

Call::Call(Bytes arguments, uint32_t places) : bytes_(arguments), places_(places) {
    strict = bytes_.u8() & 1;
    const uint8_t size = bytes_.u8() % 16;
    n = size == 0 ? 256 + below(800) : size < 6 ? below(9) : below(100);
    if (strict)
        n = n / 4 * 4 + 4;
}

Call::~Call() {
    for (const Buffer& b : buffers_)
        ASAN_UNPOISON_MEMORY_REGION(b.first, static_cast<size_t>(b.last - b.first));
}

uint32_t Call::any() {
    const uint8_t choice = bytes_.u8();
    return choice < 200 ? choice : choice < 220 ? bytes_.u32() : ~0u - bytes_.u8();
}

uint32_t Call::one_of(std::initializer_list<uint32_t> values) {
    const uint8_t choice = bytes_.u8();
    return choice >= 240 ? any() : values.begin()[choice % values.size()];
}

void* Call::take(size_t bytes, size_t alignment, Kind kind) {
    const size_t index = buffers_.size();
    if (index == Pool::count || bytes + 64 * alignment > Pool::capacity)
        std::abort();
    uint8_t *const begin = pool().at(index), *const end = begin + Pool::capacity;
    places_ = places_ * 1664525u + 1013904223u;
    const uint32_t place = places_ >> 16;
    const size_t gap = place & 2 ? 0 : (place >> 2 & 63) * alignment;
    uint8_t* data = begin + gap;
    if (place & 1) {
        data = end - bytes - gap;
        data -= reinterpret_cast<uintptr_t>(data) % alignment;
    }
    uint8_t* const first = data - std::min<size_t>(reach, data - begin);
    uint8_t* const last = data + bytes + std::min<size_t>(reach, end - data - bytes);
    std::fill(first, data, watched);
    std::fill(data + bytes, last, watched);
    if (kind == Kind::memory)
        std::fill(data, data + bytes, uint8_t{0x5a});
    else {
        for (size_t i = 0; i < bytes / 4; i++) {
            const float number = number_at(index, i);
            std::memcpy(data + 4 * i, &number, 4);
        }
        for (size_t i = bytes / 4 * 4; i < bytes; i++)
            data[i] = byte_at(index, i);
    }
    ASAN_POISON_MEMORY_REGION(first, static_cast<size_t>(data - first));
    ASAN_POISON_MEMORY_REGION(data + bytes, static_cast<size_t>(last - data) - bytes);
    buffers_.push_back({data, first, last, bytes, kind});
    return data;
}

void Call::keep(double result) { results_.push_back(result); }

void Call::check(bool condition, const char* what) {
    if (!condition && problem_.empty())
        problem_ = what;
}

void Call::finish() {
    for (size_t index = 0; index < buffers_.size(); index++) {
        const Buffer& b = buffers_[index];
        ASAN_UNPOISON_MEMORY_REGION(b.first, static_cast<size_t>(b.last - b.first));
        check(std::all_of(b.first, b.data, [](uint8_t x) { return x == watched; }), "a byte before a buffer changed");
        check(std::all_of(b.data + b.bytes, b.last, [](uint8_t x) { return x == watched; }),
              "a byte behind a buffer changed");
        if (b.kind == Kind::source)
            for (size_t i = 0; i < b.bytes; i++)
                if (b.data[i] != byte_at(index, i))
                    return check(false, "a source changed");
        if (b.kind == Kind::result)
            for (size_t i = 0; i < b.bytes; i += 4) {
                float value = 0.0f;
                std::memcpy(&value, b.data + i, std::min<size_t>(4, b.bytes - i));
                keep(value);
            }
    }
}

std::string broken_memory_rule(const std::function<void(Call&)>& run, Bytes bytes) {
    std::vector<double> results[2];
    uint32_t places = 1;
    for (size_t i = 0; i < bytes.rest_size(); i++)
        places = (places ^ bytes.rest()[i]) * 16777619u;
    for (uint32_t i = 0; i < 2; i++) {
        Call call(bytes, places + i);
        run(call);
        call.finish();
        if (!call.problem_.empty())
            return call.problem_;
        results[i] = std::move(call.results_);
    }
    const auto same = [](double a, double b) { return a == b || (std::isnan(a) && std::isnan(b)); };
    return std::ranges::equal(results[0], results[1], same) ? "" : "the result depends on where the buffers lie";
}

} // namespace korla_test
