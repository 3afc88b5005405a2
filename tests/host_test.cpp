// korla-host end to end: files in, files, reports and exit statuses out.
#include <gtest/gtest.h>
#include <sndfile.h>
#include <sys/wait.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <sstream>

#include "signals.h"

namespace fs = std::filesystem;
using korla_test::Random;

namespace {

struct Audio {
    int channels = 0, rate = 0, format = 0;
    std::vector<float> samples; // interleaved
    size_t frames() const { return samples.size() / static_cast<size_t>(channels); }
    float at(size_t frame, int channel) const {
        return samples[frame * static_cast<size_t>(channels) + size_t(channel)];
    }
};

std::string slurp(const fs::path& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

struct Outcome {
    int status;
    std::string out, err;
};

class Host : public testing::Test {
protected:
    void SetUp() override {
        std::string name = fs::temp_directory_path() / "korla-host-test.XXXXXX";
        ASSERT_TRUE(mkdtemp(name.data()));
        folder = name;
    }
    void TearDown() override { fs::remove_all(folder); }

    Outcome host(const std::string& arguments, const std::string& prelude = "") {
        const fs::path out = folder / "stdout", err = folder / "stderr";
        const std::string command = "cd " + folder.string() + " && " + prelude + KORLA_HOST_PATH " " + arguments +
                                    " >" + out.string() + " 2>" + err.string() + " </dev/null";
        const int code = std::system(command.c_str());
        Outcome outcome{WIFEXITED(code) ? WEXITSTATUS(code) : -1, slurp(out), slurp(err)};
        fs::remove(out);
        fs::remove(err);
        return outcome;
    }

    // positions: SF_CHANNEL_MAP_*, empty for a file that names no speakers.
    void write(const std::string& name, int format, int channels, const std::vector<float>& samples, int rate = 48000,
               std::vector<int> positions = {}) {
        SF_INFO info{};
        info.channels = channels, info.samplerate = rate, info.format = format;
        SNDFILE* file = sf_open((folder / name).c_str(), SFM_WRITE, &info);
        ASSERT_TRUE(file) << sf_strerror(nullptr);
        if (!positions.empty()) {
            const int bytes = int(positions.size() * sizeof(int));
            ASSERT_TRUE(sf_command(file, SFC_SET_CHANNEL_MAP_INFO, positions.data(), bytes));
        }
        const auto frames = static_cast<sf_count_t>(samples.size()) / channels;
        ASSERT_EQ(sf_writef_float(file, samples.data(), frames), frames);
        sf_close(file);
    }

    Audio read(const std::string& name) {
        SF_INFO info{};
        SNDFILE* file = sf_open((folder / name).c_str(), SFM_READ, &info);
        EXPECT_TRUE(file) << name << ": " << sf_strerror(nullptr);
        Audio audio{info.channels, info.samplerate, info.format, {}};
        audio.samples.resize(size_t(info.frames * info.channels));
        EXPECT_EQ(sf_readf_float(file, audio.samples.data(), info.frames), info.frames);
        sf_close(file);
        return audio;
    }

    uint32_t wave_mask(const std::string& name) {
        const std::string bytes = slurp(folder / name);
        uint32_t mask;
        std::memcpy(&mask, bytes.data() + bytes.find("fmt ") + 28, sizeof mask);
        return mask;
    }

    std::vector<std::string> files() {
        std::vector<std::string> names;
        for (const auto& entry : fs::directory_iterator(folder))
            names.push_back(entry.path().filename());
        std::sort(names.begin(), names.end());
        return names;
    }

    fs::path folder;
};

constexpr double h = 0.70794578; // -3 dB

// Noise far enough below full scale that no output of the mix reaches the limiter's threshold.
std::vector<float> quiet_noise(size_t frames, size_t channels) {
    return Random(7).vector(frames * channels, -0.1f, 0.1f);
}

TEST_F(Host, OutputLinesUpWithInputInEveryFormat) {
    struct Case {
        const char *in, *out, *options;
        int format, expected;
        double tolerance;
    };
    const Case cases[] = {
        {"a.wav", "o.wav", "", SF_FORMAT_WAV | SF_FORMAT_PCM_16, SF_FORMAT_WAVEX | SF_FORMAT_PCM_16, 0x1.8p-15},
        {"a.wav", "o.wav", "--block 256 --planar", SF_FORMAT_WAV | SF_FORMAT_PCM_24, SF_FORMAT_WAVEX | SF_FORMAT_PCM_24,
         1e-6},
        {"a.w64", "o.w64", "--block 512", SF_FORMAT_W64 | SF_FORMAT_PCM_32, SF_FORMAT_W64 | SF_FORMAT_PCM_32, 1e-6},
        {"a.rf64", "o.rf64", "--planar", SF_FORMAT_RF64 | SF_FORMAT_FLOAT, SF_FORMAT_RF64 | SF_FORMAT_FLOAT, 1e-6},
        {"a.caf", "o.caf", "--block 8192", SF_FORMAT_CAF | SF_FORMAT_DOUBLE, SF_FORMAT_CAF | SF_FORMAT_FLOAT, 1e-6},
        {"a.flac", "o.flac", "", SF_FORMAT_FLAC | SF_FORMAT_PCM_24, SF_FORMAT_FLAC | SF_FORMAT_PCM_24, 1e-6},
        {"a.wav", "o.wav", "--format s32", SF_FORMAT_WAV | SF_FORMAT_FLOAT, SF_FORMAT_WAVEX | SF_FORMAT_PCM_32, 1e-6},
        {"a.flac", "o.wav", "--format f32", SF_FORMAT_FLAC | SF_FORMAT_PCM_16, SF_FORMAT_WAVEX | SF_FORMAT_FLOAT, 1e-6},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(std::string(c.in) + " " + c.out + " " + c.options);
        write(c.in, c.format, 6, quiet_noise(10007, 6));
        const Outcome run = host(std::string("run ") + c.in + " " + c.out + " --layout stereo " + c.options);
        ASSERT_EQ(run.status, 0) << run.err;
        EXPECT_EQ(run.err, "");
        const Audio in = read(c.in), out = read(c.out);
        EXPECT_EQ(out.format, c.expected);
        ASSERT_EQ(out.channels, 2);
        ASSERT_EQ(out.frames(), in.frames());
        double error = 0.0;
        for (size_t t = 0; t < in.frames(); t++)
            for (int side = 0; side < 2; side++) {
                const double mix = in.at(t, side) + h * in.at(t, 2) + h * in.at(t, 4 + side);
                error = std::max(error, std::fabs(mix - out.at(t, side)));
            }
        EXPECT_LT(error, c.tolerance);
    }
}

TEST_F(Host, BlockSizeAndPlanarityDoNotChangeASample) {
    // Full-scale noise, so that the limiter is at work.
    std::vector<float> loud = quiet_noise(20000, 8);
    for (float& x : loud)
        x *= 9.9f;
    write("in.wav", SF_FORMAT_WAV | SF_FORMAT_PCM_16, 8, loud);
    std::string first;
    for (const char* options : {"--block 256", "--block 1024", "--block 65536", "--block 256 --planar", "--planar"}) {
        ASSERT_EQ(host(std::string("run in.wav out.wav --layout 5.1 ") + options).status, 0);
        const std::string bytes = slurp(folder / "out.wav");
        first = first.empty() ? bytes : first;
        EXPECT_EQ(bytes, first) << options;
    }
}

TEST_F(Host, LengthIsKeptAtEveryEdgeOfAChunk) {
    for (const size_t frames : {0u, 1u, 31u, 223u, 224u, 225u, 255u, 256u, 257u, 480u, 512u}) {
        SCOPED_TRACE(frames);
        std::vector<float> in(frames * 6);
        if (frames > 0)
            in[(frames - 1) * 6] = 0.125f; // the last frame must come out of the limiter's delay
        write("in.wav", SF_FORMAT_WAV | SF_FORMAT_FLOAT, 6, in);
        for (const char* layout : {"stereo", "5.1", "4.1"}) {
            ASSERT_EQ(host(std::string("run in.wav out.wav --block 256 --layout ") + layout).status, 0);
            const Audio out = read("out.wav");
            ASSERT_EQ(out.frames(), frames);
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
        std::vector<double> levels; // expected per output file channel, in 1/100
        bool pass_through = false;
    };
    // Input file channel c has level (c + 1) / 100.
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
    for (const Case& c : cases) {
        SCOPED_TRACE(c.options);
        const size_t channels = c.positions.empty() ? 6 : c.positions.size();
        std::vector<float> in(1000 * channels);
        for (size_t i = 0; i < in.size(); i++)
            in[i] = static_cast<float>(i % channels + 1) / 100.0f;
        write("in.wav", (c.positions.empty() ? SF_FORMAT_WAV : SF_FORMAT_WAVEX) | SF_FORMAT_PCM_24, int(channels), in,
              48000, c.positions);
        for (const char* planar : {"", " --planar"}) {
            const Outcome run = host(std::string("run in.wav out.wav --json ") + c.options + planar);
            ASSERT_EQ(run.status, 0) << run.err;
            EXPECT_EQ(wave_mask("out.wav"), c.mask);
            const Audio out = read("out.wav");
            ASSERT_EQ(size_t(out.channels), c.levels.size());
            for (size_t o = 0; o < c.levels.size(); o++)
                EXPECT_NEAR(out.at(500, int(o)), c.levels[o] / 100.0, 2e-6) << "output " << o;
            const auto report = nlohmann::json::parse(run.out);
            EXPECT_EQ(report["pass_through"], c.pass_through);
            EXPECT_EQ(report["latency"]["frames"], c.pass_through ? 0 : 32);
        }
    }
}

TEST_F(Host, ReportsWhatHappened) {
    std::vector<float> in(48000 * 6);
    for (size_t t = 0; t < 48000; t++)
        in[6 * t + 2] = t % 2 ? 0.5f : -0.5f;
    write("in.wav", SF_FORMAT_WAV | SF_FORMAT_FLOAT, 6, in);
    const Outcome run = host("--json run in.wav out.wav --layout stereo");
    ASSERT_EQ(run.status, 0) << run.err;
    const auto report = nlohmann::json::parse(run.out);
    EXPECT_EQ(report["stream"]["frames"], 48000);
    ASSERT_EQ(report["matrix"].size(), 2u);
    EXPECT_EQ(report["matrix"][1]["output"], "FR");
    const std::vector<double> gains = {0, 1, h, 0, 0, h};
    for (size_t c = 0; c < 6; c++)
        EXPECT_NEAR(report["matrix"][1]["gain"][c], gains[c], 1e-6);
    EXPECT_NEAR(report["worst_case"]["gain_db"], 20 * std::log10(1 + 2 * h), 1e-4);
    EXPECT_NEAR(report["levels"]["input"][2]["peak_dbfs"], -6.0206, 1e-3);
    EXPECT_NEAR(report["levels"]["input"][2]["rms_dbfs"], -6.0206, 1e-3);
    EXPECT_TRUE(report["levels"]["input"][0]["peak_dbfs"].is_null());
    EXPECT_NEAR(report["levels"]["output"][0]["rms_dbfs"], -9.0206, 1e-3);
    EXPECT_GT(report["speed"]["real_time_factor"], 0.0);
    ASSERT_EQ(report["notices"].size(), 1u); // the speakers were guessed

    const std::string text = host("run in.wav out.wav --layout stereo").out;
    EXPECT_NE(text.find("FR                 .     0.0    -3.0       .       .    -3.0"), std::string::npos) << text;
    EXPECT_NE(text.find("Latency       32 samples (0.67 ms), removed"), std::string::npos) << text;
    EXPECT_EQ(text.find('\r'), std::string::npos);

    write("rate.wav", SF_FORMAT_WAV | SF_FORMAT_PCM_16, 6, quiet_noise(100, 6), 22050);
    EXPECT_NE(host("run rate.wav out.wav --layout stereo").out.find("limiter rests at 22050 Hz"), std::string::npos);
    EXPECT_NE(host("run in.wav out.wav --layout 7.1.4").out.find("has no matrix"), std::string::npos);
}

TEST_F(Host, DescribesTheModule) {
    EXPECT_EQ(nlohmann::json::parse(host("info --json").out)["reported_name"], "KorlaDownmixer");
    const auto layouts = nlohmann::json::parse(host("layouts --json").out);
    EXPECT_EQ(layouts["outputs"].size(), 32u);
    EXPECT_EQ(layouts["automatic"].size(), 73u);
    int mixing = 0;
    for (const auto& layout : layouts["outputs"])
        mixing += layout["mixed_from_7_1"].get<bool>();
    EXPECT_EQ(mixing, 12);
}

TEST_F(Host, EveryFailureHasItsClassAndLeavesNothingBehind) {
    write("good.wav", SF_FORMAT_WAV | SF_FORMAT_PCM_16, 6, quiet_noise(5000, 6));
    write("nine.wav", SF_FORMAT_WAV | SF_FORMAT_PCM_16, 9, quiet_noise(100, 9));
    write("twelve.wav", SF_FORMAT_WAV | SF_FORMAT_PCM_16, 12, quiet_noise(100, 12));
    write("good.flac", SF_FORMAT_FLAC | SF_FORMAT_PCM_16, 6, quiet_noise(50000, 6));
    std::ofstream(folder / "text.wav") << "This is no audio.";
    std::ofstream(folder / "cut.wav", std::ios::binary) << slurp(folder / "good.wav").substr(0, 30000);
    const std::string flac = slurp(folder / "good.flac");
    std::ofstream(folder / "cut.flac", std::ios::binary) << flac.substr(0, flac.size() / 2);
    write("endless.flac", SF_FORMAT_FLAC | SF_FORMAT_PCM_16, 6, quiet_noise(9999, 6));
    std::string endless = slurp(folder / "endless.flac");
    endless[21] &= '\xf0', endless.replace(22, 4, 4, '\0'); // a length of 0 frames: not known
    std::ofstream(folder / "endless.flac", std::ios::binary) << endless;
    std::ofstream(folder / "old.wav") << "an older output";
    fs::create_directory(folder / "folder.wav");
    std::ofstream(folder / "library.so") << "no library";

    struct Case {
        const char* arguments;
        int status;
        const char* message;
    };
    const Case cases[] = {
        {"", 2, "--help"},
        {"run good.wav", 2, "OUT"},
        {"run good.wav old.wav --block 300", 2, "multiple of 256"},
        {"run good.wav old.wav --format u8", 2, "--format"},
        {"run good.wav old.wav --library library.so", 3, "--library"},
        {"run good.wav old.wav --library libm.so.6", 3, "no module"},
        {"run missing.wav old.wav", 4, "no such file"},
        {"run folder.wav old.wav", 4, "not a regular file"},
        {"run text.wav old.wav", 4, "text.wav"},
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
    };
    const auto before = files();
    for (const Case& c : cases) {
        SCOPED_TRACE(c.arguments);
        const Outcome run = host(c.arguments);
        EXPECT_EQ(run.status, c.status);
        EXPECT_EQ(run.out, "");
        EXPECT_NE(run.err.find(c.message), std::string::npos) << run.err;
        EXPECT_EQ(std::count(run.err.begin(), run.err.end(), '\n'), 1) << run.err;
        EXPECT_EQ(files(), before);
    }
    const Outcome full = host("run good.wav old.wav --layout stereo", "ulimit -f 20; "); // as on a full disk
    EXPECT_EQ(full.status, 6);
    EXPECT_NE(full.err.find("free space"), std::string::npos) << full.err;
    EXPECT_EQ(files(), before);
    EXPECT_EQ(slurp(folder / "old.wav"), "an older output");

    // What is there of a damaged file can be had.
    ASSERT_EQ(host("run cut.wav new.wav --accept-truncated --layout stereo").status, 0);
    EXPECT_EQ(read("new.wav").frames(), read("cut.wav").frames());
    ASSERT_EQ(host("run endless.flac new.wav --layout stereo").status, 0);
    EXPECT_EQ(read("new.wav").frames(), 9999u);
    ASSERT_EQ(host("run good.wav old.wav").status, 0);
    EXPECT_EQ(read("old.wav").frames(), 5000u);
}

} // namespace
