// GStreamer's channel positions as speakers, and layouts in the order in which GStreamer keeps channels.
#pragma once

#include <gst/audio/audio.h>
#include <korla/speakers.h>

namespace korla_gst {

// The speakers of the channels of `info`, or those that a bare number of channels customarily is for: 1 to 8 and 12.
// False, with a reason that names the culprit, when a position is no speaker of korla-stream, or there is no custom.
bool speakers_of(const GstAudioInfo& info, korla_layout& layout, char* reason, size_t reason_bytes);

// The channel mask of a layout; its channels then stand in the order of the bits, as GStreamer has them. False, with a
// reason, when a speaker has no position in GStreamer.
bool mask_of(const korla_layout& layout, guint64& mask, char* reason, size_t reason_bytes);

} // namespace korla_gst
