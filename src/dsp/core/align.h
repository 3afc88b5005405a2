// Alignment of pointers and of objects placed in caller memory.
#pragma once

#include <cstddef>
#include <cstdint>

namespace krl {

// The alignment that every strict entry asks of its buffers.
inline constexpr size_t strict_alignment = 32;

inline bool is_aligned(const void* p, size_t alignment) {
    return (reinterpret_cast<uintptr_t>(p) & (alignment - 1)) == 0;
}

// The next multiple of alignment, a power of two, at or above p.
template <class T = void> inline T* align_up(void* p, size_t alignment) {
    return reinterpret_cast<T*>(static_cast<char*>(p) + (-reinterpret_cast<uintptr_t>(p) & (alignment - 1)));
}

} // namespace krl
