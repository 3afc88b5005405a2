// Constant tables with values from constexpr functions, exported as C arrays.
//
// C++ initialises an array only element by element, but a struct that holds one also from a function's result. The
// struct has the array's layout, so each exported array is defined as such a struct under the array's symbol name.
#pragma once

#include <cstddef>

#include "korla/export.h"

namespace krl {

template <size_t size, class T = float> struct Table { T value[size]; };

// value[i] = f(i), rounded once to float.
template <size_t size, class F> constexpr Table<size> make_table(F f) {
    Table<size> table{};
    for (size_t i = 0; i < size; i++)
        table.value[i] = static_cast<float>(f(static_cast<int>(i)));
    return table;
}

} // namespace krl

// Defines the array `name`, which a public header declares, with the Table that the expression yields. It is aligned
// for the widest vector a kernel loads.
#define KRL_DEFINE_TABLE(name, ...)                                                                                    \
    extern "C" KRL_API const decltype(__VA_ARGS__) name##_values __asm__(#name);                                       \
    alignas(32) constinit const decltype(__VA_ARGS__) name##_values = __VA_ARGS__;                                     \
    static_assert(sizeof(name##_values) == sizeof(::name), "as large as declared")

// Another name for an array that KRL_DEFINE_TABLE has defined above: one place in memory under two symbols.
#define KRL_DEFINE_TABLE_ALIAS(name, other)                                                                            \
    extern "C" KRL_API const decltype(other##_values) name##_values __asm__(#name) __attribute__((alias(#other)));     \
    static_assert(sizeof(name##_values) == sizeof(::name), "as large as declared")
