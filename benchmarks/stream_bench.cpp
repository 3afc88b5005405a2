// korla-stream beside the module where both give the same samples, and beside the mixers of other programs where the module
// has no matrix: libavfilter's pan and alimiter (the same work), libswresample and GStreamer's audio converter (the matrix
// alone).
#include <korla/stream.h>

#include "mixing.h"

using namespace korla_bench;

namespace {

uint32_t format_of(Sample sample) {
    return sample == Sample::int16 ? KORLA_S16 : sample == Sample::int32 ? KORLA_S32 : KORLA_F32;
}

class StreamOf {
public:
    StreamOf(const char* from, const char* to, Sample sample, uint32_t mode) {
        config_.size = sizeof config_;
        config_.rate = sample_rate_hz;
        config_.in_format = config_.out_format = format_of(sample);
        config_.mode = mode;
        korla_layout_parse(from, &config_.in, nullptr, 0);
        korla_layout_parse(to, &config_.out, nullptr, 0);
        char reason[200];
        if (korla_stream_open(&config_, nullptr, 0, &stream_, reason, sizeof reason) != KORLA_OK) {
            std::fprintf(stderr, "%s\n", reason);
            std::exit(1);
        }
    }
    ~StreamOf() { korla_stream_close(stream_); }
    StreamOf(const StreamOf&) = delete;
    StreamOf& operator=(const StreamOf&) = delete;

    bool process(const void* in, void* out, int frames) {
        return korla_stream_process(stream_, &in, static_cast<size_t>(frames), &out, static_cast<size_t>(frames) + 31,
                                    nullptr) == KORLA_OK;
    }
    // What the peers of the benchmark are to apply before a limiter at -8 dB.
    std::vector<float> matrix() const {
        std::vector<float> gains(config_.in.count * config_.out.count);
        korla_stream_matrix(stream_, gains.data(), nullptr);
        for (float& gain : gains)
            gain *= limit;
        return gains;
    }
    int inputs() const { return static_cast<int>(config_.in.count); }
    int outputs() const { return static_cast<int>(config_.out.count); }

private:
    korla_stream_config config_ = {};
    korla_stream* stream_ = nullptr;
};

constexpr struct Mode {
    const char* name;
    uint32_t mode;
} modes[] = {{"push", KORLA_PUSH}, {"same length", KORLA_SAME_LENGTH}, {"same, by 32", KORLA_SAME_LENGTH_32}};

void beside_the_module() {
    struct {
        const char *from, *to;
        ModuleFormat module;
    } const pairs[] = {
        {"5.1", "stereo", {{1, 2, 3, 6, 4, 5}, true, 0}},
        {"7.1", "stereo", {{1, 2, 3, 6, 4, 5, 8, 9}, true, 0}},
        {"7.1", "5.1", {{1, 2, 3, 6, 4, 5, 8, 9}, true, 15}},
    };
    std::printf("%s per frame; the module in calls of as many frames, ratio to it; 64 frames against its 256\n\n", unit());
    std::printf("%-14s %-4s %-12s %6s %9s %9s %7s\n", "pair", "fmt", "mode", "frames", "stream", "module", "ratio");
    GeometricMean whole, small;
    for (const auto& pair : pairs)
        for (Sample sample : {Sample::int16, Sample::int32, Sample::float32})
            for (const Mode& mode : modes)
                for (int frames : counted ? std::vector{64, 1024} : std::vector{64, 256, 1024, 4096}) {
                    StreamOf stream(pair.from, pair.to, sample, mode.mode);
                    ModuleStream module(pair.module, sample);
                    const int module_frames = std::max(frames, 256);
                    const auto in = noise(sample, static_cast<size_t>(module_frames) * stream.inputs());
                    std::vector<char> out(static_cast<size_t>(module_frames + 32) * stream.outputs() * 4);
                    std::vector<Contender> contenders = {
                        {"stream", repeated([&] { return stream.process(in.data(), out.data(), frames); })},
                        {"module", repeated([&] { return module.process(in.data(), out.data(), module_frames); })},
                    };
                    measure(contenders, 41, 100.0);
                    const double ns = contenders[0].ns / frames, module_ns = contenders[1].ns / module_frames;
                    (frames == 64 ? small : whole).add(ns / module_ns);
                    std::printf("%-5s-> %-6s %-4s %-12s %6d %9.2f %9.2f %7.2f\n", pair.from, pair.to, name_of(sample),
                                mode.name, frames, ns, module_ns, ns / module_ns);
                }
    std::printf("\nstream: stream / module %.2f, at 64 frames a call %.2f (geometric means over %d and %d cases)\n\n",
                whole.value(), small.value(), whole.count(), small.count());
}

void beside_others() {
    constexpr struct { const char *from, *to; } pairs[] = {{"7.1.4", "stereo"}, {"7.1.4", "5.1"}};
    std::printf("%-14s %-4s %6s %9s %9s %9s %9s | %9s %9s\n", "pair", "fmt", "frames", "stream", "pan+lim", "swr",
                "gst", "pan+lim/", "bare mix/");
    GeometricMean same_work, bare_mixer;
    for (const auto& pair : pairs)
        for (Sample sample : {Sample::int16, Sample::int32, Sample::float32})
            for (int frames : sizes({64, 441, 1024, 4096}, 1024)) {
                StreamOf stream(pair.from, pair.to, sample, KORLA_PUSH);
                const MixJob job = {sample,          stream.inputs(), stream.outputs(), sample_rate_hz, frames,
                                    stream.matrix(), limit,           make_up_gain};
                auto graph = make_avfilter_peer(job), swr = make_swresample_peer(job), gst = make_gstreamer_peer(job);
                const auto in = noise(sample, static_cast<size_t>(frames) * stream.inputs());
                std::vector<char> out(static_cast<size_t>(frames + 8192) * stream.outputs() * 4);
                std::vector<Contender> contenders = {
                    {"stream", repeated([&] { return stream.process(in.data(), out.data(), frames); })},
                    {"graph", repeated([&] { return graph->process(in.data(), out.data(), frames); })},
                    {"swr", repeated([&] { return swr->process(in.data(), out.data(), frames); })},
                    {"gst", repeated([&] { return gst->process(in.data(), out.data(), frames); })},
                };
                measure(contenders, 15, 400.0);
                double ns[4];
                for (int i = 0; i < 4; i++)
                    ns[i] = contenders[i].ns / frames;
                same_work.add(ns[1] / ns[0]);
                bare_mixer.add(std::min(ns[2], ns[3]) / ns[0]);
                std::printf("%-5s-> %-6s %-4s %6d %9.2f %9.2f %9.2f %9.2f | %9.1f %9.2f\n", pair.from, pair.to,
                            name_of(sample), frames, ns[0], ns[1], ns[2], ns[3], ns[1] / ns[0],
                            std::min(ns[2], ns[3]) / ns[0]);
            }
    std::printf(
        "\nstream: pan+alimiter / stream %.1f, fastest bare mixer / stream %.2f (geometric means over %d cases)\n",
        same_work.value(), bare_mixer.value(), same_work.count());
}

} // namespace

int main() {
    beside_the_module();
    beside_others();
}
