// Constant tables that follow a formula, computed at compile time and exported as C arrays.
#pragma once

#include <cstddef>

#include "korla/export.h"

namespace krl {

template <class T, size_t N> struct table {
    T values[N];
    constexpr T& operator[](size_t i) { return values[i]; }
    constexpr const T& operator[](size_t i) const { return values[i]; }
    constexpr operator const T*() const { return values; }
    static constexpr size_t size() { return N; }
};

// values[i] = f(i), rounded once to float.
template <size_t N, class F> constexpr table<float, N> make_table(F f) {
    table<float, N> t{};
    for (size_t i = 0; i < N; i++)
        t.values[i] = static_cast<float>(f(static_cast<int>(i)));
    return t;
}

} // namespace krl

// Defines the exported array `name` with the given value, a krl::table. C sees it as the array of the public header; C++
// cannot fill such an array from a function, so this file must not include that declaration. Sizes are checked against
// the export list by a test.
#define KRL_EXPORT_TABLE(name, ...)                                                                                    \
    extern "C" {                                                                                                       \
    KRL_API extern const decltype(__VA_ARGS__) name;                                                                   \
    alignas(32) constinit const decltype(__VA_ARGS__) name = __VA_ARGS__;                                              \
    }

// As above, checked against the declaration in a public header that the file includes.
namespace krl {

template <size_t size>
struct Table {
    float value[size];
};

} // namespace krl

// Defines the array `name`, which a public header declares, with the Table that the expression yields. It is aligned
// for the widest vector a kernel loads.
#define KRL_DEFINE_TABLE(name, ...)                                                                                    \
    extern "C" KRL_API const decltype(__VA_ARGS__) name##_values __asm__(#name);                                       \
    alignas(32) constinit const decltype(__VA_ARGS__) name##_values = __VA_ARGS__;                                     \
    static_assert(sizeof(name##_values) == sizeof(::name), "as large as declared")
