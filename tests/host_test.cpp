// korla-host end to end: files in, files, reports and exit statuses out.
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <cmath>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <set>
#include <sndfile.hh>
#include <tuple>

#include "signals.h"

namespace fs = std::filesystem;

namespace {

constexpr int wav16 = SF_FORMAT_WAV | SF_FORMAT_PCM_16, flac16 = SF_FORMAT_FLAC | SF_FORMAT_PCM_16,
              wav_float = SF_FORMAT_WAV | SF_FORMAT_FLOAT;
constexpr double h = 0.70794578; // -3 dB

// Interleaved samples. positions: SF_CHANNEL_MAP_*, empty for a file that names no speakers.
using Samples = std::vector<float>;
void write(const char* name, int format, size_t channels, const Samples& samples, int rate = 48000,
           std::vector<int> positions = {}) {
    SndfileHandle file(name, SFM_WRITE, format, int(channels), rate);
    if (!positions.empty())
        file.command(SFC_SET_CHANNEL_MAP_INFO, positions.data(), int(positions.size() * sizeof(int)));
    EXPECT_EQ(file.write(samples.data(), sf_count_t(samples.size())), sf_count_t(samples.size())) << name;
}
Samples read(SndfileHandle file) {
    Samples samples(size_t(file.frames() * file.channels()));
    EXPECT_EQ(file.read(samples.data(), sf_count_t(samples.size())), sf_count_t(samples.size()));
    return samples;
}
// So far below full scale, if not told otherwise, that no output of the mix reaches the limiter's threshold.
Samples noise(size_t samples, float peak = 0.1f) { return korla_test::Random(7).vector(samples, -peak, peak); }
std::string slurp(const std::string& name) {
    std::ifstream file(name, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}
bool contains(const std::string& text, const std::string& part) { return text.find(part) != std::string::npos; }

// Every test works in an empty folder.
class Host : public testing::Test {
protected:
    Host() {
        EXPECT_TRUE(mkdtemp(folder_.data()));
        fs::current_path(folder_);
    }
    ~Host() override {
        for (const char* suffix : {"", ".out", ".err"})
            fs::remove_all(folder_ + suffix);
    }
    // The exit status and what was written to the standard output and the standard error.
    std::tuple<int, std::string, std::string> host(const std::string& arguments, const std::string& prelude = "") {
        const std::string output = folder_ + ".out", errors = folder_ + ".err";
        const int code =
            std::system((prelude + KORLA_HOST_PATH " " + arguments + " >" + output + " 2>" + errors).c_str());
        return {WIFEXITED(code) ? WEXITSTATUS(code) : -1, slurp(output), slurp(errors)};
    }
    std::string folder_ = fs::temp_directory_path() / "korla-host-test.XXXXXX";
};

TEST_F(Host, OutputLinesUpWithInputInEveryFormat) {
    using Case = std::tuple<std::string, std::string, std::string, int, int>; // files, options, their formats
    for (const auto& [in_name, out_name, options, format, expected] :
         {Case{"a.wav", "o.wav", "", wav16, SF_FORMAT_WAVEX | SF_FORMAT_PCM_16},
          {"a.wav", "o.wav", " --planar", SF_FORMAT_WAV | SF_FORMAT_PCM_24, SF_FORMAT_WAVEX | SF_FORMAT_PCM_24},
          {"a.w64", "o.w64", " --block 512", SF_FORMAT_W64 | SF_FORMAT_PCM_32, SF_FORMAT_W64 | SF_FORMAT_PCM_32},
          {"a.rf64", "o.rf64", " --planar", SF_FORMAT_RF64 | SF_FORMAT_FLOAT, SF_FORMAT_RF64 | SF_FORMAT_FLOAT},
          {"a.caf", "o.caf", " --block 8192", SF_FORMAT_CAF | SF_FORMAT_DOUBLE, SF_FORMAT_CAF | SF_FORMAT_FLOAT},
          {"a.flac", "o.flac", "", SF_FORMAT_FLAC | SF_FORMAT_PCM_24, SF_FORMAT_FLAC | SF_FORMAT_PCM_24},
          {"a.wav", "o.wav", " --format s32", wav_float, SF_FORMAT_WAVEX | SF_FORMAT_PCM_32},
          {"a.flac", "o.wav", " --format f32", flac16, SF_FORMAT_WAVEX | SF_FORMAT_FLOAT}}) {
        SCOPED_TRACE(in_name + " " + out_name + options);
        write(in_name.c_str(), format, 6, noise(10007 * 6));
        const auto [status, report, errors] = host("run " + in_name + " " + out_name + " --layout stereo" + options);
        ASSERT_EQ(status, 0) << errors;
        EXPECT_EQ(errors, "");
        EXPECT_EQ(SndfileHandle(out_name).format(), expected);
        const Samples in = read(in_name), out = read(out_name);
        ASSERT_EQ(out.size(), 10007u * 2);
        for (size_t i = 0; i < out.size(); i++) {
            const float* frame = &in[i / 2 * 6]; // left or right, centre, left or right surround
            ASSERT_NEAR(out[i], frame[i % 2] + h * frame[2] + h * frame[4 + i % 2], format == wav16 ? 0x1.8p-15 : 1e-6);
        }
    }
}

TEST_F(Host, BlockSizeAndPlanarityDoNotChangeASample) {
    write("in.wav", wav16, 8, noise(20000 * 8, 0.99f)); // the limiter is at work
    std::set<std::string> outputs;
    for (const std::string options : {"--block 256", "--block 65536", "--block 256 --planar", "--planar"}) {
        host("run in.wav out.wav --layout 5.1 " + options);
        outputs.insert(slurp("out.wav"));
    }
    EXPECT_EQ(outputs.size(), 1u);
}

TEST_F(Host, LengthIsKeptAtEveryEdgeOfAChunk) {
    for (const int frames : {0, 1, 31, 223, 224, 225, 255, 256, 257, 480, 512})
        for (const std::string layout : {"stereo", "5.1", "4.1"}) {
            Samples in(size_t(frames) * 6, 0.0f);
            if (frames > 0)
                in[in.size() - 6] = 0.125f; // the last frame must come out of the limiter's delay
            write("in.wav", wav_float, 6, in);
            host("run in.wav out.wav --block 256 --layout " + layout);
            SndfileHandle file("out.wav");
            ASSERT_EQ(file.frames(), frames);
            for (size_t i = 0, channels = size_t(file.channels()); const float x : read(file))
                ASSERT_NEAR(x, i++ == (size_t(frames) - 1) * channels ? 0.125 : 0.0, 1e-6) << layout << " " << frames;
        }
}

// Every channel of the input carries its own level; where it turns up shows the way through all three channel orders.
TEST_F(Host, SpeakersKeepTheirNamesThroughFilesAndMatrices) {
    const int L = SF_CHANNEL_MAP_LEFT, R = SF_CHANNEL_MAP_RIGHT, C = SF_CHANNEL_MAP_CENTER, W = SF_CHANNEL_MAP_LFE,
              BL = SF_CHANNEL_MAP_REAR_LEFT, BR = SF_CHANNEL_MAP_REAR_RIGHT, SL = SF_CHANNEL_MAP_SIDE_LEFT,
              SR = SF_CHANNEL_MAP_SIDE_RIGHT, BC = SF_CHANNEL_MAP_REAR_CENTER, TL = SF_CHANNEL_MAP_TOP_FRONT_LEFT,
              TR = SF_CHANNEL_MAP_TOP_FRONT_RIGHT, LC = SF_CHANNEL_MAP_FRONT_LEFT_OF_CENTER,
              RC = SF_CHANNEL_MAP_FRONT_RIGHT_OF_CENTER;
    // Speakers of the input, options; wave mask of the output, levels of its channels in 1/100 (input channel c has
    // c+1), whether it was mixed.
    using Case = std::tuple<std::vector<int>, std::string, uint32_t, std::vector<double>, bool>;
    const double k = 0.84139514, m = 0.54954087; // -1.5 dB, -5.2 dB
    const Case cases[] = {
        {{L, R, C, W, BL, BR, SL, SR}, "", 0x63F, {1, 2, 3, 4, 5, 6, 7, 8}, false},
        {{L, R, C, W, BL, BR, SL, SR}, "--layout 27 --format f32", 0x63F, {1, 2, 3, 4, 5, 6, 7, 8}, false},
        {{L, R, C, W, BL, BR, SL, SR}, "--layout 4.0", 0x603, {1 + 3 * h, 2 + 3 * h, 12, 14}, true},
        {{L, R, C, W, SL, SR}, "--layout 7.1", 0x63F, {1, 2, 3, 4, 0, 0, 5, 6}, true},
        {{L, R, C, W, BC, SL, SR}, "", 0x63F, {1, 2, 3, 4, 5 * h, 5 * h, 6, 7}, true},
        {{L, R, C, W, BL, BR, LC, RC}, "", 0x60F, {1 + 7 * k, 2 + 8 * k, 3 + 15 * m, 4, 5, 6}, true},
        {{L, R, C, W, SL, SR, TL, TR}, "", 0x560F, {1, 2, 3, 4, 5, 6, 7, 8}, false},
        {{}, "--map SR,SL,LFE,FC,FR,FL --layout stereo", 0x3, {6 + 4 * h + 2 * h, 5 + 4 * h + h}, true},
        {{}, "--map SR,SL,LFE,FC,FR,FL", 0x60F, {6, 5, 4, 3, 2, 1}, false},
    };
    for (const auto& [positions, options, mask, levels, mixed] : cases)
        for (const std::string planar : {" --json", " --json --planar"}) {
            SCOPED_TRACE(options + planar);
            Samples in;
            for (size_t i = 0, channels = positions.empty() ? 6 : positions.size(); i < 1000 * channels; i++)
                in.push_back(static_cast<float>(i % channels + 1) / 100.0f);
            const int container = positions.empty() ? SF_FORMAT_WAV : SF_FORMAT_WAVEX;
            write("in.wav", container | SF_FORMAT_PCM_24, in.size() / 1000, in, 48000, positions);
            const auto [status, report, errors] = host("run in.wav out.wav " + options + planar);
            ASSERT_EQ(status, 0) << errors;
            const std::string bytes = slurp("out.wav");
            EXPECT_EQ(std::memcmp(&bytes[bytes.find("fmt ") + 28], &mask, sizeof(mask)), 0);
            const Samples out = read("out.wav");
            ASSERT_EQ(out.size(), 1000 * levels.size());
            for (size_t o = 0; o < levels.size(); o++)
                EXPECT_NEAR(out[500 * levels.size() + o], levels[o] / 100.0, 2e-6) << "output " << o;
            EXPECT_EQ(nlohmann::json::parse(report)["latency"]["frames"], mixed ? 32 : 0);
        }
}

TEST_F(Host, ReportsWhatHappened) {
    Samples in(48000 * 6);
    for (size_t t = 0; t < 48000; t++)
        in[6 * t + 2] = t % 2 ? 0.5f : -0.5f;
    write("in.wav", wav_float, 6, in);
    write("rate.wav", wav16, 6, noise(600), 22050);
    const auto report = nlohmann::json::parse(std::get<1>(host("--json run in.wav out.wav --layout stereo")));
    EXPECT_NEAR(report["worst_case"]["gain_db"], 20 * std::log10(1 + 2 * h), 1e-4);
    EXPECT_NEAR(report["levels"]["input"][2]["peak_dbfs"], -6.0206, 1e-3);
    EXPECT_TRUE(report["levels"]["input"][0]["peak_dbfs"].is_null());
    EXPECT_NEAR(report["levels"]["output"][0]["rms_dbfs"], -9.0206, 1e-3);
    EXPECT_EQ(report["notices"].size(), 1u); // the speakers were guessed
    const std::string text = std::get<1>(host("run in.wav out.wav --layout stereo"));
    EXPECT_TRUE(contains(text, "FR                 .     0.0    -3.0       .       .    -3.0")) << text;
    EXPECT_TRUE(contains(text, "Latency       32 samples (0.67 ms), removed")) << text;
    EXPECT_TRUE(contains(std::get<1>(host("run rate.wav out.wav --layout stereo")), "limiter rests at 22050 Hz"));
    EXPECT_TRUE(contains(std::get<1>(host("run in.wav out.wav --layout 7.1.4")), "has no matrix"));
    EXPECT_TRUE(contains(std::get<1>(host("info")), "KorlaDownmixer"));
}

TEST_F(Host, EveryFailureHasItsClassAndLeavesNothingBehind) {
    write("good.wav", wav16, 6, noise(5000 * 6));
    write("nine.wav", wav16, 9, noise(900));
    write("twelve.wav", wav16, 12, noise(1200));
    std::ofstream("cut.wav") << slurp("good.wav").substr(0, 30000);
    std::ofstream("old.wav") << "an older output";
    fs::create_directory("folder.wav");
    struct Case {
        const char* arguments;
        int status;
        const char *message, *prelude = "";
    };
    const Case cases[] = {
        {"", 2, "--help"},
        {"run good.wav old.wav --block 300", 2, "multiple of 256"},
        {"run good.wav old.wav --library libm.so.6", 3, "no module"},
        {"run missing.wav old.wav", 4, "no such file"},
        {"run folder.wav old.wav", 4, "not a regular file"},
        {"run old.wav new.wav", 4, "old.wav"},
        {"run cut.wav old.wav", 4, "cut short"},
        {"run nine.wav old.wav", 5, "--map"},
        {"run good.wav old.wav --map FL,FR,FC,LFE,SL,XX", 5, "unknown speaker 'XX'"},
        {"run good.wav old.wav --map FL,FL,FC,LFE,SL,SR", 5, "no automatic layout"},
        {"run good.wav old.wav --layout 9.1", 5, "unknown layout"},
        {"run twelve.wav old.wav --layout stereo --planar", 5, "--planar"},
        {"run good.wav old.xyz", 6, ".wav"},
        {"run good.wav missing/old.wav", 6, "missing/old.wav"},
        {"run good.wav good.wav", 6, "input file"},
        {"run twelve.wav old.flac", 6, "at most 8 channels"},
        {"run good.wav old.wav --layout stereo", 6, "free space", "ulimit -f 20; "}, // as on a full disk
    };
    const auto files = [] { return std::set<fs::path>(fs::directory_iterator("."), {}); };
    const auto before = files();
    for (const auto& [arguments, status, message, prelude] : cases) {
        SCOPED_TRACE(arguments);
        const auto [actual_status, output, errors] = host(arguments, prelude);
        EXPECT_EQ(actual_status, status);
        EXPECT_EQ(output, "");
        EXPECT_TRUE(contains(errors, message) && errors.find('\n') + 1 == errors.size()) << errors;
        EXPECT_EQ(files(), before);
    }
    EXPECT_EQ(slurp("old.wav"), "an older output");
    host("run good.wav old.wav");
    EXPECT_EQ(read("old.wav").size(), 5000u * 6);

    // What is there of a damaged file can be had.
    host("run cut.wav new.wav --accept-truncated --layout stereo");
    EXPECT_EQ(read("new.wav").size(), read("cut.wav").size() / 3);
    write("endless.flac", flac16, 6, noise(9999 * 6));
    std::string endless = slurp("endless.flac");
    endless[21] &= '\xf0', endless.replace(22, 4, 4, '\0'); // a length of 0 frames: not known
    std::ofstream("endless.flac") << endless;
    host("run endless.flac new.wav --layout stereo");
    EXPECT_EQ(read("new.wav").size(), 9999u * 2);
}

} // namespace
