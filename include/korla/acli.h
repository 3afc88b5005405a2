/* The module interface: how a host audio framework drives the downmixer.
 *
 * A host resolves one data symbol, ACLI, and knows the module only through it. Per stream it creates an instance,
 * applies a media format and processes buffers:
 *
 *     const acli_descriptor *module = dlsym(library, "ACLI");
 *     void *stream;
 *     module->create(NULL, NULL, &stream);
 *     acli_param_value value = {ACLI_MODE_APPLY, 0, &format};       // format: see acli_media_format
 *     module->set_param(stream, ACLI_PARAM_MEDIA_FORMAT, 0, 0, &value);
 *     module->process(stream, &in, &out);                           // any number of times
 *     module->destroy(stream);
 *
 * All records here are a little-endian wire format with fixed offsets and 8-byte pointers.
 *
 * Threads: no locks are taken and no threads started. One instance is used by one thread at a time; different instances
 * share nothing but read-only tables and the diagnostics settings of korla/diag.h.
 *
 * Real time: memory is allocated by create, and by the first process call after each applied media format. Every other
 * process call allocates nothing, takes no lock and makes no system call.
 */
#ifndef KORLA_ACLI_H
#define KORLA_ACLI_H

#include <stdint.h>

#include <korla/export.h>

KRL_BEGIN_DECLS

/** What the exported object begins with. */
#define ACLI_MAGIC "TLCA"
/** The version of this interface. */
#define ACLI_INTERFACE_VERSION 0x00000100u

/** Channels in a map. */
#define ACLI_MAX_CHANNELS 256

/** Frames that the engine takes at once: calls are cut into chunks of this length, as process describes. */
#define ACLI_MAX_CHUNK 256

/** Result codes of the entry points. */
enum {
    ACLI_OK = 0,
    ACLI_FAILED = -1,     /**< null handle or pointer, no memory, refused configuration, output too small */
    ACLI_UNSUPPORTED = -2 /**< a request that the module does not know */
};

/** Parameters of set_param. */
enum { ACLI_PARAM_MEDIA_FORMAT = 4 };

/** Modes of acli_param_value. */
enum {
    ACLI_MODE_PROBE = 0, /**< fill in the output fields of the block, leave the instance alone */
    ACLI_MODE_APPLY = 1  /**< the same, and configure the instance */
};

/** Host sample formats. */
enum {
    ACLI_SAMPLE_INT16 = 0,   /**< signed 16-bit integer */
    ACLI_SAMPLE_INT32 = 3,   /**< signed 32-bit integer */
    ACLI_SAMPLE_FLOAT32 = 18 /**< 32-bit float, full scale 1.0 */
};

/* clang-format off */
/** The media format of a stream: 2088 bytes.
 *
 * Channel maps hold host channel codes 0..48; 0 is an empty slot, and so are entries beyond the channel count.
 * docs/layouts.md lists all codes; the common ones are
 *
 *      1, 2   front left, right        6      LFE                     25, 26   top side left, right
 *      3      front centre             7      back centre             35, 36   top front left, right
 *      4, 5   side left, right         8, 9   back left, right        37, 38   top back left, right
 *
 * Samples of a frame stand in map order. Matrices assume the canonical order in which output maps are listed: fronts,
 * centre, LFE, sides, backs, heights. A map with empty slots in front of channels is read by position all the same: use
 * compact maps, and an input channel count that is the number of their channels.
 */
/* clang-format on */
typedef struct acli_media_format {
    uint32_t input_channel_count;                   /**< in */
    uint32_t output_channel_count;                  /**< out */
    uint32_t sample_rate;                           /**< in, Hz. The limiter works at 24000, 32000, 44100, 48000, 64000,
                                                         88200, 96000, 176400 and 192000; at other rates it rests: the
                                                         stream is mixed at its level but not limited. */
    uint32_t reserved_12;                           /**< not interpreted */
    uint8_t interleaved;                            /**< in: nonzero: frame by frame; 0: see process */
    uint8_t reserved_17[3];                         /**< not read */
    uint32_t output_layout_mask;                    /**< out: the mask of layout_index, also in automatic mode */
    uint8_t explicit_layout;                        /**< in: nonzero: output is layout_index; 0: chosen by the engine */
    uint8_t reserved_25[3];                         /**< not read */
    uint32_t layout_index;                          /**< in, 0..31; see docs/layouts.md */
    uint32_t sample_format;                         /**< in: ACLI_SAMPLE_* */
    uint32_t input_channel_map[ACLI_MAX_CHANNELS];  /**< in */
    uint32_t output_channel_map[ACLI_MAX_CHANNELS]; /**< out */
    uint32_t reserved_2084;                         /**< not interpreted, kept */
} acli_media_format;

/** The value record of set_param. */
typedef struct acli_param_value {
    uint32_t mode;             /**< ACLI_MODE_* */
    uint32_t reserved_4;       /**< not interpreted */
    acli_media_format* format; /**< the block, read and written */
} acli_param_value;

/** A host buffer. Only the named fields are read or written; a host's record may go on behind them. */
typedef struct acli_buffer {
    uint32_t reserved_0;      /**< not touched */
    uint32_t bytes;           /**< input: valid bytes. Output: capacity on entry, bytes produced after success. */
    void* data;               /**< samples, at any alignment */
    uint8_t reserved_16[32];  /**< not touched */
    uint32_t channels;        /**< input only */
    uint8_t reserved_52[32];  /**< not touched */
    uint32_t bits_per_sample; /**< input only: 16 or 32 */
} acli_buffer;

/** The exported object: 120 bytes. */
typedef struct acli_descriptor {
    char magic[4];              /**< ACLI_MAGIC without its NUL */
    uint32_t interface_version; /**< ACLI_INTERFACE_VERSION */
    const char* name;           /**< "KorlaDownmixer" */
    const char* vendor;         /**< "NRX" */

    /** id 1: stores a new copy of the module name through out and returns it; the caller gives it to free_name. Any
     * other id, no memory: stores and returns null. */
    char* (*get_name)(uint32_t id, char** out);

    /** Frees what get_name gave; null is allowed. Returns 0. */
    int32_t (*free_name)(void* name);

    /** Null handle: -1. id other than 3: -2. Null in: -1. *in other than 2: -2. Null out7 or out8: -1. Otherwise stores
     * 4 through out7 and 0 through out8 and returns 0. The unnamed arguments are ignored. */
    int32_t (*query)(void* handle, uint32_t id, uintptr_t, uintptr_t, const uint32_t* in, uintptr_t, uint32_t* out7,
                     uint32_t* out8);

    /** Not offered: -1 for a null handle, else -2. */
    int32_t (*unsupported_3)(void* handle, ...);

    /** Allocates an unconfigured instance and stores its handle: 0; -1 when there is no memory or out is null. The
     * first two arguments are ignored. */
    int32_t (*create)(uintptr_t, uintptr_t, void** out_handle);

    /** Not offered: -1 for a null handle, else -2. */
    int32_t (*unsupported_5)(void* handle, ...);

    /** Mixes one buffer. Returns 0, and stores the bytes produced in out->bytes, or -1.
     *
     * frames = in->bytes / (in->channels * in->bits_per_sample / 8); a rest shorter than a frame is ignored. The output
     * needs room for frames * output channels. Output is in the format of the input.
     *
     * Interleaved streams hold one frame after another. Streams that are not interleaved hold, for each chunk of 256
     * frames (the last one shorter), one channel after another.
     *
     * Feed multiples of 256 frames: the limiter always advances by whole chunks, so a call that ends in a shorter one
     * leaves a gap in the stream.
     *
     * Pass-through copies bytes frame by frame in place of mixing and limiting, as far as the input and the output
     * frame both reach: of 7.1.4 to stereo come the first two channels. Planar data come out scrambled then, unless
     * the channel counts are equal; keep away from it. The answered media format tells beforehand. A stream passes
     * through when its maps are equal, or when its layout is explicit and has no matrix: when the layout has heights,
     * or the input map no channel, two, more than eight, or more than one LFE.
     *
     * Latency is 32 frames, in pass-through none. A host that does not want to reckon sends an impulse through a fresh
     * stream: a full-scale sample at frame 0 of one call of 256 frames comes out at frame 32 or at frame 0.
     *
     * in->data and out->data may be the same address while an output frame is not larger than an input frame.
     * Otherwise the output of a chunk overwrites input of later ones: keep the buffers apart.
     *
     * -1: null handle or descriptor, no media format, output too small (nothing is written then), null data,
     * unsupported sample format or channel map, counts that contradict the configuration, a block refused since the
     * last accepted one (see set_param), no memory. */
    int32_t (*process)(void* handle, const acli_buffer* in, acli_buffer* out);

    /** Parameter ACLI_PARAM_MEDIA_FORMAT takes an acli_param_value. Any other parameter or mode does nothing.
     *
     * Returns 0 also when the block was refused; a refusal shows as output_channel_count 0: set it to 0 before the
     * call, since an automatic map without any channel is refused without writing it. Refused are layout indexes above
     * 31 (explicit), host codes above 48, and with an automatic layout maps that the engine does not know.
     *
     * A stream that has processed, or passes through, goes on as if a refused block had not been applied. On one that
     * has not processed since its last accepted block, process may answer -1 until another is accepted.
     *
     * -1: null handle, or null value or block with parameter ACLI_PARAM_MEDIA_FORMAT. */
    int32_t (*set_param)(void* handle, uint32_t param_id, uintptr_t, uintptr_t, const acli_param_value* value);

    /** Not offered: -1 for a null handle, else -2. */
    int32_t (*unsupported_8)(void* handle, ...);

    /** Frees the instance. Null: -1. */
    int32_t (*destroy)(void* handle);

    void* reserved[2]; /**< null */
} acli_descriptor;

/** The module. */
extern KRL_API acli_descriptor ACLI;

/** "KorlaDownmixer" with its NUL: what get_name copies. */
extern KRL_API char session_identity[15];

KRL_END_DECLS

#endif
