/* Block filters: recursive and transversal filters, envelope followers, integrator, running reciprocal, crossfade gain
 * and a delay line.
 *
 * One call consumes one block of KRL_BLK_LEN = 32 samples; what has to be remembered lies in a state record that the
 * caller owns and carries from block to block, one record per signal. Conventions, the pair rule and alignment:
 * korla/dsp/types.h.
 *
 * x is the input, y the output, n the sample index, 0..31; x[n-1], x[n-2], y[n-1], y[n-2] reach back into the state.
 * Feedback terms are added: a coefficient set carries the negated denominator of the textbook transfer function.
 * Coefficients are read on every call, in the order given, and need float alignment only; so do state records, to their
 * own alignment.
 *
 * Both entries of every member compute the same bits, on every processor: the order of evaluation is part of the
 * description. fma(a, b, c) is a * b + c rounded once. Each entry reads all operands before its first store, so a _flex
 * destination may overlap its sources and the coefficients at any offset; it stays apart from the state record.
 *
 * NaN and infinity propagate through the recursions and stay in their state until the caller sets it up again. maxNum
 * and minNum are those of IEEE 754-2008: a quiet NaN operand is ignored, -0 is below +0.
 *
 * Every _setup initialises a state record as its comment says; every _set_coef takes the coefficients and does nothing.
 *
 * Literature: J. O. Smith, Introduction to Digital Filters with Audio Applications (direct forms, state-space form);
 * L. B. Jackson, Digital Filters and Signal Processing (coupled second-order sections and their rounding noise).
 */
#ifndef KORLA_DSP_BLOCK_FILTER_H
#define KORLA_DSP_BLOCK_FILTER_H

#include <korla/dsp/types.h>

KRL_BEGIN_DECLS

/* ---- first-order recursive filters ------------------------------------------------------------------------------ *
 *
 * Coefficients b0, b1, a1: H(z) = (b0 + b1 z^-1) / (1 - a1 z^-1), stable for |a1| < 1. _setup zeroes the state.
 */

/** The past of a first-order filter. */
typedef struct krl_iir1_state {
    float x1; /**< x[n-1] */
    float y1; /**< y[n-1] */
} krl_iir1_state;

/** y[n] = fma(b0, x[n], fma(b1, x[n-1], a1 * y[n-1])). */
KRL_API void krl_blk_Liir1L_flex(float* dst, const float* x, const float* coef, krl_iir1_state* state);
KRL_API void KRL_blk_Liir1L_strict(float* dst, const float* x, const float* coef, krl_iir1_state* state);
KRL_API void KRL_blk_Liir1L_setup(krl_iir1_state* state);
KRL_API void KRL_blk_Liir1L_set_coef(const float* coef);

/** dst[n] = 2^u * y[n] with y of blk_Liir1L; the state keeps y unscaled.
 *
 * u is 0..127; for other u nothing outside the buffers is touched, but the factor is unspecified.
 */
KRL_API void krl_blk_Liir1_shlLU_flex(float* dst, const float* x, const float* coef, krl_iir1_state* state, uint32_t u);
KRL_API void KRL_blk_Liir1_shlLU_strict(float* dst, const float* x, const float* coef, krl_iir1_state* state,
                                        uint32_t u);
KRL_API void KRL_blk_Liir1_shlLU_setup(krl_iir1_state* state);
KRL_API void KRL_blk_Liir1_shlLU_set_coef(const float* coef);

/** dst[n] = fma(y[n], 2, other[n]) with y of blk_Liir1L over x. */
KRL_API void krl_blk_Liir1_shl_addLL_flex(float* dst, const float* x, const float* other, const float* coef,
                                          krl_iir1_state* state);
KRL_API void KRL_blk_Liir1_shl_addLL_strict(float* dst, const float* x, const float* other, const float* coef,
                                            krl_iir1_state* state);
KRL_API void KRL_blk_Liir1_shl_addLL_setup(krl_iir1_state* state);
KRL_API void KRL_blk_Liir1_shl_addLL_set_coef(const float* coef);

/** The past of a first-order filter in double precision. */
typedef struct krl_iir1x_state {
    float x1;  /**< x[n-1] */
    double y1; /**< y[n-1], before it is rounded to single */
} krl_iir1x_state;

/** The first-order filter in double precision, for poles close to the unit circle: coefficients and x widened,
 * y[n] = fma(x[n], b0, fma(y[n-1], a1, x[n-1] * b1)), dst[n] = y[n] rounded to single.
 */
KRL_API void krl_blk_Liir1xL_flex(float* dst, const float* x, const float* coef, krl_iir1x_state* state);
KRL_API void KRL_blk_Liir1xL_strict(float* dst, const float* x, const float* coef, krl_iir1x_state* state);
KRL_API void KRL_blk_Liir1xL_setup(krl_iir1x_state* state);
KRL_API void KRL_blk_Liir1xL_set_coef(const float* coef);

/* ---- second-order section, direct form I ------------------------------------------------------------------------ */

/** The past of a second-order section in direct form I. */
typedef struct krl_iir2df1_state {
    float x1; /**< x[n-1] */
    float x2; /**< x[n-2] */
    float y1; /**< y[n-1] */
    float y2; /**< y[n-2] */
} krl_iir2df1_state;

/** Coefficients b0, b1, b2, a1/2, a2: H(z) = (b0 + b1 z^-1 + b2 z^-2) / (1 - a1 z^-1 - a2 z^-2). a1 is stored halved so
 * that every coefficient of a stable section lies in [-1, 1]. _setup zeroes the state.
 *
 * y[n] = fma(b0, x[n], fma(a1, y[n-1], fma(b1, x[n-1], fma(b2, x[n-2], a2 * y[n-2])))), with a1 = a1/2 + a1/2.
 */
KRL_API void krl_blk_Liir2df1L_flex(float* dst, const float* x, const float* coef, krl_iir2df1_state* state);
KRL_API void KRL_blk_Liir2df1L_strict(float* dst, const float* x, const float* coef, krl_iir2df1_state* state);
KRL_API void KRL_blk_Liir2df1L_setup(krl_iir2df1_state* state);
KRL_API void KRL_blk_Liir2df1L_set_coef(const float* coef);

/* ---- second-order sections in state-space form ------------------------------------------------------------------ *
 *
 * Coefficients c0..c4; s0, s1 is the state before the sample, s0', s1' after it. _setup zeroes the state.
 *
 *   ssv1:  y = 2 * fma(-c0, x, s0 + s1)   s0' = fma(c3, s0, fma(c1, x, -(c4 * s1)))
 *   ssv2:  y = 2 * fma(-c0, x, s0)        s0' = fma(c1, x, fma(c3, s0, s1))
 *   ssv3:  y = 2 * fma(-c0, x, s0)        s0' = fma(c1, x, fma(c3, s0, s1 / 16))
 *   all:   s1' = fma(c2, x, fma(c3, s1, c4 * s0))
 *
 * ssv1 is the coupled (rotation) form: its poles are c3 +- j c4, evenly fine everywhere in the unit circle. The poles
 * of ssv2 are c3 +- sqrt(c4), those of ssv3 c3 +- sqrt(c4) / 4, with c4 < 0 for a complex pair.
 *
 * Transfer functions, with k = 1 for ssv2 and k = 1/16 for ssv3:
 *
 *                             (c1 + c2) z^-1 + (c4 (c1 - c2) - c3 (c1 + c2)) z^-2
 *   ssv1:  H(z) = -2 c0 + 2 * ---------------------------------------------------
 *                                  1 - 2 c3 z^-1 + (c3^2 + c4^2) z^-2
 *
 *                                    c1 z^-1 + (k c2 - c3 c1) z^-2
 *   ssv2, ssv3:  H(z) = -2 c0 + 2 * ------------------------------------
 *                                   1 - 2 c3 z^-1 + (c3^2 - k c4) z^-2
 *
 * Coefficients from a textbook biquad. It is normalised to a0 = 1, and its denominator is not negated here:
 *
 *   H(z) = (b0 + b1 z^-1 + b2 z^-2) / (1 + a1 z^-1 + a2 z^-2)
 *
 *   r1 = b1 - b0 a1     r2 = b2 - b0 a2     p = r2 - a1 r1 / 2     q = a1^2 / 4 - a2
 *
 *           c0         c1                 c2                 c3         c4
 *   ssv1    -b0 / 2    (r1 + p / c4) / 4  (r1 - p / c4) / 4  -a1 / 2    sqrt(-q); poles complex, that is q < 0
 *   ssv2    -b0 / 2    r1 / 2             p / 2              -a1 / 2    q
 *   ssv3    -b0 / 2    r1 / 2             8 p                -a1 / 2    16 q
 *
 * Compute them in double precision and round once. For blk_Liir2ssv2_shlLU, whose gain is 2^u, divide b0, b1 and b2 by
 * 2^u first. Example, a Butterworth low-pass of 1 kHz at a rate of 48 kHz (bilinear transform, Q = sqrt(1/2)):
 *
 *   b0 = b2 = 0.003916127, b1 = 0.007832253, a1 = -1.815341, a2 = 0.8310056
 *   r1 = 0.01494136, r2 = 0.0006618035, p = 0.01422363, q = -0.007139778
 *
 *   ssv1    -0.001958063    0.04581849     -0.03834781     0.9076705     0.08449721
 *   ssv2    -0.001958063    0.007470680     0.007111817    0.9076705    -0.007139778
 *   ssv3    -0.001958063    0.007470680     0.1137891      0.9076705    -0.1142364
 */

/** The state of a second-order section in state-space form. */
typedef struct krl_iir2ss_state {
    float s0; /**< first state variable */
    float s1; /**< second state variable */
} krl_iir2ss_state;

/** Section ssv1. */
KRL_API void krl_blk_Liir2ssv1L_flex(float* dst, const float* x, const float* coef, krl_iir2ss_state* state);
KRL_API void KRL_blk_Liir2ssv1L_strict(float* dst, const float* x, const float* coef, krl_iir2ss_state* state);
KRL_API void KRL_blk_Liir2ssv1L_setup(krl_iir2ss_state* state);
KRL_API void KRL_blk_Liir2ssv1L_set_coef(const float* coef);

/** Section ssv1 under a second name. */
KRL_API void krl_blk_Liir2ssv1efL_flex(float* dst, const float* x, const float* coef, krl_iir2ss_state* state);
KRL_API void KRL_blk_Liir2ssv1efL_strict(float* dst, const float* x, const float* coef, krl_iir2ss_state* state);
KRL_API void KRL_blk_Liir2ssv1efL_setup(krl_iir2ss_state* state);
KRL_API void KRL_blk_Liir2ssv1efL_set_coef(const float* coef);

/** Section ssv1 over the 64 samples of x; dst[0..31] keeps its outputs at even n. */
KRL_API void krl_blk_Liir2ssv1_dsmpL_flex(float* dst, const float* x, const float* coef, krl_iir2ss_state* state);
KRL_API void KRL_blk_Liir2ssv1_dsmpL_strict(float* dst, const float* x, const float* coef, krl_iir2ss_state* state);
KRL_API void KRL_blk_Liir2ssv1_dsmpL_setup(krl_iir2ss_state* state);
KRL_API void KRL_blk_Liir2ssv1_dsmpL_set_coef(const float* coef);

/** Section ssv1 over the 32 samples of x with a zero inserted after each; dst holds 64 samples.
 *
 * The output at an inserted zero is 2 * (s0 + s1); the state moves on as for x = 0.
 */
KRL_API void krl_blk_Liir2ssv1_usmpL_flex(float* dst, const float* x, const float* coef, krl_iir2ss_state* state);
KRL_API void KRL_blk_Liir2ssv1_usmpL_strict(float* dst, const float* x, const float* coef, krl_iir2ss_state* state);
KRL_API void KRL_blk_Liir2ssv1_usmpL_setup(krl_iir2ss_state* state);
KRL_API void KRL_blk_Liir2ssv1_usmpL_set_coef(const float* coef);

/** Section ssv2. */
KRL_API void krl_blk_Liir2ssv2L_flex(float* dst, const float* x, const float* coef, krl_iir2ss_state* state);
KRL_API void KRL_blk_Liir2ssv2L_strict(float* dst, const float* x, const float* coef, krl_iir2ss_state* state);
KRL_API void KRL_blk_Liir2ssv2L_setup(krl_iir2ss_state* state);
KRL_API void KRL_blk_Liir2ssv2L_set_coef(const float* coef);

/** Section ssv2; y replaces x. */
KRL_API void krl_blk_Liir2ssv2L_inplace_flex(float* x, const float* coef, krl_iir2ss_state* state);
KRL_API void KRL_blk_Liir2ssv2L_inplace_strict(float* x, const float* coef, krl_iir2ss_state* state);
KRL_API void KRL_blk_Liir2ssv2L_inplace_setup(krl_iir2ss_state* state);
KRL_API void KRL_blk_Liir2ssv2L_inplace_set_coef(const float* coef);

/** Section ssv2 with y = 2^(u+1) * fma(-c0, x, s0).
 *
 * u is 0..126; for other u nothing outside the buffers is touched, but the factor is unspecified.
 */
KRL_API void krl_blk_Liir2ssv2_shlLU_flex(float* dst, const float* x, const float* coef, krl_iir2ss_state* state,
                                          uint32_t u);
KRL_API void KRL_blk_Liir2ssv2_shlLU_strict(float* dst, const float* x, const float* coef, krl_iir2ss_state* state,
                                            uint32_t u);
KRL_API void KRL_blk_Liir2ssv2_shlLU_setup(krl_iir2ss_state* state);
KRL_API void KRL_blk_Liir2ssv2_shlLU_set_coef(const float* coef);

/** Section ssv3; y replaces x. */
KRL_API void krl_blk_Liir2ssv3L_inplace_flex(float* x, const float* coef, krl_iir2ss_state* state);
KRL_API void KRL_blk_Liir2ssv3L_inplace_strict(float* x, const float* coef, krl_iir2ss_state* state);
KRL_API void KRL_blk_Liir2ssv3L_inplace_setup(krl_iir2ss_state* state);
KRL_API void KRL_blk_Liir2ssv3L_inplace_set_coef(const float* coef);

/** Section ssv3 in place on u independent signals: blocks[k] with states[k], one coefficient set for all.
 *
 * The blocks do not overlap each other and the records are distinct. The entry without a suffix takes blocks of any
 * alignment; _strict asks 32 bytes of each. _setup initialises one record.
 */
KRL_API void KRL_blk_Liir2ssv3aLU_inplace(float* const* blocks, const float* coef, krl_iir2ss_state* const* states,
                                          uint32_t u);
KRL_API void KRL_blk_Liir2ssv3aLU_inplace_strict(float* const* blocks, const float* coef,
                                                 krl_iir2ss_state* const* states, uint32_t u);
KRL_API void KRL_blk_Liir2ssv3aLU_inplace_setup(krl_iir2ss_state* state);
KRL_API void KRL_blk_Liir2ssv3aLU_inplace_set_coef(const float* coef);

/* ---- transversal filters ---------------------------------------------------------------------------------------- */

/** The past of two taps. */
typedef struct krl_fir2_state {
    float x1; /**< x[n-1] */
} krl_fir2_state;

/** Coefficients h0, h1: y[n] = fma(h0, x[n], h1 * x[n-1]). _setup zeroes the state. */
KRL_API void krl_blk_Lfir2L_flex(float* dst, const float* x, const float* coef, krl_fir2_state* state);
KRL_API void KRL_blk_Lfir2L_strict(float* dst, const float* x, const float* coef, krl_fir2_state* state);
KRL_API void KRL_blk_Lfir2L_setup(krl_fir2_state* state);
KRL_API void KRL_blk_Lfir2L_set_coef(const float* coef);

/** The past of three taps. */
typedef struct krl_fir3_state {
    float x1; /**< x[n-1] */
    float x2; /**< x[n-2] */
} krl_fir3_state;

/** Coefficients h0, h1, h2: y[n] = fma(h0, x[n], fma(h1, x[n-1], h2 * x[n-2])). _setup zeroes the state. */
KRL_API void krl_blk_Lfir3L_flex(float* dst, const float* x, const float* coef, krl_fir3_state* state);
KRL_API void KRL_blk_Lfir3L_strict(float* dst, const float* x, const float* coef, krl_fir3_state* state);
KRL_API void KRL_blk_Lfir3L_setup(krl_fir3_state* state);
KRL_API void KRL_blk_Lfir3L_set_coef(const float* coef);

/** Coefficients h[0..u-1]: y[n] = sum over k < u of h[k] * x[n-k].
 *
 * state holds the u - 1 previous inputs, oldest first; _setup zeroes them (and touches nothing for u <= 1). u = 0
 * writes zeros. Each product is accumulated with an fma: tap k goes to one of two sums by (k mod 8 + k / 8) mod 2, taps
 * in the order of k mod 8, then k; the two sums are added last. The error is below (u / 2 + 2) * 2^-24 times
 * the sum of |h[k] * x[n-k]|.
 */
KRL_API void krl_blk_LfirUL_flex(float* dst, const float* x, uint32_t u, const float* coef, float* state);
KRL_API void KRL_blk_LfirUL_strict(float* dst, const float* x, uint32_t u, const float* coef, float* state);
KRL_API void KRL_blk_LfirUL_setup(float* state, uint32_t u);
KRL_API void KRL_blk_LfirUL_set_coef(const float* coef);

/* ---- envelope followers ----------------------------------------------------------------------------------------- */

/** The state of an envelope follower. */
typedef struct krl_envelope_state {
    double e; /**< the envelope, before it is rounded to single */
} krl_envelope_state;

/** The larger of two one-pole smoothers, in double precision with x widened:
 *
 *   e = maxNum(fma(x, k1, e * (1 - k1)), fma(x, k0, e * (1 - k0))),  dst[n] = e rounded to single.
 *
 * Coefficients k0, k1 in [0, 1]; 1 - k is formed in single precision. A rising input follows the larger coefficient, a
 * falling one the smaller: attack and decay without a branch. Feed it magnitudes. _setup sets e to 0.
 */
KRL_API void krl_blk_Lattack_decay_iir1L_flex(float* dst, const float* x, const float* coef, krl_envelope_state* state);
KRL_API void KRL_blk_Lattack_decay_iir1L_strict(float* dst, const float* x, const float* coef,
                                                krl_envelope_state* state);
KRL_API void KRL_blk_Lattack_decay_iir1L_setup(krl_envelope_state* state);
KRL_API void KRL_blk_Lattack_decay_iir1L_set_coef(const float* coef);

/** blk_Lattack_decay_iir1L with a floor: coefficients k0, k1, kp; after the two updates e = maxNum(e, x * kp), in
 * double, so that the envelope never lies below kp times the input.
 */
KRL_API void krl_blk_Lattack_decay_peak_iir1L_flex(float* dst, const float* x, const float* coef,
                                                   krl_envelope_state* state);
KRL_API void KRL_blk_Lattack_decay_peak_iir1L_strict(float* dst, const float* x, const float* coef,
                                                     krl_envelope_state* state);
KRL_API void KRL_blk_Lattack_decay_peak_iir1L_setup(krl_envelope_state* state);
KRL_API void KRL_blk_Lattack_decay_peak_iir1L_set_coef(const float* coef);

/* ---- integrator and reciprocal ---------------------------------------------------------------------------------- */

/** The state of an integrator. */
typedef struct krl_integrator_state {
    float acc; /**< the sum so far */
} krl_integrator_state;

/** acc = minNum(maxNum(acc + x[n], lo), hi), dst[n] = acc. Coefficients hi, lo, in this order. _setup sets acc to 0. */
KRL_API void krl_blk_LintegrateL_flex(float* dst, const float* x, const float* coef, krl_integrator_state* state);
KRL_API void KRL_blk_LintegrateL_strict(float* dst, const float* x, const float* coef, krl_integrator_state* state);
KRL_API void KRL_blk_LintegrateL_setup(krl_integrator_state* state);
KRL_API void KRL_blk_LintegrateL_set_coef(const float* coef);

/** The state of a running reciprocal. */
typedef struct krl_reciprocal_state {
    float r; /**< the reciprocal so far */
} krl_reciprocal_state;

/** Running reciprocal: one Newton-Raphson step per sample drives r towards 2^-u / x[n]; dst[n] = r.
 *
 *   t = minNum(r * x[n], 0.75 * 2^(1-u)),  r = r * (2 * fma(-2^(u-1), t, 1))
 *
 * The clamp keeps a step from shrinking r by more than half. u is 0..127; for other u nothing outside the buffers is
 * touched, but the result is unspecified. _setup sets r to 2^-u. A NaN sample halves r.
 */
KRL_API void krl_blk_LnrrecipLU_flex(float* dst, const float* x, uint32_t u, krl_reciprocal_state* state);
KRL_API void KRL_blk_LnrrecipLU_strict(float* dst, const float* x, uint32_t u, krl_reciprocal_state* state);
KRL_API void KRL_blk_LnrrecipLU_setup(krl_reciprocal_state* state, uint32_t u);

/* ---- crossfade gain --------------------------------------------------------------------------------------------- */

/** Where a crossfade stands. */
typedef struct krl_crossfade_state {
    uint32_t pos; /**< where the next block starts in the window */
    uint32_t len; /**< entries in the window */
} krl_crossfade_state;

/** dst[i] = g * x[i] with g = fma(window[len-1 - (pos+i)], a, b * window[pos+i]): with a rising window the gain moves
 * from a to b in len samples. Then pos advances by 32 and starts again at 0 when it reaches len.
 *
 * len is a multiple of 32, at least 32. With another len the position is held at the last entry of the window instead
 * of running past it (a window of no entries counts as zeros), so nothing outside the window is read. _setup sets pos
 * to 0 and keeps len; the window is not kept, it comes with each call.
 */
KRL_API void krl_blk_Lcrossfade_gainLS_flex(float* dst, krl_crossfade_state* state, const float* x, const float* window,
                                            float a, float b);
KRL_API void KRL_blk_Lcrossfade_gainLS_strict(float* dst, krl_crossfade_state* state, const float* x,
                                              const float* window, float a, float b);
KRL_API void KRL_blk_Lcrossfade_gainLS_setup(krl_crossfade_state* state, const float* window, uint32_t len);

/* ---- delay line ------------------------------------------------------------------------------------------------- *
 *
 * A ring of len samples, a multiple of 32, followed by a guard of 32 samples that mirrors the first block of the ring:
 * a read that starts near the end of the ring goes on in the guard, so no read wraps.
 */

/** A delay line. */
typedef struct krl_delay_state {
    uint32_t pos; /**< where the newest block starts in the ring */
    uint32_t len; /**< samples in the ring */
    float* buf;   /**< len + 32 samples, owned by the caller */
} krl_delay_state;

/** len = max_delay rounded up to a multiple of 32, plus 32; pos = 0. buf holds len + 32 floats and is not touched:
 * clear it with blk_delay_clear where silence has to precede the first block. max_delay above 2^32 - 64 counts as
 * 2^32 - 64.
 */
KRL_API void krl_blk_delay_setup_flex(krl_delay_state* state, float* buf, uint32_t max_delay);
KRL_API void KRL_blk_delay_setup_strict(krl_delay_state* state, float* buf, uint32_t max_delay);

/** Writes one block of 32 samples into the line. */
KRL_API void krl_blk_delayL_flex(krl_delay_state* state, const float* x);
KRL_API void KRL_blk_delayL_strict(krl_delay_state* state, const float* x);

/** Reads 32 samples, d samples late: d = 0 is the block written last, d = 32 the one before. d <= len - 32 reaches what
 * was written; at larger d the newest block stands in the place of the oldest samples, and d above len counts as len.
 */
KRL_API void krl_blk_LdelayU_flex(const krl_delay_state* state, float* dst, uint32_t d);
KRL_API void KRL_blk_LdelayU_strict(const krl_delay_state* state, float* dst, uint32_t d);

/** Where blk_LdelayU would read: 32 samples, valid until the next write. */
KRL_API const float* KRL_blk_refLdelayU(const krl_delay_state* state, uint32_t d);

/** Zeroes backwards: the n samples before end, or those from buf to end when there are fewer.
 *
 * A null end means the end of the guard, buf + len + 32; an end behind that counts as the same, one in front of buf as
 * buf. Returns end - n, the end for the next call, or null when n reached in front of buf: a long line can be cleared
 * in pieces. n = len + 32 from a null end clears the whole line and returns buf.
 */
KRL_API float* krl_blk_delay_clear_flex(krl_delay_state* state, float* end, uint32_t n);
KRL_API float* KRL_blk_delay_clear_strict(krl_delay_state* state, float* end, uint32_t n);

KRL_END_DECLS

#endif
