// The module path against the field: the same mix through libavfilter's pan and alimiter (the same work), through
// libswresample and GStreamer's audio converter (the matrix alone, no limiter), and memcpy of the bytes (the floor).
#include <korla/acli.h>

#include <algorithm>
#include <cstring>
#include <map>
#include <string>

#include "mixing.h"

using namespace korla_bench;

namespace {

const std::vector<int> block_sizes = sizes({256, 512, 1024, 2048, 4096, 8192}, 1024);

struct Case : ModuleFormat {
    const char* name;
};
const Case cases[] = {
    {{{1, 2, 3, 6, 4, 5}, true, 0}, "5.1 to 2.0"},
    {{{2, 1, 3, 6, 4, 5, 8, 9, 35, 36, 37, 38}, false, 0}, "7.1.4 reordered"}, // mixed, since the maps differ
    {{{1, 2, 3, 6, 13, 14}, false, 0}, "5.1 with front pair of centre"},
};
const Case pass_through = {{{1, 2, 3, 6, 4, 5, 8, 9}, true, 27}, "7.1 passed through"};

// The matrix that the module applies, heard one channel at a time below the limiter's threshold.
std::vector<float> measured_matrix(const Case& which) {
    ModuleStream stream(which, Sample::float32);
    const int inputs = static_cast<int>(which.map.size()), outputs = stream.outputs();
    constexpr float level = 0.125f;
    std::vector<float> matrix(static_cast<size_t>(inputs) * outputs), in(256 * inputs), out(256 * outputs);
    for (int i = 0; i < inputs; i++) {
        std::fill(in.begin(), in.end(), 0.0f);
        for (int t = 0; t < 256; t++)
            in[t * inputs + i] = level;
        stream.process(in.data(), out.data(), 256);
        for (int o = 0; o < outputs; o++)
            matrix[o * inputs + i] = out[255 * outputs + o] / level / make_up_gain;
    }
    return matrix;
}

} // namespace

int main() {
    std::printf("%s per frame; ratios are the other's over the module's (above 1: the module is faster)\n\n", unit());
    std::printf("%-30s %-4s %7s %9s %9s %9s %9s %9s | %9s %9s\n", "case", "fmt", "frames", "module", "pan+lim", "swr",
                "gst", "memcpy", "pan+lim/", "bare mix/");
    GeometricMean same_work, bare_mixer;
    std::map<std::string, GeometricMean> same_work_of, bare_mixer_of;
    double flatness = 0.0;
    for (const Case& which : cases) {
        const std::vector<float> matrix = measured_matrix(which);
        for (Sample sample : {Sample::int16, Sample::int32, Sample::float32}) {
            double first_ns = 0.0;
            for (int frames : block_sizes) {
                ModuleStream stream(which, sample);
                const int inputs = static_cast<int>(which.map.size()), outputs = stream.outputs();
                const MixJob job = {sample, inputs, outputs, sample_rate_hz, frames, matrix, limit, make_up_gain};
                auto graph = make_avfilter_peer(job), swr = make_swresample_peer(job), gst = make_gstreamer_peer(job);
                const auto in = noise(sample, static_cast<size_t>(frames) * inputs);
                std::vector<char> out(static_cast<size_t>(frames + 8192) * std::max(inputs, outputs) * 4);
                const size_t copied = static_cast<size_t>(frames) * std::min(inputs, outputs) * bytes_of(sample);
                std::vector<Contender> contenders = {
                    {"module", repeated([&] { return stream.process(in.data(), out.data(), frames); })},
                    {"graph", repeated([&] { return graph->process(in.data(), out.data(), frames); })},
                    {"swr", repeated([&] { return swr->process(in.data(), out.data(), frames); })},
                    {"gst", repeated([&] { return gst->process(in.data(), out.data(), frames); })},
                    {"memcpy", repeated([&] {
                         std::memcpy(out.data(), in.data(), copied);
                         keep(out.data());
                         return true;
                     })},
                };
                measure(contenders, 15, 400.0);
                double ns[5];
                for (int i = 0; i < 5; i++)
                    ns[i] = contenders[i].ns / frames;
                const double to_graph = ns[1] / ns[0], to_mixer = std::min(ns[2], ns[3]) / ns[0];
                same_work.add(to_graph), same_work_of[which.name].add(to_graph);
                bare_mixer.add(to_mixer), bare_mixer_of[which.name].add(to_mixer);
                if (frames == block_sizes[0])
                    first_ns = ns[0];
                flatness = std::max(flatness, std::max(ns[0] / first_ns, first_ns / ns[0]));
                std::printf("%-30s %-4s %7d %9.2f %9.2f %9.2f %9.2f %9.2f | %9.1f %9.2f\n", which.name, name_of(sample),
                            frames, ns[0], ns[1], ns[2], ns[3], ns[4], to_graph, to_mixer);
            }
        }
    }
    std::printf("\n%-30s %-4s %7s %9s %9s | %9s\n", "case", "fmt", "frames", "module", "memcpy", "module/");
    GeometricMean copy;
    for (Sample sample : {Sample::int16, Sample::int32, Sample::float32})
        for (int frames : block_sizes) {
            ModuleStream stream(pass_through, sample);
            const int channels = stream.outputs();
            const auto in = noise(sample, static_cast<size_t>(frames) * channels);
            std::vector<char> out(in.size());
            std::vector<Contender> contenders = {
                {"module", repeated([&] { return stream.process(in.data(), out.data(), frames); })},
                {"memcpy", repeated([&] {
                     std::memcpy(out.data(), in.data(), in.size());
                     keep(out.data());
                     return true;
                 })},
            };
            measure(contenders, 101, 50.0);
            copy.add(contenders[0].ns / contenders[1].ns);
            std::printf("%-30s %-4s %7d %9.3f %9.3f | %9.2f\n", pass_through.name, name_of(sample), frames,
                        contenders[0].ns / frames, contenders[1].ns / frames, contenders[0].ns / contenders[1].ns);
        }

    std::printf("\n");
    for (const auto& [name, mean] : same_work_of)
        std::printf("%s: pan+alimiter / module %.1f, fastest bare mixer / module %.2f (geometric means)\n",
                    name.c_str(), mean.value(), bare_mixer_of[name].value());
    std::printf("module: pan+alimiter / module %.1f, fastest bare mixer / module %.2f, worst change of cost per frame "
                "over block sizes %.2f, pass-through / memcpy %.2f (geometric means over %d cases)\n",
                same_work.value(), bare_mixer.value(), flatness, copy.value(), same_work.count());
}
