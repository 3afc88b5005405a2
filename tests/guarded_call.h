// A call of library functions with arguments out of bytes, in memory of exactly the sizes that it asks for.
//
// Each buffer lies between two pages that nobody may touch, at their edge or near it, where bytes behind the edge are watched.
#pragma once

#include <functional>
#include <initializer_list>
#include <string>
#include <vector>

#include "bytes.h"

namespace korla_test {

// The longest buffer has less.
constexpr size_t guarded_capacity = size_t{1} << 20;

class Call {
public:
    Call(Bytes arguments, uint32_t places);
    ~Call();
    Call(const Call&) = delete;
    Call& operator=(const Call&) = delete;

    // ---- arguments
    bool strict; // which entry of a pair: a length is a multiple of 4 then, and buffers lie on 32 bytes
    uint32_t n;  // a length
    uint32_t below(uint32_t limit) { return bytes_.u16() % limit; }
    uint32_t any(); // mostly small, sometimes out of all bounds
    int32_t any_signed() { return static_cast<int32_t>(any()); }
    float number() { return static_cast<float>(static_cast<int8_t>(bytes_.u8())) * 0x1p-6f; }
    uint32_t one_of(std::initializer_list<uint32_t> values); // or, sometimes, any

    // ---- memory
    const float* in(size_t floats) { return static_cast<float*>(take(floats * 4, strict ? 32 : 4, Kind::source)); }
    const float* coef(size_t floats) { return static_cast<float*>(take(floats * 4, 4, Kind::source)); }
    float* out(size_t floats) { return static_cast<float*>(take(floats * 4, strict ? 32 : 4, Kind::result)); }
    float* work(size_t floats) { return static_cast<float*>(take(floats * 4, strict ? 32 : 4, Kind::scratch)); }
    void* samples(size_t bytes, size_t alignment, bool source) { // of any format
        return take(bytes, alignment, source ? Kind::source : Kind::result);
    }
    void* memory(size_t bytes, size_t alignment = 1) { return take(bytes, alignment, Kind::memory); }
    template <class Record> Record* record(void (*)(Record*)) { return record<Record>(); }
    template <class Record> Record* record() {
        return static_cast<Record*>(take(sizeof(Record), alignof(Record), Kind::memory));
    }
    template <class T> T* list(const std::vector<T>& values) { // of pointers, which the library only reads
        T* const at = static_cast<T*>(take(values.size() * sizeof(T), alignof(T), Kind::memory));
        for (size_t i = 0; i < values.size(); i++)
            at[i] = values[i];
        return at;
    }

    void keep(double result); // one that does not depend on the place
    void check(bool condition, const char* what);

private:
    friend std::string broken_memory_rule(const std::function<void(Call&)>&, Bytes);
    enum class Kind { source, result, scratch, memory };
    struct Buffer {
        uint8_t *data, *first, *last; // between first and last nothing but the bytes from data on may change
        size_t bytes;
        Kind kind;
    };
    void* take(size_t bytes, size_t alignment, Kind kind);
    void finish();

    Bytes bytes_;
    uint32_t places_;
    std::vector<Buffer> buffers_;
    std::vector<double> results_;
    std::string problem_;
};

// Runs a scenario twice at different places: sources stay as they are, nothing beside a buffer changes, and what it gives does
// not depend on the place. What was broken, or nothing; an access to a page that nobody may touch ends the program.
std::string broken_memory_rule(const std::function<void(Call&)>& run, Bytes bytes);

} // namespace korla_test
