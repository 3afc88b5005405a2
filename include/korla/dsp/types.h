/* Shared conventions of the primitive library.
 *
 * Samples are 32-bit IEEE floats. A block is KRL_BLK_LEN = 32 consecutive samples. A complex sample is two floats, real
 * part first; a complex vector of n samples is 2n consecutive floats.
 *
 * Names. An operation name is the result letter, the operation words, then one letter group per operand in argument
 * order: L  float signal          S  float coefficient or gain     U  unsigned 32-bit length, shift, delay or index I
 * signed integer        B  one block of what follows     C  complex (real, imaginary) pairs V  real vector beside
 * complex ones                        N  double-precision result n  a count and then that many pointers as variable
 * arguments          a  one array of consecutive blocks
 * `_inplace`: the result overwrites the first operand. `_shl`, `_scale`: times 2 to the power of an integer argument.
 * `_setup` initialises a caller-owned state record. `_set_coef` is a hook that does nothing in this float library.
 *
 * The pair rule. Primitives come as two entries:
 *   krl_<op>_flex    any alignment, any length, destinations may overlap sources;
 *   KRL_<op>_strict  every buffer on a multiple of 32 bytes, vector lengths a multiple of 4 and at least 4, each
 *                    destination identical to a source or apart from all of them. Debug builds assert the alignment.
 * Take the strict entry when every pointer is 32-byte aligned and the length fits; the flex entry is always safe.
 *
 * Primitives allocate nothing, hold no state of their own and check nothing: preconditions are the caller's duty. All
 * are reentrant; one state record must not be used by two calls at once.
 */
#ifndef KORLA_DSP_TYPES_H
#define KORLA_DSP_TYPES_H

#include <stddef.h>
#include <stdint.h>

#include <korla/export.h>

/** Samples in a block. */
#define KRL_BLK_LEN 32

#endif
