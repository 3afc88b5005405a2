// What the commands that make one file from another have in common: their options, what they find out, and the way from
// the open files to it.
#pragma once

#include <string>
#include <vector>

#include "envelope.h"
#include "levels.h"
#include "matrix.h"
#include "transfer.h"

namespace host {

struct ConversionOptions {
    std::string input, output; // "-": the standard streams
    std::string map;           // speakers of the input; empty: from the file
    std::string samples;       // empty: what the file holds
    bool takes_s24 = false;    // the stream does; otherwise files of 24 bits go through 32
    std::string plot;          // a picture's file; empty: none
    size_t block_frames = 4096;
    bool accept_truncated = false;
    bool true_peak = false;
    std::string raw; // of an input without a header; empty: it has one
    WriterOptions writer;
    bool quiet = false; // no progress
};

// What happened.
struct Conversion {
    std::string input, input_format, output, output_format;
    uint32_t sample_rate = 0;
    SampleFormat samples = SampleFormat::f32;
    size_t block_frames = 0;
    ChannelMap input_map, output_map; // in file order
    uint32_t output_mask = 0;         // WAVE_FORMAT_EXTENSIBLE
    bool integer_output = false;      // the file clips what is above full scale
    bool dithered = false;
    Matrix matrix;
    uint64_t frames = 0;
    std::vector<Level> input_levels, output_levels; // in file order
    Envelope input_envelope, output_envelope;       // peaks, where there is a picture
    uint64_t clipped_on_reading = 0;
    double process_seconds = 0.0, total_seconds = 0.0;
    std::vector<std::string> notices;
};

// Fills in what the input says. speakers_option: the name of the option that `map` comes from. Throws Error.
void describe_input(Conversion& conversion, const ConversionOptions& options, const AudioReader& reader,
                    const char* speakers_option);
// The output's speakers, the file's order of which and whose mask are `order`.
void describe_output(Conversion& conversion, const AudioWriter& writer, const FileOrder& order);

// Runs all frames, with meters on both sides. clipping: looks at the input where an integer stream clips what no meter
// sees any more; may be null. Throws Error.
void convert(Conversion& conversion, const ConversionOptions& options, AudioReader& reader, AudioWriter& writer,
             const Processor& processor, ClippingMeter* clipping);

} // namespace host
