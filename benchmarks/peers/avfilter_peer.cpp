// libavfilter: abuffer -> pan -> alimiter -> aformat -> abuffersink, with the conversions that the graph inserts.
#include "peer.h"

extern "C" {
#include <libavfilter/avfilter.h>
#include <libavfilter/buffersink.h>
#include <libavfilter/buffersrc.h>
#include <libavutil/channel_layout.h>
#include <libavutil/frame.h>
#include <libavutil/log.h>
}

#include <cstdio>
#include <cstring>
#include <string>

namespace korla_bench {
namespace {

AVSampleFormat format_of(Sample sample) {
    return sample == Sample::int16   ? AV_SAMPLE_FMT_S16
           : sample == Sample::int32 ? AV_SAMPLE_FMT_S32
                                     : AV_SAMPLE_FMT_FLT;
}

// pan takes layouts by name only; 7.1.4 has none of its own here, so it is spelled out.
std::string layout_of(int channels) {
    if (channels == 12)
        return "FL+FR+FC+LFE+BL+BR+SL+SR+TFL+TFR+TBL+TBR";
    AVChannelLayout layout;
    av_channel_layout_default(&layout, channels);
    char name[64];
    av_channel_layout_describe(&layout, name, sizeof name);
    return name;
}

class AvfilterPeer : public Peer {
public:
    explicit AvfilterPeer(const MixJob& job) : job_(job), graph_(avfilter_graph_alloc()), frame_(av_frame_alloc()) {
        av_log_set_level(AV_LOG_ERROR);
        const char* format = av_get_sample_fmt_name(format_of(job.sample));
        std::string pan = layout_of(job.outputs);
        for (int o = 0; o < job.outputs; o++) {
            std::string terms;
            for (int i = 0; i < job.inputs; i++)
                if (job.matrix[o * job.inputs + i] != 0.0f) {
                    char term[48];
                    std::snprintf(term, sizeof term, "%s%.9g*c%d", terms.empty() ? "" : "+",
                                  job.matrix[o * job.inputs + i], i);
                    terms += term;
                }
            pan += "|c" + std::to_string(o) + "=" + (terms.empty() ? "0*c0" : terms);
        }
        char limiter[128];
        std::snprintf(limiter, sizeof limiter, "alimiter=limit=%.9g:level_out=%.9g:level=0:attack=1:release=50",
                      job.limit, job.make_up_gain);
        const std::string rate = std::to_string(job.sample_rate_hz);
        const std::string description = "abuffer@in=sample_rate=" + rate + ":sample_fmt=" + format +
                                        ":channel_layout=" + layout_of(job.inputs) + ":time_base=1/" + rate +
                                        ",pan=" + pan + "," + limiter + ",aformat=sample_fmts=" + format +
                                        ",abuffersink@out";
        AVFilterInOut *inputs = nullptr, *outputs = nullptr;
        ready_ = avfilter_graph_parse2(graph_, description.c_str(), &inputs, &outputs) >= 0 &&
                 avfilter_graph_config(graph_, nullptr) >= 0;
        if (!ready_)
            std::fprintf(stderr, "no graph for: %s\n", description.c_str());
        source_ = avfilter_graph_get_filter(graph_, "abuffer@in");
        sink_ = avfilter_graph_get_filter(graph_, "abuffersink@out");
        ready_ = ready_ && source_ && sink_;
        output_ = av_frame_alloc();
    }
    ~AvfilterPeer() override {
        av_frame_free(&frame_);
        av_frame_free(&output_);
        avfilter_graph_free(&graph_);
    }

    bool process(const void* in, void* out, int frames) override {
        if (!ready_)
            return false;
        if (frame_->nb_samples != frames) {
            av_frame_unref(frame_);
            frame_->nb_samples = frames;
            frame_->format = format_of(job_.sample);
            frame_->sample_rate = job_.sample_rate_hz;
            av_channel_layout_from_string(&frame_->ch_layout, layout_of(job_.inputs).c_str());
            if (av_frame_get_buffer(frame_, 0) < 0)
                return false;
        }
        std::memcpy(frame_->data[0], in, bytes_of(job_.sample) * job_.inputs * frames);
        frame_->pts = next_pts_;
        next_pts_ += frames;
        if (av_buffersrc_add_frame_flags(source_, frame_, AV_BUFFERSRC_FLAG_KEEP_REF) < 0)
            return false;
        auto* position = static_cast<char*>(out);
        while (av_buffersink_get_frame(sink_, output_) >= 0) {
            const size_t bytes = bytes_of(job_.sample) * job_.outputs * output_->nb_samples;
            std::memcpy(position, output_->data[0], bytes);
            position += bytes;
            av_frame_unref(output_);
        }
        return true;
    }

private:
    MixJob job_;
    AVFilterGraph* graph_;
    AVFilterContext *source_ = nullptr, *sink_ = nullptr;
    AVFrame *frame_, *output_ = nullptr;
    int64_t next_pts_ = 0;
    bool ready_ = false;
};

} // namespace

std::unique_ptr<Peer> make_avfilter_peer(const MixJob& job) { return std::make_unique<AvfilterPeer>(job); }

} // namespace korla_bench
