// A program that does the module's work, or a part of it, on the same interleaved samples.
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

namespace korla_bench {

enum class Sample { int16, int32, float32 };
inline size_t bytes_of(Sample sample) { return sample == Sample::int16 ? 2 : 4; }
inline const char* name_of(Sample sample) {
    return sample == Sample::int16 ? "s16" : sample == Sample::int32 ? "s32" : "f32";
}

struct MixJob {
    Sample sample;
    int inputs, outputs;
    int sample_rate_hz;
    int max_frames;
    std::vector<float> matrix; // [outputs][inputs]
    float limit, make_up_gain; // of the limiter, linear
};

class Peer {
public:
    virtual ~Peer() = default;
    // Interleaved frames in, interleaved frames out. False: the peer failed.
    virtual bool process(const void* in, void* out, int frames) = 0;
};

std::unique_ptr<Peer> make_avfilter_peer(const MixJob& job);   // pan and alimiter: the same work
std::unique_ptr<Peer> make_swresample_peer(const MixJob& job); // the matrix alone
std::unique_ptr<Peer> make_gstreamer_peer(const MixJob& job);  // the matrix alone

} // namespace korla_bench
