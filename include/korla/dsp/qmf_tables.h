/* Prototype filters of the QMF analysis and synthesis banks.
 *
 * A QMF bank of M bands with P prototype periods is modulated from one low-pass prototype p[0 .. 2PM], symmetric about
 * tap PM, with p[0] = p[2PM] = 0. All tables are designed by tools/design_prototypes.py; docs/prototype-filters.md has
 * the method, the measured figures and the responses.
 *
 * Three tables hold each design:
 *
 * - `<name>_vec_ana`, 2PM values, is the prototype an analysis open is given:
 *   `c[b M + k] = s[b] p[b M + k + 1]` for blocks b = 0 .. 2P-1 and phases k = 0 .. M-1, with the block signs
 *   `s = + + - - + + - - + +` for P = 5 and `s = - + + - - + + -` for P = 4. The last value is 0.
 * - `<name>_vec_syn`, 2PM values, is the prototype a synthesis open is given: the analysis table reversed,
 *   `c_syn[n] = c_ana[2PM - 1 - n]`.
 * - `<name>` is the compact form, P values per row, which no function reads: row r = 0 .. M holds
 *   `p[2 i M + r]` for i = 0 .. P-1. With the symmetry these rows hold every tap. A last row of zeros follows, except
 *   for 32 bands.
 *
 * What every design satisfies, for phases k = 0 .. M/2 and e = 0 .. P-1:
 * `sum over b = 0 .. 2P-1-2e of p[b M + k] p[(b + 2e) M + k] = 1 for e = 0, 0 otherwise`.
 * Analysis and synthesis with real sub-bands, or with complex sub-bands in any mode, then reconstruct the input with
 * unit gain after 2PM + 1 - M samples. Phases 0 and M/2 pair with themselves through the symmetry, so for them exact
 * equations would leave single taps. Their equation of the greatest distance, e = P-1, is left open by 3e-7 (phase 0)
 * and 5e-7 (phase M/2), with P = 4 by 5e-7 in both: echoes 126 dB down, in two of the M output phases.
 *
 * Squares over the blocks sum to 1 in every phase, so that the response at zero frequency is M sqrt(2) to within 0.3 %.
 *
 * Storage: read-only, 32-byte aligned in the library. All are float.
 */
#ifndef KORLA_DSP_QMF_TABLES_H
#define KORLA_DSP_QMF_TABLES_H

#include <korla/dsp/types.h>

KRL_BEGIN_DECLS

/** 64 bands, P = 5: least stop-band energy. */
KRL_API extern const float krl_qmf_filter_coeff_P5[330];
KRL_API extern const float krl_qmf_filter_coeff_P5_vec_ana[640];
KRL_API extern const float krl_qmf_filter_coeff_P5_vec_syn[640];

/** 32 bands, P = 5: least stop-band energy. */
KRL_API extern const float krl_qmf_filter_coeff_P5_32[165];
KRL_API extern const float krl_qmf_filter_coeff_P5_32_vec_ana[320];
KRL_API extern const float krl_qmf_filter_coeff_P5_32_vec_syn[320];

/** 64 bands, P = 4: least stop-band peak. */
KRL_API extern const float krl_qmf_filter_coeff_P4[264];
KRL_API extern const float krl_qmf_filter_coeff_P4_vec_ana[512];
KRL_API extern const float krl_qmf_filter_coeff_P4_vec_syn[512];

/** 32 bands, P = 4: least stop-band peak. */
KRL_API extern const float krl_qmf_filter_coeff_P4_32[132];
KRL_API extern const float krl_qmf_filter_coeff_P4_32_vec_ana[256];
KRL_API extern const float krl_qmf_filter_coeff_P4_32_vec_syn[256];

/** 64 bands, P = 5: least stop-band peak. */
KRL_API extern const float krl_qmf_filter_coeff_P5_p64kvx301[330];
KRL_API extern const float krl_qmf_filter_coeff_P5_p64kvx301_vec_ana[640];
KRL_API extern const float krl_qmf_filter_coeff_P5_p64kvx301_vec_syn[640];

/** The same kind of design with 8 bands. */
KRL_API extern const float krl_qmf_filter_coeff_P5_p64kvx301_8[50];
KRL_API extern const float krl_qmf_filter_coeff_P5_p64kvx301_8_vec_ana[80];
KRL_API extern const float krl_qmf_filter_coeff_P5_p64kvx301_8_vec_syn[80];

/** The same kind of design with 16 bands. */
KRL_API extern const float krl_qmf_filter_coeff_P5_p64kvx301_16[90];
KRL_API extern const float krl_qmf_filter_coeff_P5_p64kvx301_16_vec_ana[160];
KRL_API extern const float krl_qmf_filter_coeff_P5_p64kvx301_16_vec_syn[160];

/** The same kind of design with 32 bands. */
KRL_API extern const float krl_qmf_filter_coeff_P5_p64kvx301_32[165];
KRL_API extern const float krl_qmf_filter_coeff_P5_p64kvx301_32_vec_ana[320];
KRL_API extern const float krl_qmf_filter_coeff_P5_p64kvx301_32_vec_syn[320];

/** The same kind of design with 48 bands. */
KRL_API extern const float krl_qmf_filter_coeff_P5_p64kvx301_48[250];
KRL_API extern const float krl_qmf_filter_coeff_P5_p64kvx301_48_vec_ana[480];
KRL_API extern const float krl_qmf_filter_coeff_P5_p64kvx301_48_vec_syn[480];

KRL_END_DECLS

#endif
