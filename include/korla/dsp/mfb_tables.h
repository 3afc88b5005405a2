/* Prototype filters of the modulated filter bank (mfb_p10km).
 *
 * A bank of M bands uses a prototype c[0 .. 10M - 1] of ten blocks; coefficient c[j M + k] is tap j of band k. In
 * memory the bands come in groups of four: `table[40 g + 4 j + i]` is tap j of band 4g + i, for g = 0 .. M/4 - 1,
 * j = 0 .. 9, i = 0 .. 3. Analysis and synthesis are given the same table. All tables are designed by
 * tools/design_prototypes.py; docs/prototype-filters.md has the method, the measured figures and the responses.
 *
 * Storage: read-only, 32-byte aligned in the library. All are float.
 */
#ifndef KORLA_DSP_MFB_TABLES_H
#define KORLA_DSP_MFB_TABLES_H

#include <korla/dsp/types.h>

KRL_BEGIN_DECLS

/** Low delay, 64 bands: for the analysis with the `_even_` syntheses, which run the prototype backwards in time.
 *
 * For k = 0 .. M-1 and s = 0, 2, .. 18:
 * `sum over j + l = s of c[j M + k] c[l M + M - 1 - k] = 1 for s = 14, 0 otherwise`,
 * which reconstructs the input with unit gain after four slots. The prototype is not symmetric.
 */
KRL_API extern const float KRL_MFB_P10KM_P4_319SC[640];

/** The low-delay curve with 128 bands. */
KRL_API extern const float KRL_MFB_P10KM_P4_319SC_128M[1280];

/** The low-delay curve with 256 bands. */
KRL_API extern const float KRL_MFB_P10KM_P4_319SC_256M[2560];

/** 64 bands, symmetric (c[n] = c[639 - n]), least stop-band peak: for the analysis with the symmetric synthesis, and
 * for the legacy pair.
 *
 * For k = 0 .. M-1 and e = 0 .. 4: `sum over j = 0 .. 9-2e of c[j M + k] c[(j + 2e) M + k] = 1 for e = 0, 0 otherwise`,
 * which reconstructs the input with unit gain after nine slots, with any unit-modulus twiddle.
 */
KRL_API extern const float KRL_MFB_P10KM_P64KVX301[640];

/** 64 bands, for the legacy pair: the prototype p of krl_qmf_filter_coeff_P5_p64kvx301 with every block reversed,
 * `c[j M + k] = p[j M + M - k]`.
 *
 * The legacy analysis reads each input block in reverse, so only a table with reversed blocks makes it select bands.
 * With the twiddle KRL_MFB_TWID64O it equals the complex QMF analysis of that prototype without twiddle. Satisfies the
 * equations of KRL_MFB_P10KM_P64KVX301 as far as the QMF prototype does: open by 5e-7 at most in phases 0 and M/2.
 */
KRL_API extern const float KRL_MFB_P10KM_P64KVX301_LEGACY[640];

KRL_END_DECLS

#endif
