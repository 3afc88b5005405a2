// libswresample with a custom matrix at equal sample rates: conversion and mixing, no limiter.
#include "peer.h"

extern "C" {
#include <libswresample/swresample.h>
}

namespace korla_bench {
namespace {

class SwresamplePeer : public Peer {
public:
    explicit SwresamplePeer(const MixJob& job) {
        AVChannelLayout in, out;
        av_channel_layout_default(&in, job.inputs);
        av_channel_layout_default(&out, job.outputs);
        const AVSampleFormat format = job.sample == Sample::int16   ? AV_SAMPLE_FMT_S16
                                      : job.sample == Sample::int32 ? AV_SAMPLE_FMT_S32
                                                                    : AV_SAMPLE_FMT_FLT;
        std::vector<double> matrix(job.matrix.begin(), job.matrix.end());
        ready_ = swr_alloc_set_opts2(&context_, &out, format, job.sample_rate_hz, &in, format, job.sample_rate_hz, 0,
                                     nullptr) >= 0 &&
                 swr_set_matrix(context_, matrix.data(), job.inputs) >= 0 && swr_init(context_) >= 0;
    }
    ~SwresamplePeer() override { swr_free(&context_); }

    bool process(const void* in, void* out, int frames) override {
        const auto* source = static_cast<const uint8_t*>(in);
        auto* destination = static_cast<uint8_t*>(out);
        return ready_ && swr_convert(context_, &destination, frames, &source, frames) == frames;
    }

private:
    SwrContext* context_ = nullptr;
    bool ready_ = false;
};

} // namespace

std::unique_ptr<Peer> make_swresample_peer(const MixJob& job) { return std::make_unique<SwresamplePeer>(job); }

} // namespace korla_bench
