// korla-host run in its steps: open the files, plan the stream, run it, say what happened.
#include "run.h"

#include <algorithm>

#include "error.h"
#include "flush_to_zero.h"
#include "measure.h"
#include "plot.h"
#include "text.h"

namespace host {
namespace {

// Rates at which the module's limiter works.
constexpr uint32_t limiter_rates[] = {24000, 32000, 44100, 48000, 64000, 88200, 96000, 176400, 192000};

bool limiter_works_at(uint32_t rate) {
    return std::find(std::begin(limiter_rates), std::end(limiter_rates), rate) != std::end(limiter_rates);
}

// What comes in, what goes out and what happens between, before the first sample.
RunReport plan(const RunOptions& options, const Module& module, const AudioReader& reader) {
    RunReport report;
    describe_input(report, options, reader, "--map");
    report.library = module.path();
    if (options.map.empty())
        report.input_map = with_pairs_settled(report.input_map);
    report.stream = {reordered(report.input_map, canonical_order(report.input_map)), report.sample_rate, report.samples,
                     options.planar, parse_layout(options.layout)};
    Measurement module_does = measure(module, report.stream);
    report.matrix = module_does.matrix;
    report.latency_frames = module_does.latency_frames;
    report.pass_through = module_does.pass_through;
    report.limiter_works = limiter_works_at(report.sample_rate);
    report.placement = placement(report.matrix);
    if (options.planar && report.pass_through && report.matrix.inputs.size() != report.matrix.outputs.size())
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
    if (report.pass_through)
        say(how_it_copies(report.matrix.inputs, report.matrix.outputs));
    if (!report.pass_through && !report.limiter_works) {
        std::string rates;
        for (uint32_t rate : limiter_rates)
            rates += format_text("%s%u", rates.empty() ? "" : ", ", rate);
        say(format_text("the module's limiter rests at %u Hz, loud passages may exceed full scale; resample to one of "
                        "%s Hz",
                        report.sample_rate, rates.c_str()));
    }
    if (!report.placement.lost.empty())
        say("lost: " + speaker_names(report.placement.lost, ", ") + " of the input come" +
            (report.placement.lost.size() == 1 ? "s" : "") + " out of no speaker");
    for (const Placement::Moved& moved : report.placement.moved)
        say("misplaced: " + speaker_name(moved.speaker) + " of the input comes out of " +
            speaker_names(moved.heard_from, " and "));
}

// The stream itself.
void run_stream(RunReport& report, const RunOptions& options, Stream& stream, AudioReader& reader, AudioWriter& writer,
                const std::vector<size_t>& to_file) {
    Processor processor;
    processor.samples = report.samples;
    processor.planar = report.stream.planar;
    processor.block_frames = report.block_frames;
    processor.call_unit = ACLI_MAX_CHUNK;
    processor.latency = report.latency_frames;
    processor.to_stream = canonical_order(report.input_map);
    processor.to_file = to_file;
    processor.process = [&](auto in, auto out, size_t frames) {
        stream.process(in, out, frames);
        return frames;
    };
    ClippingMeter clipping(report.matrix, processor.to_stream, report.samples);
    const bool module_clips = report.samples != SampleFormat::f32 && !report.limiter_works && !report.pass_through;
    convert(report, options, reader, writer, processor, module_clips ? &clipping : nullptr);
}

} // namespace

RunReport run(const RunOptions& options) {
    const auto start = Clock::now();
    flush_to_zero();
    const Module module(options.library);
    AudioReader reader(options.input, options.accept_truncated, options.raw);
    RunReport report = plan(options, module, reader);
    Stream stream(module);
    stream.configure(report.stream);

    const FileOrder order = file_order(report.matrix.outputs);
    report.output_map = reordered(report.matrix.outputs, order.order);
    AudioWriter writer(options.output, reader, report.samples, order.mask, options.writer);
    say_how_it_mixes(report);
    describe_output(report, writer, order);

    run_stream(report, options, stream, reader, writer, order.order);
    report.total_seconds = seconds_since(start);
    if (!options.plot.empty())
        plot(options.plot, report, nullptr);
    return report;
}

} // namespace host
