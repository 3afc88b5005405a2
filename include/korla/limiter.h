/* A look-ahead peak limiter for multichannel float audio, with make-up gain and a hard-clip mode.
 *
 * The signal is delayed by one sub-block (32, 40, 64, 128 or 256 samples) so that the gain can fall before a peak
 * arrives. Per sub-block and for all channels together the limiter finds one peak and computes one gain; a raised-sine
 * crossfade joins the gains of neighbouring sub-blocks. A slow gain adapts under lasting limiting, so that dense
 * material does not pump. Principle: Giannoulis, Massberg and Reiss, "Digital Dynamic Range Compressor Design", JAES
 * 60(6), 2012 (feed-forward, look-ahead, smoothed gain).
 *
 * Ceiling: the output stays within peak * 256 * boost * (1 + 2^-21), which are the eight roundings from a peak to its
 * output; samples above 1e35 * peak, whose gain is denormal, may exceed it.
 *
 * Rest: a gain comes back by g = a g + (1 - a), rounded to float, and stops k = floor(0.5 / (1 - a)) units of 2^-24
 * below 1, where a step rounds to none. With a = set[2] for the slow gain and a = set[4] for the release, a limiter
 * that has been at work ends at most k_slow + k_release units below 1 (0.0004 dB for 32 samples at 192000 Hz, less in
 * all other cases) and stays there: it is not bit-equal to a fresh one until reset_state. After a short burst that
 * takes 0.1 s, after an infinite sample 3 s.
 *
 * Use: query_memory, allocate, init, then the setters in any order, then process per block of block_size samples.
 *
 *     size_t state, buffer;
 *     void *memory = calloc(1, korvex_ht_kvlim_query_memory(2, &state, &buffer, 32));
 *     korvex_ht_kvlim *limiter = korvex_ht_kvlim_init(2, 32, memory, NULL);
 *     korvex_ht_kvlim_set_sample_rate(limiter, 48000);
 *     korvex_ht_kvlim_set_block_size(limiter, 256);
 *     korvex_ht_kvlim_set_num_channels(limiter, 2);
 *     korvex_ht_kvlim_set_enable(limiter, 1);
 *     korvex_ht_kvlim_process(limiter, channels, channels, 1, 1);
 *
 * Nothing is allocated and nothing is checked beyond what each function says; handles are not null. One instance is
 * used by one thread at a time. Levels and gains are linear amplitudes, 1.0 is full scale.
 */
#ifndef KORLA_LIMITER_H
#define KORLA_LIMITER_H

#include <stddef.h>
#include <stdint.h>

#include <korla/export.h>

KRL_BEGIN_DECLS

/** A limiter, in memory of the caller. */
typedef struct korvex_ht_kvlim korvex_ht_kvlim;

/** A version in four numbers. */
typedef struct korvex_ht_kvlim_version {
    uint32_t major; /**< changed meaning */
    uint32_t minor; /**< new functions */
    uint32_t patch; /**< mended faults */
    uint32_t build; /**< 0 */
} korvex_ht_kvlim_version;

/** The version of the limiter, a constant record. */
KRL_API const korvex_ht_kvlim_version* korvex_ht_kvlim_get_version(void);

/** Bytes of memory for a limiter: the sum of *state_bytes and *buffer_bytes, which are stored when both pointers are
 * given.
 *
 * The counts include the slack for alignment, so memory of any alignment will do. A count that overflows saturates at
 * SIZE_MAX. subblock_len other than 32, 40, 64, 128, 256 gives a size, but init will refuse it. */
KRL_API size_t korvex_ht_kvlim_query_memory(uint32_t max_channels, size_t* state_bytes, size_t* buffer_bytes,
                                            uint32_t subblock_len);

/** Places a limiter in state_mem; the delay lines go to buffer_mem, or behind the state when that is null.
 *
 * The limiter starts disabled, with peak 1.0, boost 1/256 (unity), no sample rate, 0 channels, block size subblock_len.
 * Returns null for a subblock_len other than 32, 40, 64, 128, 256. There is no destroy function: free the memory. */
KRL_API korvex_ht_kvlim* korvex_ht_kvlim_init(uint32_t max_channels, uint32_t subblock_len, void* state_mem,
                                              void* buffer_mem);

/** Nonzero: process limits; 0: process returns at once. Switching on clears the delay lines unless hard clip is set. */
KRL_API void korvex_ht_kvlim_set_enable(korvex_ht_kvlim* limiter, int32_t on);
KRL_API uint32_t korvex_ht_kvlim_get_enable(const korvex_ht_kvlim* limiter);

/** The level that the limited signal keeps to, before the boost: 0, which mutes, or more. Not checked. */
KRL_API void korvex_ht_kvlim_set_peak(korvex_ht_kvlim* limiter, float peak);
KRL_API float korvex_ht_kvlim_get_peak(const korvex_ht_kvlim* limiter);

/** Make-up gain divided by 256, so 1/256 is unity. The next sub-block fades from boost_now to boost; equal arguments
 * apply at once. Not checked. */
KRL_API void korvex_ht_kvlim_set_boost(korvex_ht_kvlim* limiter, float boost_now, float boost);
KRL_API float korvex_ht_kvlim_get_boost(const korvex_ht_kvlim* limiter);

/** The gain reached at the end of the last sub-block, without the boost; 1.0 is no reduction. */
KRL_API float korvex_ht_kvlim_get_limiter_gain(const korvex_ht_kvlim* limiter);

/** Nonzero: clamp to +-peak and boost, without delay; 0: look ahead. Leaving hard clip while enabled clears the delay
 * lines. */
KRL_API void korvex_ht_kvlim_set_hard_clip(korvex_ht_kvlim* limiter, int32_t on);
KRL_API uint32_t korvex_ht_kvlim_get_hard_clip(const korvex_ht_kvlim* limiter);

/** Selects the time constants for a rate in Hz; 0 on success.
 *
 * -1, nothing changes: a rate other than 24000, 32000, 44100, 48000, 64000, 88200, 96000, 176400, 192000, or one not
 * offered for the sub-block length (64: all; 32 and 40: all; 128: 48000 and up; 256: 96000, 176400, 192000).
 *
 * Until a rate has been accepted the look-ahead mode does not limit: the gain stays 1 while delay and boost apply, so
 * that level and latency are as reported. Setting another rate restarts the slow and the smoothed gain at 1. */
KRL_API int32_t korvex_ht_kvlim_set_sample_rate(korvex_ht_kvlim* limiter, uint32_t rate_hz);
/** 0xFFFFFFFF until a rate has been accepted. */
KRL_API uint32_t korvex_ht_kvlim_get_sample_rate(const korvex_ht_kvlim* limiter);

/** Samples per channel that one process call handles: a multiple of the sub-block length, else -1 and nothing changes.
 * 0 is accepted and makes process do nothing. */
KRL_API int32_t korvex_ht_kvlim_set_block_size(korvex_ht_kvlim* limiter, uint32_t block_size);
KRL_API uint32_t korvex_ht_kvlim_get_block_size(const korvex_ht_kvlim* limiter);

/** Channels that process handles: at most max_channels, else -1 and nothing changes. */
KRL_API int32_t korvex_ht_kvlim_set_num_channels(korvex_ht_kvlim* limiter, uint32_t num_channels);
KRL_API uint32_t korvex_ht_kvlim_get_num_channels(const korvex_ht_kvlim* limiter);

/** Delay in samples: the sub-block length while enabled and not in hard clip, else 0. */
KRL_API uint32_t korvex_ht_kvlim_get_latency(const korvex_ht_kvlim* limiter);

/** Back to rest: gains 1, no remembered peak, delay lines cleared. The recent target gains are kept. */
KRL_API void korvex_ht_kvlim_reset_state(korvex_ht_kvlim* limiter);

/** Limits block_size samples of num_channels channels.
 *
 * Sample i of channel c is in[c][i * in_stride] and out[c][i * out_stride]. out may equal in with equal strides (in
 * place); otherwise outputs stay apart from inputs. A null in[c] skips the channel: its output and delay are untouched.
 */
KRL_API void korvex_ht_kvlim_process(korvex_ht_kvlim* limiter, float* const* out, const float* const* in,
                                     size_t in_stride, size_t out_stride);

/** The same, with the gain computed from other signals: sample i of detection channel c is detect[c][i * in_stride];
 * null pointers are skipped. These signals lie to the outputs as inputs may: apart, or in the same place with equal
 * strides.
 *
 * NaN never counts as a peak. With in_stride 1 and a sub-block on a 32-byte boundary (strict absolute maximum), one NaN
 * hides its channel's whole sub-block from the detection; otherwise only the NaN sample itself is ignored. An infinite
 * sample drives the gain to 0 and comes out as NaN itself; the limiter recovers from both. */
KRL_API void korvex_ht_kvlim_process_indirect(korvex_ht_kvlim* limiter, float* const* out, const float* const* detect,
                                              const float* const* in, size_t in_stride, size_t out_stride,
                                              uint32_t detect_channels);

/** Rising crossfade window of each sub-block length: sin^2(pi (i + 0.5) / (2N)) in steps of 1/32768. */
KRL_API extern const float korvex_ht_a_kvlim_win_32[32];
KRL_API extern const float korvex_ht_a_kvlim_win_40[40];
KRL_API extern const float korvex_ht_a_kvlim_win_64[64];
KRL_API extern const float korvex_ht_a_kvlim_win_128[128];
KRL_API extern const float korvex_ht_a_kvlim_win_256[256];

/** Smoothing coefficients of each sub-block length at 192000, 176400, 96000, 88200, 64000, 48000, 44100, 32000 and
 * 24000 Hz; null where a rate is not offered. A set is eight floats: slow-gain fall (two, sum 1), slow-gain recovery
 * (two, sum 1), release, an unused one, two zeros. The first of the two and the release are what a sub-block of T ms
 * leaves, 2^(-T / half-life) in steps of 1/32768: half-lives are 40, 160 and 5 ms. */
KRL_API extern const float* const korvex_ht_ap_kvlim_coefs_32[9];
KRL_API extern const float* const korvex_ht_ap_kvlim_coefs_40[9];
KRL_API extern const float* const korvex_ht_ap_kvlim_coefs_64[9];
KRL_API extern const float* const korvex_ht_ap_kvlim_coefs_128[9];
KRL_API extern const float* const korvex_ht_ap_kvlim_coefs_256[9];

/** Unity on the boost scale: 1/256. */
KRL_API extern const float korvex_ht_KVLIM_ONE_OVER_256_S;
KRL_API extern const float korvex_ht_KVLIM_ONE_OVER_256_L;

KRL_END_DECLS

#endif
