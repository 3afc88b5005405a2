// The list of file formats, and what libsndfile says about them.
#include "audio_formats.h"

#include <algorithm>
#include <filesystem>

namespace host {
namespace {

constexpr struct {
    const char* name;
    int container, encoding; // encoding 0: any
} readable[] = {
    {"WAV", SF_FORMAT_WAV, 0},
    {"W64", SF_FORMAT_W64, 0},
    {"RF64", SF_FORMAT_RF64, 0},
    {"CAF", SF_FORMAT_CAF, 0},
    {"AIFF", SF_FORMAT_AIFF, 0},
    {"AU", SF_FORMAT_AU, 0},
    {"FLAC", SF_FORMAT_FLAC, 0},
    {"Ogg Vorbis", SF_FORMAT_OGG, SF_FORMAT_VORBIS},
    {"Ogg Opus", SF_FORMAT_OGG, SF_FORMAT_OPUS},
    {"MP3", SF_FORMAT_MPEG, SF_FORMAT_MPEG_LAYER_III},
};

constexpr struct {
    const char *name, *extension;
    int container;
} writable[] = {
    {"WAV", ".wav", SF_FORMAT_WAVEX}, {"W64", ".w64", SF_FORMAT_W64},    {"RF64", ".rf64", SF_FORMAT_RF64},
    {"CAF", ".caf", SF_FORMAT_CAF},   {"FLAC", ".flac", SF_FORMAT_FLAC}, {"raw PCM", ".raw", SF_FORMAT_RAW},
};

// libsndfile's name of a container or encoding, empty when it has none: it does not know the format.
std::string name_of(int part) {
    SF_FORMAT_INFO info{};
    info.format = part;
    return sf_command(nullptr, SFC_GET_FORMAT_INFO, &info, sizeof info) == 0 && info.name ? info.name : "";
}

template <class Table, class Entry> std::string listed(const Table& table, Entry entry) {
    std::string text;
    for (const auto& format : table)
        if (const std::string part = entry(format); !part.empty())
            text += (text.empty() ? "" : ", ") + part;
    return text;
}

} // namespace

std::string readable_formats() {
    return listed(readable, [](auto& f) -> std::string {
        const bool known = !name_of(f.container).empty() && (!f.encoding || !name_of(f.encoding).empty());
        return known ? f.name : "";
    });
}

std::string writable_formats() {
    return listed(writable, [](auto& f) { return std::string(f.name) + " (" + f.extension + ")"; });
}

std::string output_extensions() {
    return listed(writable, [](auto& f) { return std::string(f.extension); });
}

std::optional<int> container_of(const std::string& path) {
    std::string extension = std::filesystem::path(path).extension().string();
    std::transform(extension.begin(), extension.end(), extension.begin(),
                   [](unsigned char c) { return std::tolower(c); });
    for (const auto& format : writable)
        if (extension == format.extension)
            return format.container;
    return std::nullopt;
}

std::string format_description(int format) {
    const std::string outer = name_of(container(format)), inner = name_of(encoding(format));
    return outer + (outer.empty() || inner.empty() ? "" : ", ") + inner;
}

int integer_bits(int format) {
    switch (encoding(format)) {
    case SF_FORMAT_PCM_S8:
    case SF_FORMAT_PCM_U8: return 8;
    case SF_FORMAT_PCM_16:
    case SF_FORMAT_ULAW: // which stand for numbers of up to 16 bits
    case SF_FORMAT_ALAW:
    case SF_FORMAT_ALAC_16: return 16;
    case SF_FORMAT_ALAC_20: return 20;
    case SF_FORMAT_PCM_24:
    case SF_FORMAT_ALAC_24: return 24;
    case SF_FORMAT_PCM_32:
    case SF_FORMAT_ALAC_32: return 32;
    default: return 0;
    }
}

} // namespace host
