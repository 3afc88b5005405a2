// Reading audio files.
#include "audio_reader.h"

#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>

#include "audio_formats.h"
#include "error.h"
#include "file_speakers.h"
#include "text.h"

namespace host {
namespace {

namespace fs = std::filesystem;

// The length that the outermost chunk of a RIFF, RF64, W64 or AIFF file claims; 0 when there is no such claim (other
// containers, and streams written without knowing their length).
uint64_t claimed_bytes(const std::string& path) {
    unsigned char head[28] = {};
    std::ifstream(path, std::ios::binary).read(reinterpret_cast<char*>(head), sizeof head);
    auto number = [&](size_t at, size_t bytes, bool big_endian) {
        uint64_t value = 0;
        for (size_t i = 0; i < bytes; i++)
            value |= uint64_t{head[at + i]} << 8 * (big_endian ? bytes - 1 - i : i);
        return value;
    };
    auto starts_with = [&](const char* magic) { return std::memcmp(head, magic, 4) == 0; };
    if (starts_with("RIFF") || starts_with("FORM")) {
        const uint64_t bytes = number(4, 4, starts_with("FORM"));
        return bytes >= 0x7fffff00u ? 0 : bytes + 8;
    }
    if (starts_with("RF64"))
        return number(20, 8, false) + 8;
    if (starts_with("riff"))
        return number(16, 8, false);
    return 0;
}

void refuse_unreadable(const std::string& path) {
    std::error_code error;
    if (!fs::exists(path, error))
        throw Error(Status::input, "cannot read " + path + ": no such file; check the name");
    if (!fs::is_regular_file(path, error))
        throw Error(Status::input, "cannot read " + path + ": not a regular file; write the audio to a file first");
    if (access(path.c_str(), R_OK) != 0)
        throw Error(Status::input, format_text("cannot read %s: %s", path.c_str(), std::strerror(errno)));
}

// "s16:6:48000"
SF_INFO raw_format(const std::string& text) {
    constexpr struct {
        const char* name;
        int encoding;
    } encodings[] = {
        {"s16", SF_FORMAT_PCM_16}, {"s24", SF_FORMAT_PCM_24}, {"s32", SF_FORMAT_PCM_32}, {"f32", SF_FORMAT_FLOAT}};
    char name[5] = "";
    SF_INFO info{};
    int end = 0;
    if (std::sscanf(text.c_str(), "%4[a-z0-9]:%d:%d%n", name, &info.channels, &info.samplerate, &end) == 3 &&
        static_cast<size_t>(end) == text.size() && info.channels >= 1 && info.channels <= 256 && info.samplerate >= 1)
        for (const auto& known : encodings)
            if (std::strcmp(name, known.name) == 0) {
                info.format = SF_FORMAT_RAW | known.encoding | SF_ENDIAN_LITTLE;
                return info;
            }
    throw Error(Status::usage,
                "--raw: '" + text +
                    "' is no format; write s16, s24, s32 or f32, the channels and the rate, as in s16:6:48000");
}

} // namespace

AudioReader::AudioReader(const std::string& path, bool accept_truncated, const std::string& raw)
    : path_(path), accept_truncated_(accept_truncated) {
    if (!raw.empty())
        info_ = raw_format(raw);
    if (path == "-") {
        path_ = "the standard input";
        pipe_ =
            raw.empty() ? std::make_unique<WavePipe>(STDIN_FILENO) : std::make_unique<WavePipe>(STDIN_FILENO, info_);
        info_ = {};
        file_.reset(pipe_->open(info_));
        if (!file_)
            throw Error(Status::input, format_text("cannot read the standard input: %s", sf_strerror(nullptr)));
        if (pipe_->length_is_open())
            info_.frames = 0;
        return;
    }
    refuse_unreadable(path);
    file_.reset(sf_open(path.c_str(), SFM_READ, &info_));
    if (!file_)
        throw Error(Status::input, format_text("cannot read %s: %s It must be an audio file (%s), complete and not "
                                               "damaged",
                                               path.c_str(), sf_strerror(nullptr), readable_formats().c_str()));
    const uint64_t claimed = claimed_bytes(path), present = fs::file_size(path);
    if (!accept_truncated && claimed > present + 1) // some writers leave the last pad byte out
        throw Error(Status::input, format_text("%s is cut short: its header claims %llu bytes, %llu are there; copy it "
                                               "again, or process what is there with --accept-truncated",
                                               path.c_str(), static_cast<unsigned long long>(claimed),
                                               static_cast<unsigned long long>(present)));
    if (info_.frames == SF_COUNT_MAX) // written without knowing the length
        info_.frames = 0;
}

std::optional<ChannelMap> AudioReader::speakers() const { return file_speakers(file_.get(), info_, path_); }

SampleFormat AudioReader::natural_samples() const {
    const int bits = integer_bits(info_.format);
    return bits == 0    ? SampleFormat::f32
           : bits <= 16 ? SampleFormat::s16
           : bits <= 24 ? SampleFormat::s24
                        : SampleFormat::s32;
}

// libsndfile would cut off the bits that are too many.
size_t AudioReader::read_rounded(SampleFormat samples, std::byte* data, size_t frames) {
    exact_.resize(frames * channels());
    const auto got = static_cast<size_t>(sf_readf_double(file_.get(), exact_.data(), static_cast<sf_count_t>(frames)));
    for (size_t i = 0; i < got * channels(); i++) {
        clipped_ += exceeds_full_scale(exact_[i]);
        if (samples == SampleFormat::s16)
            reinterpret_cast<int16_t*>(data)[i] = static_cast<int16_t>(quantised(exact_[i], 16));
        else
            reinterpret_cast<int32_t*>(data)[i] = quantised(exact_[i], samples == SampleFormat::s24 ? 24 : 32);
    }
    return got;
}

size_t AudioReader::read(SampleFormat samples, std::byte* data, size_t frames) {
    const auto wanted = static_cast<sf_count_t>(frames);
    const int bits = integer_bits(info_.format);
    size_t got = 0;
    if (samples == SampleFormat::f32)
        got = static_cast<size_t>(sf_readf_float(file_.get(), reinterpret_cast<float*>(data), wanted));
    else if (samples == SampleFormat::s32 && bits > 0)
        got = static_cast<size_t>(sf_readf_int(file_.get(), reinterpret_cast<int*>(data), wanted));
    else if (samples == SampleFormat::s24 && bits > 0 && bits <= 24) {
        auto* const values = reinterpret_cast<int32_t*>(data);
        got = static_cast<size_t>(sf_readf_int(file_.get(), values, wanted));
        for (size_t i = 0; i < got * channels(); i++)
            values[i] >>= 8;
    } else if (samples == SampleFormat::s16 && bits > 0 && bits <= 16)
        got = static_cast<size_t>(sf_readf_short(file_.get(), reinterpret_cast<short*>(data), wanted));
    else
        got = read_rounded(samples, data, frames);
    read_ += got;
    // Compressed files tell only here that they are cut short or damaged.
    if (got < frames && read_ < this->frames() && !accept_truncated_)
        throw Error(Status::input, format_text("%s is cut short or damaged: %llu of %llu frames could be read; copy it "
                                               "again, or process what is there with --accept-truncated",
                                               path_.c_str(), static_cast<unsigned long long>(read_),
                                               static_cast<unsigned long long>(this->frames())));
    return got;
}

} // namespace host
