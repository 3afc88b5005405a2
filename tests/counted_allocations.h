// A program that includes this counts what it and its libraries allocate by malloc; not with sanitizers, whose allocator is
// their own.
#pragma once

#include <atomic>
#include <cstddef>

#ifndef KORLA_SANITIZED
static std::atomic<int> allocations{0};
extern "C" {
void* __libc_malloc(size_t);
void* malloc(size_t n) { return allocations++, __libc_malloc(n); }
}
#endif
