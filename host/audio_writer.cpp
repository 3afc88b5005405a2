// Writing audio files.
#include "audio_writer.h"

#include <sys/stat.h>
#include <unistd.h>

#include <bit>
#include <cerrno>
#include <cstring>
#include <filesystem>

#include "audio_formats.h"
#include "error.h"
#include "file_speakers.h"
#include "text.h"

namespace host {
namespace {

namespace fs = std::filesystem;

constexpr uint64_t riff_limit = 0xffff0000; // bytes of samples, with room for the headers

} // namespace

AudioWriter::AudioWriter(const std::string& path, const AudioReader& like, SampleFormat samples, uint32_t mask,
                         const WriterOptions& options)
    : options_(options), pipe_(path == "-"), path_(pipe_ ? "to the standard output" : path), mask_(mask) {
    if (pipe_) {
        choose_format(like, samples);
        open_pipe(like.promised_frames());
        return;
    }
    std::error_code error;
    if (fs::equivalent(like.path(), path_, error))
        fail("it is the input file; choose another name");
    if (fs::exists(path_, error) && !fs::is_regular_file(path_, error))
        fail("it is a folder, a device or a pipe; name a file, whose extension says the format: " +
             output_extensions());
    if (!options_.overwrite && fs::exists(path_, error))
        fail("it is there already");
    choose_format(like, samples);
    file_.reset(sf_open_fd(open_part(), SFM_WRITE, &info_, SF_TRUE));
    if (!file_) {
        unlink(part_.c_str());
        fail(sf_strerror(nullptr));
    }
    speakers_kept_ = container(info_.format) != SF_FORMAT_RAW && mark_speakers(file_.get(), info_, mask);
    copy_tags(like);
}

// Title, artist and so on.
void AudioWriter::copy_tags(const AudioReader& from) {
    const bool taken = comment_is_taken(info_, mask_);
    for (int tag = SF_STR_FIRST; tag <= SF_STR_LAST; tag++)
        if (const char* text = from.tag(tag); text && !(tag == SF_STR_COMMENT && taken))
            sf_set_string(file_.get(), tag, text); // not in every container
}

void AudioWriter::choose_format(const AudioReader& like, SampleFormat samples) {
    const auto known = options_.raw ? std::optional<int>(SF_FORMAT_RAW)
                       : pipe_      ? std::optional<int>(SF_FORMAT_WAVEX)
                                    : container_of(path_);
    if (!known) {
        const std::string extension = fs::path(path_).extension().string();
        fail((extension.empty() ? "its name has no extension, which names the format"
                                : "its extension '" + extension + "' names no format that can be written") +
             "; use " + output_extensions());
    }
    info_.channels = std::popcount(mask_);
    info_.samplerate = static_cast<int>(like.sample_rate());
    info_.format = *known;
    const auto channels = static_cast<size_t>(info_.channels);
    // Where the length is known beforehand, a file that RIFF cannot hold becomes RF64.
    if (!pipe_ && info_.format == SF_FORMAT_WAVEX && like.frames() * channels * bytes_per_sample(samples) > riff_limit)
        info_.format = SF_FORMAT_RF64;
    const bool flac = info_.format == SF_FORMAT_FLAC;
    if (flac && channels > 8)
        fail(format_text("FLAC holds at most 8 channels, this output has %zu; use .wav or .caf", channels));
    info_.format |= choose_encoding(like, samples);
    if (container(info_.format) == SF_FORMAT_RAW)
        info_.format |= SF_ENDIAN_LITTLE;
    const int bits = integer_bits(info_.format);
    dithers_ =
        options_.dither && !options_.depth.empty() && bits > 0 && (bits_of(samples) == 0 || bits_of(samples) > bits);
    if (!sf_format_check(&info_))
        fail(format_text("%s does not hold %d channels at %d Hz", format_description(info_.format).c_str(),
                         info_.channels, info_.samplerate));
}

int AudioWriter::choose_encoding(const AudioReader& like, SampleFormat samples) const {
    const bool flac = info_.format == SF_FORMAT_FLAC;
    if (flac && (options_.depth == "32" || options_.depth == "float"))
        fail("FLAC holds 16 or 24 bits; use .wav or .caf");
    if (!options_.depth.empty())
        return options_.depth == "16"   ? SF_FORMAT_PCM_16
               : options_.depth == "24" ? SF_FORMAT_PCM_24
               : options_.depth == "32" ? SF_FORMAT_PCM_32
                                        : SF_FORMAT_FLOAT;
    if (samples == SampleFormat::s16)
        return SF_FORMAT_PCM_16;
    if (flac || samples == SampleFormat::s24 ||
        (samples == SampleFormat::s32 && encoding(like.format()) == SF_FORMAT_PCM_24))
        return SF_FORMAT_PCM_24;
    return samples == SampleFormat::s32 ? SF_FORMAT_PCM_32 : SF_FORMAT_FLOAT;
}

// Samples alone are what libsndfile writes to a pipe; the header in front of them is ours.
void AudioWriter::open_pipe(uint64_t frames) {
    if (isatty(STDOUT_FILENO))
        fail("it is a terminal; send it to a program or a file");
    if (!options_.raw && !write_fully(STDOUT_FILENO, wave_header(info_, mask_, frames)))
        fail(std::strerror(errno));
    SF_INFO raw = info_;
    raw.format = SF_FORMAT_RAW | encoding(info_.format) | SF_ENDIAN_LITTLE;
    file_.reset(sf_open_fd(STDOUT_FILENO, SFM_WRITE, &raw, SF_FALSE));
    if (!file_)
        fail(sf_strerror(nullptr));
    speakers_kept_ = !options_.raw;
}

// An empty file beside the one to come, with the permissions that a new file gets.
int AudioWriter::open_part() {
    std::error_code error;
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
    return descriptor;
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
    if (!pipe_ && container(info_.format) == SF_FORMAT_WAVEX && bytes_ > riff_limit)
        fail("it is getting longer than a WAV file can be; use .rf64, .w64 or .caf");
    const size_t values = frames * static_cast<size_t>(info_.channels);
    const int bits = integer_bits(info_.format);
    sf_count_t written = 0;
    if (bits > 0 && samples == SampleFormat::s16) {
        written = sf_writef_short(file_.get(), reinterpret_cast<const short*>(data), count);
    } else if (bits == 32 && samples == SampleFormat::s32) {
        written = sf_writef_int(file_.get(), reinterpret_cast<const int*>(data), count);
    } else if (bits > 0) { // libsndfile would cut off what is too much
        rounded_.resize(values);
        for (size_t i = 0; i < values; i++)
            rounded_[i] = static_cast<int>(
                static_cast<uint32_t>(quantised(sample_value(data, samples, i), bits, dithers_ ? dither_.next() : 0.0))
                << (32 - bits));
        written = sf_writef_int(file_.get(), rounded_.data(), count);
    } else if (samples == SampleFormat::f32) {
        written = sf_writef_float(file_.get(), reinterpret_cast<const float*>(data), count);
    } else {
        floats_.resize(values);
        for (size_t i = 0; i < values; i++)
            floats_[i] = static_cast<float>(sample_value(data, samples, i));
        written = sf_writef_float(file_.get(), floats_.data(), count);
    }
    if (written != count)
        fail(format_text("%s; free space on the target or choose another", sf_strerror(file_.get())));
}

void AudioWriter::commit() {
    if (pipe_) {
        if (sf_close(file_.release()) != 0)
            fail(std::strerror(errno));
        return;
    }
    sf_write_sync(file_.get());
    if (sf_close(file_.release()) != 0 || !finish_marks(info_, mask_, part_))
        fail("the file could not be completed; free space on the target or choose another");
    // A link, unlike a new name, takes nobody's place.
    if (options_.overwrite ? std::rename(part_.c_str(), path_.c_str()) != 0 : link(part_.c_str(), path_.c_str()) != 0)
        fail(errno == EEXIST ? "it is there already" : std::strerror(errno));
    if (options_.overwrite)
        part_.clear();
}

} // namespace host
