// Timing the module over block sizes and formats.
#include "bench.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstring>
#include <random>

#include "flush_to_zero.h"

namespace host {
namespace {

// Noise at about -15 dBFS, so that the limiter works now and then as it does on music.
std::vector<std::byte> noise(size_t samples, SampleFormat format) {
    std::vector<std::byte> data(samples * bytes_per_sample(format));
    std::minstd_rand random(1);
    std::uniform_real_distribution<double> uniform(-0.3, 0.3);
    for (size_t i = 0; i < samples; i++) {
        const double x = uniform(random);
        const auto store = [&](auto value) { std::memcpy(data.data() + i * sizeof value, &value, sizeof value); };
        if (format == SampleFormat::s16)
            store(static_cast<int16_t>(x * 0x1p15));
        else if (format == SampleFormat::s32)
            store(static_cast<int32_t>(x * 0x1p31));
        else
            store(static_cast<float>(x));
    }
    return data;
}

} // namespace

BenchReport bench(const BenchOptions& options) {
    using Clock = std::chrono::steady_clock;
    flush_to_zero();
    const Module module(options.library);
    const ChannelMap map = parse_map(options.map);
    BenchReport report;
    report.library = module.path();
    report.input = reordered(map, canonical_order(map));
    report.sample_rate = options.sample_rate;
    for (const bool planar : {false, true})
        for (const auto samples : {SampleFormat::s16, SampleFormat::s32, SampleFormat::f32})
            for (size_t block = 256; block <= 8192; block *= 2) {
                Stream stream(module);
                const StreamOutput output = stream.configure(
                    {report.input, options.sample_rate, samples, planar, parse_layout(options.layout)});
                report.output = output.map;
                const auto in = noise(block * map.size(), samples);
                std::vector<std::byte> out(block * output.map.size() * bytes_per_sample(samples));
                stream.process(in.data(), out.data(), block); // allocates
                double best = INFINITY;
                for (size_t frames = 0; frames < 400000; frames += block) {
                    const auto start = Clock::now();
                    stream.process(in.data(), out.data(), block);
                    const std::chrono::duration<double, std::nano> time = Clock::now() - start;
                    best = std::min(best, time.count() / static_cast<double>(block));
                }
                report.rows.push_back({samples, planar, block, best});
            }
    return report;
}

} // namespace host
