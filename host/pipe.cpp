// Headers of WAV streams, read and written by hand: libsndfile goes back and forth in a WAV file.
#include "pipe.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "audio_formats.h"
#include "error.h"
#include "text.h"
#include "transfer.h"

namespace host {
namespace {

constexpr uint32_t open_length = 0xffffffff;
constexpr uint64_t endless = uint64_t{1} << 60;
constexpr size_t most_kept = 1 << 20;       // bytes at the start that can be read again
constexpr uint32_t largest_chunk = 1 << 20; // of those in front of the samples

// Little-endian numbers.
uint64_t number(const std::string& bytes, size_t at, size_t count) {
    uint64_t value = 0;
    for (size_t i = 0; i < count; i++)
        value |= uint64_t{static_cast<unsigned char>(bytes[at + i])} << 8 * i;
    return value;
}
std::string bytes_of(uint64_t value, size_t count) {
    std::string bytes;
    for (size_t i = 0; i < count; i++)
        bytes += static_cast<char>(value >> 8 * i & 0xff);
    return bytes;
}

bool leaves_length_open(uint64_t bytes) {
    return bytes == 0 || (bytes >= 0x7ffff000 && bytes <= 0x7fffffff) || bytes >= 0xfffff000;
}

bool is_float(const SF_INFO& info) { return encoding(info.format) == SF_FORMAT_FLOAT; }
uint64_t bits_of_sample(const SF_INFO& info) {
    return static_cast<uint64_t>(is_float(info) ? 32 : integer_bits(info.format));
}

// A format chunk of 16 bytes, which says nothing of speakers.
std::string format_chunk(const SF_INFO& info) {
    const auto channels = static_cast<uint64_t>(info.channels), rate = static_cast<uint64_t>(info.samplerate);
    const uint64_t bits = bits_of_sample(info), frame_bytes = channels * bits / 8;
    return "fmt " + bytes_of(16, 4) + bytes_of(is_float(info) ? 3 : 1, 2) + bytes_of(channels, 2) + bytes_of(rate, 4) +
           bytes_of(rate * frame_bytes, 4) + bytes_of(frame_bytes, 2) + bytes_of(bits, 2);
}

[[noreturn]] void refuse(const char* why) {
    throw Error(Status::input,
                format_text("cannot read the standard input: %s; send WAV, such as `sox FILE -t wav -` or "
                            "`ffmpeg -i FILE -f wav -` write it",
                            why));
}

} // namespace

size_t WavePipe::read(char* data, size_t bytes) {
    size_t got = 0;
    while (got < bytes && !interrupted()) {
        const ssize_t n = ::read(descriptor_, data + got, bytes - got);
        if (n == 0 || (n < 0 && errno != EINTR))
            break;
        got += n > 0 ? static_cast<size_t>(n) : 0;
    }
    return got;
}

void WavePipe::read_exactly(std::string& to, size_t bytes) {
    const size_t before = to.size();
    to.resize(before + bytes);
    if (read(to.data() + before, bytes) != bytes)
        refuse(before == 0 ? "it is empty or ends at once" : "it ends within its header");
}

WavePipe::WavePipe(int descriptor) : descriptor_(descriptor) {
    std::string head, format;
    read_exactly(head, 12);
    const bool rf64 = head.compare(0, 4, "RF64") == 0;
    if ((!rf64 && head.compare(0, 4, "RIFF") != 0) || head.compare(8, 4, "WAVE") != 0)
        refuse("it holds no WAV");
    uint64_t long_length = 0;
    for (;;) {
        std::string chunk;
        read_exactly(chunk, 8);
        const auto bytes = static_cast<uint32_t>(number(chunk, 4, 4));
        if (chunk.compare(0, 4, "data") == 0) {
            length_ = rf64 && bytes == open_length ? long_length : bytes;
            break;
        }
        if (bytes > largest_chunk)
            refuse("its header makes no sense");
        read_exactly(chunk, bytes + bytes % 2);
        if (chunk.compare(0, 4, "ds64") == 0 && bytes >= 16)
            long_length = number(chunk, 16, 8);
        if (chunk.compare(0, 4, "fmt ") == 0)
            format = chunk;
    }
    if (format.empty())
        refuse("its header has no format");
    open_ = rf64 ? length_ == 0 || length_ >= endless : leaves_length_open(length_);
    length_ = open_ ? endless : length_;
    put_header(format);
}

WavePipe::WavePipe(int descriptor, const SF_INFO& raw) : descriptor_(descriptor), length_(endless), open_(true) {
    put_header(format_chunk(raw));
}

// RF64, because a stream may be longer than RIFF can say.
void WavePipe::put_header(const std::string& format) {
    kept_ = "RF64" + bytes_of(open_length, 4) + "WAVEds64" + bytes_of(28, 4) +
            bytes_of(length_ + 12 + 36 + format.size() + 8 - 8, 8) + bytes_of(length_, 8) + bytes_of(0, 8) +
            bytes_of(0, 4) + format + "data" + bytes_of(open_length, 4);
    header_bytes_ = kept_.size();
}

// libsndfile reads beyond the header while it parses it and comes back: the first samples can be read again. It also looks
// behind the samples for more chunks: there is nothing.
size_t WavePipe::read_at_position(char* data, size_t bytes) {
    size_t got = 0;
    if (position_ < kept_.size()) {
        got = std::min<uint64_t>(bytes, kept_.size() - position_);
        std::memcpy(data, kept_.data() + position_, got);
        position_ += got;
    }
    if (got < bytes && position_ == header_bytes_ + taken_) {
        const size_t more = read(data + got, std::min<uint64_t>(bytes - got, length_ - taken_));
        if (position_ == kept_.size() && kept_.size() < most_kept)
            kept_.append(data + got, more);
        taken_ += more, position_ += more, got += more;
    }
    return got;
}

SNDFILE* WavePipe::open(SF_INFO& info) {
    SF_VIRTUAL_IO calls{};
    calls.get_filelen = [](void* pipe) {
        return static_cast<sf_count_t>(self(pipe).header_bytes_ + self(pipe).length_);
    };
    calls.seek = [](sf_count_t offset, int whence, void* pipe) {
        WavePipe& p = self(pipe);
        const uint64_t from = whence == SEEK_CUR ? p.position_ : whence == SEEK_END ? p.header_bytes_ + p.length_ : 0;
        p.position_ = from + static_cast<uint64_t>(offset);
        return static_cast<sf_count_t>(p.position_);
    };
    calls.read = [](void* data, sf_count_t bytes, void* pipe) {
        return static_cast<sf_count_t>(
            self(pipe).read_at_position(static_cast<char*>(data), static_cast<size_t>(bytes)));
    };
    calls.write = [](const void*, sf_count_t, void*) { return sf_count_t{0}; };
    calls.tell = [](void* pipe) { return static_cast<sf_count_t>(self(pipe).position_); };
    SNDFILE* file = sf_open_virtual(&calls, SFM_READ, &info, this);
    info.format = (info.format & ~SF_FORMAT_TYPEMASK) | SF_FORMAT_WAV;
    return file;
}

std::string wave_header(const SF_INFO& info, uint32_t mask, uint64_t frames) {
    const uint64_t bits = bits_of_sample(info);
    const auto channels = static_cast<uint64_t>(info.channels), rate = static_cast<uint64_t>(info.samplerate);
    const uint64_t frame_bytes = channels * bits / 8, samples = frames * frame_bytes, rest = 4 + 48 + 8;
    const bool open = frames == 0 || samples + rest >= 0x7ffff000;
    return "RIFF" + bytes_of(open ? open_length : samples + rest, 4) + "WAVEfmt " + bytes_of(40, 4) +
           bytes_of(0xfffe, 2) + bytes_of(channels, 2) + bytes_of(rate, 4) + bytes_of(rate * frame_bytes, 4) +
           bytes_of(frame_bytes, 2) + bytes_of(bits, 2) + bytes_of(22, 2) + bytes_of(bits, 2) + bytes_of(mask, 4) +
           bytes_of(is_float(info) ? 3 : 1, 4) + bytes_of(0x00100000, 4) + bytes_of(0xaa000080, 4) +
           bytes_of(0x719b3800, 4) + "data" + bytes_of(open ? open_length : samples, 4);
}

bool write_fully(int descriptor, const std::string& bytes) {
    for (size_t written = 0; written < bytes.size();) {
        const ssize_t n = ::write(descriptor, bytes.data() + written, bytes.size() - written);
        if (n < 0 && errno != EINTR)
            return false;
        written += n > 0 ? static_cast<size_t>(n) : 0;
    }
    return true;
}

} // namespace host
