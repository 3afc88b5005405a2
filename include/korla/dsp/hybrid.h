/* Hybrid filter bank: finer frequency resolution in the three lowest bands of a QMF bank.
 *
 * Per QMF slot the analysis takes one complex sample of each of the QMF bands 0, 1 and 2 and splits each band with
 * 13-tap complex-modulated filters; the synthesis adds the parts up again. With s[0 .. 12] the last 13 samples of a
 * band (s[12] the newest), i the imaginary unit and g a symmetric prototype,
 *
 *   y[q] = sum over n = 0 .. 12 of g[n] s[n] e^(-i (2 pi / Q) (q + 1/2) (n - 6)),   q = 0 .. Q-1:
 *
 * sub-band q is centred at (q + 1/2) / Q of the QMF band's own sampling rate. The taps beside the centre cancel in the
 * sum over q, so synthesis of the analysis is a delay of 6 slots, exact up to rounding.
 *
 * Configuration word: bits 0-1 the split, 0 or 1; bit 2 the interleaved order of the outputs (split 1 only); other bits
 * are ignored.
 *
 *   split 1, 16 outputs   band 0: y[0..7], Q = 8. Bands 1 and 2: z[0..3] and w[0..3], Q = 4.
 *     order: y0 .. y7, z0 .. z3, w0 .. w3
 *     interleaved: y[0..7] at 0, 2, 4, 6, 7, 9, 3, 1 with y6 and y7 conjugated; z[0..3] at 12, 5, 8, 10;
 *     w[0..3] at 13, 14, 15, 11
 *
 *   split 0, 10 outputs   band 0: y0, y1, y2 + y5, y3 + y4, y6, y7. Bands 1 and 2: low, high each, half the centre
 *     sample plus and minus the sum over krl_hyb_p2_6[i] s[2i+1], i = 0..5.
 *     order: band 0, band 1 low, high, band 2 low, high
 *
 * Literature: P. P. Vaidyanathan, "Multirate Systems and Filter Banks", Prentice Hall 1993, chapters 4 (modulated banks
 * as polyphase filters and a DFT) and 5 (tree structures).
 *
 * Nothing is allocated. An instance is used by one thread at a time. Float alignment is enough for the sample buffers.
 * A null instance or buffer is refused: the call does nothing. NaN and infinity leave the state after 13 slots.
 */
#ifndef KORLA_DSP_HYBRID_H
#define KORLA_DSP_HYBRID_H

#include <korla/dsp/fft.h>

KRL_BEGIN_DECLS

/** Configuration words. */
enum {
    KRL_HYBRID_10_BANDS = 0,
    KRL_HYBRID_16_BANDS = 1,
    KRL_HYBRID_INTERLEAVED = 4 /* joined with one of the above by "or" */
};

/** An analysis bank, in memory of the caller. */
typedef struct krl_hybrid_analysis krl_hybrid_analysis;
/** A synthesis bank, in memory of the caller. */
typedef struct krl_hybrid_synthesis krl_hybrid_synthesis;

/** The prototypes, oldest sample first.
 *
 * krl_hyb_p8_13 and krl_hyb_p4_13: g for Q = 8 and Q = 4, where some taps carry a sign that the bank's phase factors
 * undo: the taps 0..4 of the first and 1, 3, 4, 9, 11, 12 of the second. krl_hyb_p2_6: the taps 1, 3, .. 11 of a 13-tap
 * half-band filter; its centre tap 6 is 0.5 and the rest are 0.
 */
KRL_API extern const float krl_hyb_p8_13[13];
KRL_API extern const float krl_hyb_p4_13[13];
KRL_API extern const float krl_hyb_p2_6[6];

/** Bytes of memory of an analysis: state 343, scratch 0, instance 39, room for alignment included. Returns the instance
 * bytes. A null result pointer is skipped. */
KRL_API uint32_t KRL_hybrid_analysisCL_query_mem(int32_t config, uint32_t* state_bytes, uint32_t* scratch_bytes,
                                                 uint32_t* instance_bytes);

/** Places an instance in instance_memory and its cleared state in state_memory, at any alignment; scratch_memory is not
 * used. Null when bit 1 of config is set or one of the two memories is null; then nothing is written. */
KRL_API krl_hybrid_analysis* KRL_hybrid_analysisCL_open(int32_t config, void* state_memory, void* scratch_memory,
                                                        void* instance_memory);

/** Clears the state. */
KRL_API void KRL_hybrid_analysisCL_init(krl_hybrid_analysis* bank);

/** The delay of analysis and synthesis together in QMF slots: 6. */
KRL_API uint32_t KRL_hybrid_analysisCL_get_delay(const krl_hybrid_analysis* bank);

/** Headroom of the state in bits: krl_vec_UnormLU_flex (korla/dsp/vector.h) over its 78 floats. */
KRL_API uint32_t KRL_hybrid_analysisCL_get_scale(const krl_hybrid_analysis* bank);

/** Multiplies the state by 2 to the power of shift, limited to -60..60. */
KRL_API void KRL_hybrid_analysisCL_shl(krl_hybrid_analysis* bank, int32_t shift);

/** Nothing to release; the memory is the caller's. */
KRL_API void KRL_hybrid_analysisCL_close(krl_hybrid_analysis* bank);

/** One slot of analysis: in holds the samples of QMF bands 0, 1, 2 (6 floats), out receives 16 or 10 complex samples,
 * as configured. out may coincide with in. */
KRL_API void KRL_CLhybrid_analysisCL(krl_hybrid_analysis* bank, float* out, const float* in);

/** Bytes of memory of a synthesis: state 0, scratch 0, instance 15. Returns the instance bytes. A null result pointer
 * is skipped. */
KRL_API uint32_t KRL_hybrid_synthesisCL_query_mem(int32_t config, uint32_t* state_bytes, uint32_t* scratch_bytes,
                                                  uint32_t* instance_bytes);

/** Places an instance in instance_memory, at any alignment; the other memories are not used. Null when bit 1 of config
 * is set or instance_memory is null; then nothing is written. */
KRL_API krl_hybrid_synthesis* KRL_hybrid_synthesisCL_open(int32_t config, void* state_memory, void* scratch_memory,
                                                          void* instance_memory);

/** Does nothing: a synthesis has no state. */
KRL_API void KRL_hybrid_synthesisCL_init(krl_hybrid_synthesis* bank);

/** The delay of analysis and synthesis together in QMF slots: 6. */
KRL_API uint32_t KRL_hybrid_synthesisCL_get_delay(const krl_hybrid_synthesis* bank);

/** Nothing to release; the memory is the caller's. */
KRL_API void KRL_hybrid_synthesisCL_close(krl_hybrid_synthesis* bank);

/** One slot of synthesis: in holds 16 or 10 complex samples, as configured; out receives the samples of QMF bands 0, 1,
 * 2 (6 floats): the sums of what came from each. out may coincide with in. */
KRL_API void KRL_CLhybrid_synthesisCL(krl_hybrid_synthesis* bank, float* out, const float* in);

KRL_END_DECLS

#endif
