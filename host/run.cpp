// korla-host run in its steps: open the files, plan the stream, run it, say what happened.
#include "run.h"

#include <algorithm>

#include "audio_formats.h"
#include "error.h"
#include "file_speakers.h"
#include "flush_to_zero.h"
#include "text.h"
#include "transfer.h"

namespace host {
namespace {

// Rates at which the module's limiter works.
constexpr uint32_t limiter_rates[] = {24000, 32000, 44100, 48000, 64000, 88200, 96000, 176400, 192000};

bool limiter_works_at(uint32_t rate) {
    return std::find(std::begin(limiter_rates), std::end(limiter_rates), rate) != std::end(limiter_rates);
}

SampleFormat parse_samples(const std::string& text, const AudioReader& reader) {
    return text == "s16"   ? SampleFormat::s16
           : text == "s32" ? SampleFormat::s32
           : text == "f32" ? SampleFormat::f32
                           : reader.natural_samples();
}

// asked: the user's own map, empty to go by the file.
ChannelMap choose_input_map(const std::string& asked, const AudioReader& reader, std::vector<std::string>& notices) {
    if (!asked.empty()) {
        const ChannelMap map = parse_map(asked);
        if (map.size() != reader.channels())
            throw Error(Status::layout,
                        format_text("--map names %zu channels, %s has %zu; name them all, in file order", map.size(),
                                    reader.path().c_str(), reader.channels()));
        return map;
    }
    if (const auto stated = reader.speakers())
        return with_pairs_settled(*stated);
    const ChannelMap map = customary_speakers(reader.channels());
    if (map.empty())
        throw Error(Status::layout,
                    format_text("%s does not say which speakers its %zu channels are for; name them with "
                                "--map FL,FR,...",
                                reader.path().c_str(), reader.channels()));
    notices.push_back("the input file names no speakers; taken as " + speaker_names(map) + ", change that with --map");
    return map;
}

// What comes in, what goes out and what happens between, before the first sample.
RunReport plan(const RunOptions& options, const Module& module, const AudioReader& reader) {
    RunReport report;
    report.input = options.input;
    report.output = options.output;
    report.library = module.path();
    report.block_frames = options.block_frames;
    report.input_format = format_description(reader.format());
    report.input_map = choose_input_map(options.map, reader, report.notices);
    report.stream = {reordered(report.input_map, canonical_order(report.input_map)), reader.sample_rate(),
                     parse_samples(options.samples, reader), options.planar, parse_layout(options.layout)};
    report.stream_output_map = Stream(module).configure(report.stream).map;
    report.module = measure(module, report.stream);
    report.limiter_works = limiter_works_at(report.stream.sample_rate);
    report.placement = placement(report.stream.input, report.stream_output_map, report.module);
    if (options.planar && report.module.pass_through && report.stream.input.size() != report.stream_output_map.size())
        throw Error(Status::layout, "the module has no matrix from this input to this layout and copies frames, which "
                                    "scrambles planar data of another channel count; leave out --planar or choose "
                                    "another --layout");
    return report;
}

std::string how_it_copies(const ChannelMap& from, const ChannelMap& to) {
    if (from == to)
        return "pass-through: input and output layout agree, the module copies frames";
    std::string text =
        "pass-through: the module has no matrix from this input to this layout and copies frames by place";
    const auto copied = static_cast<long>(std::min(from.size(), to.size()));
    if (!std::equal(from.begin(), from.begin() + copied, to.begin()))
        text += ", so output channels do not hold what their names say";
    return text + "; choose another --layout for a mix";
}

void say_how_it_mixes(RunReport& report) {
    auto say = [&](const std::string& text) { report.notices.push_back(text); };
    if (report.module.pass_through)
        say(how_it_copies(report.stream.input, report.stream_output_map));
    if (!report.module.pass_through && !report.limiter_works) {
        std::string rates;
        for (uint32_t rate : limiter_rates)
            rates += format_text("%s%u", rates.empty() ? "" : ", ", rate);
        say(format_text("the module's limiter rests at %u Hz, loud passages may exceed full scale; resample to one of "
                        "%s Hz",
                        report.stream.sample_rate, rates.c_str()));
    }
    if (!report.placement.lost.empty())
        say("lost: " + speaker_names(report.placement.lost, ", ") + " of the input come" +
            (report.placement.lost.size() == 1 ? "s" : "") + " out of no speaker");
    for (const Placement::Moved& moved : report.placement.moved)
        say("misplaced: " + speaker_name(moved.speaker) + " of the input comes out of " +
            speaker_names(moved.heard_from, " and "));
}

void say_what_the_file_names(RunReport& report, const AudioWriter& writer, bool top_pair_renamed) {
    if (top_pair_renamed)
        report.notices.push_back("channel masks have no top side pair: TSL and TSR are marked as top front left and "
                                 "right in the file");
    if (!writer.speakers_kept())
        report.notices.push_back("the output format cannot name these speakers; the file holds them in the order " +
                                 speaker_names(report.output_map));
}

void say_what_was_clipped(RunReport& report) {
    auto say = [&](uint64_t samples, const char* of, const char* what) {
        if (samples > 0)
            report.notices.push_back(
                format_text("%llu %s above full scale, which %s", static_cast<unsigned long long>(samples), of, what));
    };
    say(report.clipped_on_reading, "samples of the input are", "the stream's integers clip");
    uint64_t over = 0;
    for (const Level& level : report.output_levels)
        over += level.over;
    say(over, "samples of the output are",
        report.integer_output ? "its integers clip" : "the file keeps and a player will clip");
    if (report.frames == 0)
        report.notices.push_back("the input holds no frames, and so does the output");
}

// The stream itself, with its meters.
void run_stream(RunReport& report, Stream& stream, AudioReader& reader, AudioWriter& writer,
                const std::vector<size_t>& to_file) {
    const SampleFormat samples = report.stream.samples;
    Processor processor;
    processor.samples = samples;
    processor.planar = report.stream.planar;
    processor.block_frames = report.block_frames;
    processor.call_unit = ACLI_MAX_CHUNK;
    processor.latency = report.module.latency_frames;
    processor.to_stream = canonical_order(report.input_map);
    processor.to_file = to_file;
    processor.process = [&](auto in, auto out, size_t frames) { stream.process(in, out, frames); };

    LevelMeter input_meter(report.input_map.size()), output_meter(report.output_map.size());
    ClippingMeter clipping(report.module, processor.to_stream, samples);
    const bool module_clips = samples != SampleFormat::f32 && !report.limiter_works && !report.module.pass_through;
    const Transferred done = transfer(
        reader, writer, processor,
        [&](auto data, size_t frames) {
            input_meter.add(data, frames, samples);
            if (module_clips)
                clipping.add(data, frames);
        },
        [&](auto data, size_t frames) { output_meter.add(data, frames, samples); });

    report.frames = done.frames;
    report.module_seconds = done.process_seconds;
    report.input_levels = input_meter.levels();
    report.output_levels = output_meter.levels();
    for (size_t c = 0; c < to_file.size(); c++)
        report.output_levels[c].over += clipping.over()[to_file[c]];
    report.clipped_on_reading = reader.clipped();
}

} // namespace

RunReport run(const RunOptions& options) {
    const auto start = Clock::now();
    flush_to_zero();
    const Module module(options.library);
    AudioReader reader(options.input, options.accept_truncated);
    RunReport report = plan(options, module, reader);
    Stream stream(module);
    stream.configure(report.stream);

    const FileOrder order = file_order(report.stream_output_map);
    report.output_map = reordered(report.stream_output_map, order.order);
    report.output_mask = order.mask;
    AudioWriter writer(options.output, reader, report.stream.samples, order.mask);
    report.output_format = format_description(writer.format());
    report.integer_output = integer_bits(writer.format()) > 0;
    say_how_it_mixes(report);
    say_what_the_file_names(report, writer, order.top_pair_renamed);

    run_stream(report, stream, reader, writer, order.order);
    writer.commit();
    say_what_was_clipped(report);
    report.total_seconds = seconds_since(start);
    return report;
}

} // namespace host
