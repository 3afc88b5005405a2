// Exported arrays with values from constexpr functions.
//
// C++ initialises an array only element by element, but a struct that holds one also from a function's result. The
// struct has the array's layout, so each exported array is defined as such a struct under the array's symbol name.
#pragma once

#include <cstddef>

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
