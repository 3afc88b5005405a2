/* Arithmetic on time counter values, for measuring processing time.
 *
 * A time value is an unsigned 64-bit count of ticks of a counter that the caller reads; the library reads no clock.
 */
#ifndef KORLA_DSP_TIME_COUNTER_H
#define KORLA_DSP_TIME_COUNTER_H

#include <korla/dsp/types.h>

KRL_BEGIN_DECLS

/** Hooks for the beginning and the end of a measurement. They do nothing and do not look at their argument. */
KRL_API void KRL_time_init(uint64_t* time);
KRL_API void KRL_time_end(uint64_t* time);

/** *time = 0. A null pointer is ignored. */
KRL_API void KRL_time_reset(uint64_t* time);

/** a + b modulo 2^64. */
KRL_API uint64_t KRL_time_add(uint64_t a, uint64_t b);

/** a - b modulo 2^64: the ticks from b to a, also when the counter wrapped between them. */
KRL_API uint64_t KRL_time_sub(uint64_t a, uint64_t b);

/** t / n, both converted to double first. n = 0 gives infinity, or NaN for t = 0. */
KRL_API double KRL_time_div(uint64_t t, uint32_t n);

/** 1 when a < b as unsigned counts, else 0. */
KRL_API int32_t KRL_time_lt(uint64_t a, uint64_t b);

KRL_END_DECLS

#endif
