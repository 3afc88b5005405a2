// The file formats that the host reads and writes, as its help names them.
#pragma once

#include <sndfile.h>

#include <optional>
#include <string>

namespace host {

// "WAV, W64, ..."; what the installed libsndfile cannot read is left out.
std::string readable_formats();
// "WAV (.wav), W64 (.w64), ..."
std::string writable_formats();
// ".wav, .w64, ..."
std::string output_extensions();

// The container that a file name's extension stands for: SF_FORMAT_*.
std::optional<int> container_of(const std::string& path);

// "WAV (WAVE_FORMAT_EXTENSIBLE), signed 16 bit PCM"
std::string format_description(int format);

inline int container(int format) { return format & SF_FORMAT_TYPEMASK; }
inline int encoding(int format) { return format & SF_FORMAT_SUBMASK; }

// Bits of a sample as the file holds it; 0 when these are no integers.
int integer_bits(int format);

} // namespace host
