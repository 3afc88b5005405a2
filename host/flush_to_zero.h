// Subnormal numbers cost many times a normal operation on most processors and are inaudible. A host's processing thread
// flushes them to zero; the setting belongs to the thread.
#pragma once

#include <cstdint>

#if defined(__SSE2__)
#    include <immintrin.h>
#endif

namespace host {

inline void flush_to_zero() {
#if defined(__SSE2__)
    constexpr unsigned flush_results = 0x8000, operands_are_zero = 0x0040;
    _mm_setcsr(_mm_getcsr() | flush_results | operands_are_zero);
#elif defined(__aarch64__)
    constexpr uint64_t flush = uint64_t{1} << 24;
    uint64_t control;
    asm volatile("mrs %0, fpcr" : "=r"(control));
    asm volatile("msr fpcr, %0" : : "r"(control | flush));
#endif
}

} // namespace host
