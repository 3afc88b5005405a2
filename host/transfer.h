// The middle of every command that makes one file from another: blocks of frames are read, put in stream order,
// processed, put in file order and written, and what a processor delays is taken out again.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <vector>

#include "audio_reader.h"
#include "audio_writer.h"
#include "samples.h"

namespace host {

struct Processor {
    SampleFormat samples = SampleFormat::f32;
    bool planar = false;
    size_t block_frames = 0;                // the most that one call gets; a multiple of call_unit
    size_t call_unit = 1;                   // calls get multiples of so many frames
    uint64_t latency = 0;                   // frames
    std::vector<size_t> to_stream, to_file; // order[c]: channel of the file, and of the stream, that is channel c
    // in, out: frames in stream order. Give the frames stored, at most `held_back` more than there were.
    std::function<size_t(const std::byte* in, std::byte* out, size_t frames)> process;
    std::function<size_t(std::byte* out)> drain; // what process has held back; empty: nothing
    size_t held_back = 0;                        // frames, at the most
};

// Looks on at the frames of a file.
using Tap = std::function<void(const std::byte* data, size_t frames)>;

struct Transferred {
    uint64_t frames = 0;
    double process_seconds = 0.0;
};

// Runs all of the reader's frames into the writer, which is not committed yet. Throws Error.
Transferred transfer(AudioReader& reader, AudioWriter& writer, const Processor& processor, const Tap& input_tap,
                     const Tap& output_tap, bool shows_progress);

// Set by a signal handler: the transfer in progress gives up.
void interrupt(int signal);
int interrupted();

using Clock = std::chrono::steady_clock;
inline double seconds_since(Clock::time_point start) {
    return std::chrono::duration<double>(Clock::now() - start).count();
}

} // namespace host
