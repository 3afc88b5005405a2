// GStreamer's audio converter with a mix matrix: conversion and mixing, no limiter.
#include "peer.h"

#include <gst/audio/audio.h>
#include <gst/gst.h>

namespace korla_bench {
namespace {

class GstreamerPeer : public Peer {
public:
    explicit GstreamerPeer(const MixJob& job) {
        gst_init(nullptr, nullptr);
        const GstAudioFormat format = job.sample == Sample::int16   ? GST_AUDIO_FORMAT_S16LE
                                      : job.sample == Sample::int32 ? GST_AUDIO_FORMAT_S32LE
                                                                    : GST_AUDIO_FORMAT_F32LE;
        GstAudioInfo in, out;
        describe(&in, format, job.sample_rate_hz, job.inputs);
        describe(&out, format, job.sample_rate_hz, job.outputs);

        GValue matrix = G_VALUE_INIT;
        g_value_init(&matrix, GST_TYPE_ARRAY);
        for (int o = 0; o < job.outputs; o++) {
            GValue row = G_VALUE_INIT;
            g_value_init(&row, GST_TYPE_ARRAY);
            for (int i = 0; i < job.inputs; i++) {
                GValue gain = G_VALUE_INIT;
                g_value_init(&gain, G_TYPE_FLOAT);
                g_value_set_float(&gain, job.matrix[o * job.inputs + i]);
                gst_value_array_append_and_take_value(&row, &gain);
            }
            gst_value_array_append_and_take_value(&matrix, &row);
        }
        GstStructure* config = gst_structure_new_empty("config");
        gst_structure_take_value(config, GST_AUDIO_CONVERTER_OPT_MIX_MATRIX, &matrix);
        gst_structure_set(config, GST_AUDIO_CONVERTER_OPT_DITHER_METHOD, GST_TYPE_AUDIO_DITHER_METHOD,
                          GST_AUDIO_DITHER_NONE, nullptr);
        converter_ = gst_audio_converter_new(GST_AUDIO_CONVERTER_FLAG_NONE, &in, &out, config);
    }
    ~GstreamerPeer() override {
        if (converter_)
            gst_audio_converter_free(converter_);
    }

    bool process(const void* in, void* out, int frames) override {
        gpointer source = const_cast<void*>(in);
        return converter_ &&
               gst_audio_converter_samples(converter_, GST_AUDIO_CONVERTER_FLAG_NONE, &source, frames, &out, frames);
    }

private:
    static void describe(GstAudioInfo* info, GstAudioFormat format, int rate, int channels) {
        GstAudioChannelPosition positions[64];
        for (int c = 0; c < channels; c++)
            positions[c] = GST_AUDIO_CHANNEL_POSITION_NONE;
        gst_audio_info_init(info);
        gst_audio_info_set_format(info, format, rate, channels, positions);
    }
    GstAudioConverter* converter_ = nullptr;
};

} // namespace

std::unique_ptr<Peer> make_gstreamer_peer(const MixJob& job) { return std::make_unique<GstreamerPeer>(job); }

} // namespace korla_bench
