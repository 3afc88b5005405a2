// korla-host end to end: files in, files, reports and exit statuses out.
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <set>
#include <sndfile.hh>

#include "signals.h"

namespace fs = std::filesystem;

namespace {

constexpr int wav16 = SF_FORMAT_WAV | SF_FORMAT_PCM_16, flac16 = SF_FORMAT_FLAC | SF_FORMAT_PCM_16;
constexpr double h = 0.70794578; // -3 dB

struct Audio {
    explicit Audio(const fs::path& path) {
        SndfileHandle file(path.string());
        channels = file.channels(), format = file.format(), frames = size_t(file.frames());
        samples.resize(frames * size_t(channels));
        EXPECT_EQ(file.read(samples.data(), sf_count_t(samples.size())), sf_count_t(samples.size())) << path;
    }
    double at(size_t frame, int channel) const { return samples[frame * size_t(channels) + size_t(channel)]; }
    int channels, format;
    size_t frames;
    std::vector<float> samples; // interleaved
};

// positions: SF_CHANNEL_MAP_*, empty for a file that names no speakers.
void write(const fs::path& path, int format, size_t channels, const std::vector<float>& samples, int rate = 48000,
           std::vector<int> positions = {}) {
    SndfileHandle file(path.string(), SFM_WRITE, format, int(channels), rate);
    if (!positions.empty())
        EXPECT_TRUE(file.command(SFC_SET_CHANNEL_MAP_INFO, positions.data(), int(positions.size() * sizeof(int))));
    EXPECT_EQ(file.write(samples.data(), sf_count_t(samples.size())), sf_count_t(samples.size())) << path;
}
// Noise so far below full scale, if not told otherwise, that no output of the mix reaches the limiter's threshold.
std::vector<float> noise(size_t frames, size_t channels, float peak = 0.1f) {
    return korla_test::Random(7).vector(frames * channels, -peak, peak);
}
std::string slurp(const fs::path& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}
bool contains(const std::string& text, const std::string& part) { return text.find(part) != std::string::npos; }

// Every test works in an empty folder of its own.
class Host : public testing::Test {
protected:
    Host() : start_(fs::current_path()), folder_(fs::temp_directory_path() / "korla-host-test.XXXXXX") {
        EXPECT_TRUE(mkdtemp(folder_.data()));
        fs::current_path(folder_);
    }
    ~Host() override {
        fs::current_path(start_);
        fs::remove_all(folder_);
    }
    struct Outcome {
        int status;
        std::string out, err;
    };
    Outcome host(const std::string& arguments, const std::string& prelude = "") {
        const int code =
            std::system((prelude + KORLA_HOST_PATH " " + arguments + " >stdout 2>stderr </dev/null").c_str());
        const Outcome outcome{WIFEXITED(code) ? WEXITSTATUS(code) : -1, slurp("stdout"), slurp("stderr")};
        fs::remove("stdout"), fs::remove("stderr");
        return outcome;
    }

private:
    fs::path start_;
    std::string folder_;
};

TEST_F(Host, OutputLinesUpWithInputInEveryFormat) {
    struct Case {
        const char *in, *out, *options;
        int format, expected;
    };
    const Case cases[] = {
        {"a.wav", "o.wav", "", wav16, SF_FORMAT_WAVEX | SF_FORMAT_PCM_16},
        {"a.wav", "o.wav", "--block 256 --planar", SF_FORMAT_WAV | SF_FORMAT_PCM_24,
         SF_FORMAT_WAVEX | SF_FORMAT_PCM_24},
        {"a.w64", "o.w64", "--block 512", SF_FORMAT_W64 | SF_FORMAT_PCM_32, SF_FORMAT_W64 | SF_FORMAT_PCM_32},
        {"a.rf64", "o.rf64", "--planar", SF_FORMAT_RF64 | SF_FORMAT_FLOAT, SF_FORMAT_RF64 | SF_FORMAT_FLOAT},
        {"a.caf", "o.caf", "--block 8192", SF_FORMAT_CAF | SF_FORMAT_DOUBLE, SF_FORMAT_CAF | SF_FORMAT_FLOAT},
        {"a.flac", "o.flac", "", SF_FORMAT_FLAC | SF_FORMAT_PCM_24, SF_FORMAT_FLAC | SF_FORMAT_PCM_24},
        {"a.wav", "o.wav", "--format s32", SF_FORMAT_WAV | SF_FORMAT_FLOAT, SF_FORMAT_WAVEX | SF_FORMAT_PCM_32},
        {"a.flac", "o.wav", "--format f32", flac16, SF_FORMAT_WAVEX | SF_FORMAT_FLOAT},
    };
    for (const auto& [in_name, out_name, options, format, expected] : cases) {
        const std::string arguments = std::string(in_name) + " " + out_name + " --layout stereo " + options;
        SCOPED_TRACE(arguments);
        write(in_name, format, 6, noise(10007, 6));
        const Outcome run = host("run " + arguments);
        ASSERT_EQ(run.status, 0) << run.err;
        EXPECT_EQ(run.err, "");
        const Audio in(in_name), out(out_name);
        EXPECT_EQ(out.format, expected);
        ASSERT_EQ(out.channels, 2);
        ASSERT_EQ(out.frames, in.frames);
        for (size_t i = 0; i < out.samples.size(); i++) {
            const int side = i % 2;
            const double mix = in.at(i / 2, side) + h * in.at(i / 2, 2) + h * in.at(i / 2, 4 + side);
            ASSERT_NEAR(out.samples[i], mix, format == wav16 ? 0x1.8p-15 : 1e-6) << "sample " << i;
        }
    }
}

TEST_F(Host, BlockSizeAndPlanarityDoNotChangeASample) {
    write("in.wav", wav16, 8, noise(20000, 8, 0.99f)); // the limiter is at work
    std::set<std::string> outputs;
    for (const char* options : {"--block 256", "--block 1024", "--block 65536", "--block 256 --planar", "--planar"}) {
        ASSERT_EQ(host(std::string("run in.wav out.wav --layout 5.1 ") + options).status, 0);
        outputs.insert(slurp("out.wav"));
        EXPECT_EQ(outputs.size(), 1u) << options;
    }
}

TEST_F(Host, LengthIsKeptAtEveryEdgeOfAChunk) {
    for (const size_t frames : {0u, 1u, 31u, 223u, 224u, 225u, 255u, 256u, 257u, 480u, 512u}) {
        std::vector<float> in(frames * 6);
        if (frames > 0)
            in[(frames - 1) * 6] = 0.125f; // the last frame must come out of the limiter's delay
        write("in.wav", SF_FORMAT_WAV | SF_FORMAT_FLOAT, 6, in);
        for (const std::string layout : {"stereo", "5.1", "4.1"}) {
            ASSERT_EQ(host("run in.wav out.wav --block 256 --layout " + layout).status, 0);
            const Audio out("out.wav");
            ASSERT_EQ(out.frames, frames);
            for (size_t t = 0; t < frames; t++)
                ASSERT_NEAR(out.at(t, 0), t + 1 == frames ? 0.125 : 0.0, 1e-6) << layout << " frame " << t;
        }
    }
}

// Every channel of the input carries its own level; where it turns up shows the way through all three channel orders.
TEST_F(Host, SpeakersKeepTheirNamesThroughFilesAndMatrices) {
    const int L = SF_CHANNEL_MAP_LEFT, R = SF_CHANNEL_MAP_RIGHT, C = SF_CHANNEL_MAP_CENTER, W = SF_CHANNEL_MAP_LFE,
              BL = SF_CHANNEL_MAP_REAR_LEFT, BR = SF_CHANNEL_MAP_REAR_RIGHT, SL = SF_CHANNEL_MAP_SIDE_LEFT,
              SR = SF_CHANNEL_MAP_SIDE_RIGHT, BC = SF_CHANNEL_MAP_REAR_CENTER, TL = SF_CHANNEL_MAP_TOP_FRONT_LEFT,
              TR = SF_CHANNEL_MAP_TOP_FRONT_RIGHT, LC = SF_CHANNEL_MAP_FRONT_LEFT_OF_CENTER,
              RC = SF_CHANNEL_MAP_FRONT_RIGHT_OF_CENTER;
    struct Case {
        std::vector<int> positions;
        const char* options;
        uint32_t mask;
        std::vector<double> levels; // expected per output file channel, in 1/100; input channel c has level c + 1
        bool pass_through = false;
    };
    const double k = 0.84139514, m = 0.54954087; // -1.5 dB, -5.2 dB
    const Case cases[] = {
        {{L, R, C, W, BL, BR, SL, SR}, "", 0x63F, {1, 2, 3, 4, 5, 6, 7, 8}, true},
        {{L, R, C, W, BL, BR, SL, SR}, "--layout 5.1", 0x60F, {1, 2, 3, 4, 12, 14}},
        {{L, R, C, W, BL, BR, SL, SR}, "--layout 4.0", 0x603, {1 + 3 * h, 2 + 3 * h, 12, 14}},
        {{L, R, C, W, BL, BR, SL, SR}, "--layout 27 --format f32", 0x63F, {1, 2, 3, 4, 5, 6, 7, 8}, true},
        {{L, R, C, W, BL, BR}, "", 0x60F, {1, 2, 3, 4, 5, 6}, true},
        {{L, R, C, W, SL, SR}, "--layout 7.1", 0x63F, {1, 2, 3, 4, 0, 0, 5, 6}},
        {{L, R, C, W, BC, SL, SR}, "", 0x63F, {1, 2, 3, 4, 5 * h, 5 * h, 6, 7}},
        {{L, R, C, W, BL, BR, LC, RC}, "", 0x60F, {1 + 7 * k, 2 + 8 * k, 3 + 15 * m, 4, 5, 6}},
        {{L, R, C, W, SL, SR, TL, TR}, "", 0x560F, {1, 2, 3, 4, 5, 6, 7, 8}, true},
        {{}, "--map SR,SL,LFE,FC,FR,FL --layout stereo", 0x3, {6 + 4 * h + 2 * h, 5 + 4 * h + h}},
        {{}, "--map SR,SL,LFE,FC,FR,FL", 0x60F, {6, 5, 4, 3, 2, 1}, true},
        {{C}, "", 0x3, {h, h}},
    };
    for (const auto& [positions, options, mask, levels, pass_through] : cases) {
        SCOPED_TRACE(options);
        const size_t channels = positions.empty() ? 6 : positions.size();
        std::vector<float> in(1000 * channels);
        for (size_t i = 0; i < in.size(); i++)
            in[i] = static_cast<float>(i % channels + 1) / 100.0f;
        const int container = positions.empty() ? SF_FORMAT_WAV : SF_FORMAT_WAVEX;
        write("in.wav", container | SF_FORMAT_PCM_24, channels, in, 48000, positions);
        for (const std::string planar : {"", " --planar"}) {
            const Outcome run = host("run in.wav out.wav --json " + (options + planar));
            ASSERT_EQ(run.status, 0) << run.err;
            const std::string bytes = slurp("out.wav");
            EXPECT_EQ(std::memcmp(&bytes[bytes.find("fmt ") + 28], &mask, sizeof(mask)), 0);
            const Audio out("out.wav");
            ASSERT_EQ(size_t(out.channels), levels.size());
            for (size_t o = 0; o < levels.size(); o++)
                EXPECT_NEAR(out.at(500, int(o)), levels[o] / 100.0, 2e-6) << "output " << o;
            const auto report = nlohmann::json::parse(run.out);
            EXPECT_EQ(report["pass_through"], pass_through);
            EXPECT_EQ(report["latency"]["frames"], pass_through ? 0 : 32);
        }
    }
}

TEST_F(Host, ReportsWhatHappenedAndDescribesTheModule) {
    std::vector<float> in(48000 * 6);
    for (size_t t = 0; t < 48000; t++)
        in[6 * t + 2] = t % 2 ? 0.5f : -0.5f;
    write("in.wav", SF_FORMAT_WAV | SF_FORMAT_FLOAT, 6, in);
    const auto report = nlohmann::json::parse(host("--json run in.wav out.wav --layout stereo").out);
    EXPECT_EQ(report["stream"]["frames"], 48000);
    EXPECT_EQ(report["matrix"][1]["output"], "FR");
    EXPECT_NEAR(report["matrix"][1]["gain"][5], h, 1e-6);
    EXPECT_NEAR(report["worst_case"]["gain_db"], 20 * std::log10(1 + 2 * h), 1e-4);
    EXPECT_NEAR(report["levels"]["input"][2]["peak_dbfs"], -6.0206, 1e-3);
    EXPECT_TRUE(report["levels"]["input"][0]["peak_dbfs"].is_null());
    EXPECT_NEAR(report["levels"]["output"][0]["rms_dbfs"], -9.0206, 1e-3);
    EXPECT_GT(report["speed"]["real_time_factor"], 0.0);
    EXPECT_EQ(report["notices"].size(), 1u); // the speakers were guessed
    const std::string text = host("run in.wav out.wav --layout stereo").out;
    EXPECT_TRUE(contains(text, "FR                 .     0.0    -3.0       .       .    -3.0")) << text;
    EXPECT_TRUE(contains(text, "Latency       32 samples (0.67 ms), removed")) << text;
    EXPECT_FALSE(contains(text, "\r"));
    write("rate.wav", wav16, 6, noise(100, 6), 22050);
    EXPECT_TRUE(contains(host("run rate.wav out.wav --layout stereo").out, "limiter rests at 22050 Hz"));
    EXPECT_TRUE(contains(host("run in.wav out.wav --layout 7.1.4").out, "has no matrix"));

    EXPECT_EQ(nlohmann::json::parse(host("info --json").out)["reported_name"], "KorlaDownmixer");
    const auto layouts = nlohmann::json::parse(host("layouts --json").out);
    EXPECT_EQ(layouts["automatic"].size(), 73u);
    EXPECT_EQ(layouts["outputs"].size(), 32u);
    EXPECT_EQ(std::ranges::count_if(layouts["outputs"], [](auto& o) { return bool(o["mixed_from_7_1"]); }), 12);
}

TEST_F(Host, EveryFailureHasItsClassAndLeavesNothingBehind) {
    write("good.wav", wav16, 6, noise(5000, 6));
    write("nine.wav", wav16, 9, noise(100, 9));
    write("twelve.wav", wav16, 12, noise(100, 12));
    write("cut.flac", flac16, 6, noise(50000, 6));
    fs::resize_file("cut.flac", fs::file_size("cut.flac") / 2);
    std::ofstream("cut.wav") << slurp("good.wav").substr(0, 30000);
    write("endless.flac", flac16, 6, noise(9999, 6));
    std::string endless = slurp("endless.flac");
    endless[21] &= '\xf0', endless.replace(22, 4, 4, '\0'); // a length of 0 frames: not known
    std::ofstream("endless.flac") << endless;
    std::ofstream("old.wav") << "an older output";
    std::ofstream("library.so") << "no library";
    fs::create_directory("folder.wav");
    struct Case {
        const char* arguments;
        int status;
        const char *message, *prelude = "";
    };
    const Case cases[] = {
        {"", 2, "--help"},
        {"run good.wav", 2, "OUT"},
        {"run good.wav old.wav --block 300", 2, "multiple of 256"},
        {"run good.wav old.wav --format u8", 2, "--format"},
        {"run good.wav old.wav --library ./library.so", 3, "--library"},
        {"run good.wav old.wav --library libm.so.6", 3, "no module"},
        {"run missing.wav old.wav", 4, "no such file"},
        {"run folder.wav old.wav", 4, "not a regular file"},
        {"run library.so old.wav", 4, "library.so"},
        {"run cut.wav old.wav", 4, "cut short"},
        {"run cut.flac old.wav --layout stereo", 4, "cut short"},
        {"run nine.wav old.wav", 5, "--map"},
        {"run good.wav old.wav --map FL,FR", 5, "--map names 2 channels"},
        {"run good.wav old.wav --map FL,FR,FC,LFE,SL,XX", 5, "unknown speaker 'XX'"},
        {"run good.wav old.wav --map FL,FR,FC,12,SL,SR", 5, "empty slot"},
        {"run good.wav old.wav --map FL,FL,FC,LFE,SL,SR", 5, "no automatic layout"},
        {"run good.wav old.wav --layout 9.1", 5, "unknown layout"},
        {"run twelve.wav old.wav --layout stereo --planar", 5, "--planar"},
        {"run good.wav old.xyz", 6, ".wav"},
        {"run good.wav missing/old.wav", 6, "missing/old.wav"},
        {"run good.wav folder.wav", 6, "not a regular file"},
        {"run good.wav good.wav", 6, "input file"},
        {"run twelve.wav old.flac", 6, "at most 8 channels"},
        {"run good.wav old.wav --layout stereo", 6, "free space", "ulimit -f 20; "}, // as on a full disk
    };
    const auto files = [] { return std::set<fs::path>(fs::directory_iterator("."), {}); };
    const auto before = files();
    for (const auto& [arguments, status, message, prelude] : cases) {
        SCOPED_TRACE(arguments);
        const Outcome run = host(arguments, prelude);
        EXPECT_EQ(run.status, status);
        EXPECT_EQ(run.out, "");
        EXPECT_TRUE(contains(run.err, message)) << run.err;
        EXPECT_EQ(std::ranges::count(run.err, '\n'), 1) << run.err;
        EXPECT_EQ(files(), before);
    }
    EXPECT_EQ(slurp("old.wav"), "an older output");

    // What is there of a damaged file can be had.
    ASSERT_EQ(host("run cut.wav new.wav --accept-truncated --layout stereo").status, 0);
    EXPECT_EQ(Audio("new.wav").frames, Audio("cut.wav").frames);
    ASSERT_EQ(host("run endless.flac new.wav --layout stereo").status, 0);
    EXPECT_EQ(Audio("new.wav").frames, 9999u);
    ASSERT_EQ(host("run good.wav old.wav").status, 0);
    EXPECT_EQ(Audio("old.wav").frames, 5000u);
}

} // namespace
