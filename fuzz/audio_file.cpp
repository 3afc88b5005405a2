// Any bytes as an audio file or as WAV through a pipe: read, with the speakers that they name, in every sample format.
#include <sys/mman.h>
#include <unistd.h>

#include <cstdlib>
#include <vector>

#include "audio_reader.h"
#include "bytes.h"
#include "error.h"

using namespace host;

namespace {

// A file in memory, which has a name.
class MemoryFile {
public:
    MemoryFile(const uint8_t* data, size_t size) : descriptor_(memfd_create("audio", 0)) {
        if (descriptor_ < 0 || write(descriptor_, data, size) != static_cast<ssize_t>(size) ||
            lseek(descriptor_, 0, SEEK_SET) != 0)
            std::abort();
    }
    ~MemoryFile() { close(descriptor_); }
    MemoryFile(const MemoryFile&) = delete;
    MemoryFile& operator=(const MemoryFile&) = delete;
    int descriptor() const { return descriptor_; }
    std::string path() const { return "/proc/self/fd/" + std::to_string(descriptor_); }

private:
    int descriptor_;
};

void read_all(AudioReader& reader, SampleFormat samples) {
    try {
        if (const auto map = reader.speakers(); map && map->size() != reader.channels())
            std::abort();
    } catch (const Error&) { // channels that are no speakers
    }
    constexpr size_t chunk = 100;
    std::vector<std::byte> data(chunk * reader.channels() * bytes_per_sample(samples));
    for (int i = 0; i < 20 && reader.read(samples, data.data(), chunk) == chunk; i++)
        continue;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    korla_test::Bytes bytes(data, size);
    const uint8_t choice = bytes.u8();
    const auto samples = static_cast<SampleFormat>(choice & 3);
    const MemoryFile file(bytes.rest(), bytes.rest_size());
    std::string path = file.path(), raw;
    if (choice & 4) {
        path = "-";
        dup2(file.descriptor(), STDIN_FILENO);
    }
    if (choice & 8)
        raw = choice & 16 ? "s16:6:48000" : "f32:2:44100";
    try {
        AudioReader reader(path, choice & 32, raw);
        read_all(reader, samples);
    } catch (const Error&) { // said in words what is wrong
    }
    return 0;
}
