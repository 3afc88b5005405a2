/* The downmix engine: input channel map to matrix, mixing, limiting, sample-format conversion.
 *
 * The module of korla/acli.h drives it; it is exported for callers that hold channel maps in engine codes.
 *
 * Engine channel codes, one byte per channel: 0 front left, 1 front right, 2 centre, 3 LFE, 4/5 left/right back,
 * 6/7 front left/right of centre, 8 back centre, 9/10 left/right surround, 11/12 front wides, 13..24 further main
 * pairs, 25/26 front heights, 27 centre height, 28/29 top front, 30/31 top middle, 32 top back centre, 33/34 top back,
 * 35/36 wide heights, 37..41 others; 42 an empty slot; above 42 invalid. A channel map is always 256 bytes.
 *
 * Use: mem, allocate zeroed, init, then process per chunk. There is no destroy function: free the memory.
 * One state is used by one thread at a time; states share nothing but read-only tables.
 */
#ifndef KORLA_DOWNMIXER_H
#define KORLA_DOWNMIXER_H

#include <stdint.h>

#include <korla/export.h>

KRL_BEGIN_DECLS

/** Sample formats of a buffer, little-endian. */
enum {
    KORVEX_FORMAT_FLOAT = 3,        /**< 32-bit float; as an input it is mixed straight into the output buffer */
    KORVEX_FORMAT_INT16 = 4,        /**< signed 16-bit integer */
    KORVEX_FORMAT_INT32 = 5,        /**< signed 32-bit integer */
    KORVEX_FORMAT_INT32_IN_64 = 6,  /**< signed 32-bit integer, sign-extended in an 8-byte slot */
    KORVEX_FORMAT_FLOAT_STAGED = 7, /**< 32-bit float, through the work buffers like the other formats */
    KORVEX_FORMAT_DOUBLE = 8        /**< 64-bit float */
};

/** Samples of a chunk: sample t of channel c is element t * stride of channels[c]. */
typedef struct korvex_downmixer_buffer {
    uint32_t channel_count; /**< of the data, at most as many as pointers */
    uint64_t stride;        /**< in samples: the channel count for interleaved data, 1 for one channel after another */
    uint32_t format;        /**< KORVEX_FORMAT_* */
    void** channels;        /**< one data pointer per channel */
} korvex_downmixer_buffer;

/** An engine, in memory of the caller. */
typedef struct korvex_downmixer_state korvex_downmixer_state;

/** Stores the output channel count of the built-in mode for a map (2, 6, 8, 10 or 12) and returns 0.
 *
 * -1 and a log record: a code above 42 or no channel at all (*num_out is left alone), or a layout that has no built-in
 * mode (*num_out is 0). */
KRL_API int32_t korvex_downmixer_get_num_of_out_channels(const uint8_t* codes, uint32_t* num_out);

/** Stores the bytes that init needs for chunks of `block` frames, slack for alignment included.
 *
 * 0: a code above 42, no channel, more than 12 channels, num_out 0 or above 256. */
KRL_API void korvex_downmixer_mem(uint32_t block, const uint8_t* codes, uint32_t num_out, uint64_t* size);

/** Places an engine in mem, which holds as many zeroed bytes as mem reported for the same block, codes and num_out.
 *
 * block: frames per chunk, a multiple of 32. sample_rate: Hz, in the low 32 bits; at a rate that the limiter does not
 * know (korvex_ht_kvlim_set_sample_rate) the engine mixes at the same level and latency but does not limit. codes: 256
 * bytes, read by this call only. Channels are read by position, the first ones of a frame, so a map with empty slots in
 * front of channels should be compacted.
 *
 * matrix: num_out rows of one gain per channel in the map; null: the built-in mode. It stays where it is and unchanged
 * while the state lives. Init looks for gains that are zero, of either sign: such an input is no term of its output, so
 * that an infinite sample there does not make it NaN.
 *
 * Null: null mem; num_out or a map that mem refuses; a block that is not a multiple of 32; without a matrix a map that
 * has no built-in mode, whose mode has more than num_out outputs (the memory was sized for num_out), or whose repeated
 * codes add up to another layout. */
KRL_API korvex_downmixer_state* korvex_downmixer_init(uint32_t block, uint64_t sample_rate, const uint8_t* codes,
                                                      uint32_t num_out, const float* matrix, void* mem);

/** The engine's delay in samples, 32; 0 for a null state. */
KRL_API uint32_t korvex_downmixer_get_latency(const korvex_downmixer_state* state);

/** Mixes `frames` frames, at most the block of init, and limits them: -8 dB peak, then +8 dB make-up gain. Returns 0.
 *
 * in->channel_count is set to the state's input count. The buffers may share memory in any way, whatever their formats,
 * arrangements and the block: then the whole chunk is read before the first frame is written. Samples need no alignment
 * but what KORVEX_FORMAT_FLOAT asks for. An unknown output format leaves the output untouched.
 *
 * The limiter advances by a whole block on every call. After a chunk shorter than the block the frames behind it pass
 * through the limiter as earlier calls left them, so a stream without gaps feeds whole blocks.
 *
 * Rounding: integers convert by exact powers of two; every product is rounded, products are added in channel order;
 * results round in the current rounding mode and saturate. NaN becomes 0 in integer formats. Float results stay within
 * 1 + 3 * 2^-23: the limiter's roundings can carry a peak three units in the last place past full scale. What the
 * limiter leaves of its gain after work, and what it does to NaN and infinite samples: korla/limiter.h.
 *
 * KORVEX_FORMAT_FLOAT as the input format mixes into out itself, which is then float whatever its format says, aligned
 * to 4 bytes, and holds a whole block, since the limiter works on it in place. Channels of out (channel_count) that the
 * engine has no output for become silent. */
KRL_API int32_t korvex_downmixer_process(korvex_downmixer_state* state, korvex_downmixer_buffer* in,
                                         korvex_downmixer_buffer* out, uint32_t frames);

KRL_END_DECLS

#endif
