// The module path against the field: the same mix through libavfilter's pan and alimiter (the same work), through
// libswresample and GStreamer's audio converter (the matrix alone, no limiter), and memcpy of the bytes (the floor).
#include <korla/acli.h>

#include <algorithm>
#include <cstring>
#include <map>
#include <string>

#include "alternating.h"
#include "peers/peer.h"

using namespace korla_bench;

namespace {

constexpr int sample_rate_hz = 48000;
constexpr float limit = 0.398107171f, make_up_gain = 2.5118864f;
constexpr int block_sizes[] = {256, 512, 1024, 2048, 4096, 8192};

struct Case {
    const char* name;
    std::vector<uint32_t> map; // host channel codes
    bool explicit_layout;
    uint32_t layout_index;
};
const Case cases[] = {
    {"5.1 to 2.0", {1, 2, 3, 6, 4, 5}, true, 0},
    {"7.1.4 reordered", {2, 1, 3, 6, 4, 5, 8, 9, 35, 36, 37, 38}, false, 0}, // mixed, since the maps differ
    {"5.1 with front pair of centre", {1, 2, 3, 6, 13, 14}, false, 0},
};
const Case pass_through = {"7.1 passed through", {1, 2, 3, 6, 4, 5, 8, 9}, true, 27};

// One configured stream.
class Stream {
public:
    Stream(const Case& which, Sample sample) : sample_(sample), inputs_(static_cast<uint32_t>(which.map.size())) {
        ACLI.create(0, 0, &handle_);
        acli_media_format format{};
        format.input_channel_count = inputs_;
        format.sample_rate = sample_rate_hz;
        format.interleaved = 1;
        format.explicit_layout = which.explicit_layout;
        format.layout_index = which.layout_index;
        format.sample_format = sample == Sample::int16   ? ACLI_SAMPLE_INT16
                               : sample == Sample::int32 ? ACLI_SAMPLE_INT32
                                                         : ACLI_SAMPLE_FLOAT32;
        std::copy(which.map.begin(), which.map.end(), format.input_channel_map);
        const acli_param_value value = {ACLI_MODE_APPLY, 0, &format};
        ACLI.set_param(handle_, ACLI_PARAM_MEDIA_FORMAT, 0, 0, &value);
        outputs_ = format.output_channel_count;
    }
    ~Stream() { ACLI.destroy(handle_); }
    Stream(const Stream&) = delete;
    Stream& operator=(const Stream&) = delete;

    int outputs() const { return static_cast<int>(outputs_); }
    bool process(const void* in, void* out, int frames) {
        const auto sample_bytes = static_cast<uint32_t>(bytes_of(sample_));
        acli_buffer source{}, destination{};
        source.bytes = static_cast<uint32_t>(frames) * inputs_ * sample_bytes;
        source.data = const_cast<void*>(in);
        source.channels = inputs_;
        source.bits_per_sample = 8 * sample_bytes;
        destination.bytes = static_cast<uint32_t>(frames) * outputs_ * sample_bytes;
        destination.data = out;
        return ACLI.process(handle_, &source, &destination) == ACLI_OK;
    }

private:
    void* handle_ = nullptr;
    Sample sample_;
    uint32_t inputs_, outputs_ = 0;
};

// The matrix that the module applies, heard one channel at a time below the limiter's threshold.
std::vector<float> measured_matrix(const Case& which) {
    Stream stream(which, Sample::float32);
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

// Noise at half of full scale.
std::vector<char> noise(Sample sample, size_t samples) {
    std::vector<char> bytes(samples * bytes_of(sample));
    uint64_t state = 1;
    for (size_t i = 0; i < samples; i++) {
        state = state * 6364136223846793005u + 1442695040888963407u;
        const double x = static_cast<double>(static_cast<int32_t>(state >> 32)) / 4294967296.0;
        if (sample == Sample::float32) {
            const auto value = static_cast<float>(x);
            std::memcpy(bytes.data() + 4 * i, &value, 4);
        } else if (sample == Sample::int32) {
            const auto value = static_cast<int32_t>(x * 2147483647.0);
            std::memcpy(bytes.data() + 4 * i, &value, 4);
        } else {
            const auto value = static_cast<int16_t>(x * 32767.0);
            std::memcpy(bytes.data() + 2 * i, &value, 2);
        }
    }
    return bytes;
}

template <class F> std::function<void(int)> repeated(F process) {
    return [process](int repeats) {
        for (int r = 0; r < repeats; r++)
            if (!process()) {
                std::fprintf(stderr, "a contender failed\n");
                std::exit(1);
            }
    };
}

} // namespace

int main() {
    std::printf("ns per frame; ratios are the other's time over the module's (above 1: the module is faster)\n\n");
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
                Stream stream(which, sample);
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
            Stream stream(pass_through, sample);
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
