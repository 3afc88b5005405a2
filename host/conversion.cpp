// From open files to meters and notices.
#include "conversion.h"

#include "audio_formats.h"
#include "error.h"
#include "file_speakers.h"
#include "text.h"

namespace host {
namespace {

SampleFormat choose_samples(const ConversionOptions& options, const AudioReader& reader) {
    for (const SampleFormat samples : {SampleFormat::s16, SampleFormat::s24, SampleFormat::s32, SampleFormat::f32})
        if (options.samples == format_name(samples))
            return samples;
    SampleFormat natural = reader.natural_samples();
    // A deeper file wants a deeper stream.
    const std::string& depth = options.writer.depth;
    if (depth == "float")
        natural = SampleFormat::f32;
    else if (depth == "32" && bits_of(natural) > 0)
        natural = SampleFormat::s32;
    else if (depth == "24" && natural == SampleFormat::s16)
        natural = SampleFormat::s24;
    return natural == SampleFormat::s24 && !options.takes_s24 ? SampleFormat::s32 : natural;
}

// asked: the user's own map, empty to go by the file.
ChannelMap choose_input_map(const std::string& asked, const char* option, const AudioReader& reader,
                            std::vector<std::string>& notices) {
    const size_t channels = reader.channels();
    if (!asked.empty()) {
        ChannelMap map = parse_map(asked);
        if (map.size() != channels)
            throw Error(Status::layout, format_text("%s names %zu channels, %s has %zu; name them all, in file order",
                                                    option, map.size(), reader.path().c_str(), channels));
        return map;
    }
    if (const auto stated = reader.speakers())
        return *stated;
    ChannelMap map = customary_speakers(channels);
    if (map.empty())
        throw Error(Status::layout, format_text("%s does not say which speakers its %zu channels are for; name them "
                                                "with %s FL,FR,...",
                                                reader.path().c_str(), channels, option));
    notices.push_back("the input file names no speakers; taken as " + speaker_names(map) + ", change that with " +
                      option);
    return map;
}

void say_what_was_clipped(Conversion& c) {
    auto say = [&](uint64_t samples, const char* of, const char* what) {
        if (samples > 0)
            c.notices.push_back(
                format_text("%llu %s above full scale, which %s", static_cast<unsigned long long>(samples), of, what));
    };
    say(c.clipped_on_reading, "samples of the input are", "the stream's integers clip");
    uint64_t over = 0;
    for (const Level& level : c.output_levels)
        over += level.over;
    say(over, "samples of the output are",
        c.integer_output ? "its integers clip" : "the file keeps and a player will clip");
    if (c.frames == 0)
        c.notices.push_back("the input holds no frames, and so does the output");
}

// The meters of one side.
class Watch {
public:
    Watch(const ConversionOptions& options, size_t channels, uint32_t rate, SampleFormat samples)
        : format_(samples), levels_(channels), drawn_(!options.plot.empty()), envelope_(drawn_ ? channels : 0) {
        if (options.true_peak)
            true_peak_.emplace(channels, rate);
    }
    void add(const std::byte* data, size_t frames) {
        levels_.add(data, frames, format_);
        if (true_peak_)
            true_peak_->add(data, frames, format_);
        const size_t channels = envelope_.channels();
        for (size_t i = 0; i < frames * channels; i++)
            envelope_.add(frames_ + i / channels, 1, i % channels, std::fabs(sample_value(data, format_, i)));
        frames_ += frames;
    }
    std::vector<Level> levels() const {
        std::vector<Level> result = levels_.levels();
        for (size_t c = 0; true_peak_ && c < result.size(); c++)
            result[c].true_peak = true_peak_->peak(c);
        return result;
    }
    const Envelope& envelope() const { return envelope_; }

private:
    SampleFormat format_;
    LevelMeter levels_;
    bool drawn_;
    Envelope envelope_;
    std::optional<TruePeakMeter> true_peak_;
    uint64_t frames_ = 0;
};

} // namespace

void describe_input(Conversion& c, const ConversionOptions& options, const AudioReader& reader,
                    const char* speakers_option) {
    c.input = options.input;
    c.output = options.output;
    c.block_frames = options.block_frames;
    c.input_format = format_description(reader.format());
    c.sample_rate = reader.sample_rate();
    c.samples = choose_samples(options, reader);
    c.input_map = choose_input_map(options.map, speakers_option, reader, c.notices);
}

void describe_output(Conversion& c, const AudioWriter& writer, const FileOrder& order) {
    c.output_mask = order.mask;
    c.output_format = format_description(writer.format());
    c.integer_output = integer_bits(writer.format()) > 0;
    c.dithered = writer.dithers();
    if (order.top_pair_renamed)
        c.notices.push_back(
            "channel masks have no top side pair: TSL and TSR are marked as top front left and right in "
            "the file");
    if (!writer.speakers_kept())
        c.notices.push_back("the output format cannot name these speakers; the file holds them in the order " +
                            speaker_names(c.output_map));
}

void convert(Conversion& c, const ConversionOptions& options, AudioReader& reader, AudioWriter& writer,
             const Processor& processor, ClippingMeter* clipping) {
    Watch input(options, c.input_map.size(), c.sample_rate, c.samples);
    Watch output(options, c.output_map.size(), c.sample_rate, c.samples);
    const Transferred done = transfer(
        reader, writer, processor,
        [&](auto data, size_t frames) {
            input.add(data, frames);
            if (clipping)
                clipping->add(data, frames);
        },
        [&](auto data, size_t frames) { output.add(data, frames); }, !options.quiet);
    c.frames = done.frames;
    c.process_seconds = done.process_seconds;
    c.input_levels = input.levels();
    c.output_levels = output.levels();
    for (size_t o = 0; clipping && o < processor.to_file.size(); o++)
        c.output_levels[o].over += clipping->over()[processor.to_file[o]];
    c.input_envelope = input.envelope();
    c.output_envelope = output.envelope();
    c.clipped_on_reading = reader.clipped();
    writer.commit();
    say_what_was_clipped(c);
}

} // namespace host
