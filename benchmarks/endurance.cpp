// Long runs of the module: whether a stream that has been running for days is still what a new one is, and whether any chunk
// takes much longer than others.
#include <chrono>
#include <cmath>
#include <cstdint>
#include <cstdio>

#include "mixing.h"

namespace {

using namespace korla_bench;

constexpr int chunk_frames = 256;
constexpr uint64_t samples_in_all = 10'000'000'000;
constexpr uint32_t chunks_timed = 1'000'000, passes = 5;

enum Kind : uint32_t { quiet, loud, silent, denormal, clicks, kinds };
constexpr const char* kind_names[] = {"quiet", "beyond full scale", "silence", "denormal", "clicks"};
constexpr uint32_t variants = 16; // of each kind

uint32_t next_random(uint32_t& state) { return state = state * 1664525u + 1013904223u; }

// What a chunk of a kind sounds like, sample by sample: noise, a full-scale peak now and then, a tail below the normal floats.
float sample_of(Kind kind, uint32_t& state) {
    const float noise = static_cast<float>(static_cast<int32_t>(next_random(state))) * 0x1p-31f;
    switch (kind) {
    case quiet: return 0.1f * noise;
    case loud: return 1.5f * noise;
    case denormal: return 0x1p-130f * noise;
    case clicks: return next_random(state) >> 22 == 0 ? std::copysign(1.0f, noise) : 0.0f;
    default: return 0.0f;
    }
}

// Chunks of every kind, and the order in which they come: one kind for some hundred milliseconds, then another.
class Signal {
public:
    Signal(Sample sample, int channels) : bytes_(size_t{chunk_frames} * channels * bytes_of(sample)) {
        uint32_t state = 1;
        for (uint32_t c = 0; c < kinds * variants; c++)
            for (int i = 0; i < chunk_frames * channels; i++) {
                const float x = sample_of(static_cast<Kind>(c / variants), state);
                if (sample == Sample::int16) {
                    const auto integer =
                        static_cast<int16_t>(std::lrint(std::fmax(-32768.0f, std::fmin(32767.0f, x * 32768.0f))));
                    append(&integer, sizeof integer);
                } else {
                    append(&x, sizeof x);
                }
            }
    }
    void restart() { state_ = 7, left_ = 0; }
    const void* next() {
        if (left_-- == 0) {
            kind_ = static_cast<Kind>((next_random(state_) >> 16) % kinds);
            left_ = 20 + (next_random(state_) >> 16) % 100;
        }
        return chunk(kind_, next_random(state_) >> 28);
    }
    const void* chunk(Kind kind, uint32_t variant) const {
        return data_.data() + bytes_ * (kind * variants + variant % variants);
    }
    Kind kind() const { return kind_; }

private:
    void append(const void* x, size_t bytes) {
        data_.insert(data_.end(), static_cast<const char*>(x), static_cast<const char*>(x) + bytes);
    }
    size_t bytes_;
    std::vector<char> data_;
    uint32_t state_ = 7, left_ = 0;
    Kind kind_ = quiet;
};

struct Case {
    const char* name;
    ModuleFormat format;
    Sample sample;
};
const Case cases[] = {
    {"5.1 to 2.0, float", {{1, 2, 3, 6, 4, 5}, true, 0}, Sample::float32},
    {"7.1.4 reordered, int16", {{2, 1, 3, 6, 4, 5, 8, 9, 35, 36, 37, 38}, false, 0}, Sample::int16},
};

double sample_at(const std::vector<char>& bytes, size_t i, Sample sample) {
    float x = 0.0f;
    int16_t integer = 0;
    if (sample == Sample::int16)
        std::memcpy(&integer, &bytes[i * sizeof integer], sizeof integer);
    else
        std::memcpy(&x, &bytes[i * sizeof x], sizeof x);
    return sample == Sample::int16 ? integer / 32768.0 : x;
}

// Whether a stream that has seen all those samples is like a new one, once both have heard the same quiet minute. Integers are
// the same then, whatever comes. Floats differ by where the limiter's gain comes to rest: a little below 1 after work, because its
// last steps round to nothing; of a loud signal that difference may decide which way the gain goes next, so that quiet sound is
// compared.
bool old_as_new(const Case& c) {
    const int channels = static_cast<int>(c.format.map.size());
    Signal signal(c.sample, channels);
    ModuleStream old(c.format, c.sample), fresh(c.format, c.sample);
    const size_t samples = size_t{chunk_frames} * old.outputs();
    std::vector<char> a(samples * bytes_of(c.sample)), b(a.size());
    const uint64_t chunks = samples_in_all / (uint64_t{chunk_frames} * channels);
    const auto start = std::chrono::steady_clock::now();
    bool all_well = true;
    for (uint64_t i = 0; i < chunks; i++)
        all_well &= old.process(signal.next(), a.data(), chunk_frames);
    const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();

    constexpr uint32_t settling = 60 * sample_rate_hz / chunk_frames, compared = 10 * sample_rate_hz / chunk_frames;
    constexpr double allowed = 0x1p-18;
    double greatest = 0.0, loudest = 0.0;
    for (uint32_t i = 0; i < settling + compared; i++) {
        const void* in = i < settling || c.sample == Sample::float32 ? signal.chunk(quiet, i) : signal.next();
        all_well &= old.process(in, a.data(), chunk_frames) && fresh.process(in, b.data(), chunk_frames);
        if (i >= settling)
            for (size_t t = 0; t < samples; t++) {
                const double x = sample_at(a, t, c.sample);
                greatest = std::fmax(greatest, std::fabs(x - sample_at(b, t, c.sample)));
                loudest = std::fmax(loudest, std::fabs(x));
            }
    }
    std::printf(
        "%-23s %llu samples (%.0f h of sound in %.1f s); a new stream then differs by %.1f steps of 2^-24, peak %.2f\n",
        c.name, static_cast<unsigned long long>(chunks * chunk_frames * channels),
        static_cast<double>(chunks * chunk_frames) / sample_rate_hz / 3600, seconds, greatest * 0x1p24, loudest);
    return all_well && greatest <= (c.sample == Sample::int16 ? 0.0 : allowed) && loudest > 0.2;
}

// Each chunk counts with its least time of several passes over the same signal, so that what the system did meanwhile does not
// count as the module's.
void time_chunks(const Case& c) {
    Signal signal(c.sample, static_cast<int>(c.format.map.size()));
    std::vector<float> least(chunks_timed, INFINITY);
    std::vector<uint8_t> kind(chunks_timed);
    for (uint32_t pass = 0; pass < passes; pass++) {
        ModuleStream stream(c.format, c.sample);
        std::vector<char> out(size_t{chunk_frames} * stream.outputs() * bytes_of(c.sample));
        signal.restart();
        for (uint32_t i = 0; i < chunks_timed; i++) {
            const void* in = signal.next();
            const auto start = std::chrono::steady_clock::now();
            stream.process(in, out.data(), chunk_frames);
            const auto end = std::chrono::steady_clock::now();
            least[i] = std::fmin(least[i], std::chrono::duration<float, std::nano>(end - start).count());
            kind[i] = static_cast<uint8_t>(signal.kind());
        }
    }
    least[0] = least[1]; // brings the engine up
    auto quantile = [](std::vector<float> values, double q) {
        std::sort(values.begin(), values.end());
        return values[static_cast<size_t>(q * static_cast<double>(values.size() - 1))];
    };
    const float median = quantile(least, 0.5);
    std::printf("%-23s %u chunks of %d frames: median %.0f ns, 99.9 %% at most %.2f times that, worst %.2f\n", c.name,
                chunks_timed, chunk_frames, median, quantile(least, 0.999) / median, quantile(least, 1.0) / median);
    for (uint32_t k = 0; k < kinds; k++) {
        std::vector<float> of_kind;
        for (uint32_t i = 0; i < chunks_timed; i++)
            if (kind[i] == k)
                of_kind.push_back(least[i]);
        std::printf("    %-18s median %.2f, worst %.2f times the median of all\n", kind_names[k],
                    quantile(of_kind, 0.5) / median, quantile(of_kind, 1.0) / median);
    }
}

} // namespace

int main() {
    bool well = true;
    for (const Case& c : cases)
        well &= old_as_new(c);
    for (const Case& c : cases)
        time_chunks(c);
    return well ? 0 : 1;
}
