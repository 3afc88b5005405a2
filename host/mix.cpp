// korla-host mix in its steps: open the files, open the stream, run it, say what happened.
#include "mix.h"

#include <algorithm>

#include "error.h"
#include "flush_to_zero.h"
#include "plot.h"
#include "text.h"

namespace host {
namespace {

constexpr size_t reason_bytes = 300;

void check(korla_status status, const char* reason) {
    if (status == KORLA_OK)
        return;
    const Status kind = status == KORLA_NO_MEMORY ? Status::processing : Status::layout;
    throw Error(kind, *reason ? reason : korla_status_text(status));
}

uint32_t format_code(SampleFormat samples) {
    switch (samples) {
    case SampleFormat::s16: return KORLA_S16;
    case SampleFormat::s24: return KORLA_S24_32;
    case SampleFormat::s32: return KORLA_S32;
    default: return KORLA_F32;
    }
}

korla_layout layout_of(const ChannelMap& map) {
    korla_layout layout{};
    layout.count = static_cast<uint32_t>(map.size()); // too many are refused by the library
    std::copy_n(map.begin(), std::min<size_t>(map.size(), KORLA_MAX_SPEAKERS), layout.speakers);
    return layout;
}

// A name or a list of speakers of an option.
ChannelMap parse_speakers(const std::string& text, const char* option) {
    korla_layout layout;
    char reason[reason_bytes] = "";
    if (const korla_status status = korla_layout_parse(text.c_str(), &layout, reason, sizeof reason))
        throw Error(Status::layout, format_text("%s: %s", option, *reason ? reason : korla_status_text(status)));
    return {layout.speakers, layout.speakers + layout.count};
}

std::string layout_title(const ChannelMap& map) {
    const korla_layout layout = layout_of(map);
    const char* name = korla_layout_name(&layout);
    return name ? name : speaker_names(map, ",");
}

// A stream in push mode.
class Mixer {
public:
    Mixer(const MixReport& report, const MixOptions& options) {
        korla_stream_config config{};
        config.size = sizeof config;
        config.rate = report.sample_rate;
        config.in = layout_of(report.input_map);
        config.out = layout_of(report.output_map);
        config.in_format = config.out_format = format_code(report.samples);
        const bool controlled = !options.limiter || std::any_of(options.controls.begin(), options.controls.end(),
                                                                [](auto& c) { return c; });
        config.flags = controlled ? KORLA_CONTROLLABLE : 0;
        korla_stream* stream = nullptr;
        char reason[reason_bytes] = "";
        check(korla_stream_open(&config, nullptr, 0, &stream, reason, sizeof reason), reason);
        stream_.reset(stream, korla_stream_close);
        for (uint32_t i = 0; i < level_controls.size(); i++)
            if (options.controls[i] && korla_stream_set(stream, i, *options.controls[i]) != KORLA_OK)
                throw Error(Status::usage, format_text("--%s %g: out of its range; %s", level_controls[i].name,
                                                       double(*options.controls[i]), level_controls[i].help));
        if (!options.limiter)
            check(korla_stream_set(stream, KORLA_LIMITER, 0), "");
    }

    bool copies() const { return korla_stream_latency(stream_.get()) == 0; }
    Matrix matrix(const ChannelMap& inputs, const ChannelMap& outputs, uint32_t& source) const {
        std::vector<float> gains(inputs.size() * outputs.size());
        check(korla_stream_matrix(stream_.get(), gains.data(), &source), "");
        Matrix matrix{inputs, outputs, {}};
        for (auto row = gains.begin(); row != gains.end(); row += static_cast<long>(inputs.size()))
            matrix.gain.emplace_back(row, row + static_cast<long>(inputs.size()));
        return matrix;
    }
    size_t process(const std::byte* in, size_t frames, std::byte* out) {
        const void* source = in;
        void* sink = out;
        size_t produced = 0;
        check(korla_stream_process(stream_.get(), &source, frames, &sink, frames + held_back, &produced), "");
        return produced;
    }
    size_t drain(std::byte* out) {
        void* sink = out;
        size_t produced = 0;
        check(korla_stream_drain(stream_.get(), &sink, held_back, &produced), "");
        return produced;
    }
    korla_meters meters() {
        korla_meters meters{};
        meters.size = sizeof meters;
        check(korla_stream_meters(stream_.get(), &meters), "");
        return meters;
    }

    static constexpr size_t held_back = 63; // frames, at the most

private:
    std::shared_ptr<korla_stream> stream_;
};

void run_mixer(MixReport& report, const MixOptions& options, Mixer& mixer, AudioReader& reader, AudioWriter& writer) {
    Processor processor;
    processor.samples = report.samples;
    processor.block_frames = report.block_frames;
    processor.held_back = Mixer::held_back;
    for (size_t c = 0; c < report.input_map.size(); c++)
        processor.to_stream.push_back(c);
    for (size_t c = 0; c < report.output_map.size(); c++)
        processor.to_file.push_back(c);

    report.gain_reduction = Envelope(1);
    uint64_t given = 0;
    auto watch = [&](size_t produced) {
        const korla_meters meters = mixer.meters();
        report.gain_reduction_db = std::max<double>(report.gain_reduction_db, meters.gain_reduction_db);
        report.gain_reduction.add(given, produced, 0, meters.gain_reduction_db);
        report.silenced = std::max(report.silenced, meters.silenced); // a drain resets it
        given += produced;
        return produced;
    };
    processor.process = [&](auto in, auto out, size_t frames) { return watch(mixer.process(in, frames, out)); };
    processor.drain = [&](auto out) { return watch(mixer.drain(out)); };

    ClippingMeter clipping(report.matrix, processor.to_stream, report.samples);
    const bool stream_clips = report.samples != SampleFormat::f32 && !report.limiter;
    convert(report, options, reader, writer, processor, stream_clips ? &clipping : nullptr);
}

} // namespace

const char* source_name(uint32_t matrix_source) {
    switch (matrix_source) {
    case KORLA_MATRIX_GIVEN: return "given";
    case KORLA_MATRIX_MODULE: return "module";
    default: return "derived";
    }
}

MixReport mix(const MixOptions& options) {
    const auto start = Clock::now();
    flush_to_zero();
    const FileOrder order = file_order(parse_speakers(options.to, "--to"));
    AudioReader reader(options.input, options.accept_truncated, options.raw);
    MixReport report;
    ConversionOptions in_names = options;
    if (!options.map.empty())
        in_names.map = speaker_names(parse_speakers(options.map, "--from"), ",");
    describe_input(report, in_names, reader, "--from");
    report.output_map = reordered(parse_speakers(options.to, "--to"), order.order);
    report.from_name = layout_title(report.input_map);
    report.to_name = layout_title(report.output_map);
    report.controls = options.controls;
    report.limiter = options.limiter;

    Mixer mixer(report, options);
    report.copies = mixer.copies();
    report.matrix = mixer.matrix(report.input_map, report.output_map, report.matrix_source);
    if (report.copies)
        report.notices.push_back("nothing is to be changed: samples are copied as they are");
    AudioWriter writer(options.output, reader, report.samples, order.mask, options.writer);
    describe_output(report, writer, order);
    run_mixer(report, options, mixer, reader, writer);
    if (report.silenced > 0)
        report.notices.push_back(
            format_text("%llu samples of the input are no numbers, infinite or huge; they count as "
                        "silence",
                        static_cast<unsigned long long>(report.silenced)));
    report.total_seconds = seconds_since(start);
    if (!options.plot.empty())
        plot(options.plot, report, &report.gain_reduction);
    return report;
}

} // namespace host
