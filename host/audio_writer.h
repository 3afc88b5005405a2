// Audio files that go out: one appears under its name only when it is complete, and says which speakers it is for.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "audio_reader.h"

namespace host {

struct WriterOptions {
    std::string depth;     // "16", "24", "32" or "float"; empty: as the stream and the input file say
    bool dither = true;    // where bits go away
    bool overwrite = true; // an older file of that name
    bool raw = false;      // samples alone, little-endian, whatever the name says
};

class AudioWriter {
public:
    // path "-": WAV to the standard output. One channel for each bit of a WAVE_FORMAT_EXTENSIBLE mask, in that order. The container
    // follows from the name's extension, the encoding from `options`, the stream format and the input file, whose tags are copied as
    // far as the container has a place for them. Throws Error.
    AudioWriter(const std::string& path, const AudioReader& like, SampleFormat samples, uint32_t mask,
                const WriterOptions& options);
    ~AudioWriter(); // removes what was not committed

    int format() const { return info_.format; }
    bool speakers_kept() const { return speakers_kept_; }
    bool dithers() const { return dithers_; }

    void write(SampleFormat samples, const std::byte* data, size_t frames);
    // Completes the file and puts it in place of an older one.
    void commit();

private:
    void choose_format(const AudioReader& like, SampleFormat samples);
    int choose_encoding(const AudioReader& like, SampleFormat samples) const;
    void copy_tags(const AudioReader& from);
    int open_part();                 // its descriptor
    void open_pipe(uint64_t frames); // 0: not known
    [[noreturn]] void fail(const std::string& why) const;

    WriterOptions options_;
    bool pipe_; // to the standard output
    std::string path_, part_;
    uint32_t mask_;
    SF_INFO info_{};
    SoundFile file_;
    bool speakers_kept_ = false, dithers_ = false;
    Dither dither_;
    std::vector<int> rounded_;
    std::vector<float> floats_;
    uint64_t bytes_ = 0;
};

} // namespace host
