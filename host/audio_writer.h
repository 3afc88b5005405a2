// Audio files that go out: one appears under its name only when it is complete, and says which speakers it is for.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "audio_reader.h"

namespace host {

class AudioWriter {
public:
    // path "-": WAV to the standard output. One channel for each bit of a WAVE_FORMAT_EXTENSIBLE mask, in that order. The container follows from the name's
    // extension, the encoding from the stream format and from the input file. Throws Error.
    AudioWriter(const std::string& path, const AudioReader& like, SampleFormat samples, uint32_t mask);
    ~AudioWriter(); // removes what was not committed

    int format() const { return info_.format; }
    bool speakers_kept() const { return speakers_kept_; }

    void write(SampleFormat samples, const std::byte* data, size_t frames);
    // Completes the file and puts it in place of an older one.
    void commit();

private:
    void choose_format(const AudioReader& like, SampleFormat samples);
    int open_part();                 // its descriptor
    void open_pipe(uint64_t frames); // 0: not known
    [[noreturn]] void fail(const std::string& why) const;

    bool pipe_; // to the standard output
    std::string path_, part_;
    uint32_t mask_;
    SF_INFO info_{};
    SoundFile file_;
    bool speakers_kept_ = false;
    std::vector<int> rounded_;
    uint64_t bytes_ = 0;
};

} // namespace host
