// WAV through pipes, whose length nobody knows beforehand and where nobody can go back.
#pragma once

#include <sndfile.h>

#include <cstdint>
#include <string>

namespace host {

// A WAV stream, to be read by libsndfile's virtual files. A length that is left open (0, 0xFFFFFFFF or, as sox writes
// it, about 0x7FFFF000) means that samples go on to the end.
class WavePipe {
public:
    // Reads the header. Throws Error when there is none.
    explicit WavePipe(int descriptor);
    // Samples without a header. raw: channels, rate and encoding.
    WavePipe(int descriptor, const SF_INFO& raw);

    // For as long as this object lives. The container is told as WAV whatever stands in for it.
    SNDFILE* open(SF_INFO& info);
    bool length_is_open() const { return open_; }

private:
    static WavePipe& self(void* pipe) { return *static_cast<WavePipe*>(pipe); }
    size_t read(char* data, size_t bytes); // from where the stream stands
    size_t read_at_position(char* data, size_t bytes);
    void put_header(const std::string& format); // the chunk
    void read_exactly(std::string& to, size_t bytes);

    int descriptor_;
    std::string kept_; // a header for libsndfile, which takes the place of the stream's own, and the first samples
    size_t header_bytes_ = 0;
    uint64_t length_ = 0, taken_ = 0;
    uint64_t position_ = 0; // of libsndfile, header included
    bool open_ = false;
};

// The header of a WAVE_FORMAT_EXTENSIBLE stream. info: channels, rate and encoding. frames 0: left open.
std::string wave_header(const SF_INFO& info, uint32_t mask, uint64_t frames);

// All of it. False when that failed; errno says why.
bool write_fully(int descriptor, const std::string& bytes);

} // namespace host
