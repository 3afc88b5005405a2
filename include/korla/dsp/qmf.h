/* QMF analysis and synthesis banks: M uniform sub-bands, real or complex.
 *
 * A slot is M time samples on one side and one sample of each of M sub-bands on the other; sub-band q = 0..M-1 covers
 * the frequencies q to q + 1 in units of fs / (2M). All bands are modulated from one low-pass prototype p[0..2PM],
 * symmetric about tap PM, with P = 4 or 5 (korla/dsp/qmf_tables.h). In slot s = 0, 1, .. the analysis of x gives
 *
 *   real     X_s[q] = (1/(2M)) sum over n = 0..2PM of p[n] x[(s+1)M - 1 - 2PM + n] cos(pi (2q+1) (n - M/2) / (2M))
 *   complex  X_s[q] = (1/(2M)) sum over n = 0..2PM of p[n] x[(s+1)M - 1 - 2PM + n] exp(-j pi (2q+1) n / (2M)) w[q]
 *
 * and the synthesis
 *
 *   real     y[t] = 4 sum over s, q of p[t - sM] X_s[q] cos(pi (2q+1) (t - sM - M/2) / (2M))
 *   complex  y[t] = 2 sum over s, q of p[t - sM] Re(X_s[q] conj(w[q]) exp(j pi (2q+1) (t - sM) / (2M))).
 *
 * Analysis followed by synthesis with the same M, P and mode, the _vec_ana table of a design on one side and its
 * _vec_syn twin on the other, gives back the input with unit gain, to within 2e-6, after 2PM + 1 - M samples: the sum
 * of the two get_delay values. That holds for sub-bands left as they are. A band scaled on its own leaves aliases of
 * its neighbours: with complex sub-bands they stay in the stop band of the prototype (below -40 dB), with real ones
 * they reach -6 dB. docs/qmf-bank.md shows the signal flow and measured responses. Literature: H. S. Malvar, "Extended
 * lapped transforms", IEEE Trans. SP 40(11), 1992; T. Q. Nguyen, "Digital filter bank design quadratic-constrained
 * formulation", IEEE Trans. SP 43(9), 1995; P. N. Heller, T. Karp, T. Q. Nguyen, "A general formulation of modulated
 * filter banks", IEEE Trans. SP 47(4), 1999.
 *
 * Band counts M: 8, 16, 32, 48, 64. The mode selects the rotation w of complex sub-bands:
 *
 *   0             w[m] = 1
 *   8             short twiddle: w[m] = exp(j pi (2m + 1) r), r = 7/256, 3/256, 1/256, 1/768 for M = 8, 16, 32, 48;
 *                 for M = 64 w[m] = 1
 *   other values  full twiddle: w[m] = -cos(theta_m) + j sin(theta_m), theta_m = pi (2m + 1) / (4T) for m < M/2 and
 *                 pi/2 - theta_(M-1-m) above, with T = 64 for M = 64 and T = 32 for M = 8, 16, 32. Refused for M = 48.
 *
 * Real sub-bands do not depend on the mode.
 *
 * What to choose:
 *
 *   real or complex  Real sub-bands are M numbers a slot, as many as samples: to code or store them. Complex ones are
 *                    twice as many, with a steady magnitude: to measure, scale, mix, gate or delay bands one by one,
 *                    and for the hybrid bank (korla/dsp/hybrid.h). A history serves either kind.
 *   mode             0, the fastest, unless complex sub-bands meet those of another bank; both directions of a chain
 *                    take the same. A rotation costs a tenth to a quarter more time.
 *                    8, when banks of several M split one signal at rates in proportion to M, so that band q means the
 *                    same frequencies in all: in the middle of a band the phase is then that of 64 bands, and within 5
 *                    degrees of it up to the edges (sample i standing for the time (i + 1/2) / fs).
 *                    Another value (1, say), when phases are to count from half a sample before the window: for M = 32
 *                    and 64, -exp(-j pi (2q+1) (n + 1/2) / (2M)) in place of exp(-j pi (2q+1) n / (2M)). M = 8 and 16
 *                    take the angles of 32 bands as they are, for sub-bands made that way.
 *   M                Bands are fs / (2M) wide; delay, memory and the time that a slot takes grow with M.
 *   P, prototype     P = 5: the stop bands of the p64kvx301 designs lie at -52 dB (64 bands) to -38 dB (8 bands); P5
 *                    and P5_32 begin at -38 dB and fall off further. P = 4, for 64 and 32 bands: -42 and -37 dB, with
 *                    a fifth less delay, history and filtering. Only P = 5 loads and unloads the history of an
 *                    analysis.
 *   delay            of the chain, in samples: 73, 145, 289, 433, 577 for M = 8, 16, 32, 48, 64 with P = 5; 225, 449
 *                    for M = 32, 64 with P = 4
 *   L or S           The families give the same bits and differ in their memory alone. L, unless blocks are sized
 *                    before M is known: L asks for what M bands need; S for what 64 bands need, or else 32, so that
 *                    one opened with 8 bands may be reconfigured to 32. S refuses M = 48.
 *   Head1Bit         when sub-bands come halved, to leave room for sums, and the output is to have the full level
 *
 * Use: query_mem, allocate three blocks of any alignment, open, then process calls. Nothing else is allocated; the
 * memory stays the caller's, and close releases nothing. An instance is used by one thread at a time. Data buffers need
 * the alignment of a float; the outputs of a call overlap neither its inputs nor each other. A NaN or infinity in a
 * sample or sub-band stays in what follows for the 2P slots that the prototype spans, and is gone then.
 *
 * Functions given a null instance do nothing; those that have a result then return 0, or -1 for reconfig.
 */
#ifndef KORLA_DSP_QMF_H
#define KORLA_DSP_QMF_H

#include <korla/dsp/fft.h>
#include <korla/dsp/qmf_tables.h>

KRL_BEGIN_DECLS

/** An analysis bank, in memory of the caller. */
typedef struct krl_qmf_analysis krl_qmf_analysis;
/** A synthesis bank, in memory of the caller. */
typedef struct krl_qmf_synthesis krl_qmf_synthesis;

/* ---- analysis -------------------------------------------------------------------------------------------------- */

/** Stores the bytes of the three blocks of an analysis with M bands; each count includes the slack for alignment.
 *
 * selector: P, or any value whose low two bits are nonzero for P = 5 and zero for P = 4. Null pointers are skipped.
 *
 *                *state_bytes                                   *scratch_bytes                 *instance_bytes
 *   L, M <= 64   23 + (P = 5: 80 + 36 M, P = 4: 64 + 28 M)      31 + 16 M                      127
 *   L, M > 64    23 + (P = 5: 1232, P = 4: 960)                 31 + 512                       127
 *   S            23 + (M = 64: 2384, 1856; else 1232, 960)      31 + (M = 64: 1024; else 512)  119
 *
 * Returns 127 (L) or 1024 (S). A size is given for any M; open takes only those with tables.
 */
KRL_API uint32_t KRL_qmf_analysisL_query_mem(uint32_t M, uint32_t selector, uint32_t* state_bytes,
                                             uint32_t* scratch_bytes, uint32_t* instance_bytes);
KRL_API uint32_t KRL_qmf_analysisS_query_mem(uint32_t M, uint32_t selector, uint32_t* state_bytes,
                                             uint32_t* scratch_bytes, uint32_t* instance_bytes);

/** Places an analysis with a zero history in the three blocks and returns it.
 *
 *   slots      slots per process call
 *   mode       see above; matters for complex sub-bands only
 *   prototype  a _vec_ana table of M bands and P periods, 2PM floats; it is not copied
 *
 * Null, and nothing is touched, when M has no tables (or is 48 with the full twiddle or in the S family), when P is
 * neither 4 nor 5, or when the prototype or a block is null.
 */
KRL_API krl_qmf_analysis* krl_qmf_analysisL_open(uint32_t M, uint32_t slots, uint32_t mode, uint32_t P,
                                                 const float* prototype, void* state_memory, void* scratch_memory,
                                                 void* instance_memory);
KRL_API krl_qmf_analysis* krl_qmf_analysisS_open(uint32_t M, uint32_t slots, uint32_t mode, uint32_t P,
                                                 const float* prototype, void* state_memory, void* scratch_memory,
                                                 void* instance_memory);

/** New parameters inside the memory given at open, which must have been sized for the largest configuration.
 *
 * Clears the history and sets the slot increment to M. Returns 0; -1, and nothing changes, for what open would refuse.
 */
KRL_API int32_t krl_qmf_analysisL_reconfig(krl_qmf_analysis* bank, uint32_t M, uint32_t slots, uint32_t mode,
                                           uint32_t P, const float* prototype);
KRL_API int32_t krl_qmf_analysisS_reconfig(krl_qmf_analysis* bank, uint32_t M, uint32_t slots, uint32_t mode,
                                           uint32_t P, const float* prototype);

/** Clears the history. */
KRL_API void KRL_qmf_analysisL_init(krl_qmf_analysis* bank);
KRL_API void KRL_qmf_analysisS_init(krl_qmf_analysis* bank);

/** Sets the distance in floats between the rows of real sub-bands of consecutive slots; M after open and reconfig. */
KRL_API void KRL_qmf_analysisL_set_slot_increment(krl_qmf_analysis* bank, uint32_t increment);
KRL_API void KRL_qmf_analysisS_set_slot_increment(krl_qmf_analysis* bank, uint32_t increment);

/** The share of the analysis in the delay of the chain: PM - M/2 samples. */
KRL_API uint32_t KRL_qmf_analysisL_get_delay(const krl_qmf_analysis* bank);
KRL_API uint32_t KRL_qmf_analysisS_get_delay(const krl_qmf_analysis* bank);

/** Floats of history: 9 M for a nonzero selector (P = 5), 7 M for 0 (P = 4). */
KRL_API uint32_t KRL_qmf_analysisL_get_filter_state_length(uint32_t selector, uint32_t M);
KRL_API uint32_t KRL_qmf_analysisS_get_filter_state_length(uint32_t selector, uint32_t M);

/** The same for 64 bands: 576 or 448. */
KRL_API uint32_t KRL_qmf_analysisL_get_max_filter_state_length(uint32_t selector);
KRL_API uint32_t KRL_qmf_analysisS_get_max_filter_state_length(uint32_t selector);

/** Sets the history from, or stores it to, a flat array of 9 M floats: the last 9 M input samples, oldest first.
 *
 * Both do nothing unless P = 5.
 */
KRL_API void KRL_load_CLqmf_analysisL_filter_stateL(krl_qmf_analysis* bank, const float* src);
KRL_API void KRL_load_CLqmf_analysisS_filter_stateL(krl_qmf_analysis* bank, const float* src);
KRL_API void KRL_Lunload_CLqmf_analysisL_filter_state(const krl_qmf_analysis* bank, float* dst);
KRL_API void KRL_Lunload_CLqmf_analysisS_filter_state(const krl_qmf_analysis* bank, float* dst);

/** Real analysis: slots * M samples in, one row of M sub-band samples per slot out; row i starts at out + i *
 * increment. */
KRL_API void KRL_Lqmf_analysisL(krl_qmf_analysis* bank, float* out, const float* in);
KRL_API void KRL_Lqmf_analysisS(krl_qmf_analysis* bank, float* out, const float* in);

/** Complex analysis: slots * M samples in; out has one pointer per slot, to M complex sub-band samples. */
KRL_API void KRL_CLqmf_analysisL(krl_qmf_analysis* bank, float* const* out, const float* in);
KRL_API void KRL_CLqmf_analysisS(krl_qmf_analysis* bank, float* const* out, const float* in);

/** Releases nothing. */
KRL_API void KRL_qmf_analysisL_close(krl_qmf_analysis* bank);
KRL_API void KRL_qmf_analysisS_close(krl_qmf_analysis* bank);

/* ---- synthesis ------------------------------------------------------------------------------------------------- */

/** Stores the bytes of the three blocks of a synthesis with M bands; each count includes the slack for alignment.
 *
 * selector and null pointers as in the analysis.
 *
 *                *state_bytes                                   *scratch_bytes                 *instance_bytes
 *   L, M <= 64   31 + (P = 5: 36 M, P = 4: 28 M)                31 + 16 M                      127
 *   L, M > 64    31 + (P = 5: 1152, P = 4: 896)                 31 + 512                       127
 *   S            31 + (M = 64: 2304, 1792; else 1152, 896)      31 + (M = 64: 1024; else 512)  119
 *
 * Returns 127 (L) or 1024 (S).
 */
KRL_API uint32_t KRL_qmf_synthesisL_query_mem(uint32_t M, uint32_t selector, uint32_t* state_bytes,
                                              uint32_t* scratch_bytes, uint32_t* instance_bytes);
KRL_API uint32_t KRL_qmf_synthesisS_query_mem(uint32_t M, uint32_t selector, uint32_t* state_bytes,
                                              uint32_t* scratch_bytes, uint32_t* instance_bytes);

/** Places a synthesis with a zero history in the three blocks and returns it; arguments and refusals as in the
 * analysis, but the prototype is a _vec_syn table. */
KRL_API krl_qmf_synthesis* krl_qmf_synthesisL_open(uint32_t M, uint32_t slots, uint32_t mode, uint32_t P,
                                                   const float* prototype, void* state_memory, void* scratch_memory,
                                                   void* instance_memory);
KRL_API krl_qmf_synthesis* krl_qmf_synthesisS_open(uint32_t M, uint32_t slots, uint32_t mode, uint32_t P,
                                                   const float* prototype, void* state_memory, void* scratch_memory,
                                                   void* instance_memory);

/** Clears the history. */
KRL_API void KRL_qmf_synthesisL_init(krl_qmf_synthesis* bank);
KRL_API void KRL_qmf_synthesisS_init(krl_qmf_synthesis* bank);

/** Sets the distance in floats between the rows of real sub-bands of consecutive slots; M after open. */
KRL_API void KRL_qmf_synthesisL_set_slot_increment(krl_qmf_synthesis* bank, uint32_t increment);
KRL_API void KRL_qmf_synthesisS_set_slot_increment(krl_qmf_synthesis* bank, uint32_t increment);

/** The share of the synthesis in the delay of the chain: PM + 1 - M/2 samples. */
KRL_API uint32_t KRL_qmf_synthesisL_get_delay(const krl_qmf_synthesis* bank);
KRL_API uint32_t KRL_qmf_synthesisS_get_delay(const krl_qmf_synthesis* bank);

/** Copies the history of other into bank. Does nothing unless both have the same M and P. */
KRL_API void KRL_qmf_synthesisL_copy_states(krl_qmf_synthesis* bank, const krl_qmf_synthesis* other);
KRL_API void KRL_qmf_synthesisS_copy_states(krl_qmf_synthesis* bank, const krl_qmf_synthesis* other);

/** Real synthesis: slots rows of M sub-band samples in, row i at in + i * increment; slots * M samples out. */
KRL_API void KRL_Lqmf_synthesisL(krl_qmf_synthesis* bank, float* out, const float* in);
KRL_API void KRL_Sqmf_synthesisL(krl_qmf_synthesis* bank, float* out, const float* in);

/** Complex synthesis: in has one pointer per slot, to M complex sub-band samples; slots * M samples out. */
KRL_API void KRL_Lqmf_synthesisCL(krl_qmf_synthesis* bank, float* out, const float* const* in);
KRL_API void KRL_Sqmf_synthesisCL(krl_qmf_synthesis* bank, float* out, const float* const* in);

/** Complex synthesis of sub-bands that arrive with one bit of headroom: twice KRL_Lqmf_synthesisCL. Half the sub-bands
 * here give the bits of whole ones there. */
KRL_API void KRL_Lqmf_synthesisCL_Head1Bit(krl_qmf_synthesis* bank, float* out, const float* const* in);

/** Releases nothing. */
KRL_API void KRL_qmf_synthesisL_close(krl_qmf_synthesis* bank);
KRL_API void KRL_qmf_synthesisS_close(krl_qmf_synthesis* bank);

/* ---- modulation ---------------------------------------------------------------------------------------------------
 *
 * The steps between the filters and the sub-bands, for M a multiple of 8; another M, or a pair that is null with no
 * radix-4 kernel for the length, leaves everything untouched. pair: the forward FFT kernels of length M/2 (real) or M
 * (complex), or null to look the kernel up. dct_table: krl_dct_twiddle_table16_L<M>. Buffers of a call are apart from
 * each other unless said otherwise.
 */

/** out[q] = (1/M) sum over k of t[k] cos(pi (2q + 1) k / (2M)), where t folds the 2M floats f, with h = M/2:
 * t[0] = f[3h] / 2; t[k] = (f[3h-k] + f[3h+k]) / 2, k = 1..h-1; t[k] = (f[3h-k] - f[k-h]) / 2, k = h..M-1.
 *
 * tmp: M floats of work area, unspecified afterwards; it may be out when M <= 2048. f is kept.
 */
KRL_API void krl_forwardModulationReal(const float* f, float* out, uint32_t M, const krl_fft_pair* pair,
                                       const float* dct_table, float* tmp);

/** X[2k] = conj(V[k]) w[2k], X[2k+1] = V[M-1-k] w[2k+1], k = 0..M/2-1, with V the unscaled forward FFT of v.
 *
 * v: M complex samples, unspecified afterwards. X, scratch: M complex samples. mode: selects w as in a bank;
 * twiddle: for mode 8 M pairs (a krl_cos_<M>_ast_mini_twiddle table), for other modes but 0 M/2 pairs (a full table);
 * null: w = 1.
 */
KRL_API void krl_forwardModulationComplex(float* v, float* X, float* scratch, uint32_t M, uint32_t mode,
                                          const float* twiddle, const krl_fft_pair* pair);

/** g[r] = 2 sum over q of X[q] cos(pi (2q + 1) (r - M/2) / (2M)), r = 0..2M-1.
 *
 * X: M sub-band samples, overwritten with g[0..M-1]. Y: M floats, receives g[M..2M-1]. When Y == X the buffer holds 2M
 * floats and receives all of g; M is at most 2048 then.
 */
KRL_API void krl_inverseModulationReal(float* X, float* Y, uint32_t M, const krl_fft_pair* pair,
                                       const float* dct_table);

/** Y = the unscaled forward FFT of V, V[k] = conj(X[2k]) w[2k], V[M-1-k] = X[2k+1] conj(w[2k+1]), k = 0..M/2-1.
 *
 * This undoes the reordering and rotation of krl_forwardModulationComplex. X: M complex samples, kept. Y, scratch: M
 * complex samples; scratch is unspecified afterwards.
 */
KRL_API void krl_inverseModulationComplex(const float* X, float* Y, float* scratch, uint32_t M, uint32_t mode,
                                          const float* twiddle, const krl_fft_pair* pair);

/* ---- modulation tables --------------------------------------------------------------------------------------------
 *
 * Groups of eight floats, four sines then four cosines of consecutive m; 32-byte aligned, each value rounded once.
 */

/** krl_cos_<M>_full: s sin(pi m / (2M)), s cos(pi m / (2M)), m = 0..M-1, with s = 1/2; _full_scl: with s = 1/(2M). */
KRL_API extern const float krl_cos_8_full[16];
KRL_API extern const float krl_cos_8_full_scl[16];
KRL_API extern const float krl_cos_16_full[32];
KRL_API extern const float krl_cos_16_full_scl[32];
KRL_API extern const float krl_cos_32_full[64];
KRL_API extern const float krl_cos_32_full_scl[64];
KRL_API extern const float krl_cos_48_full[96];
KRL_API extern const float krl_cos_48_full_scl[96];
KRL_API extern const float krl_cos_64_full[128];
KRL_API extern const float krl_cos_64_full_scl[128];

/** Full twiddles: sin(theta), -cos(theta); theta = pi (2m + 1) / 256, m = 0..31, and pi (2m + 1) / 128, m = 0..15. */
KRL_API extern const float krl_cos_64_full_twiddle[64];
KRL_API extern const float krl_cos_32_full_twiddle[32];

/** Short twiddles: sin(phi), cos(phi); phi = pi (2m + 1) r, m = 0..M-1, r = 7/256, 3/256, 1/256, 1/768. */
KRL_API extern const float krl_cos_8_ast_mini_twiddle[16];
KRL_API extern const float krl_cos_16_ast_mini_twiddle[32];
KRL_API extern const float krl_cos_32_ast_mini_twiddle[64];
KRL_API extern const float krl_cos_48_ast_mini_twiddle[96];

KRL_END_DECLS

#endif
