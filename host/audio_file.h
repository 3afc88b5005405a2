// Audio files by libsndfile, with what it leaves to its caller: truncated files are noticed, and an output file appears
// under its name only when it is complete.
#pragma once

#include <sndfile.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "samples.h"

namespace host {

struct CloseSound {
    void operator()(SNDFILE* file) const { sf_close(file); }
};
using SoundFile = std::unique_ptr<SNDFILE, CloseSound>;

class AudioReader {
public:
    // Throws Error, also for a file that is shorter than its header says, unless `accept_truncated`.
    AudioReader(const std::string& path, bool accept_truncated);

    size_t channels() const { return static_cast<size_t>(info_.channels); }
    uint32_t sample_rate() const { return static_cast<uint32_t>(info_.samplerate); }
    uint64_t frames() const { return static_cast<uint64_t>(info_.frames); } // as the file announces, 0 when it does not
    int format() const { return info_.format; }
    // SF_CHANNEL_MAP_*, empty when the file does not say which speakers its channels are for.
    const std::vector<int>& positions() const { return positions_; }
    // The stream format that loses nothing.
    SampleFormat natural_samples() const;

    // Up to `frames` interleaved frames; fewer at the end. Throws Error.
    size_t read(SampleFormat samples, std::byte* data, size_t frames);

private:
    std::string path_;
    bool accept_truncated_;
    SF_INFO info_{};
    SoundFile file_;
    std::vector<int> positions_;
    std::vector<float> floats_;
    uint64_t read_ = 0;
};

class AudioWriter {
public:
    // The container follows from the name's extension, the encoding from the stream format. Throws Error.
    AudioWriter(const std::string& path, const AudioReader& like, SampleFormat samples,
                const std::vector<int>& positions);
    ~AudioWriter(); // removes what was not committed

    int format() const { return info_.format; }
    bool positions_kept() const { return positions_kept_; }

    void write(SampleFormat samples, const std::byte* data, size_t frames);
    // Completes the file and puts it in place of an older one.
    void commit();

private:
    [[noreturn]] void fail(const std::string& why) const;

    std::string path_, part_;
    SF_INFO info_{};
    SoundFile file_;
    bool positions_kept_ = false;
    uint64_t bytes_ = 0;
};

// "WAV (WAVE_FORMAT_EXTENSIBLE), signed 16 bit PCM"
std::string format_description(int format);

} // namespace host
