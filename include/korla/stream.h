/* korla-stream: audio from any speakers to any speakers, in calls of any length, through a look-ahead peak limiter.
 *
 *     korla_stream_config config = {0};
 *     config.size = sizeof config;
 *     config.rate = 48000;
 *     korla_layout_parse("7.1.4", &config.in, NULL, 0);
 *     korla_layout_parse("stereo", &config.out, NULL, 0);
 *     config.in_format = config.out_format = KORLA_S16;
 *
 *     korla_stream *stream;
 *     char reason[120];
 *     if (korla_stream_open(&config, NULL, 0, &stream, reason, sizeof reason) != KORLA_OK)
 *         ...
 *     korla_stream_set(stream, KORLA_DIALOGUE_DB, 6);
 *     korla_stream_process(stream, &in, frames, &out, capacity, &produced); // any number of times
 *     korla_stream_drain(stream, &out, capacity, &produced);
 *     korla_stream_close(stream);
 *
 * What a sample goes through: conversion to float, the matrix, the limiter, conversion to the output's format. The
 * matrix is the caller's; else the downmix module's for that pair of layouts, and then the samples are those of the
 * module, bit for bit; else one derived by rule, so that no speaker but the LFE is ever lost.
 *
 * Level: a gain of 1 keeps a level. Peaks above the ceiling (0 dB, full scale, unless set lower) are limited, with 32
 * frames of look-ahead, at any sample rate; one of a rate that the limiter has no time constants for uses those of
 * the nearest. A sample that is not a number, infinite or above 2^64 counts as silence.
 *
 * Identity: the same speakers in and out (in any order), the same format, no matrix of the caller's and no
 * KORLA_CONTROLLABLE: samples are copied as they are, the latency is 0 and there are no controls.
 *
 * Threads: one stream is processed, drained and reset by one thread at a time. Controls and meters may be used by any
 * thread at any time between open and close.
 *
 * Real time: open allocates once, or takes the caller's memory. After it nothing allocates, locks or makes a system
 * call, and nothing is ever printed.
 *
 * Errors: every call that can fail returns a korla_status. A call that fails has changed nothing and consumed nothing.
 * Pointers that are documented are checked for null; pointers into the caller's samples are trusted for as many frames
 * as the caller says.
 */
#ifndef KORLA_STREAM_H
#define KORLA_STREAM_H

#include <stddef.h>
#include <stdint.h>

#include <korla/export.h>
#include <korla/speakers.h>

KRL_BEGIN_DECLS

/** Sample formats, little-endian. Integers have full scale 2^(bits - 1) and saturate; results are rounded to nearest. */
enum {
    KORLA_S16 = 1,    /**< signed 16 bits */
    KORLA_S24 = 2,    /**< signed 24 bits packed in 3 bytes */
    KORLA_S24_32 = 3, /**< signed 24 bits in the low bits of 4 bytes; read: the top byte is ignored, written: sign */
    KORLA_S32 = 4,    /**< signed 32 bits; samples are float inside, so 24 bits of it are kept */
    KORLA_F32 = 5,    /**< float, full scale 1.0 */
    KORLA_F64 = 6     /**< double, rounded to float on the way in */
};

/** The bytes of a sample; 0 for a code that is no format. */
KRL_API size_t korla_format_bytes(uint32_t format);

/** How calls relate to what comes out. */
enum {
    /** Push and pull: a call consumes what it is given and produces what is ready, in multiples of 32 frames. Output is
     * aligned with the input: after drain as many frames have come out as went in, each where it stood. */
    KORLA_PUSH = 0,
    /** Every call gives as many frames as it takes; what comes out is 63 frames late. */
    KORLA_SAME_LENGTH = 1,
    /** The same, 32 frames late; every call is a multiple of 32 frames (else KORLA_BAD_ARGUMENT). */
    KORLA_SAME_LENGTH_32 = 2
};

/** Flags of a config. */
enum {
    /** Do not copy even where nothing is to be changed, so that controls can be set while running. */
    KORLA_CONTROLLABLE = 1
};

/** What a stream is to be. Zero it, then fill in what differs. */
typedef struct korla_stream_config {
    uint32_t size;       /**< sizeof(korla_stream_config) */
    uint32_t rate;       /**< Hz, not 0 */
    korla_layout in;     /**< 1..12 different speakers, in frame order */
    korla_layout out;    /**< the same of the output */
    uint32_t in_format;  /**< KORLA_S16, ... */
    uint32_t out_format; /**< KORLA_S16, ... */
    uint32_t in_planar;  /**< 0: frame by frame, in one buffer; else one buffer a channel */
    uint32_t out_planar; /**< the same for the output */
    uint32_t mode;       /**< KORLA_PUSH, ... */
    uint32_t flags;      /**< 0 or KORLA_CONTROLLABLE */
    const float* matrix; /**< [out.count][in.count] linear gains, row by row, read by open only; null: by rule */
} korla_stream_config;

/** A stream, in memory of its own or of the caller. */
typedef struct korla_stream korla_stream;

/** The bytes that a stream of this config needs, slack for alignment included; 0 for a config that open refuses. */
KRL_API size_t korla_stream_memory(const korla_stream_config* config);

/** Opens a stream.
 *
 * memory: null (bytes is then ignored) to allocate, else at least korla_stream_memory bytes at any alignment, which
 * stay the caller's and outlive the stream. *stream is written on success only. reason: see korla/speakers.h; it names
 * the culprit ("no speaker 'FX'; known are FL FR ..."). */
KRL_API korla_status korla_stream_open(const korla_stream_config* config, void* memory, size_t bytes,
                                       korla_stream** stream, char* reason, size_t reason_bytes);

/** Ends a stream; null is allowed. Memory that open allocated is freed. */
KRL_API void korla_stream_close(korla_stream* stream);

/** Forgets the past: as freshly opened, with the controls as they are now. Frames that have not come out are lost. */
KRL_API korla_status korla_stream_reset(korla_stream* stream);

/** Frames by which output is late: 32 or 63 in the modes of same length. In push mode, where output is aligned, the
 * frames that the stream may hold back, 63. 0 for a stream that copies, and for null. */
KRL_API uint32_t korla_stream_latency(const korla_stream* stream);

/** The frames that a call with in_frames would produce now. */
KRL_API size_t korla_stream_ready(const korla_stream* stream, size_t in_frames);

/** Takes in_frames frames and stores what is ready.
 *
 * in, out: one pointer for interleaved data, one a channel for planar data, samples at any alignment; in may be null
 * when in_frames is 0. capacity: frames that out holds. In push mode in_frames + 31 always suffice; else in_frames do.
 * *produced (may be null): frames stored. KORLA_NO_ROOM: capacity is below korla_stream_ready; nothing was consumed.
 *
 * out stays apart from in, with one exception: in the modes of same length planar buffers may be the same channel
 * buffers, in any order, when the sizes of the two formats are the same, and interleaved ones when an output frame is
 * not larger than an input frame. */
KRL_API korla_status korla_stream_process(korla_stream* stream, const void* const* in, size_t in_frames,
                                          void* const* out, size_t capacity, size_t* produced);

/** Stores what has not come out yet, at most 63 frames (korla_stream_pending says how many), and resets the stream. */
KRL_API korla_status korla_stream_drain(korla_stream* stream, void* const* out, size_t capacity, size_t* produced);

/** The frames that drain would store. */
KRL_API size_t korla_stream_pending(const korla_stream* stream);

/* ---- controls ---------------------------------------------------------------------------------------------------- */

/** What can be set while running. A change of a gain is ramped over 20 ms, so that it makes no click. Gains are in dB,
 * up to +40; -INFINITY is off. */
enum {
    KORLA_DIALOGUE_DB = 0, /**< gain of the front centre, 0 */
    KORLA_SURROUND_DB = 1, /**< gain of SL SR BL BR BC, 0 */
    KORLA_HEIGHT_DB = 2,   /**< gain of HL HR WHL WHR and all top speakers, 0 */
    /** Gain of the LFE: 0 where the matrix has a path for it. Where the output has no LFE it is off until set; it then
     * goes to the front pair, -3 dB on each side, or to the centre. */
    KORLA_LFE_DB = 3,
    KORLA_GAIN_DB = 4,    /**< gain of everything, before the limiter, 0 */
    KORLA_CEILING_DB = 5, /**< the level that peaks keep to: -60..0 dB of full scale, 0 */
    KORLA_LIMITER = 6,    /**< 1: on; 0: off: peaks pass, integer formats saturate. The latency stays */
    KORLA_CONTROL_COUNT = 7
};

/** Sets a control. KORLA_BAD_ARGUMENT: no such control, not a number, out of its range. KORLA_COPIES: see above. Set
 * before the first frame, a value applies from the first frame on. Any thread. */
KRL_API korla_status korla_stream_set(korla_stream* stream, uint32_t control, float value);

/** The value of a control. Any thread. */
KRL_API korla_status korla_stream_get(const korla_stream* stream, uint32_t control, float* value);

/* ---- what it does ------------------------------------------------------------------------------------------------ */

/** The gains that are applied, the controls' included: [out.count][in.count], linear, and their source
 * (KORLA_MATRIX_*, may be null). A ramp in progress is shown as finished. Any thread. */
KRL_API korla_status korla_stream_matrix(const korla_stream* stream, float* gains, uint32_t* source);

/** What has happened since the meters were last read. */
typedef struct korla_meters {
    uint32_t size;                         /**< in: sizeof(korla_meters) */
    float gain_reduction_db;               /**< the greatest, 0 for none, INFINITY for silence */
    float input_peak[KORLA_MAX_SPEAKERS];  /**< by input channel, linear, 1 is full scale */
    float output_peak[KORLA_MAX_SPEAKERS]; /**< by output channel, before the conversion to the output's format */
    uint64_t frames_in;                    /**< since open or reset */
    uint64_t frames_out;                   /**< since open or reset */
    uint64_t silenced;                     /**< samples since open or reset that were no numbers, infinite or huge */
} korla_meters;

/** Reads the meters and starts them anew, but for the counts. Any thread; two readers share what there is. A stream
 * that copies counts frames only. */
KRL_API korla_status korla_stream_meters(korla_stream* stream, korla_meters* meters);

KRL_END_DECLS

#endif
