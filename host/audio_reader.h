// Audio files that come in, by libsndfile, with what it leaves to its caller: files that are cut short are noticed, the
// channels' speakers are known, and what has too many bits is rounded.
#pragma once

#include <sndfile.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "channels.h"
#include "pipe.h"
#include "samples.h"

namespace host {

struct CloseSound {
    void operator()(SNDFILE* file) const { sf_close(file); }
};
using SoundFile = std::unique_ptr<SNDFILE, CloseSound>;

class AudioReader {
public:
    // path "-": from the standard input, WAV. raw: what to take samples without a header for, "s16:6:48000"; empty: they have one.
    // Throws Error, also for a file that is shorter than its header says, unless `accept_truncated`.
    AudioReader(const std::string& path, bool accept_truncated, const std::string& raw = "");

    const std::string& path() const { return path_; }
    size_t channels() const { return static_cast<size_t>(info_.channels); }
    uint32_t sample_rate() const { return static_cast<uint32_t>(info_.samplerate); }
    uint64_t frames() const { return static_cast<uint64_t>(info_.frames); } // as the file announces, 0 when it does not
    uint64_t promised_frames() const {
        return accept_truncated_ ? 0 : frames();
    } // reading fails when fewer come; 0: none
    int format() const { return info_.format; }
    // A text of the file, SF_STR_TITLE and so on, or null.
    const char* tag(int which) const { return sf_get_string(file_.get(), which); }
    // The stream format that loses nothing.
    SampleFormat natural_samples() const;

    // The channels' speakers in file order; nothing when neither the file nor its format says. Throws Error.
    std::optional<ChannelMap> speakers() const;

    // Up to `frames` interleaved frames; fewer at the end. Throws Error.
    size_t read(SampleFormat samples, std::byte* data, size_t frames);

    // Samples so far that were above full scale and had to become integers.
    uint64_t clipped() const { return clipped_; }

private:
    size_t read_rounded(SampleFormat samples, std::byte* data, size_t frames);

    std::string path_;
    bool accept_truncated_;
    SF_INFO info_{};
    std::unique_ptr<WavePipe> pipe_; // for the standard input
    SoundFile file_;
    std::vector<double> exact_;
    uint64_t read_ = 0, clipped_ = 0;
};

} // namespace host
