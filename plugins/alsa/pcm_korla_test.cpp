// The filter as applications meet it: through alsa-lib, into a file that its `type file` writes.
#include <alsa/asoundlib.h>
#include <gtest/gtest.h>

#include <cstdarg>
#include <cstdlib>
#include <fstream>
#include <string>

#include "counted_allocations.h"
#include "stream_host.h"

using namespace korla_test;

namespace {

std::string said; // by alsa-lib's errors
void listen(const char*, int, const char*, int, const char* format, ...) {
    char text[400];
    va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    said += std::string(text) + "\n";
}

struct Format {
    snd_pcm_format_t alsa;
    uint32_t korla;
};
constexpr Format formats[] = {{SND_PCM_FORMAT_S16_LE, KORLA_S16},    {SND_PCM_FORMAT_S24_3LE, KORLA_S24},
                              {SND_PCM_FORMAT_S24_LE, KORLA_S24_32}, {SND_PCM_FORMAT_S32_LE, KORLA_S32},
                              {SND_PCM_FORMAT_FLOAT_LE, KORLA_F32},  {SND_PCM_FORMAT_FLOAT64_LE, KORLA_F64}};

// A PCM of `type korla` with these fields, whose slave writes what it gets to a file.
class Pcm {
public:
    explicit Pcm(const std::string& fields, snd_pcm_stream_t direction = SND_PCM_STREAM_PLAYBACK)
        : path_(::testing::TempDir() + "pcm_korla_test.raw") {
        std::remove(path_.c_str());
        const std::string text = "pcm.test { type korla " + fields + " slave.pcm { type file format raw file \"" + path_ +
                                 "\" slave.pcm { type null } } }";
        snd_config_t *top, *config;
        snd_input_t* input;
        EXPECT_GE(snd_config_update_ref(&config), 0);
        EXPECT_GE(snd_config_copy(&top, config), 0);
        snd_config_unref(config);
        EXPECT_EQ(snd_input_buffer_open(&input, text.c_str(), static_cast<ssize_t>(text.size())), 0);
        EXPECT_EQ(snd_config_load(top, input), 0);
        snd_input_close(input);
        said.clear();
        status = snd_pcm_open_lconf(&pcm_, "test", direction, 0, top);
        snd_config_delete(top);
        if (status < 0)
            pcm_ = nullptr;
    }
    ~Pcm() { close(); }
    Pcm(const Pcm&) = delete;
    Pcm& operator=(const Pcm&) = delete;
    operator snd_pcm_t*() const { return pcm_; }
    void close() {
        if (pcm_)
            snd_pcm_close(pcm_);
        pcm_ = nullptr;
    }
    int set(const Format& format, unsigned channels, snd_pcm_access_t access = SND_PCM_ACCESS_RW_INTERLEAVED) {
        return snd_pcm_set_params(pcm_, format.alsa, access, channels, 48000, 0, 100'000);
    }
    // All of it in calls of odd lengths; what the slave got.
    Samples play(Samples& in, const Format& format, unsigned out_channels) {
        const size_t lengths[] = {441, 1, 1023, 64};
        for (size_t done = 0, k = 0; done < in.frames; k++) {
            const auto planes = in.planes(done);
            const size_t n = std::min(lengths[k % 4], in.frames - done);
            const snd_pcm_sframes_t written = in.planar ? snd_pcm_writen(pcm_, const_cast<void**>(planes.data()), n)
                                                        : snd_pcm_writei(pcm_, planes[0], n);
            if (written <= 0) {
                ADD_FAILURE() << snd_strerror(static_cast<int>(written));
                break;
            }
            done += static_cast<size_t>(written);
        }
        snd_pcm_drain(pcm_);
        close();
        std::ifstream file(path_, std::ios::binary);
        const std::string bytes(std::istreambuf_iterator<char>(file), {});
        Samples out(out_channels, format.korla, false, bytes.size() / (out_channels * korla_format_bytes(format.korla)));
        std::memcpy(out.bytes.data(), bytes.data(), out.bytes.size());
        return out;
    }
    int status;

private:
    std::string path_;
    snd_pcm_t* pcm_ = nullptr;
};

Samples noise(unsigned channels, uint32_t format, bool planar = false) {
    Samples in(channels, format, planar, 20'000);
    Random random(channels);
    return in.fill([&](size_t, size_t) { return random.uniform(); });
}

// Everything but the last 63 frames, which stay inside, 63 frames late.
void expect_mixed(const Samples& out, const std::string& from, const std::string& to, const Samples& in) {
    auto config = stream_config(from, to);
    config.in_format = config.out_format = in.format;
    config.in_planar = in.planar;
    config.mode = KORLA_SAME_LENGTH;
    KorlaStream stream(config);
    const Samples expected = stream.run(in);
    ASSERT_GE(out.frames, in.frames); // the last period is filled up
    EXPECT_EQ(std::memcmp(out.bytes.data(), expected.bytes.data(), in.frames * expected.place(1, 0)), 0);
}

TEST(PcmKorla, GivesTheBitsOfTheStreamInEveryFormatAndAccess) {
    for (const Format& format : formats)
        for (bool planar : {false, true}) {
            SCOPED_TRACE(snd_pcm_format_name(format.alsa));
            Pcm pcm("to stereo");
            ASSERT_EQ(pcm.status, 0) << said;
            ASSERT_EQ(pcm.set(format, 6, planar ? SND_PCM_ACCESS_RW_NONINTERLEAVED : SND_PCM_ACCESS_RW_INTERLEAVED), 0) << said;
            Samples in = noise(6, format.korla, planar);
            expect_mixed(pcm.play(in, format, 2), "FL,FR,BL,BR,FC,LFE", "stereo", in);
        }
}

TEST(PcmKorla, KnowsSpeakersByConfigurationAndByChannelMap) {
    const Format format = formats[4];
    struct {
        const char *fields, *from, *to;
        unsigned channels, outputs;
    } const cases[] = {
        {"from 5.1 to stereo", "FL,FR,SL,SR,FC,LFE", "FL,FR", 6, 2},
        {"from \"7.1.4\" to \"5.1\"", "FL,FR,BL,BR,FC,LFE,SL,SR,TFL,TFR,TBL,TBR", "FL,FR,SL,SR,FC,LFE", 12, 6},
        {"from \"FC FL FR\" to \"FR,FL\"", "FC,FL,FR", "FR,FL", 3, 2},
        {"to mono", "FL,FR,BL,BR,FC,LFE,SL,SR", "FC", 8, 1},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.fields);
        Pcm pcm(c.fields);
        ASSERT_EQ(pcm.status, 0) << said;
        ASSERT_EQ(pcm.set(format, c.channels), 0) << said;
        Samples in = noise(c.channels, format.korla);
        expect_mixed(pcm.play(in, format, c.outputs), c.from, c.to, in);
    }
    Pcm pcm("to stereo");
    ASSERT_EQ(pcm.set(format, 3), 0);
    snd_pcm_chmap_query_t** maps = snd_pcm_query_chmaps(pcm);
    ASSERT_NE(maps, nullptr);
    size_t count = 0;
    for (; maps[count]; count++)
        EXPECT_EQ(maps[count]->type, SND_CHMAP_TYPE_VAR);
    EXPECT_EQ(count, 8u); // 1 to 6, 8 and 12 channels
    EXPECT_EQ(maps[5]->map.pos[5], unsigned(SND_CHMAP_LFE));
    snd_pcm_free_chmaps(maps);
    const auto set = [&](const char* text) {
        snd_pcm_chmap_t* map = snd_pcm_chmap_parse_string(text);
        const int status = snd_pcm_set_chmap(pcm, map);
        std::free(map);
        return status;
    };
    said.clear();
    EXPECT_EQ(set("FL FR TC"), -EINVAL);
    EXPECT_NE(said.find("channel 3 is for TC"), std::string::npos) << said;
    EXPECT_EQ(set("FL FR"), -EINVAL);
    EXPECT_EQ(set("FL FR FL"), -EINVAL);
    EXPECT_EQ(set("FL FR FC"), 0);
    snd_pcm_chmap_t* map = snd_pcm_get_chmap(pcm);
    ASSERT_NE(map, nullptr);
    EXPECT_EQ(map->pos[2], unsigned(SND_CHMAP_FC));
    std::free(map);
    Samples in = noise(3, format.korla);
    expect_mixed(pcm.play(in, format, 2), "FL,FR,FC", "stereo", in);
}

TEST(PcmKorla, AppliesTheConfiguredControls) {
    const Format format = formats[4];
    Pcm pcm("from mono to stereo dialogue 6.5 gain -3 ceiling -12 limiter yes lfe off surround \"off\"");
    ASSERT_EQ(pcm.status, 0) << said;
    ASSERT_EQ(pcm.set(format, 1), 0);
    Samples in(1, KORLA_F32, false, 20'000);
    in.fill([](size_t, size_t) { return 0.01; });
    const Samples out = pcm.play(in, format, 2);
    KorlaStream stream(stream_config("mono", "stereo"));
    stream.set(KORLA_DIALOGUE_DB, 6.5), stream.set(KORLA_GAIN_DB, -3), stream.set(KORLA_CEILING_DB, -12);
    EXPECT_EQ(out.get(19'000, 1), stream.run(in).get(19'000 - 63, 1));
}

TEST(PcmKorla, RefusesWhatIsWrongInWords) {
    const std::pair<const char*, const char*> fields[] = {
        {"from stereo", "No 'to' defined"},
        {"to \"9.9\"", "9.9"},
        {"to stereo from \"FL,FL\"", "FL"},
        {"to stereo volume 3", "Unknown field volume"},
        {"to stereo dialogue loud", "'dialogue' is a gain"},
        {"to stereo gain 41", "'gain' is a gain"},
        {"to stereo ceiling 1", "'ceiling' is a level"},
        {"to stereo limiter maybe", "'limiter' is yes or no"},
        {"to [ 1 ]", "'to' is a layout's name"},
    };
    for (const auto& [text, reason] : fields) {
        Pcm pcm(text);
        EXPECT_EQ(pcm.status, -EINVAL) << text;
        EXPECT_NE(said.find(reason), std::string::npos) << text << ": " << said;
    }
    EXPECT_EQ(Pcm("to stereo", SND_PCM_STREAM_CAPTURE).status, -EINVAL);
    Pcm nine("to stereo"), two("from 5.1 to stereo");
    EXPECT_EQ(nine.set(formats[0], 9), -EINVAL); // which nine?
    EXPECT_NE(said.find("name them by 'from'"), std::string::npos) << said;
    EXPECT_LT(two.set(formats[0], 2), 0);
    EXPECT_LT(nine.set({SND_PCM_FORMAT_U8, 0}, 2), 0);
}

// Mapped access, with rewinds: positions go back, the signal goes on.
TEST(PcmKorla, StaysSafeWhenTheApplicationRewinds) {
    const Format format = formats[0];
    Pcm pcm("to stereo");
    ASSERT_EQ(pcm.set(format, 12, SND_PCM_ACCESS_MMAP_INTERLEAVED), 0) << said;
    Samples in = noise(12, format.korla);
    for (int i = 0; i < 5; i++) {
        EXPECT_GT(snd_pcm_mmap_writei(pcm, in.planes(0)[0], 700), 0);
        EXPECT_GE(snd_pcm_rewind(pcm, 300), 0);
    }
    EXPECT_EQ(snd_pcm_reset(pcm) < 0, false);
    EXPECT_EQ(snd_pcm_drop(pcm), 0);
    EXPECT_EQ(snd_pcm_prepare(pcm), 0);
    EXPECT_GT(snd_pcm_mmap_writei(pcm, in.planes(0)[0], 700), 0);
}

#ifndef KORLA_SANITIZED
TEST(PcmKorla, PlayingAllocatesNothing) {
    const Format format = formats[0];
    Pcm pcm("to stereo");
    ASSERT_EQ(pcm.set(format, 12), 0);
    Samples in = noise(12, format.korla);
    EXPECT_GT(snd_pcm_writei(pcm, in.bytes.data(), 2000), 0);
    const int before = allocations;
    ASSERT_GT(before, 0);
    for (int i = 0; i < 5; i++)
        EXPECT_GT(snd_pcm_writei(pcm, in.bytes.data(), 2000), 0);
    EXPECT_EQ(allocations, before);
}
#endif

} // namespace

int main(int argc, char** argv) {
    ::testing::InitGoogleTest(&argc, argv);
    snd_lib_error_set_handler(listen);
    const int result = RUN_ALL_TESTS();
    snd_config_update_free_global();
    return result;
}
