// korla-host end to end: files in, files, reports and exit statuses out.
#include <gtest/gtest.h>
#include <korla/stream.h>
#include <sys/wait.h>

#include <cmath>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <map>
#include <nlohmann/json.hpp>
#include <set>
#include <sndfile.hh>
#include <sstream>
#include <tuple>

#include "signals.h"

namespace fs = std::filesystem;
using nlohmann::json;

// libvorbisenc loses a part of its set-up for 5.1.
extern "C" const char* __lsan_default_suppressions();
const char* __lsan_default_suppressions() { return "leak:libvorbisenc"; }

namespace {

constexpr int wav16 = SF_FORMAT_WAV | SF_FORMAT_PCM_16, wav24 = SF_FORMAT_WAV | SF_FORMAT_PCM_24,
              wav32 = SF_FORMAT_WAV | SF_FORMAT_PCM_32, wav_float = SF_FORMAT_WAV | SF_FORMAT_FLOAT,
              wavex24 = SF_FORMAT_WAVEX | SF_FORMAT_PCM_24, flac16 = SF_FORMAT_FLAC | SF_FORMAT_PCM_16,
              flac24 = SF_FORMAT_FLAC | SF_FORMAT_PCM_24, caf24 = SF_FORMAT_CAF | SF_FORMAT_PCM_24,
              aiff24 = SF_FORMAT_AIFF | SF_FORMAT_PCM_24;
constexpr double h = 0.70794578; // -3 dB

// Interleaved samples. positions: SF_CHANNEL_MAP_*, empty for a file that names no speakers. chan: big-endian words of
// the layout chunk of a CAF or AIFF file.
using Samples = std::vector<float>;
void write(const char* name, int format, size_t channels, const Samples& samples, int rate = 48000,
           std::vector<int> positions = {}, const std::vector<uint32_t>& chan = {}) {
    SndfileHandle file(name, SFM_WRITE, format, int(channels), rate);
    if (!positions.empty())
        file.command(SFC_SET_CHANNEL_MAP_INFO, positions.data(), int(positions.size() * sizeof(int)));
    std::string bytes;
    for (size_t i = 0; i < 4 * chan.size(); i++)
        bytes += char(chan[i / 4] >> (24 - 8 * (i % 4)));
    SF_CHUNK_INFO chunk{"chan", 4, unsigned(bytes.size()), bytes.data()};
    if ((format & SF_FORMAT_TYPEMASK) == SF_FORMAT_AIFF)
        std::memcpy(chunk.id, "CHAN", 4);
    if (!chan.empty() && sf_set_chunk(file.rawHandle(), &chunk) != SF_ERR_NO_ERROR)
        ADD_FAILURE() << "no layout chunk";
    EXPECT_EQ(file.write(samples.data(), sf_count_t(samples.size())), sf_count_t(samples.size())) << name;
}
template <class T = float> std::vector<T> read(SndfileHandle file) {
    std::vector<T> samples(size_t(file.frames() * file.channels()));
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
bool notes(const json& report, const std::string& part) { return contains(report["notices"].dump(), part); }
std::vector<std::string> split(const std::string& text, char separator) {
    std::vector<std::string> parts;
    std::stringstream stream(text);
    for (std::string part; std::getline(stream, part, separator);)
        parts.push_back(part.substr(part.find_first_not_of(' ')));
    return parts;
}

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
    std::tuple<int, std::string, std::string> host(const std::string& arguments, const std::string& prelude = "",
                                                   const std::string& sink = "") {
        const std::string output = folder_ + ".out", errors = folder_ + ".err";
        const int code = std::system(
            (prelude + KORLA_HOST_PATH " " + arguments + " >" + (sink.empty() ? output : sink) + " 2>" + errors)
                .c_str());
        return {WIFEXITED(code) ? WEXITSTATUS(code) : -1, slurp(output), slurp(errors)};
    }
    // The report of a command that goes well.
    json report_of(const std::string& command) {
        const auto [status, report, errors] = host("--json " + command);
        EXPECT_EQ(errors, "") << command;
        return json::parse(status == 0 ? report : "{}");
    }
    json run(const std::string& arguments) { return report_of("run " + arguments); }
    std::string folder_ = fs::temp_directory_path() / "korla-host-test.XXXXXX";
};

TEST_F(Host, OutputLinesUpWithInputInEveryFormat) {
    using Case = std::tuple<std::string, std::string, std::string, int, int>; // files, options, their formats
    for (const auto& [in_name, out_name, options, format, expected] :
         {Case{"a.wav", "o.wav", "", wav16, SF_FORMAT_WAVEX | SF_FORMAT_PCM_16},
          {"a.wav", "o.wav", " --planar", wav24, wavex24},
          {"a.w64", "o.w64", " --block 512", SF_FORMAT_W64 | SF_FORMAT_PCM_32, SF_FORMAT_W64 | SF_FORMAT_PCM_32},
          {"a.rf64", "o.rf64", " --planar", SF_FORMAT_RF64 | SF_FORMAT_FLOAT, SF_FORMAT_RF64 | SF_FORMAT_FLOAT},
          {"a.caf", "o.caf", " --block 8192", SF_FORMAT_CAF | SF_FORMAT_DOUBLE, SF_FORMAT_CAF | SF_FORMAT_FLOAT},
          {"a.flac", "o.flac", "", flac24, flac24},
          {"a.wav", "o.wav", " --format s32", wav_float, SF_FORMAT_WAVEX | SF_FORMAT_PCM_32},
          {"a.flac", "o.wav", " --format f32", flac16, SF_FORMAT_WAVEX | SF_FORMAT_FLOAT}}) {
        SCOPED_TRACE(in_name + " " + out_name + options);
        write(in_name.c_str(), format, 6, noise(10007 * 6));
        run(in_name + " " + out_name + " --layout stereo" + options);
        EXPECT_EQ(SndfileHandle(out_name).format(), expected);
        const Samples in = read(in_name), out = read(out_name);
        ASSERT_EQ(out.size(), 10007u * 2);
        for (size_t i = 0; i < out.size(); i++) {
            const float* frame = &in[i / 2 * 6]; // left or right, centre, left or right surround
            ASSERT_NEAR(out[i], frame[i % 2] + h * frame[2] + h * frame[4 + i % 2], format == wav16 ? 0x1p-15 : 2e-7);
        }
    }
}

TEST_F(Host, ReadsAndWritesWhatItsHelpNames) {
    const std::map<std::string, int> inputs = {{"WAV", wav16},
                                               {"W64", SF_FORMAT_W64 | SF_FORMAT_PCM_16},
                                               {"RF64", SF_FORMAT_RF64 | SF_FORMAT_PCM_16},
                                               {"CAF", caf24},
                                               {"AIFF", aiff24},
                                               {"AU", SF_FORMAT_AU | SF_FORMAT_PCM_16},
                                               {"FLAC", flac16},
                                               {"Ogg Vorbis", SF_FORMAT_OGG | SF_FORMAT_VORBIS},
                                               {"Ogg Opus", SF_FORMAT_OGG | SF_FORMAT_OPUS},
                                               {"MP3", SF_FORMAT_MPEG | SF_FORMAT_MPEG_LAYER_III}};
    const std::string help = std::get<1>(host("run --help"));
    const auto named = [&](const std::string& head) {
        const size_t at = help.find(head) + head.size();
        return split(help.substr(at, help.find('\n', at) - at), ',');
    };
    EXPECT_EQ(named("Input file:").size(), inputs.size());
    for (const std::string& name : named("Input file:")) {
        write("input", inputs.at(name), 2, noise(48000));
        EXPECT_GE(run("input out.wav")["stream"]["frames"], 24000) << name;
        EXPECT_EQ(SndfileHandle("input").format() & SF_FORMAT_SUBMASK, inputs.at(name) & SF_FORMAT_SUBMASK);
    }
    write("in.wav", wav16, 2, noise(4000));
    for (const std::string& name : named("names the format:")) {
        const std::string out = "out" + name.substr(name.find('.'), name.find(')') - name.find('.'));
        run("in.wav " + out);
        const bool raw = out == "out.raw";
        EXPECT_EQ(
            read(raw ? SndfileHandle(out, SFM_READ, SF_FORMAT_RAW | SF_FORMAT_PCM_16, 2, 48000) : SndfileHandle(out)),
            read("in.wav"))
            << name;
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
            EXPECT_EQ(notes(run("in.wav out.wav --block 256 --layout " + layout), "no frames"), frames == 0);
            SndfileHandle file("out.wav");
            ASSERT_EQ(file.frames(), frames);
            for (size_t i = 0, channels = size_t(file.channels()); const float x : read(file))
                ASSERT_NEAR(x, i++ == (size_t(frames) - 1) * channels ? 0.125 : 0.0, 1e-6) << layout << " " << frames;
        }
}

// All numbers of so many steps a bit of the output that the steps between two of them occur equally often: what is
// rounded to the nearest, ties to even, has an error whose mean is 0.
TEST_F(Host, RoundsWhereBitsGoAway) {
    constexpr int steps = 256, count = 256 * steps;
    struct Case {
        int format, bits;
        const char *options, *out;
    };
    for (const auto& [format, bits, options, out] : {Case{wav24, 16, "--format s16", "out.wav"},
                                                     {wav_float, 16, "--format s16", "out.wav"},
                                                     {wav32, 24, "", "out.flac"},
                                                     {wav_float, 24, "", "out.flac"},
                                                     {wav32, 24, "--format f32", "out.flac"}}) {
        std::vector<int> numbers;
        for (int i = 0; i < count; i++)
            numbers.push_back((i - count / 2) * (1 << (32 - bits)) / steps);
        {
            SndfileHandle file("in.wav", SFM_WRITE, format, 2, 48000);
            file.command(SFC_SET_SCALE_INT_FLOAT_WRITE, nullptr, SF_TRUE);
            file.write(numbers.data(), count);
        }
        run(std::string("in.wav ") + out + " " + options); // stereo is copied
        const std::vector<int> rounded = read<int>(out);
        double mean = 0.0, largest = 0.0;
        for (size_t i = 0; i < size_t(count); i++) {
            const double error = (double(rounded[i]) - numbers[i]) / (1 << (32 - bits));
            mean += error / count;
            largest = std::fmax(largest, std::fabs(error));
        }
        EXPECT_TRUE(mean == 0.0 && largest == 0.5) << options << out << ": " << mean << ", at most " << largest;
    }
}

TEST_F(Host, DepthFallsWithDitherAndRisesWithoutLoss) {
    constexpr int count = 1 << 16;
    Samples in(count);
    for (int i = 0; i < count; i++) // of every place between two steps
        in[size_t(i)] = float(i % 256) * 0x1p-23f;
    write("in.wav", wav_float, 1, in);
    EXPECT_EQ(report_of("mix in.wav out.wav --to mono --depth 16")["output"]["dithered"], true);
    double sum = 0, squares = 0;
    const std::vector<int> dithered = read<int>("out.wav");
    for (size_t i = 0; i < in.size(); i++) {
        const double error = dithered[i] * 0x1p-16 - double(in[i]) * 0x1p15; // in steps of 16 bits
        EXPECT_LE(std::fabs(error), 1.5);
        sum += error, squares += error * error;
    }
    EXPECT_NEAR(sum / count, 0.0, 0.01);
    EXPECT_NEAR(squares / count, 0.25, 0.01); // 1/12 of rounding, 1/6 of the noise
    const std::string first = slurp("out.wav");
    host("mix in.wav out.wav --to mono --depth 16");
    EXPECT_EQ(slurp("out.wav"), first) << "another noise";
    host("mix in.wav out.wav --to mono --depth 16 --no-dither");
    EXPECT_EQ(read<int>("out.wav")[100], 0);
    for (const auto& [options, format] : {std::pair{"--depth 24", SF_FORMAT_PCM_24},
                                          {"--depth 32", SF_FORMAT_PCM_32},
                                          {"--depth float", SF_FORMAT_FLOAT},
                                          {"--depth float --format s16", SF_FORMAT_FLOAT}}) {
        write("in.wav", wav16, 1, noise(5000));
        EXPECT_EQ(report_of(std::string("mix in.wav out.wav --to mono ") + options)["output"]["dithered"], false);
        SndfileHandle out("out.wav");
        EXPECT_EQ(out.format() & SF_FORMAT_SUBMASK, format);
        EXPECT_EQ(read(out), read("in.wav")) << options;
    }
}

TEST_F(Host, TagsAreCopiedAndOldFilesKeptWhenAsked) {
    for (const char* out : {"out.wav", "out.flac"}) {
        {
            SndfileHandle file("in.flac", SFM_WRITE, flac16, 6, 48000);
            file.setString(SF_STR_TITLE, "Title");
            file.setString(SF_STR_ARTIST, "Somebody");
            const Samples in = noise(600);
            file.write(in.data(), 600);
        }
        report_of(std::string("mix in.flac ") + out + " --to 5.1");
        SndfileHandle file(out);
        EXPECT_STREQ(file.getString(SF_STR_TITLE), "Title");
        EXPECT_STREQ(file.getString(SF_STR_ARTIST), "Somebody");
        const auto [status, output, errors] = host(std::string("mix in.flac ") + out + " --to stereo --no-overwrite");
        EXPECT_TRUE(status == 6 && contains(errors, "there already")) << errors;
        EXPECT_EQ(SndfileHandle(out).channels(), 6);
    }
    EXPECT_EQ(host("mix in.flac new.wav --to stereo --no-overwrite --quiet"), std::tuple(0, "", ""));
    EXPECT_EQ(SndfileHandle("new.wav").channels(), 2);
}

TEST_F(Host, SamplesWithoutHeaderGoInAndOut) {
    for (const auto& [name, format] : {std::pair{"s16", wav16}, {"s24", wav24}, {"s32", wav32}, {"f32", wav_float}}) {
        write("in.wav", format, 6, noise(6 * 5001, 0.5f));
        const std::string wave = slurp("in.wav"), raw = std::string(" --to stereo --raw ") + name + ":6:48000";
        std::ofstream("in.raw", std::ios::binary) << wave.substr(wave.find("data") + 8);
        host("mix in.wav out.wav --to stereo --from 5.1");
        const auto expected = slurp("out.wav").substr(slurp("out.wav").find("data") + 8);
        host("mix in.raw out.raw" + raw);
        EXPECT_EQ(slurp("out.raw"), expected) << name;
        host("mix - - --raw-out" + raw, "cat in.raw | ", "pipe.raw");
        EXPECT_EQ(slurp("pipe.raw"), expected) << name;
    }
}

// Every channel of the input carries its own level; where it turns up shows the way through all three channel orders.
TEST_F(Host, SpeakersKeepTheirNamesThroughFilesAndMatrices) {
    const int L = SF_CHANNEL_MAP_LEFT, R = SF_CHANNEL_MAP_RIGHT, C = SF_CHANNEL_MAP_CENTER, W = SF_CHANNEL_MAP_LFE,
              BL = SF_CHANNEL_MAP_REAR_LEFT, BR = SF_CHANNEL_MAP_REAR_RIGHT, SL = SF_CHANNEL_MAP_SIDE_LEFT,
              SR = SF_CHANNEL_MAP_SIDE_RIGHT, BC = SF_CHANNEL_MAP_REAR_CENTER, TL = SF_CHANNEL_MAP_TOP_FRONT_LEFT,
              TR = SF_CHANNEL_MAP_TOP_FRONT_RIGHT, LC = SF_CHANNEL_MAP_FRONT_LEFT_OF_CENTER,
              RC = SF_CHANNEL_MAP_FRONT_RIGHT_OF_CENTER;
    // Input: format, speakers or layout chunk, options. Output: wave mask, levels of its channels in 1/100 (input
    // channel c has c+1), whether it was mixed.
    struct Case {
        int format;
        size_t channels;
        std::vector<int> positions;
        std::vector<uint32_t> chan;
        std::string options;
        uint32_t mask;
        std::vector<double> levels;
        bool mixed;
    };
    const double k = 0.84139514, m = 0.54954087; // -1.5 dB, -5.2 dB
    std::vector<uint32_t> described = {0, 0, 8}; // surrounds, rear surrounds, front
    for (const uint32_t label : {5, 6, 33, 34, 1, 2, 3, 4})
        described.insert(described.end(), {label, 0, 0, 0, 0});
    const Case cases[] = {
        {wavex24, 8, {L, R, C, W, BL, BR, SL, SR}, {}, "", 0x63F, {1, 2, 3, 4, 5, 6, 7, 8}, false},
        {wavex24,
         8,
         {L, R, C, W, BL, BR, SL, SR},
         {},
         "--layout 27 --format f32",
         0x63F,
         {1, 2, 3, 4, 5, 6, 7, 8},
         false},
        {wavex24, 8, {L, R, C, W, BL, BR, SL, SR}, {}, "--layout 4.0", 0x603, {1 + 3 * h, 2 + 3 * h, 12, 14}, true},
        {wavex24, 6, {L, R, C, W, SL, SR}, {}, "--layout 7.1", 0x63F, {1, 2, 3, 4, 0, 0, 5, 6}, true},
        {wavex24, 7, {L, R, C, W, BC, SL, SR}, {}, "", 0x63F, {1, 2, 3, 4, 5 * h, 5 * h, 6, 7}, true},
        {wavex24, 8, {L, R, C, W, BL, BR, LC, RC}, {}, "", 0x60F, {1 + 7 * k, 2 + 8 * k, 3 + 15 * m, 4, 5, 6}, true},
        {wavex24, 8, {L, R, C, W, SL, SR, TL, TR}, {}, "", 0x560F, {1, 2, 3, 4, 5, 6, 7, 8}, false},
        {wav24, 6, {}, {}, "--map SR,SL,LFE,FC,FR,FL --layout Stereo", 0x3, {6 + 4 * h + 2 * h, 5 + 4 * h + h}, true},
        {wav24, 6, {}, {}, "--map SR,SL,LFE,FC,FR,FL --layout AUTO", 0x60F, {6, 5, 4, 3, 2, 1}, false},
        {flac24, 7, {}, {}, "", 0x63F, {1, 2, 3, 4, 5 * h, 5 * h, 6, 7}, true},
        {aiff24, 6, {}, {1 << 16, 0x137, 0}, "", 0x63F, {1, 2, 3, 0, 6 * h, 6 * h, 4, 5}, true}, // L R C BL BR BC
        {caf24, 6, {C, L, R, BL, BR, W}, {}, "", 0x60F, {2, 3, 1, 6, 4, 5}, false},
        {caf24, 8, {}, {128 << 16 | 8, 0, 0}, "", 0x63F, {1, 2, 3, 4, 7, 8, 5, 6}, false},
        {caf24, 8, {}, described, "", 0x63F, {5, 6, 7, 8, 3, 4, 1, 2}, false},
    };
    for (const auto& [format, channels, positions, chan, options, mask, levels, mixed] : cases)
        for (const std::string planar : {"", " --planar"}) {
            SCOPED_TRACE(testing::Message() << std::hex << format << " " << mask << " " << options << planar);
            Samples in;
            for (size_t i = 0; i < 1000 * channels; i++)
                in.push_back(static_cast<float>(i % channels + 1) / 100.0f);
            write("input", format, channels, in, 48000, positions, chan);
            const json report = run("input out.wav " + options + planar);
            const std::string bytes = slurp("out.wav");
            EXPECT_EQ(std::memcmp(&bytes[bytes.find("fmt ") + 28], &mask, sizeof(mask)), 0);
            const Samples out = read("out.wav");
            ASSERT_EQ(out.size(), 1000 * levels.size());
            for (size_t o = 0; o < levels.size(); o++)
                EXPECT_NEAR(out[500 * levels.size() + o], levels[o] / 100.0, 2e-6) << "output " << o;
            EXPECT_EQ(report["latency"]["frames"], mixed ? 32 : 0);
            EXPECT_FALSE(notes(report, "names no speakers"));
        }
}

// An Ogg file whose Opus header names another mapping family.
std::string with_opus_family(std::string file, int family) {
    const size_t first_page = 28 + static_cast<unsigned char>(file[27]);
    file[46] = static_cast<char>(family);
    file.replace(22, 4, 4, '\0');
    uint32_t sum = 0;
    for (size_t i = 0; i < first_page; i++) {
        sum ^= uint32_t{static_cast<unsigned char>(file[i])} << 24;
        for (int bit = 0; bit < 8; bit++)
            sum = sum << 1 ^ (sum >> 31 ? 0x04c11db7 : 0);
    }
    std::memcpy(&file[22], &sum, sizeof sum);
    return file;
}

// Vorbis and Opus have an order of their own, up to eight channels. Every channel carries a tone of its own, and each
// output must be the tone of its speaker and nothing else.
TEST_F(Host, OggChannelsReachTheirSpeakers) {
    constexpr size_t frames = 24000;
    const auto tone = [](const std::string& order, const std::string& speaker, size_t t) {
        const double frequency = speaker == "LFE" ? 80 : 400 + 50 * int(order.find(speaker));
        return 0.1 * std::sin(2.0 * M_PI * frequency * double(t) / 48000.0);
    };
    for (const int codec : {SF_FORMAT_VORBIS, SF_FORMAT_OPUS})
        for (const std::string order :
             {"FC", "FL FR", "FL FC FR", "FL FR SL SR", "FL FC FR SL SR", "FL FC FR SL SR LFE", "FL FC FR SL SR BC LFE",
              "FL FC FR SL SR BL BR LFE", "FL FR FC LFE SL SR TFL TFR TBL TBR"}) {
            const auto speakers = split(order, ' ');
            Samples in;
            for (size_t i = 0; i < frames * speakers.size(); i++)
                in.push_back(float(tone(order, speakers[i % speakers.size()], i / speakers.size())));
            write("in.ogg", SF_FORMAT_OGG | codec, speakers.size(), in);
            const json report = run("in.ogg out.wav"), outputs = report["output"]["channels"];
            EXPECT_EQ(notes(report, "names no speakers"), speakers.size() > 8);
            const Samples out = read("out.wav");
            for (size_t o = 0; o < outputs.size(); o++) {
                const std::string name = outputs[o];
                const bool from_back = contains(order, "BC") && name[0] == 'B', from_mono = order == "FC";
                const double level = from_back || from_mono ? h : contains(order, name) ? 1.0 : 0.0;
                double error = 0.0;
                for (size_t t = 0; t < frames; t++) {
                    const double x = level * tone(order, from_back ? "BC" : from_mono ? "FC" : name, t);
                    error += std::pow(out[t * outputs.size() + o] - x, 2.0) / (0.005 * frames); // of a tone's power
                }
                EXPECT_LT(error, 0.1) << std::hex << codec << " " << order << " " << name;
            }
        }
    write("in.ogg", SF_FORMAT_OGG | SF_FORMAT_OPUS, 6, noise(6 * 1000));
    const std::string file = slurp("in.ogg");
    std::ofstream("in.ogg") << with_opus_family(file, 255); // channels for no speakers in particular
    EXPECT_EQ(run("in.ogg out.wav")["input"]["channels"][1], "FR");
    std::ofstream("in.ogg") << with_opus_family(file, 2);
    EXPECT_TRUE(contains(std::get<2>(host("run in.ogg out.wav")), "ambisonics"));
}

TEST_F(Host, OutputFilesNameTheirSpeakers) {
    write("in.wav", wav24, 8, noise(8 * 300));
    for (const std::string layout : {"stereo", "4.1", "5.0", "5.1", "6.0", "7.0", "7.1"})
        for (const std::string extension : {".wav", ".rf64", ".caf", ".flac"}) {
            const json there = run("in.wav out" + extension + " --layout " + layout);
            const json back = run("out" + extension + " back.wav --layout stereo");
            EXPECT_EQ(back["input"]["channels"], there["output"]["channels"]) << layout << extension;
            EXPECT_FALSE(notes(there, "cannot name") || notes(back, "names no speakers")) << layout << extension;
        }
    // As other programs read them.
    EXPECT_TRUE(contains(slurp("out.flac"), "WAVEFORMATEXTENSIBLE_CHANNEL_MASK=0x063F"));
    EXPECT_TRUE(contains(slurp("out.caf"), std::string("\0\1\0\0\0\0\6\x3F", 8)));
    run("in.wav out.caf --layout 5.1");
    EXPECT_TRUE(contains(slurp("out.caf"), std::string("chan\0\0\0\0\0\0\0\x0C\0\x79\0\6", 16)));
    EXPECT_TRUE(notes(run("in.wav out.w64"), "cannot name these speakers; the file holds them in the order FL FR FC"));
}

// Matrices read columns by place: what that does to inputs of another kind is said.
TEST_F(Host, SpeakersThatGetLostOrChangeSidesAreNamed) {
    struct Case {
        const char *map, *layout, *expected; // lost ones, and misplaced ones with the place
    };
    for (const auto& [map, layout, expected] :
         {Case{"FL,FR,FC,LFE,BC", "stereo", "FC LFE:FL BC:FR "}, // 4.1
          {"FL,FR,FC,LFE,BC", "5.1", "FC:LFE LFE:SL BC:SR "},
          {"FL,FR,FC,LFE,BC", "auto", ""},
          {"FL,FR,FC,BL,BR,BC,SL,SR", "stereo", "SL SR:FL BL:FR BR:FL BC:FR "}, // octagonal
          {"FL,FR,FC,SL,SR,BC", "stereo", "FC:FL SL:FR SR:FL BC:FR "},          // hexagonal
          {"FL,FR,FC,LFE,BL,BR,SL,SR", "stereo", ""},
          {"FL,FR,FC,LFE,SL,SR,TFL,TFR,TBL,TBR", "5.1", "TFL TFR TBL TBR "},
          {"FR,FL", "stereo", ""}}) {
        const auto speakers = split(map, ',');
        write("in.wav", wav16, speakers.size(), noise(100 * speakers.size()));
        const json report = run(std::string("in.wav out.wav --map ") + map + " --layout " + layout);
        std::string found;
        for (const std::string speaker : report["speakers"]["lost"])
            found += speaker + " ";
        for (const json& moved : report["speakers"]["misplaced"]) {
            const std::string from = moved["channel"], to = moved["heard_from"][0];
            found += from + ":" + to + " ";
            EXPECT_TRUE(moved["heard_from"].size() == 1 && notes(report, from + " of the input comes out of " + to));
        }
        EXPECT_EQ(found, expected) << map << " " << layout;
        EXPECT_EQ(notes(report, "lost: "), !report["speakers"]["lost"].empty());
    }
}

// Left is 0.2 dB above full scale in 300 frames of 1000, right nowhere.
TEST_F(Host, SamplesAboveFullScaleAreCounted) {
    Samples in(6000);
    for (size_t t = 500; t < 800; t++)
        in[6 * t + 5] = in[6 * t + 3] = t % 2 ? 0.6f : -0.6f;
    struct Case {
        int format, rate;
        const char *options, *out, *note, *worst;
        int expected;
    };
    for (const auto& [format, rate, options, out, note, worst, expected] :
         {Case{wav16, 22050, "", "out.wav", "integers clip", "exceeds full scale is clipped", 300},
          {wav24, 22050, "--planar", "out.wav", "integers clip", "exceeds full scale is clipped", 300},
          {wav_float, 22050, "", "out.flac", "integers clip", "exceeds full scale is clipped", 300},
          {wav_float, 22050, "", "out.wav", "the file keeps", "exceeds full scale is kept", 300},
          {wav16, 48000, "", "out.wav", "", "the limiter takes what exceeds full scale", 0},
          {wav_float, 48000, "", "out.wav", "", "the limiter takes what exceeds full scale", 0}}) {
        SCOPED_TRACE(testing::Message() << std::hex << format << std::dec << " " << rate << " " << out);
        write("in.wav", format, 6, in, rate);
        const std::string arguments =
            std::string("in.wav ") + out + " --map SR,SL,LFE,FC,FR,FL --layout stereo " + options;
        const json report = run(arguments);
        EXPECT_EQ(report["levels"]["output"][0]["above_full_scale"], expected);
        EXPECT_EQ(report["levels"]["output"][1]["above_full_scale"], 0);
        EXPECT_EQ(report["limiter_works"], rate == 48000);
        EXPECT_EQ(notes(report, "300 samples of the output are above full scale"), expected > 0);
        EXPECT_EQ(notes(report, "limiter rests at 22050 Hz"), rate == 22050);
        EXPECT_TRUE(notes(report, note));
        EXPECT_TRUE(contains(std::get<1>(host("run " + arguments)), worst));
    }
    in[6 * 600] = 1.5f;
    write("in.wav", wav_float, 6, in);
    EXPECT_EQ(run("in.wav out.wav --format s16")["clipped_on_reading"], 1);
    EXPECT_EQ(read<short>("out.wav")[6 * 600], 32767);
}

TEST_F(Host, ReportsWhatHappened) {
    Samples in(48000 * 6);
    for (size_t t = 0; t < 48000; t++)
        in[6 * t + 2] = t % 2 ? 0.5f : -0.5f;
    write("in.wav", wav_float, 6, in);
    const json report = run("in.wav out.wav --layout stereo");
    EXPECT_NEAR(report["worst_case"]["gain_db"], 20 * std::log10(1 + 2 * h), 1e-4);
    EXPECT_NEAR(report["levels"]["input"][2]["peak_dbfs"], -6.0206, 1e-3);
    EXPECT_TRUE(report["levels"]["input"][0]["peak_dbfs"].is_null());
    EXPECT_NEAR(report["levels"]["output"][0]["rms_dbfs"], -9.0206, 1e-3);
    EXPECT_EQ(report["notices"].size(), 1u); // the speakers were guessed
    const std::string text = std::get<1>(host("run in.wav out.wav --layout stereo"));
    EXPECT_TRUE(contains(text, "FR                 .     0.0    -3.0       .       .    -3.0")) << text;
    EXPECT_TRUE(contains(text, "Latency       32 samples (0.67 ms), removed")) << text;
    EXPECT_TRUE(notes(run("in.wav out.wav --layout 7.1.4"), "has no matrix"));
    EXPECT_TRUE(contains(std::get<1>(host("info")), "KorlaDownmixer"));
    EXPECT_EQ(std::get<1>(host("--version")).substr(0, 11), "korla-host ");

    // Nothing that belongs on the standard output may get lost unnoticed.
    for (const std::string arguments : {"run in.wav new.wav", "info", "layouts --json", "--help", "--version"}) {
        const auto [status, nothing, errors] = host(arguments, "", "/dev/full");
        EXPECT_EQ(status, 6) << arguments;
        EXPECT_TRUE(contains(errors, "standard output: No space left")) << errors;
    }
    EXPECT_EQ(read("new.wav"), read("in.wav"));
}

// What korla-stream makes of all samples in one call.
template <class T>
std::vector<T> through_library(const char* from, const char* to, const std::vector<T>& in, float dialogue_db,
                               uint32_t format = KORLA_F32) {
    korla_stream_config config = {};
    config.size = sizeof config, config.rate = 48000;
    config.in_format = config.out_format = format;
    EXPECT_EQ(korla_layout_parse(from, &config.in, nullptr, 0) + korla_layout_parse(to, &config.out, nullptr, 0), 0);
    korla_stream* stream = nullptr;
    EXPECT_EQ(korla_stream_open(&config, nullptr, 0, &stream, nullptr, 0), KORLA_OK);
    korla_stream_set(stream, KORLA_DIALOGUE_DB, dialogue_db);
    const size_t frames = in.size() / config.in.count;
    std::vector<T> out(frames * config.out.count);
    const void* source = in.data();
    void* sink = out.data();
    size_t ready = 0, rest = 0;
    EXPECT_EQ(korla_stream_process(stream, &source, frames, &sink, frames, &ready), KORLA_OK);
    sink = out.data() + ready * config.out.count;
    EXPECT_EQ(korla_stream_drain(stream, &sink, frames - ready, &rest), KORLA_OK);
    EXPECT_EQ(ready + rest, frames);
    korla_stream_close(stream);
    return out;
}

TEST_F(Host, MixGivesTheSamplesOfTheStreamLibraryAndShowsWhatItDid) {
    for (const auto& [from, to, channels, dialogue_db] :
         {std::tuple{"7.1.4", "stereo", 12u, 6.0f}, {"5.1", "quad", 6u, 0.0f}}) {
        const Samples in = noise(10007 * channels, 1.0f);
        write("in.wav", wav_float, channels, in);
        const json report = report_of(std::string("mix in.wav out.wav --block 441 --from ") + from + " --to " + to +
                                      " --dialogue " + std::to_string(dialogue_db) + " --true-peak --plot levels.png");
        EXPECT_EQ(read("out.wav"), through_library(from, to, in, dialogue_db)) << from;
        EXPECT_EQ(report["matrix_source"], "derived");
        EXPECT_GT(report["gain_reduction_db"], 3.0);
        EXPECT_NEAR(report["matrix"][0]["gain"][2], h * std::pow(10, dialogue_db / 20), 1e-5);
        EXPECT_EQ(slurp("levels.png").substr(1, 3), "PNG");
        fs::remove("levels.png");
    }
    write("whole.wav", wav24, 6, noise(20011 * 6, 1.0f)); // 24 bits are rounded once
    report_of("mix whole.wav out.wav --to quad");
    const auto as_24_bits = [](std::vector<int> samples) { // of the 32 that the file reader gives
        for (int& sample : samples)
            sample >>= 8;
        return samples;
    };
    EXPECT_EQ(as_24_bits(read<int>("out.wav")),
              through_library("5.1", "quad", as_24_bits(read<int>("whole.wav")), 0.0f, KORLA_S24_32));
    host("mix in.wav out.wav --to stereo --plot levels.svg");
    EXPECT_TRUE(contains(slurp("levels.svg"), "<svg") && contains(slurp("levels.svg"), "</svg>"));
    EXPECT_EQ(report_of("mix in.wav copy.wav --to 5.1")["copies"], true);
    EXPECT_EQ(read("copy.wav"), read("in.wav"));
    const json named = report_of("layouts")["named"];
    ASSERT_GE(named.size(), 40u);
    EXPECT_EQ(named.back()["matrix_sources"]["stereo"], "derived") << named.back()["name"];
}

TEST_F(Host, PipesTakeAndGiveWavWhoseLengthIsOpen) {
    write("in.wav", wav24, 6, noise(30011 * 6));
    std::string open = slurp("in.wav");
    for (size_t at : {size_t{4}, open.find("data") + 4})
        open.replace(at, 4, 4, '\xff');
    std::ofstream("open.wav", std::ios::binary) << open;
    for (size_t at : {size_t{4}, open.find("data") + 4})
        open.replace(at, 4, 4, '\0');
    std::ofstream("zero.wav", std::ios::binary) << open;
    for (const char* command : {"mix IN OUT --to stereo", "run IN OUT --layout stereo"})
        for (const char* input : {"in.wav", "open.wav", "zero.wav"}) {
            const auto with = [&](std::string in, const std::string& out) {
                std::string arguments = command;
                return arguments.replace(arguments.find("IN"), 2, in).replace(arguments.find("OUT"), 3, out);
            };
            EXPECT_EQ(std::get<0>(host(with("in.wav", "file.wav"))), 0);
            host(with("-", "-") + " 2>report | cat", std::string("cat ") + input + " | ", "pipe.wav");
            EXPECT_TRUE(contains(slurp("report"), "peak dBFS")) << slurp("report");
            const std::string file = slurp("file.wav"), pipe = slurp("pipe.wav");
            const auto samples = [](const std::string& wav) { return wav.substr(wav.find("data") + 8, 30011 * 6); };
            EXPECT_TRUE(samples(pipe) == samples(file)) << command << ' ' << input;
        }
}

TEST_F(Host, EveryFailureHasItsClassAndLeavesNothingBehind) {
    write("good.wav", wav16, 6, noise(5000 * 6));
    write("nine.wav", wav16, 9, noise(900));
    write("twelve.wav", wav16, 12, noise(1200));
    write("other.caf", caf24, 8, noise(800), 48000, {}, {130 << 16 | 8, 0, 0}); // with a stereo mix
    std::ofstream("cut.wav") << slurp("good.wav").substr(0, 30000);
    std::ofstream("old.wav") << "an older output";
    fs::create_directory("folder.wav");
    struct Case {
        const char* arguments;
        int status;
        const char *message, *prelude = "";
    };
    const Case cases[] = {
        {"", 2, "no command; the commands are run, mix, info, layouts, bench; see korla-host --help"},
        {"rnu good.wav old.wav", 2, "unknown command 'rnu'; the commands are run, mix"},
        {"--bogus", 2, "unknown option '--bogus'"},
        {"run good.wav old.wav --bogus", 2, "--bogus"},
        {"run good.wav old.wav --block 300", 2, "multiple of 256"},
        {"run good.wav old.wav --library libm.so.6", 3, "no module"},
        {"run missing.wav old.wav", 4, "no such file"},
        {"run folder.wav old.wav", 4, "not a regular file"},
        {"run old.wav new.wav", 4, "old.wav"},
        {"run cut.wav old.wav", 4, "cut short"},
        {"run nine.wav old.wav", 5, "--map"},
        {"run other.caf old.wav", 5, "number 130"},
        {"run good.wav old.wav --map FL,FR,FC,LFE,SL,XX", 5, "unknown speaker 'XX'"},
        {"run good.wav old.wav --map FL,FL,FC,LFE,SL,SR", 5, "no automatic layout"},
        {"run good.wav old.wav --map FL,FR,FC,LFE,SL,SR,BL", 5, "names 7 channels"},
        {"run good.wav old.wav --layout 9.1", 5, "unknown layout"},
        {"run twelve.wav old.wav --layout stereo --planar", 5, "--planar"},
        {"mix good.wav old.wav --to stereo --raw s20:6:48000", 2, "'s20:6:48000' is no format"},
        {"mix good.wav old.flac --to stereo --depth 32", 6, "16 or 24 bits"},
        {"mix good.wav old.wav --to FL,FX", 5, "no speaker 'FX'"},
        {"mix good.wav old.wav --to stereo --dialogue 99", 2, "out of its range"},
        {"mix good.wav old.wav --to stereo --plot p.xyz", 2, ".png or .svg"},
        {"mix - old.wav --to stereo", 4, "it is empty", ": | "},
        {"run good.wav old.xyz", 6, "'.xyz' names no format"},
        {"run good.wav old", 6, "no extension"},
        {"run good.wav /dev/full", 6, "a device"},
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
