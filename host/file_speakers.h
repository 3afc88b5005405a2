// Which speakers the channels of an audio file are for: every container and codec has its own way to say it, or an
// order of its own.
#pragma once

#include <sndfile.h>

#include <cstdint>
#include <optional>
#include <string>

#include "channels.h"

namespace host {

// In file order; nothing when neither the file nor its format says. Throws Error for channels that are no speakers.
std::optional<ChannelMap> file_speakers(SNDFILE* file, const SF_INFO& info, const std::string& path);

// What a file that does not say most likely holds, in file order; empty when there is no custom for that count.
ChannelMap customary_speakers(size_t channels);

// Names the speakers of a file that is being written, before its first sample: channel c is for bit c of those set in
// the WAVE_FORMAT_EXTENSIBLE mask. False when the format cannot.
bool mark_speakers(SNDFILE* file, const SF_INFO& info, uint32_t mask);
// Whether the comment of the file holds the place of the speakers until then, and no other comment may be set.
bool comment_is_taken(const SF_INFO& info, uint32_t mask);
// The rest of it, when the file is closed. False when that failed.
bool finish_marks(const SF_INFO& info, uint32_t mask, const std::string& path);

} // namespace host
