/* Modulated filter bank (mfb_p10km): M complex bands from M real samples per slot, and back, for several channels.
 *
 * The bank. With the prototype c[0 .. 10M-1], w[n] the last ten blocks of M input samples of a channel (w[9M ..] the
 * newest) and i the imaginary unit, one slot of the analysis gives, for m = 0 .. M-1,
 *
 *   X[m] = phi_m / (2M) * sum over n = 0 .. 10M-1 of c[n] w[n] e^(-i pi (2m+1) n / (2M)),
 *
 * band m being centred at (2m+1)/(4M) of the sampling rate. The synthesis adds to its ten output blocks from the
 * current slot on, n = 0 .. 10M-1,
 *
 *   2 h[n] * sum over m of Re(X[m] conj(phi_m) e^(i pi (2m+1) (n + 9M - D) / (2M))),
 *
 * h being c or c run backwards in time and D the delay of the chain in samples. The variants differ in the phases
 * phi_m, in D and in h:
 *
 *   synthesis                  of what                      prototype                      h[jM+k]           delay D
 *   ..._symmetric              analysis                     P64KVX301                      c[jM+k]           9M
 *   ..._legacy                 legacy analysis              P64KVX301, P64KVX301_LEGACY    c[jM+M-1-k]       9M
 *   ..._legacy_extra_latency   legacy analysis, TWID64O     P64KVX301_LEGACY               c[(9-j)M+k]       9M + 1
 *   ..._even_0                 analysis                     P4_319SC                       c[(9-j)M+M-1-k]   4M
 *   ..._even_1                 legacy analysis              P4_319SC                       c[(9-j)M+k]       4M
 *   ..._even_2                 analysis, conjugated         P4_319SC                       c[(9-j)M+M-1-k]   4M
 *   ..._even_3                 legacy analysis, conjugated  P4_319SC                       c[(9-j)M+k]       4M
 *
 * Phases. With the twiddle t[k] = e^(-i pi (2k + d) / (4M)), d = 1 for the E tables and 0 for the O table, the upper
 * signs for even m:
 *
 *   analysis          phi_m = +-i e^(-+i pi d / (4M))
 *   legacy analysis   phi_m = -+i e^(+-i pi d / (4M)) e^(i pi (2m+1)(M-1) / (2M))
 *                     with c[jM+M-1-k] in place of c[jM+k]
 *
 * so that the legacy analysis needs a table with every block reversed to select bands as sharply as the other.
 *
 * Each pair of analysis and synthesis reconstructs its input with unit gain, D samples later, with a prototype that is
 * made for it (korla/dsp/mfb_tables.h) and, but for the extra-latency form, with any twiddle of unit modulus; both
 * sides take the same tables. The figures are in docs/modulated-bank.md.
 *
 * Arguments of all process functions:
 *
 *   prototype   10M floats in groups of four bands: prototype[40g + 4j + r] = c[jM + 4g + r]
 *   twiddle     2M floats in groups of four bands: twiddle[8g + r] = Re t[4g + r], twiddle[8g + 4 + r] = Im t[4g + r]
 *   scratch     as many bytes as the scratch query says; unspecified after the call
 *   channels    channels 0 .. channels-1 are processed; at most the number given to init. A channel that a call of the
 *               analysis leaves out loses step with the others: reset it before it takes part again
 *   slots       time slots of M samples
 *   m           M as given to init
 *   out, in     out[slot][channel] and in[slot][channel]: M floats for a time signal, M complex values (real,
 *               imaginary) for sub-bands; all apart from each other, from the scratch and from the instance
 *
 * Float alignment is enough for every buffer. Zero slots or zero channels: returns at once, nothing is read. A call
 * with a null pointer anywhere, in the slot arrays too, with another m than the instance's or with too many channels is
 * refused: it changes nothing.
 *
 * M is a multiple of 8 that the FFT has a kernel for: 8 to 4096 for powers of two, 24 to 960 for mixed lengths; the
 * library has prototypes for 64, 128 and 256.
 *
 * Nothing is allocated. An instance is used by one thread at a time. NaN and infinity leave the state after ten slots.
 *
 * Literature. H. S. Malvar, "Signal Processing with Lapped Transforms", Artech House 1992; P. N. Heller, T. Karp,
 * T. Q. Nguyen, "A general formulation of modulated filter banks", IEEE Trans. SP 47(4), 1999; G. D. T. Schuller,
 * M. J. T. Smith, "New framework for modulated perfect reconstruction filter banks", IEEE Trans. SP 44(8), 1996 (low
 * delay).
 */
#ifndef KORLA_DSP_MFB_H
#define KORLA_DSP_MFB_H

#include <korla/dsp/fft.h>
#include <korla/dsp/mfb_tables.h>

KRL_BEGIN_DECLS

/** An analysis bank, in memory of the caller. */
typedef struct krl_mfb_analysis krl_mfb_analysis;
/** A synthesis bank, in memory of the caller. */
typedef struct krl_mfb_synthesis krl_mfb_synthesis;

/* ---- twiddle tables -------------------------------------------------------------------------------------------------
 *
 * Laid out as the argument `twiddle`; every value is the exact one rounded once. Read-only, 32-byte aligned.
 */

/** e^(-i pi (2k+1) / (4M)), k = 0..M-1, for M = 64, 128, 256. */
KRL_API extern const float KRL_MFB_TWID64E[128];
KRL_API extern const float KRL_MFB_TWID128E[256];
KRL_API extern const float KRL_MFB_TWID256E[512];
/** e^(-i pi k / 128), k = 0..63, for M = 64. */
KRL_API extern const float KRL_MFB_TWID64O[128];

/* ---- memory ---------------------------------------------------------------------------------------------------------
 *
 * The caller allocates; no alignment is asked of the blocks. `reserved` arguments are ignored. Sizes that do not fit a
 * size_t saturate.
 */

/** Bytes of an analysis instance: (39 + 36 m) * channels + 86. */
KRL_API size_t KRL_mfb_p10km_analysisL_query_mem(uint32_t channels, uint32_t reserved, uint32_t m);
/** Bytes of a synthesis instance: (39 + 36 m) * channels + 78. */
KRL_API size_t KRL_mfb_p10km_synthesisCL_query_mem(uint32_t channels, uint32_t reserved, uint32_t m);
/** Bytes of scratch memory of a process call: 16 m + 31. Calls of several instances may share one block in turn. */
KRL_API size_t KRL_mfb_p10km_analysisL_query_scratch(uint32_t reserved, uint32_t reserved2, uint32_t m);
KRL_API size_t KRL_mfb_p10km_synthesisCL_query_scratch(uint32_t reserved, uint32_t reserved2, uint32_t m);

/* ---- analysis ---------------------------------------------------------------------------------------------------- */

/** Places an instance with cleared channels in memory (analysis query) and returns it; null when memory is null or m is
 * not supported, and then nothing is written. */
KRL_API krl_mfb_analysis* KRL_CLmfb_p10km_analysisL_init(uint32_t channels, uint32_t reserved, uint32_t m,
                                                         void* memory);

/** Clears the history of one channel, the others keep theirs. Does nothing for a null instance, another m than the
 * instance's or a channel it does not have. */
KRL_API void KRL_mfb_p10km_analysisL_reset_channel(krl_mfb_analysis* bank, uint32_t m, uint32_t channel);

/** Analysis: in[slot][channel] holds M samples, out[slot][channel] receives M complex bands. */
KRL_API void KRL_CLmfb_p10km_analysisL(krl_mfb_analysis* bank, const float* prototype, const float* twiddle,
                                       void* scratch, uint32_t channels, uint32_t slots, uint32_t m,
                                       float* const* const* out, const float* const* const* in);

/** Analysis with the phases of the legacy convention. One instance may switch between the conventions: the state is the
 * input alone, except that the legacy convention keeps its blocks reversed, so let ten slots pass after a switch. */
KRL_API void KRL_CLmfb_p10km_analysisL_legacy(krl_mfb_analysis* bank, const float* prototype, const float* twiddle,
                                              void* scratch, uint32_t channels, uint32_t slots, uint32_t m,
                                              float* const* const* out, const float* const* const* in);

/** Legacy analysis with every band m multiplied by e[m]; extra_twiddle holds e in the layout of `twiddle`.
 *
 * With KRL_MFB_P10KM_P64KVX301_LEGACY, KRL_MFB_TWID64O and e[m] = -cos(a) + i sin(a), a = pi (2m+1) / 256, the bands
 * are those of the complex QMF analysis with full twiddles; without the rotation those of its mode 0 (korla/dsp/qmf.h).
 */
KRL_API void KRL_CLmfb_p10km_analysisL_legacy_twiddle(krl_mfb_analysis* bank, const float* prototype,
                                                      const float* twiddle, void* scratch, const float* extra_twiddle,
                                                      uint32_t channels, uint32_t slots, uint32_t m,
                                                      float* const* const* out, const float* const* const* in);

/** The state is neither loaded nor unloaded: these do nothing. */
KRL_API void KRL_load_mfb_p10km_analysisL_filter_state(krl_mfb_analysis* bank, const float* src);
KRL_API void KRL_unload_mfb_p10km_analysisL_filter_state(krl_mfb_analysis* bank, float* dst);

/** Nothing to release; the memory is the caller's. */
KRL_API void KRL_CLmfb_p10km_analysisL_close(krl_mfb_analysis* bank);

/* ---- synthesis --------------------------------------------------------------------------------------------------- */

/** Places an instance with cleared channels in memory (synthesis query) and returns it; null when memory is null or m
 * is not supported, and then nothing is written. */
KRL_API krl_mfb_synthesis* KRL_Lmfb_p10km_synthesisCL_init(uint32_t channels, uint32_t reserved, uint32_t m,
                                                           void* memory);

/** Nothing to release; the memory is the caller's. */
KRL_API void KRL_Lmfb_p10km_synthesisCL_close(krl_mfb_synthesis* bank);

/** Syntheses: in[slot][channel] holds M complex bands, out[slot][channel] receives M samples. Which one belongs to
 * which analysis and prototype, with which delay: the table at the top. */
KRL_API void KRL_Lmfb_p10km_synthesisCL_symmetric(krl_mfb_synthesis* bank, const float* prototype, const float* twiddle,
                                                  void* scratch, uint32_t channels, uint32_t slots, uint32_t m,
                                                  float* const* const* out, const float* const* const* in);
KRL_API void KRL_Lmfb_p10km_synthesisCL_legacy(krl_mfb_synthesis* bank, const float* prototype, const float* twiddle,
                                               void* scratch, uint32_t channels, uint32_t slots, uint32_t m,
                                               float* const* const* out, const float* const* const* in);
KRL_API void KRL_Lmfb_p10km_synthesisCL_legacy_extra_latency(krl_mfb_synthesis* bank, const float* prototype,
                                                             const float* twiddle, void* scratch, uint32_t channels,
                                                             uint32_t slots, uint32_t m, float* const* const* out,
                                                             const float* const* const* in);
KRL_API void KRL_Lmfb_p10km_synthesisCL_even_0(krl_mfb_synthesis* bank, const float* prototype, const float* twiddle,
                                               void* scratch, uint32_t channels, uint32_t slots, uint32_t m,
                                               float* const* const* out, const float* const* const* in);
KRL_API void KRL_Lmfb_p10km_synthesisCL_even_1(krl_mfb_synthesis* bank, const float* prototype, const float* twiddle,
                                               void* scratch, uint32_t channels, uint32_t slots, uint32_t m,
                                               float* const* const* out, const float* const* const* in);
KRL_API void KRL_Lmfb_p10km_synthesisCL_even_2(krl_mfb_synthesis* bank, const float* prototype, const float* twiddle,
                                               void* scratch, uint32_t channels, uint32_t slots, uint32_t m,
                                               float* const* const* out, const float* const* const* in);
KRL_API void KRL_Lmfb_p10km_synthesisCL_even_3(krl_mfb_synthesis* bank, const float* prototype, const float* twiddle,
                                               void* scratch, uint32_t channels, uint32_t slots, uint32_t m,
                                               float* const* const* out, const float* const* const* in);

KRL_END_DECLS

#endif
