// The channel layouts of Core Audio, which CAF and AIFF files carry. libsndfile knows only some of them, and reads
// those of AIFF files into memory that is too small.
#pragma once

#include <sndfile.h>

#include <cstddef>
#include <cstdint>
#include <optional>

#include "channels.h"

namespace host {

// What the layout chunk ("chan" in CAF, "CHAN" in AIFF) says, in file order; nothing when there is none or it says
// nothing. Throws Error for a layout that is no set of speakers.
std::optional<ChannelMap> core_audio_speakers(SNDFILE* file, const char* chunk_name, size_t channels);

// Writes the chunk into a CAF file whose channels are for the bits of a WAVE_FORMAT_EXTENSIBLE mask.
bool mark_core_audio(SNDFILE* file, uint32_t mask, size_t channels);

} // namespace host
