#include "audio_file.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <map>

#include "error.h"
#include "text.h"

namespace host {
namespace {

namespace fs = std::filesystem;

constexpr uint64_t riff_limit = 0xffff0000; // bytes of samples, with room for the headers

int container(int format) { return format & SF_FORMAT_TYPEMASK; }
int encoding(int format) { return format & SF_FORMAT_SUBMASK; }

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

bool is_integer(int format) {
    switch (encoding(format)) {
    case SF_FORMAT_PCM_S8:
    case SF_FORMAT_PCM_U8:
    case SF_FORMAT_PCM_16:
    case SF_FORMAT_PCM_24:
    case SF_FORMAT_PCM_32:
    case SF_FORMAT_ULAW:
    case SF_FORMAT_ALAW:
    case SF_FORMAT_ALAC_16:
    case SF_FORMAT_ALAC_20:
    case SF_FORMAT_ALAC_24:
    case SF_FORMAT_ALAC_32: return true;
    default: return false;
    }
}

} // namespace

AudioReader::AudioReader(const std::string& path, bool accept_truncated)
    : path_(path), accept_truncated_(accept_truncated) {
    std::error_code error;
    if (!fs::exists(path, error))
        throw Error(Status::input, "cannot read " + path + ": no such file; check the name");
    if (!fs::is_regular_file(path, error))
        throw Error(Status::input, "cannot read " + path + ": not a regular file; write the audio to a file first");
    if (access(path.c_str(), R_OK) != 0)
        throw Error(Status::input, format_text("cannot read %s: %s", path.c_str(), std::strerror(errno)));
    file_.reset(sf_open(path.c_str(), SFM_READ, &info_));
    if (!file_)
        throw Error(Status::input,
                    format_text("cannot read %s: %s It must be a WAV, W64, RF64, CAF or FLAC file, complete "
                                "and not damaged",
                                path.c_str(), sf_strerror(nullptr)));
    const uint64_t claimed = claimed_bytes(path), present = fs::file_size(path);
    if (!accept_truncated && claimed > present + 1) // some writers leave the last pad byte out
        throw Error(Status::input, format_text("%s is cut short: its header claims %llu bytes, %llu are there; copy it "
                                               "again, or process what is there with --accept-truncated",
                                               path.c_str(), static_cast<unsigned long long>(claimed),
                                               static_cast<unsigned long long>(present)));
    if (info_.frames == SF_COUNT_MAX) // written without knowing the length
        info_.frames = 0;
    positions_.assign(channels(), 0);
    if (!sf_command(file_.get(), SFC_GET_CHANNEL_MAP_INFO, positions_.data(),
                    static_cast<int>(positions_.size() * sizeof(int))))
        positions_.clear();
}

SampleFormat AudioReader::natural_samples() const {
    if (!is_integer(info_.format))
        return SampleFormat::f32;
    const int e = encoding(info_.format);
    const bool wide = e == SF_FORMAT_PCM_24 || e == SF_FORMAT_PCM_32 || e == SF_FORMAT_ALAC_20 ||
                      e == SF_FORMAT_ALAC_24 || e == SF_FORMAT_ALAC_32;
    return wide ? SampleFormat::s32 : SampleFormat::s16;
}

size_t AudioReader::read(SampleFormat samples, std::byte* data, size_t frames) {
    const auto wanted = static_cast<sf_count_t>(frames);
    sf_count_t got = 0;
    if (samples == SampleFormat::f32) {
        got = sf_readf_float(file_.get(), reinterpret_cast<float*>(data), wanted);
    } else if (is_integer(info_.format)) {
        got = samples == SampleFormat::s16 ? sf_readf_short(file_.get(), reinterpret_cast<short*>(data), wanted)
                                           : sf_readf_int(file_.get(), reinterpret_cast<int*>(data), wanted);
    } else {
        floats_.resize(frames * channels());
        got = sf_readf_float(file_.get(), floats_.data(), wanted);
        const double scale = samples == SampleFormat::s16 ? 0x1p15 : 0x1p31;
        for (size_t i = 0; i < static_cast<size_t>(got) * channels(); i++) {
            const double x = std::isnan(floats_[i]) ? 0.0 : floats_[i];
            const long value = std::lrint(std::clamp(x * scale, -scale, scale - 1.0));
            if (samples == SampleFormat::s16)
                reinterpret_cast<int16_t*>(data)[i] = static_cast<int16_t>(value);
            else
                reinterpret_cast<int32_t*>(data)[i] = static_cast<int32_t>(value);
        }
    }
    read_ += static_cast<uint64_t>(got);
    // Compressed files tell only here that they are cut short or damaged.
    if (got < wanted && read_ < this->frames() && !accept_truncated_)
        throw Error(Status::input, format_text("%s is cut short or damaged: %llu of %llu frames could be read; copy it "
                                               "again, or process what is there with --accept-truncated",
                                               path_.c_str(), static_cast<unsigned long long>(read_),
                                               static_cast<unsigned long long>(this->frames())));
    return static_cast<size_t>(got);
}

AudioWriter::AudioWriter(const std::string& path, const AudioReader& like, SampleFormat samples,
                         const std::vector<int>& positions)
    : path_(path) {
    static const std::map<std::string, int> containers = {{".wav", SF_FORMAT_WAVEX},
                                                          {".w64", SF_FORMAT_W64},
                                                          {".rf64", SF_FORMAT_RF64},
                                                          {".caf", SF_FORMAT_CAF},
                                                          {".flac", SF_FORMAT_FLAC}};
    std::string extension = fs::path(path).extension().string();
    std::transform(extension.begin(), extension.end(), extension.begin(),
                   [](unsigned char c) { return std::tolower(c); });
    const auto known = containers.find(extension);
    if (known == containers.end())
        fail("the extension '" + extension + "' names no known format; use .wav, .w64, .rf64, .caf or .flac");
    info_.channels = static_cast<int>(positions.size());
    info_.samplerate = static_cast<int>(like.sample_rate());
    info_.format = known->second;
    // Where the length is known beforehand, a file that RIFF cannot hold becomes RF64.
    if (info_.format == SF_FORMAT_WAVEX && like.frames() * positions.size() * bytes_per_sample(samples) > riff_limit)
        info_.format = SF_FORMAT_RF64;
    const bool flac = info_.format == SF_FORMAT_FLAC;
    if (flac && positions.size() > 8)
        fail(format_text("FLAC holds at most 8 channels, this output has %zu; use .wav or .caf", positions.size()));
    if (samples == SampleFormat::s16)
        info_.format |= SF_FORMAT_PCM_16;
    else if (flac || (samples == SampleFormat::s32 && encoding(like.format()) == SF_FORMAT_PCM_24))
        info_.format |= SF_FORMAT_PCM_24;
    else
        info_.format |= samples == SampleFormat::s32 ? SF_FORMAT_PCM_32 : SF_FORMAT_FLOAT;
    if (!sf_format_check(&info_))
        fail(format_text("%s does not hold %d channels at %d Hz", format_description(info_.format).c_str(),
                         info_.channels, info_.samplerate));

    std::error_code error;
    if (fs::exists(path_, error) && !fs::is_regular_file(path_, error))
        fail("it exists and is not a regular file; choose another name");
    if (fs::is_symlink(path_, error))
        path_ = fs::canonical(path_).string(); // the link stays a link
    std::string name = path_ + ".XXXXXX";
    const int descriptor = mkstemp(name.data());
    if (descriptor < 0)
        fail(format_text("%s; choose a folder that exists and is writable", std::strerror(errno)));
    part_ = name;
    const mode_t mask = umask(0);
    umask(mask);
    (void)fchmod(descriptor, 0666 & ~mask);
    file_.reset(sf_open_fd(descriptor, SFM_WRITE, &info_, SF_TRUE));
    if (!file_) {
        unlink(part_.c_str());
        fail(sf_strerror(nullptr));
    }
    sf_command(file_.get(), SFC_SET_CLIPPING, nullptr, SF_TRUE);
    auto keep = [&](std::vector<int> p) {
        return sf_command(file_.get(), SFC_SET_CHANNEL_MAP_INFO, p.data(), static_cast<int>(p.size() * sizeof(int)));
    };
    positions_kept_ = keep(positions);
    if (!positions_kept_) { // CAF knows a surround pair, but not by the name of sides
        std::vector<int> backs = positions;
        std::replace(backs.begin(), backs.end(), int{SF_CHANNEL_MAP_SIDE_LEFT}, int{SF_CHANNEL_MAP_REAR_LEFT});
        std::replace(backs.begin(), backs.end(), int{SF_CHANNEL_MAP_SIDE_RIGHT}, int{SF_CHANNEL_MAP_REAR_RIGHT});
        const bool both = std::count(backs.begin(), backs.end(), int{SF_CHANNEL_MAP_REAR_LEFT}) > 1;
        positions_kept_ = !both && keep(backs);
    }
}

AudioWriter::~AudioWriter() {
    file_.reset();
    if (!part_.empty())
        unlink(part_.c_str());
}

void AudioWriter::fail(const std::string& why) const {
    throw Error(Status::output, "cannot write " + path_ + ": " + why);
}

void AudioWriter::write(SampleFormat samples, const std::byte* data, size_t frames) {
    const auto count = static_cast<sf_count_t>(frames);
    bytes_ += frames * static_cast<size_t>(info_.channels) * bytes_per_sample(samples);
    if (container(info_.format) == SF_FORMAT_WAVEX && bytes_ > riff_limit)
        fail("it is getting longer than a WAV file can be; use .rf64, .w64 or .caf");
    const sf_count_t written =
        samples == SampleFormat::s16   ? sf_writef_short(file_.get(), reinterpret_cast<const short*>(data), count)
        : samples == SampleFormat::s32 ? sf_writef_int(file_.get(), reinterpret_cast<const int*>(data), count)
                                       : sf_writef_float(file_.get(), reinterpret_cast<const float*>(data), count);
    if (written != count)
        fail(format_text("%s; free space on the target or choose another", sf_strerror(file_.get())));
}

void AudioWriter::commit() {
    sf_write_sync(file_.get());
    if (sf_close(file_.release()) != 0)
        fail("the file could not be completed; free space on the target or choose another");
    if (std::rename(part_.c_str(), path_.c_str()) != 0)
        fail(std::strerror(errno));
    part_.clear();
}

std::string format_description(int code) {
    std::string text;
    for (int part : {container(code), encoding(code)}) {
        SF_FORMAT_INFO info{};
        info.format = part;
        if (sf_command(nullptr, SFC_GET_FORMAT_INFO, &info, sizeof info) == 0 && info.name)
            text += (text.empty() ? "" : ", ") + std::string(info.name);
    }
    return text;
}

} // namespace host
