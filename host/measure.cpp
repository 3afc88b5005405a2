// Measuring a stream by impulses.
#include "measure.h"

#include <cmath>

#include "error.h"
#include "text.h"

namespace host {

Measurement measure(const Module& module, StreamFormat format) {
    constexpr float amplitude = 0.125f; // far below the limiter's threshold
    constexpr size_t frames = 2 * ACLI_MAX_CHUNK;
    format.samples = SampleFormat::f32;
    format.planar = false;
    Stream stream(module);
    const ChannelMap output_map = stream.configure(format).map;
    const size_t outputs = output_map.size(), inputs = format.input.size();
    std::vector<float> in(frames * inputs), out(frames * outputs);
    auto process = [&] {
        stream.process(reinterpret_cast<std::byte*>(in.data()), reinterpret_cast<std::byte*>(out.data()), frames);
    };
    process(); // the make-up gain fades in at the start of a stream

    Measurement result;
    auto& gain = result.matrix.gain;
    result.matrix = {format.input, output_map, {outputs, std::vector<double>(inputs, 0.0)}};
    bool heard = false;
    for (size_t c = 0; c < inputs; c++) {
        in[c] = amplitude;
        process();
        in[c] = 0.0f;
        size_t peak = 0;
        for (size_t i = 0; i < out.size(); i++)
            peak = std::fabs(out[i]) > std::fabs(out[peak]) ? i : peak;
        if (out[peak] == 0.0f)
            continue; // a channel that goes nowhere
        const auto latency = static_cast<uint32_t>(peak / outputs);
        if (heard && latency != result.latency_frames)
            throw Error(Status::processing, format_text("the module delays input %zu by %u frames, others by %u", c,
                                                        latency, result.latency_frames));
        heard = true;
        result.latency_frames = latency;
        for (size_t o = 0; o < outputs; o++)
            gain[o][c] = double(out[latency * outputs + o]) / amplitude;
    }
    result.pass_through = heard && result.latency_frames == 0;
    for (size_t o = 0; o < outputs; o++)
        for (size_t c = 0; c < inputs; c++)
            result.pass_through = result.pass_through && gain[o][c] == (o == c ? 1.0 : 0.0);
    return result;
}

} // namespace host
