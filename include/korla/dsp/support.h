/* Library housekeeping and small helpers. */
#ifndef KORLA_DSP_SUPPORT_H
#define KORLA_DSP_SUPPORT_H

#include <korla/dsp/types.h>

KRL_BEGIN_DECLS

/** The primitive library needs no initialisation; returns 0. */
KRL_API int32_t KRL_dsplib_init(void);

/** 0.5 raised to (x mod 32768) / 32768: one octave down in 32768 steps. Bit 15 of x is ignored.
 *
 * The product of four table entries, each correctly rounded: relative error below 4.2e-7.
 */
KRL_API float KRL_Lpow05I16(uint16_t x);

KRL_END_DECLS

#endif
