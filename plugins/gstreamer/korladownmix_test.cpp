// The element in GStreamer's own harness, beside the stream that it stands on.
#include <gst/audio/audio.h>
#include <gst/check/gstharness.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "stream_host.h"

using namespace korla_test;

namespace {

constexpr int rate = 48000;
constexpr uint64_t mask_5_1 = 0xc0f, mask_7_1_4 = 0x33c3f, mask_stereo = 0x3; // bits of GStreamer, side speakers

struct Format {
    uint32_t code;
    const char* name;
};
constexpr Format formats[] = {{KORLA_S16, "S16LE"}, {KORLA_S24, "S24LE"}, {KORLA_S24_32, "S24_32LE"},
                              {KORLA_S32, "S32LE"}, {KORLA_F32, "F32LE"}, {KORLA_F64, "F64LE"}};

std::string caps(const char* format, int channels, uint64_t mask, bool planar = false) {
    char text[200];
    std::snprintf(text, sizeof text,
                  "audio/x-raw,format=%s,rate=%d,channels=%d,channel-mask=(bitmask)0x%llx,layout=%sinterleaved", format,
                  rate, channels, static_cast<unsigned long long>(mask), planar ? "non-" : "");
    return text;
}

// The element between two pads that the test holds.
class Harness {
public:
    explicit Harness(const std::string& layout = "") : harness_(gst_harness_new("korladownmix")), bus_(gst_bus_new()) {
        EXPECT_NE(harness_, nullptr);
        gst_element_set_bus(harness_->element, bus_);
        if (!layout.empty())
            set("layout", layout.c_str());
    }
    ~Harness() {
        gst_element_set_bus(harness_->element, nullptr);
        gst_harness_teardown(harness_);
        gst_object_unref(bus_);
    }
    Harness(const Harness&) = delete;
    Harness& operator=(const Harness&) = delete;
    GstHarness* get() const { return harness_; }
    template <class T> void set(const char* name, T value) { g_object_set(harness_->element, name, value, nullptr); }
    double get(const char* name) const {
        double value = NAN;
        g_object_get(harness_->element, name, &value, nullptr);
        return value;
    }

    // Frames of `samples` from one on, stamped with the time of their place.
    GstFlowReturn push(Samples& samples, size_t first, size_t frames, guint flags = 0, GstClockTime shift = 0) {
        const size_t sample = korla_format_bytes(samples.format), planes = samples.planar ? samples.channels : 1;
        GstBuffer* buffer = gst_buffer_new_allocate(nullptr, frames * samples.channels * sample, nullptr);
        const size_t bytes = frames * samples.channels * sample / planes;
        for (size_t c = 0; c < planes; c++)
            gst_buffer_fill(buffer, c * bytes, samples.planes(first)[c], bytes);
        if (samples.planar) {
            GstAudioInfo info;
            GstCaps* current = gst_pad_get_current_caps(harness_->srcpad);
            gst_audio_info_from_caps(&info, current);
            gst_caps_unref(current);
            gst_buffer_add_audio_meta(buffer, &info, frames, nullptr);
        }
        GST_BUFFER_PTS(buffer) = shift + time_of(first);
        GST_BUFFER_DURATION(buffer) = time_of(first + frames) - time_of(first);
        GST_BUFFER_FLAG_SET(buffer, flags);
        return gst_harness_push(harness_, buffer);
    }
    static double nanoseconds(GstClockTime time) { return static_cast<double>(time); }
    static GstClockTime time_of(size_t frame) { return gst_util_uint64_scale_round(frame, GST_SECOND, rate); }

    // What came out so far, as one piece; every buffer stands in time where its first frame does.
    Samples pull(uint32_t channels, uint32_t format, bool planar = false, GstClockTime shift = 0) {
        std::vector<GstBuffer*> buffers;
        while (GstBuffer* buffer = gst_harness_try_pull(harness_))
            buffers.push_back(buffer);
        const size_t frame = channels * korla_format_bytes(format);
        size_t frames = 0, done = 0;
        for (GstBuffer* buffer : buffers)
            frames += gst_buffer_get_size(buffer) / frame;
        Samples out(channels, format, planar, frames);
        for (GstBuffer* buffer : buffers) {
            const size_t n = gst_buffer_get_size(buffer) / frame, planes = planar ? channels : 1;
            EXPECT_NEAR(nanoseconds(GST_BUFFER_PTS(buffer)), nanoseconds(shift + time_of(done)), 1);
            EXPECT_NEAR(nanoseconds(GST_BUFFER_PTS(buffer) + GST_BUFFER_DURATION(buffer)),
                        nanoseconds(shift + time_of(done + n)), 1);
            EXPECT_EQ(gst_buffer_get_audio_meta(buffer) != nullptr, planar);
            for (size_t c = 0; c < planes; c++)
                gst_buffer_extract(buffer, c * n * frame / planes, out.planes(done)[c], n * frame / planes);
            done += n;
            gst_buffer_unref(buffer);
        }
        return out;
    }

    // The first error on the bus, in words; empty without one.
    std::string error() {
        GstMessage* message = gst_bus_pop_filtered(bus_, GST_MESSAGE_ERROR);
        if (message == nullptr)
            return "";
        GError* error = nullptr;
        gst_message_parse_error(message, &error, nullptr);
        std::string text = error->message;
        g_error_free(error);
        gst_message_unref(message);
        return text;
    }
    // Format, channels and channel mask that downstream was told.
    std::string out_caps() {
        GstCaps* current = gst_pad_get_current_caps(harness_->sinkpad);
        if (current == nullptr)
            return "";
        const GstStructure* structure = gst_caps_get_structure(current, 0);
        gint channels = 0;
        guint64 mask = 0;
        gst_structure_get(structure, "channels", G_TYPE_INT, &channels, nullptr);
        gst_structure_get(structure, "channel-mask", GST_TYPE_BITMASK, &mask, nullptr);
        char text[80];
        std::snprintf(text, sizeof text, "%s %d 0x%llx", gst_structure_get_string(structure, "format"), channels,
                      static_cast<unsigned long long>(mask));
        gst_caps_unref(current);
        return text;
    }
    GstClockTime latency() { return gst_harness_query_latency(harness_); }

private:
    GstHarness* harness_;
    GstBus* bus_;
};

Samples noise(uint32_t channels, uint32_t format, size_t frames, bool planar = false) {
    Samples samples(channels, format, planar, frames);
    Random random(frames);
    samples.fill([&](size_t, size_t) { return random.uniform(); });
    return samples;
}

// Calls of odd lengths, shorter than a tile and longer than several.
void push_all(Harness& harness, Samples& in, GstClockTime shift = 0) {
    const size_t lengths[] = {441, 1, 31, 1024, 64, 7};
    for (size_t done = 0, k = 0; done < in.frames; k++) {
        const size_t n = std::min(lengths[k % std::size(lengths)], in.frames - done);
        ASSERT_EQ(harness.push(in, done, n, 0, shift), GST_FLOW_OK);
        done += n;
    }
}

korla_stream_config config_of(const char* in, const char* out, uint32_t in_format, uint32_t out_format,
                              bool in_planar = false, bool out_planar = false) {
    auto config = stream_config(in, out);
    config.in_format = in_format, config.out_format = out_format;
    config.in_planar = in_planar, config.out_planar = out_planar;
    return config;
}

// 7.1.4 in the order in which GStreamer keeps channels.
constexpr char seven_one_four[] = "FL,FR,FC,LFE,BL,BR,SL,SR,TFL,TFR,TBL,TBR";

TEST(KorlaDownmix, GivesTheBitsOfTheStreamInEveryFormatAndArrangement) {
    for (const Format& from : formats)
        for (const Format& to : formats)
            for (int planes = 0; planes < 4; planes++) {
                if (from.code != to.code && planes != 0 && planes != 3)
                    continue;
                SCOPED_TRACE(std::string(from.name) + " to " + to.name + ", planes " + std::to_string(planes));
                const bool in_planar = planes & 1, out_planar = planes & 2;
                Harness harness;
                gst_harness_set_caps_str(harness.get(), caps(from.name, 12, mask_7_1_4, in_planar).c_str(),
                                         caps(to.name, 2, mask_stereo, out_planar).c_str());
                Samples in = noise(12, from.code, 3000, in_planar);
                push_all(harness, in);
                gst_harness_push_event(harness.get(), gst_event_new_eos());
                KorlaStream stream(config_of(seven_one_four, "stereo", from.code, to.code, in_planar, out_planar));
                EXPECT_TRUE(harness.pull(2, to.code, out_planar).bytes == stream.run(in).bytes);
                EXPECT_EQ(harness.error(), "");
            }
}

TEST(KorlaDownmix, AgreesOnChannelsWithBothSides) {
    struct {
        const char *layout, *in, *out_wanted, *out;
    } const cases[] = {
        {"stereo", "channels=6,channel-mask=(bitmask)0x3f", "", "S16LE 2 0x3"},
        {"mono", "channels=2,channel-mask=(bitmask)0x3", "", "S16LE 1 0x0"},
        {"5.1", "channels=12,channel-mask=(bitmask)0x33c3f", "", "S16LE 6 0xc0f"},
        {"", "channels=6,channel-mask=(bitmask)0xc0f", "channels=1", "S16LE 1 0x0"},
        {"", "channels=6,channel-mask=(bitmask)0xc0f", "channels=2", "S16LE 2 0x3"},
        {"", "channels=12,channel-mask=(bitmask)0x33c3f", "channels=8,channel-mask=(bitmask)0xc3f", "S16LE 8 0xc3f"},
        {"", "channels=2,channel-mask=(bitmask)0x3", "channels=6", "S16LE 6 0xc0f"},
        {"", "channels=6,channel-mask=(bitmask)0x3f", "", "S16LE 6 0x3f"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(std::string(c.layout) + " | " + c.in + " | " + c.out_wanted);
        Harness harness(c.layout);
        const std::string raw = "audio/x-raw,layout=interleaved,format=S16LE,rate=44100,";
        if (*c.out_wanted)
            gst_harness_set_sink_caps_str(harness.get(), ("audio/x-raw," + std::string(c.out_wanted)).c_str());
        gst_harness_set_src_caps_str(harness.get(), (raw + c.in).c_str());
        gst_harness_push(harness.get(), gst_buffer_new_allocate(nullptr, 0, nullptr));
        EXPECT_EQ(harness.out_caps(), c.out);
        EXPECT_EQ(harness.error(), "");
    }
}

// Six channels for no speakers in particular are 5.1, in the order in which GStreamer keeps it.
TEST(KorlaDownmix, TakesBareChannelsForWhatTheyCustomarilyAre) {
    for (const auto& [channels, speakers] : {std::pair{6u, "5.1"}, {8u, "FL,FR,FC,LFE,BL,BR,SL,SR"}, {1u, "mono"}}) {
        Harness harness("stereo");
        gst_harness_set_src_caps_str(harness.get(), caps("F32LE", static_cast<int>(channels), 0).c_str());
        Samples in = noise(channels, KORLA_F32, 640);
        push_all(harness, in);
        gst_harness_push_event(harness.get(), gst_event_new_eos());
        KorlaStream stream(config_of(speakers, "stereo", KORLA_F32, KORLA_F32));
        EXPECT_TRUE(harness.pull(2, KORLA_F32).bytes == stream.run(in).bytes) << speakers;
    }
}

TEST(KorlaDownmix, SaysOnTheBusWhatItCannotMix) {
    struct {
        std::string caps, reason;
    } const cases[] = {
        {caps("F32LE", 3, 0x8003), "channel 3 has the position"}, // top centre
        {caps("F32LE", 10, 0), "10 channels without a channel-mask"},
    };
    for (const auto& c : cases) {
        Harness harness("stereo");
        gst_harness_set_src_caps_str(harness.get(), c.caps.c_str());
        Samples in = noise(3, KORLA_F32, 40);
        EXPECT_EQ(harness.push(in, 0, 40), GST_FLOW_NOT_NEGOTIATED);
        EXPECT_NE(harness.error().find(c.reason), std::string::npos) << c.reason;
    }
    for (const char* layout : {"9.9", "FL,HL", ""}) {
        Harness harness;
        harness.set("layout", layout);
        EXPECT_NE(harness.error().find("is not to be had"), std::string::npos) << layout;
    }
}

TEST(KorlaDownmix, PassesBuffersUntilThereIsSomethingToDo) {
    Harness harness;
    gst_harness_set_caps_str(harness.get(), caps("S16LE", 6, mask_5_1).c_str(), caps("S16LE", 6, mask_5_1).c_str());
    Samples in = noise(6, KORLA_S16, 4096);
    GstBuffer* const passed = gst_buffer_new_allocate(nullptr, 12, nullptr);
    ASSERT_EQ(gst_harness_push(harness.get(), passed), GST_FLOW_OK);
    GstBuffer* const pulled = gst_harness_try_pull(harness.get());
    EXPECT_EQ(pulled, passed);
    gst_buffer_unref(pulled);
    ASSERT_EQ(harness.push(in, 0, 100), GST_FLOW_OK);
    EXPECT_EQ(harness.latency(), 0u);
    EXPECT_EQ(harness.pull(6, KORLA_S16).frames, 100u);
    harness.set("dialogue", -120.0); // the centre off
    ASSERT_EQ(harness.push(in, 100, 3000), GST_FLOW_OK);
    EXPECT_EQ(harness.latency(), gst_util_uint64_scale_ceil(63, GST_SECOND, rate));
    gst_harness_push_event(harness.get(), gst_event_new_eos());
    const Samples out = harness.pull(6, KORLA_S16, false, Harness::time_of(100));
    ASSERT_EQ(out.frames, 3000u);
    for (size_t t = 0; t < out.frames; t++) {
        ASSERT_EQ(out.get(t, 2), 0.0);
        ASSERT_NEAR(out.get(t, 0), in.get(100 + t, 0), 0x1p-15);
    }
}

// What is held back at a break comes out before it, with the timestamps of its own time.
TEST(KorlaDownmix, DrainsAtBreaksAndForgetsAtAFlush) {
    enum Break { discont, jump, gap, segment, new_caps, flush };
    for (int kind : {discont, jump, gap, segment, new_caps, flush}) {
        SCOPED_TRACE(kind);
        Harness harness("stereo");
        gst_harness_set_src_caps_str(harness.get(), caps("F32LE", 6, mask_5_1).c_str());
        Samples in = noise(6, KORLA_F32, 1000);
        push_all(harness, in);
        GstHarness* const h = harness.get();
        // A discontinuity where the timestamps go on, nearly; the others five seconds later.
        const GstClockTime shift = kind == discont ? Harness::time_of(1000) + 10 * GST_MSECOND : 5 * GST_SECOND;
        GstSegment time;
        gst_segment_init(&time, GST_FORMAT_TIME);
        uint32_t format = KORLA_F32;
        switch (kind) {
        case gap: gst_harness_push_event(h, gst_event_new_gap(Harness::time_of(1000), GST_SECOND)); break;
        case segment: gst_harness_push_event(h, gst_event_new_segment(&time)); break;
        case new_caps:
            gst_harness_set_src_caps_str(h, caps("S16LE", 6, mask_5_1).c_str());
            format = KORLA_S16;
            break;
        case flush:
            gst_harness_push_event(h, gst_event_new_flush_start());
            gst_harness_push_event(h, gst_event_new_flush_stop(TRUE));
            gst_harness_push_event(h, gst_event_new_segment(&time));
            break;
        default: break;
        }
        Samples more = noise(6, format, 500);
        ASSERT_EQ(harness.push(more, 0, 500, kind == discont ? GST_BUFFER_FLAG_DISCONT : 0, shift), GST_FLOW_OK);
        // The first frames are all there; at a flush, those that were ready before it.
        size_t first = 0;
        const size_t frame = 2 * sizeof(float);
        while (GstBuffer* buffer = gst_harness_try_pull(h)) {
            if (GST_BUFFER_PTS(buffer) >= shift) {
                EXPECT_EQ(GST_BUFFER_PTS(buffer), shift);
                EXPECT_TRUE(GST_BUFFER_FLAG_IS_SET(buffer, GST_BUFFER_FLAG_DISCONT));
            } else {
                EXPECT_EQ(GST_BUFFER_PTS(buffer), Harness::time_of(first));
                first += gst_buffer_get_size(buffer) / frame;
            }
            gst_buffer_unref(buffer);
        }
        EXPECT_EQ(first, kind == flush ? 960u : 1000u);
        gst_harness_push_event(h, gst_event_new_eos());
        KorlaStream stream(config_of("5.1", "stereo", format, format));
        const Samples all = stream.run(more), rest = harness.pull(2, format, false, shift + Harness::time_of(448));
        ASSERT_EQ(rest.frames, 52u); // 500 frames, of which 14 tiles were ready at once
        EXPECT_TRUE(
            std::equal(rest.bytes.begin(), rest.bytes.end(), all.bytes.end() - static_cast<long>(rest.bytes.size())));
    }
}

TEST(KorlaDownmix, FollowsItsControlsWhileRunning) {
    Harness harness("stereo");
    gst_harness_set_src_caps_str(harness.get(), caps("F32LE", 6, mask_5_1).c_str());
    Samples in(6, KORLA_F32, false, 144000);
    in.fill([](size_t, size_t c) { return c == 2 ? 0.1 : 0.0; });
    const auto level_after = [&](size_t first) {
        EXPECT_EQ(harness.push(in, first, 4800), GST_FLOW_OK);
        double level = 0;
        while (GstBuffer* buffer = gst_harness_try_pull(harness.get())) {
            float last;
            gst_buffer_extract(buffer, gst_buffer_get_size(buffer) - 4, &last, 4);
            level = last;
            gst_buffer_unref(buffer);
        }
        return level;
    };
    const double plain = level_after(0);
    harness.set("dialogue", 6.0);
    EXPECT_NEAR(level_after(4800) / plain, std::pow(10.0, 0.3), 1e-3);
    EXPECT_EQ(harness.get("gain-reduction"), 0.0);
    harness.set("gain", 40.0);
    harness.set("ceiling", -3.0);
    EXPECT_NEAR(level_after(9600), std::pow(10.0, -0.15), 1e-3);
    EXPECT_GT(harness.get("gain-reduction"), 20.0);
    EXPECT_EQ(harness.get("ceiling"), -3.0);
    harness.set("gain", 0.0);
    harness.set("limiter", FALSE);
    harness.set("lfe", -10.0);
    for (size_t first = 14400; first < 139200; first += 4800) // the limiter lets go slowly
        level_after(first);
    EXPECT_NEAR(level_after(139200) / plain, std::pow(10.0, 0.3), 1e-3);
}

// A live pipeline reports the source's latency and 63 frames, and renders every buffer in time.
TEST(KorlaDownmix, RunsLiveWithTheLatencyItReports) {
    GstElement* pipeline = gst_parse_launch(
        "audiotestsrc is-live=true num-buffers=20 samplesperbuffer=480 ! "
        "audio/x-raw,format=F32LE,rate=48000,channels=6,"
        "channel-mask=(bitmask)0xc0f ! korladownmix layout=stereo ! fakesink name=sink sync=true processing-deadline=0",
        nullptr);
    ASSERT_NE(pipeline, nullptr);
    ASSERT_NE(gst_element_set_state(pipeline, GST_STATE_PLAYING), GST_STATE_CHANGE_FAILURE);
    GstBus* bus = gst_element_get_bus(pipeline);
    GstMessage* message = gst_bus_timed_pop_filtered(bus, 20 * GST_SECOND,
                                                     static_cast<GstMessageType>(GST_MESSAGE_EOS | GST_MESSAGE_ERROR));
    ASSERT_NE(message, nullptr);
    EXPECT_EQ(GST_MESSAGE_TYPE(message), GST_MESSAGE_EOS);
    GstQuery* query = gst_query_new_latency();
    ASSERT_TRUE(gst_element_query(pipeline, query));
    gboolean live = FALSE;
    GstClockTime least = 0, most = 0;
    gst_query_parse_latency(query, &live, &least, &most);
    EXPECT_TRUE(live);
    EXPECT_EQ(least, GST_SECOND / 100 + gst_util_uint64_scale_ceil(63, GST_SECOND, rate));
    GstElement* sink = gst_bin_get_by_name(GST_BIN(pipeline), "sink");
    GstStructure* stats = nullptr;
    g_object_get(sink, "stats", &stats, nullptr);
    guint64 rendered = 0, dropped = 1;
    gst_structure_get(stats, "rendered", G_TYPE_UINT64, &rendered, "dropped", G_TYPE_UINT64, &dropped, nullptr);
    EXPECT_EQ(dropped, 0u);
    EXPECT_EQ(rendered, 21u); // twenty buffers and what was drained
    gst_structure_free(stats);
    gst_query_unref(query);
    gst_message_unref(message);
    gst_object_unref(sink);
    gst_object_unref(bus);
    gst_element_set_state(pipeline, GST_STATE_NULL);
    gst_object_unref(pipeline);
}

} // namespace

int main(int argc, char** argv) {
    ::testing::InitGoogleTest(&argc, argv);
    gst_init(&argc, &argv);
    const int result = RUN_ALL_TESTS();
    gst_deinit();
    return result;
}
