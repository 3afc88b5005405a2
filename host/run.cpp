#include "run.h"

#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <filesystem>

#include "audio_file.h"
#include "error.h"
#include "flush_to_zero.h"
#include "text.h"

namespace host {
namespace {

using Clock = std::chrono::steady_clock;

volatile std::sig_atomic_t caught_signal = 0;

double seconds_since(Clock::time_point start) { return std::chrono::duration<double>(Clock::now() - start).count(); }

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

// Rates at which the module's limiter works.
bool limiter_works_at(uint32_t rate) {
    static constexpr uint32_t rates[] = {24000, 32000, 44100, 48000, 64000, 88200, 96000, 176400, 192000};
    return std::find(std::begin(rates), std::end(rates), rate) != std::end(rates);
}

SampleFormat parse_samples(const std::string& text, const AudioReader& reader) {
    return text == "s16"   ? SampleFormat::s16
           : text == "s32" ? SampleFormat::s32
           : text == "f32" ? SampleFormat::f32
                           : reader.natural_samples();
}

ChannelMap choose_input_map(const RunOptions& options, const AudioReader& reader, std::vector<std::string>& notices) {
    if (!options.map.empty()) {
        const ChannelMap map = parse_map(options.map);
        if (map.size() != reader.channels())
            throw Error(Status::layout,
                        format_text("--map names %zu channels, %s has %zu; name them all, in file order", map.size(),
                                    options.input.c_str(), reader.channels()));
        return map;
    }
    if (!reader.positions().empty())
        return map_from_positions(reader.positions());
    const ChannelMap map = default_map(reader.channels());
    if (map.empty())
        throw Error(Status::layout,
                    format_text("%s does not say which speakers its %zu channels are for; name them with "
                                "--map FL,FR,...",
                                options.input.c_str(), reader.channels()));
    notices.push_back("the input file names no speakers; taken as " + speaker_names(map) + ", change that with --map");
    return map;
}

void add_notices(RunReport& report, const AudioWriter& writer, const FileOrder& order) {
    auto say = [&](const std::string& text) { report.notices.push_back(text); };
    if (report.module.pass_through && report.stream.input == report.stream_output_map)
        say("pass-through: input and output layout agree, the module copies frames");
    else if (report.module.pass_through)
        say("pass-through: the module has no matrix from this input to this layout and copies frames by place, so "
            "output channels do not hold what their names say; choose another --layout for a mix");
    if (!report.module.pass_through && !limiter_works_at(report.stream.sample_rate))
        say(format_text("the module's limiter rests at %u Hz, loud passages may exceed full scale; resample to one of "
                        "24000, 32000, 44100, 48000, 64000, 88200, 96000, 176400, 192000 Hz",
                        report.stream.sample_rate));
    if (order.top_pair_renamed)
        say("channel masks have no top middle pair: TML and TMR are marked as top front left and right in the file");
    if (!writer.positions_kept())
        say("the output format cannot name these speakers; the file holds them in the order " +
            speaker_names(report.output_map));
}

} // namespace

void interrupt(int signal) { caught_signal = signal; }
int interrupted() { return caught_signal; }

RunReport run(const RunOptions& options) {
    const auto start = Clock::now();
    flush_to_zero();
    const Module module(options.library);
    AudioReader reader(options.input, options.accept_truncated);
    std::error_code ignored;
    if (std::filesystem::equivalent(options.input, options.output, ignored))
        throw Error(Status::output, "cannot write " + options.output + ": it is the input file; choose another name");

    RunReport report;
    report.input = options.input;
    report.output = options.output;
    report.library = module.path();
    report.input_format = format_description(reader.format());
    report.input_map = choose_input_map(options, reader, report.notices);
    const auto to_stream = canonical_order(report.input_map);
    report.stream = {reordered(report.input_map, to_stream), reader.sample_rate(),
                     parse_samples(options.samples, reader), options.planar, parse_layout(options.layout)};
    report.block_frames = options.block_frames;

    Stream stream(module);
    report.stream_output_map = stream.configure(report.stream).map;
    report.module = measure(module, report.stream);
    const size_t inputs = report.input_map.size(), outputs = report.stream_output_map.size();
    if (options.planar && report.module.pass_through && inputs != outputs)
        throw Error(Status::layout, "the module has no matrix from this input to this layout and copies frames, which "
                                    "scrambles planar data of another channel count; leave out --planar or choose "
                                    "another --layout");
    const FileOrder to_file = file_order(report.stream_output_map);
    report.output_map = reordered(report.stream_output_map, to_file.order);
    report.output_mask = to_file.mask;

    const SampleFormat samples = report.stream.samples;
    AudioWriter writer(options.output, reader, samples, to_file.positions);
    report.output_format = format_description(writer.format());
    add_notices(report, writer, to_file);

    const size_t block = options.block_frames, sample_bytes = bytes_per_sample(samples);
    std::vector<std::byte> file_in(block * inputs * sample_bytes), stream_in(file_in.size());
    std::vector<std::byte> file_out(block * outputs * sample_bytes), stream_out(file_out.size());
    LevelMeter input_meter(inputs), output_meter(outputs);
    Progress progress(reader.frames());
    const uint64_t latency = report.module.latency_frames;
    uint64_t read = 0, fed = 0, written = 0;
    for (bool ended = false; !ended || written < read;) {
        if (caught_signal)
            throw Error(Status::output, "interrupted; nothing was written");
        const size_t got = ended ? 0 : reader.read(samples, file_in.data(), block);
        ended = ended || got < block;
        read += got;
        // Behind the end come just enough zeros to push the last frame out of the limiter's delay, in whole chunks.
        const uint64_t wanted = ended ? read + latency - fed : block;
        const size_t frames =
            std::min<uint64_t>(block, (wanted + ACLI_MAX_CHUNK - 1) / ACLI_MAX_CHUNK * ACLI_MAX_CHUNK);
        if (frames == 0)
            break;
        std::fill(file_in.begin() + static_cast<long>(got * inputs * sample_bytes), file_in.end(), std::byte{0});
        input_meter.add(file_in.data(), got, samples);
        file_to_stream(file_in.data(), stream_in.data(), frames, to_stream, sample_bytes, options.planar);

        const auto called = Clock::now();
        stream.process(stream_in.data(), stream_out.data(), frames);
        report.module_seconds += seconds_since(called);

        // Frame p of the stream is frame p - latency of the file.
        stream_to_file(stream_out.data(), file_out.data(), frames, to_file.order, sample_bytes, options.planar);
        const size_t skipped = std::min<uint64_t>(frames, latency > fed ? latency - fed : 0);
        const size_t kept = std::min<uint64_t>(frames - skipped, read - written);
        const std::byte* first = file_out.data() + skipped * outputs * sample_bytes;
        output_meter.add(first, kept, samples);
        writer.write(samples, first, kept);
        fed += frames;
        written += kept;
        progress.update(written);
    }
    writer.commit();
    report.frames = written;
    report.input_levels = input_meter.levels();
    report.output_levels = output_meter.levels();
    report.total_seconds = seconds_since(start);
    return report;
}

} // namespace host
