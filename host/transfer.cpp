// The loop over blocks, its progress bar and its interruption.
#include "transfer.h"

#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <string>

#include "error.h"

namespace host {
namespace {

volatile std::sig_atomic_t caught_signal = 0;

// A bar on standard error when that is a terminal, nothing otherwise.
class Progress {
public:
    explicit Progress(uint64_t frames) : frames_(frames), shown_(isatty(STDERR_FILENO) && frames > 0) {}
    ~Progress() {
        if (shown_)
            std::fputs("\r\033[K", stderr);
    }
    void update(uint64_t done) {
        const int percent = shown_ ? static_cast<int>(std::min<uint64_t>(100, done * 100 / frames_)) : percent_;
        if (percent == percent_)
            return;
        percent_ = percent;
        const std::string bar(static_cast<size_t>(percent) / 2, '#');
        std::fprintf(stderr, "\r[%-50s] %3d %%", bar.c_str(), percent);
    }

private:
    uint64_t frames_;
    bool shown_;
    int percent_ = -1;
};

} // namespace

void interrupt(int signal) { caught_signal = signal; }
int interrupted() { return caught_signal; }

Transferred transfer(AudioReader& reader, AudioWriter& writer, const Processor& p, const Tap& input_tap,
                     const Tap& output_tap, bool shows_progress) {
    const size_t inputs = p.to_stream.size(), outputs = p.to_file.size(), sample_bytes = bytes_per_sample(p.samples);
    const size_t room = p.block_frames + p.held_back;
    std::vector<std::byte> file_in(p.block_frames * inputs * sample_bytes), stream_in(file_in.size());
    std::vector<std::byte> file_out(room * outputs * sample_bytes), stream_out(file_out.size());
    Progress progress(shows_progress ? reader.frames() : 0);
    Transferred result;
    uint64_t read = 0, fed = 0, given = 0; // frames of the file, and of the stream in and out
    // Frame n of the stream is frame n - latency of the file.
    auto deliver = [&](size_t produced) {
        stream_to_file(stream_out.data(), file_out.data(), produced, p.to_file, sample_bytes, p.planar);
        const size_t skipped = std::min<uint64_t>(produced, p.latency > given ? p.latency - given : 0);
        const size_t kept = std::min<uint64_t>(produced - skipped, read - result.frames);
        const std::byte* first = file_out.data() + skipped * outputs * sample_bytes;
        output_tap(first, kept);
        writer.write(p.samples, first, kept);
        given += produced;
        result.frames += kept;
        progress.update(result.frames);
    };
    for (bool ended = false; !ended || result.frames < read;) {
        const size_t got = ended ? 0 : reader.read(p.samples, file_in.data(), p.block_frames);
        if (caught_signal)
            throw Error(Status::output, "interrupted; no file was written");
        ended = ended || got < p.block_frames;
        read += got;
        // Behind the end come just enough zeros to push the last frame out of the processor.
        const uint64_t wanted = ended ? read + p.latency - fed : p.block_frames;
        const size_t frames =
            std::min<uint64_t>(p.block_frames, (wanted + p.call_unit - 1) / p.call_unit * p.call_unit);
        if (frames == 0)
            break;
        std::fill(file_in.begin() + static_cast<long>(got * inputs * sample_bytes), file_in.end(), std::byte{0});
        input_tap(file_in.data(), got);
        file_to_stream(file_in.data(), stream_in.data(), frames, p.to_stream, sample_bytes, p.planar);

        const auto called = Clock::now();
        const size_t produced = p.process(stream_in.data(), stream_out.data(), frames);
        result.process_seconds += seconds_since(called);
        deliver(produced);
        fed += frames;
    }
    if (p.drain)
        deliver(p.drain(stream_out.data()));
    return result;
}

} // namespace host
