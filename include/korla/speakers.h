/* Loudspeakers and loudspeaker layouts by name.
 *
 * A speaker is a host channel code of korla/acli.h, 1..48; those that have a place in a room have a name here:
 *
 *     FL FR   front left, right       SL SR   side (surround)          TFL TFR   top front
 *     FC      front centre            BL BR   back                     TSL TSR   top side (top middle)
 *     LFE     low-frequency effects   BC      back centre              TBL TBR   top back
 *     FLC FRC front left, right       WL WR   front wide               TFC TBC   top front, back centre
 *             of centre               HL HR   front height             WHL WHR   wide height
 *
 * A layout is a list of speakers in the order in which their samples stand in a frame. Layouts that people use have
 * names: "mono", "stereo", "quad", "5.1", "7.1.4", ...; korla_layout_at lists them. Names are read in either case.
 *
 * Everything here is pure: no state, no allocation, any thread. A reason is a sentence in English, cut to the given
 * bytes and always ended with NUL; it is left alone where a call succeeds and may be null.
 *
 * Positions: ITU-R BS.2051-3, "Advanced sound system for programme production".
 */
#ifndef KORLA_SPEAKERS_H
#define KORLA_SPEAKERS_H

#include <stddef.h>
#include <stdint.h>

#include <korla/export.h>

KRL_BEGIN_DECLS

/** Speakers of a layout at the most. */
#define KORLA_MAX_SPEAKERS 12

/** What a call came to: KORLA_OK or one of the negative reasons. */
typedef int32_t korla_status;
enum {
    KORLA_OK = 0,
    KORLA_BAD_ARGUMENT = -1,     /**< a null pointer, a count or a value out of range */
    KORLA_UNKNOWN_SPEAKER = -2,  /**< a code or a name that is no speaker, or that has no counterpart */
    KORLA_REPEATED_SPEAKER = -3, /**< a speaker that a layout lists twice */
    KORLA_UNKNOWN_LAYOUT = -4,   /**< a name that is no layout; no speaker or more than KORLA_MAX_SPEAKERS */
    KORLA_BAD_FORMAT = -5,       /**< a code that is no sample format */
    KORLA_BAD_RATE = -6,         /**< a sample rate of 0 */
    KORLA_BAD_MATRIX = -7,       /**< a gain that is not finite, or a speaker that has nowhere to go */
    KORLA_NO_MEMORY = -8,        /**< an allocation failed, or the caller's memory is too small */
    KORLA_NO_ROOM = -9,          /**< the output buffer is too small; nothing was consumed */
    KORLA_COPIES = -10           /**< the stream copies its samples and has no controls */
};

/** The status in words, for people; never null. */
KRL_API const char* korla_status_text(korla_status status);

/** Speakers in frame order. */
typedef struct korla_layout {
    uint32_t count;                        /**< 1..KORLA_MAX_SPEAKERS */
    uint32_t speakers[KORLA_MAX_SPEAKERS]; /**< each one at most once; entries from count on are not read */
} korla_layout;

/** "FL"; null for a code that is no speaker. */
KRL_API const char* korla_speaker_name(uint32_t speaker);

/** The code of a name such as "FL", or of one of the other names in use ("L", "LS", "RL", "TML", ...); 0 for none. */
KRL_API uint32_t korla_speaker_by_name(const char* name);

/** Reads a layout name ("5.1") or a list of speaker names ("FL,FR,FC"; commas or spaces between them).
 *
 * Refused: unknown names, repeated speakers, no speaker or more than KORLA_MAX_SPEAKERS; the reason names the culprit,
 * and *layout is left alone. */
KRL_API korla_status korla_layout_parse(const char* text, korla_layout* layout, char* reason, size_t reason_bytes);

/** Writes "FL,FR,FC", cut to the given bytes with its NUL; returns the length of the whole text without its NUL, like
 * snprintf. A code that is no speaker is written as "#code". A null layout is an empty text. */
KRL_API size_t korla_layout_text(const korla_layout* layout, char* text, size_t bytes);

/** The name of the layout with the same speakers in any order; null when there is none. */
KRL_API const char* korla_layout_name(const korla_layout* layout);

/** The name of named layout `index`, whose speakers are stored (layout may be null); null from the end of the list on. */
KRL_API const char* korla_layout_at(uint32_t index, korla_layout* layout);

/** The speakers of a WAVE_FORMAT_EXTENSIBLE channel mask, in the order of its bits.
 *
 * Every bit means what it says: back speakers (0x10, 0x20) and side speakers (0x200, 0x400) are different ones. Bits
 * without a speaker here (0x800 top centre, and 0x40000 up) are refused. */
KRL_API korla_status korla_layout_from_wave_mask(uint32_t mask, korla_layout* layout, char* reason,
                                                 size_t reason_bytes);

/** The channel mask of a layout. The samples of a file stand in the order of the bits, whatever the order of the layout.
 * WL WR HL HR TSL TSR WHL WHR have no bit: KORLA_UNKNOWN_SPEAKER. */
KRL_API korla_status korla_layout_to_wave_mask(const korla_layout* layout, uint32_t* mask, char* reason,
                                               size_t reason_bytes);

/** Where the gains of a matrix come from. */
enum {
    KORLA_MATRIX_GIVEN = 0,   /**< the caller */
    KORLA_MATRIX_MODULE = 1,  /**< the table of the downmix module, to the bit */
    KORLA_MATRIX_DERIVED = 2, /**< the rules of docs/downmix.md */
};

/** The matrix from one layout to another, and its source.
 *
 * gains: [out->count][in->count], row by row, linear: 1 keeps a level. source may be null. KORLA_BAD_MATRIX when a
 * speaker other than the LFE has nowhere to go, because the LFE is the output's only speaker. */
KRL_API korla_status korla_layout_matrix(const korla_layout* in, const korla_layout* out, float* gains,
                                         uint32_t* source, char* reason, size_t reason_bytes);

KRL_END_DECLS

#endif
