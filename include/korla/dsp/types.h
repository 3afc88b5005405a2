/* Shared conventions of the primitive library.
 *
 * Samples are 32-bit IEEE floats. A block is KRL_BLK_LEN = 32 consecutive samples. A complex sample is two floats, real
 * part first; a complex vector of n samples is 2n consecutive floats.
 *
 * Names. An operation name is the result letter, the operation words, then one letter group per operand in argument
 * order: blk_Lmpy_shlLSU has a result L and operands L, S and U.
 *
 *   L   float signal: a sample, a block or a vector of samples
 *   S   float coefficient or gain
 *   U   unsigned 32-bit integer: a length, shift, delay or index
 *   I   signed 32-bit integer; I16 one of 16 bits
 *   B   one block of what follows (BL)
 *   C   complex (real, imaginary) pairs of what follows (CL)
 *   V   real vector beside complex ones
 *   N   double-precision result
 *   n   operands given by their count and then that many pointers, as variable arguments
 *   a   operands given as one array of consecutive blocks
 *
 *   blk_, BL        every operand is a block; a block combined with a scalar
 *   vec_, cvec_     vectors, real or complex, whose length is an argument
 *   _shl, _scale    times 2 to the power of an integer argument
 *   _x              products in double precision, rounded once to single
 *   _inplace        the result overwrites the first operand
 *   ref             returns where the result stands in the caller's storage, copies nothing
 *   _setup          initialises a state record, which the caller owns
 *   _set_coef       takes coefficients and does nothing: this float library prepares none
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
