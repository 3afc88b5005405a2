// korla-stream: the module's bits in calls of any length, draining, controls, meters, and what it does with bad input.
#include "stream_host.h"

#include "guarded_buffer.h"
#include "module_host.h"

using namespace korla_test;

namespace {

constexpr uint32_t all_formats[] = {KORLA_S16, KORLA_S24, KORLA_S24_32, KORLA_S32, KORLA_F32, KORLA_F64};

double largest_difference(const Samples& a, size_t first_a, const Samples& b, size_t first_b, size_t frames) {
    double largest = 0;
    for (size_t t = 0; t < frames; t++)
        for (size_t c = 0; c < a.channels; c++)
            largest = std::fmax(largest, std::fabs(a.get(first_a + t, c) - b.get(first_b + t, c)));
    return largest;
}

// ---- against the module ----------------------------------------------------------------------------------------------

// What the module makes of interleaved `in`, whose channels stand in the module's order; the format is in's.
template <class T>
std::vector<T> through_module(const korla_layout& in, const korla_layout& out, const Samples& samples) {
    acli_media_format format = {};
    format.input_channel_count = in.count;
    format.sample_rate = 48000;
    format.interleaved = 1;
    format.sample_format = samples.format == KORLA_S16   ? ACLI_SAMPLE_INT16
                           : samples.format == KORLA_S32 ? ACLI_SAMPLE_INT32
                                                         : ACLI_SAMPLE_FLOAT32;
    std::copy_n(in.speakers, in.count, format.input_channel_map);
    Stream module;
    // The automatic layout where it has just these outputs, else an explicit one.
    for (int index = automatic; index < 32; index++) {
        format.explicit_layout = index != automatic;
        format.layout_index = static_cast<uint32_t>(std::max(index, 0));
        module.apply(format);
        const uint32_t* map = module.applied.output_channel_map;
        if (module.applied.output_channel_count == out.count && std::is_permutation(map, map + out.count, out.speakers))
            break;
    }
    EXPECT_EQ(module.applied.output_channel_count, out.count);
    std::vector<T> values(samples.bytes.size() / sizeof(T));
    std::memcpy(values.data(), samples.bytes.data(), samples.bytes.size());
    return module.run(values);
}

// One pair in one sample format: both arrangements and all modes give the bits of the module.
template <class T> void expect_the_modules_bits(const korla_layout& in, const korla_layout& out, uint32_t format) {
    constexpr size_t frames = 8 * 256;
    Random random(in.count * 100 + out.count);
    Samples ordered(in.count, format, false, frames);
    ordered.fill([&](size_t t, size_t) { return random.uniform() * (t % 700 < 300 ? 0.99f : 0.1f); });
    const std::vector<T> expected = through_module<T>(in, out, ordered);

    korla_layout from = in, to = out; // the stream takes speakers in any order
    std::reverse(from.speakers, from.speakers + in.count);
    std::reverse(to.speakers, to.speakers + out.count);
    korla_stream_config config = stream_config(from, to);
    config.in_format = config.out_format = format;
    for (uint32_t mode : {KORLA_PUSH, KORLA_SAME_LENGTH, KORLA_SAME_LENGTH_32}) {
        config.mode = mode;
        config.in_planar = mode % 2, config.out_planar = mode / 2;
        KorlaStream stream(config);
        EXPECT_EQ(korla_stream_latency(stream), mode == KORLA_SAME_LENGTH_32 ? 32u : 63u);
        const size_t latency = mode == KORLA_PUSH ? 0 : korla_stream_latency(stream);
        Samples samples = stream.input(frames);
        samples.fill([&](size_t t, size_t c) { return ordered.get(t, in.count - 1 - c); });
        const Samples result =
            mode == KORLA_SAME_LENGTH_32
                ? stream.run(samples, [calls = random_calls(7)]() mutable { return calls() / 32 * 32; })
                : stream.run(samples, random_calls(mode));
        for (size_t t = 32; t < frames; t++)
            for (size_t c = 0; c < out.count; c++)
                ASSERT_EQ(std::memcmp(&expected[t * out.count + c],
                                      result.bytes.data() + result.place(t - 32 + latency, out.count - 1 - c),
                                      sizeof(T)),
                          0)
                    << "mode " << mode << ", frame " << t << ", channel " << c;
    }
}

TEST(Stream, GivesTheModulesBitsWhereTheModuleHasAMatrix) {
    int pairs = 0;
    for (const std::string& from : layout_names())
        for (const std::string& to : layout_names()) {
            const korla_layout in = layout(from), out = layout(to);
            std::vector<float> gains(in.count * out.count);
            uint32_t source;
            ASSERT_EQ(korla_layout_matrix(&in, &out, gains.data(), &source, nullptr, 0), KORLA_OK);
            if (source != KORLA_MATRIX_MODULE || from == to)
                continue;
            SCOPED_TRACE(from + " to " + to);
            switch (pairs++ % 3) {
            case 0: expect_the_modules_bits<int16_t>(in, out, KORLA_S16); break;
            case 1: expect_the_modules_bits<int32_t>(in, out, KORLA_S32); break;
            default: expect_the_modules_bits<float>(in, out, KORLA_F32);
            }
        }
    EXPECT_EQ(pairs, 142) << "pairs of named layouts that the module has a matrix for";
    const korla_layout surround = layout("5.1"), stereo = layout("stereo");
    expect_the_modules_bits<int16_t>(surround, stereo, KORLA_S16);
    expect_the_modules_bits<int32_t>(surround, stereo, KORLA_S32);
    expect_the_modules_bits<float>(surround, stereo, KORLA_F32);
}

// ---- formats and blocks ----------------------------------------------------------------------------------------------

TEST(Stream, EveryFormatGoesToEveryFormat) {
    for (uint32_t from : all_formats)
        for (uint32_t to : all_formats)
            for (uint32_t arrangement = 0; arrangement < 4; arrangement++) {
                korla_stream_config config = stream_config("5.1.2", "7.1");
                config.in_format = from, config.out_format = to;
                config.in_planar = arrangement % 2, config.out_planar = arrangement / 2;
                KorlaStream stream(config);
                Random random(5);
                Samples in = stream.input(100);
                in.fill([&](size_t t, size_t c) { return c >= 6 ? 0.0 : t == 50 ? -1.0 : random.uniform(); });
                const Samples out = stream.run(in, random_calls(3));
                // What keeps its place keeps its level, up to the rounding of the gains and of the output.
                const double step = to == KORLA_S16 ? 0x1p-15 : 0x1p-23;
                for (size_t t = 0; t < 100; t++)
                    for (size_t c = 0; c < 6; c++)
                        ASSERT_NEAR(out.get(t, c), in.get(t, c), 0.51 * step + 2e-7)
                            << from << " to " << to << ", frame " << t << ", channel " << c;
            }
}

TEST(Stream, DrainGivesAsManyFramesAsWentInEachWhereItStood) {
    const korla_stream_config config = stream_config("5.1", "stereo");
    KorlaStream stream(config);
    for (size_t frames = 0; frames <= 1000; frames++) {
        Samples in = stream.input(frames);
        const size_t place = frames * 7 / 10;
        in.fill([&](size_t t, size_t c) { return t == place && c == 0 ? 0.5 : 0.0; });
        const Samples out = stream.run(in, [frames] { return std::max<size_t>(1, frames / 3); });
        for (size_t t = 0; t < frames; t++)
            ASSERT_NEAR(out.get(t, 0), t == place ? 0.5 : 0.0, 1e-6) << frames << " frames, frame " << t;
    }
}

TEST(Stream, SameLengthMayWorkInPlace) {
    for (uint32_t planar : {0u, 1u}) {
        korla_stream_config config = stream_config("5.1", "3.0");
        config.mode = KORLA_SAME_LENGTH;
        config.in_planar = config.out_planar = planar;
        KorlaStream apart(config), in_place(config);
        Random random(1);
        Samples in = apart.input(1000), out(3, KORLA_F32, planar != 0, 1000);
        in.fill([&](size_t, size_t) { return random.uniform(); });
        ASSERT_EQ(korla_stream_process(apart, in.planes(0).data(), 1000, out.planes(0).data(), 1000, nullptr),
                  KORLA_OK);
        std::vector<void*> planes = in.planes(0);
        if (planar)
            std::swap(planes[0], planes[5]);
        const std::vector<void*> targets(planes.begin(), planes.begin() + (planar ? 3 : 1));
        ASSERT_EQ(korla_stream_process(in_place, in.planes(0).data(), 1000, targets.data(), 1000, nullptr), KORLA_OK);
        for (size_t c = 0; c < 3; c++)
            for (size_t t = 0; t < 1000; t++) {
                const auto* plane = static_cast<const float*>(planar ? targets[c] : targets[0]);
                ASSERT_EQ(planar ? plane[t] : plane[t * 3 + c], static_cast<float>(out.get(t, c)));
            }
    }
}

TEST(Stream, TheSameSpeakersAreCopied) {
    for (uint32_t format : all_formats) {
        korla_stream_config config = stream_config("FR,FC,FL,LFE,BL,BR,SL,SR", "7.1");
        config.in_format = config.out_format = format;
        config.out_planar = format % 2;
        KorlaStream stream(config);
        EXPECT_EQ(korla_stream_latency(stream), 0u);
        Random random(2);
        Samples in = stream.input(333);
        for (std::byte& b : in.bytes)
            b = static_cast<std::byte>(random.bits());
        const Samples out = stream.run(in, random_calls(1));
        const size_t source[] = {2, 0, 1, 3, 6, 7, 4, 5};
        for (size_t t = 0; t < 333; t++)
            for (size_t c = 0; c < 8; c++)
                ASSERT_EQ(std::memcmp(out.bytes.data() + out.place(t, c), in.bytes.data() + in.place(t, source[c]),
                                      korla_format_bytes(format)),
                          0);
        EXPECT_EQ(korla_stream_set(stream, KORLA_GAIN_DB, -3), KORLA_COPIES);
        config.flags = KORLA_CONTROLLABLE;
        KorlaStream controllable(config);
        EXPECT_EQ(korla_stream_latency(controllable), 63u);
        EXPECT_EQ(korla_stream_set(controllable, KORLA_GAIN_DB, -3), KORLA_OK);
        config.flags = 0;
        config.out_format = format % 6 + 1;
        EXPECT_EQ(korla_stream_latency(KorlaStream(config)), 63u) << "another format is no copy";
        config.out_format = format;
        const std::vector<float> gains(64);
        config.matrix = gains.data();
        EXPECT_EQ(korla_stream_latency(KorlaStream(config)), 63u) << "a matrix is no copy";
    }
}

// ---- the limiter -----------------------------------------------------------------------------------------------------

TEST(Stream, PeaksKeepToTheCeilingAtAnyRate) {
    for (uint32_t rate : {8000u, 22050u, 48000u, 192000u, 384000u})
        for (float ceiling_db : {0.0f, -1.0f, -12.0f}) {
            korla_stream_config config = stream_config("7.1.4", "stereo");
            config.rate = rate;
            KorlaStream stream(config);
            stream.set(KORLA_CEILING_DB, ceiling_db);
            stream.set(KORLA_GAIN_DB, 6);
            Random random(rate);
            Samples in = stream.input(20000);
            in.fill([&](size_t t, size_t) { // noise, squares in all channels at once, silence
                return t < 6000 ? random.uniform() : t < 15000 ? (t / 53 % 2 ? 1.0 : -1.0) : 0.0;
            });
            const double bound = std::pow(10.0, ceiling_db / 20.0) * (1.0 + 0x1p-22), loudest = peak(stream.run(in));
            EXPECT_LE(loudest, bound) << rate << " Hz, ceiling " << ceiling_db;
            EXPECT_GE(loudest, bound * 0.9) << "limited too far";
        }
}

TEST(Stream, RecoversFromWhatIsNoSample) {
    const float broken[] = {NAN, INFINITY, -INFINITY, 3e38f, 1e25f};
    for (float bad : broken) {
        const korla_stream_config config = stream_config("7.1.4", "stereo");
        KorlaStream clean(config), hit(config);
        Random random(3);
        Samples in = clean.input(600);
        in.fill([&](size_t, size_t) { return random.uniform() * 0.1; });
        Samples damaged = in;
        damaged.set(200, 2, bad);
        in.set(200, 2, 0.0); // which is what it counts as
        EXPECT_EQ(largest_difference(hit.run(damaged), 0, clean.run(in), 0, 600), 0.0) << bad;
        EXPECT_EQ(hit.meters().silenced, 1u);
    }
}

// ---- controls and meters ---------------------------------------------------------------------------------------------

double level_of(const char* speaker, const char* to, uint32_t control, float db) {
    KorlaStream stream(stream_config("7.1.4", to));
    if (control < KORLA_CONTROL_COUNT)
        stream.set(control, db);
    const korla_layout in = layout("7.1.4");
    Samples samples = stream.input(200);
    samples.fill(
        [&](size_t, size_t c) { return korla_speaker_name(in.speakers[c]) == std::string(speaker) ? 0.01 : 0.0; });
    return peak(stream.run(samples)) / 0.01;
}

TEST(Stream, ControlsTurnWhatTheySay) {
    struct {
        uint32_t control;
        const char* turned;
        const char* untouched;
    } const controls[] = {{KORLA_DIALOGUE_DB, "FC", "FL"},
                          {KORLA_SURROUND_DB, "BL", "TBL"},
                          {KORLA_HEIGHT_DB, "TFR", "FR"},
                          {KORLA_GAIN_DB, "SR", nullptr}};
    const uint32_t none = KORLA_CONTROL_COUNT;
    for (const auto& c : controls) {
        const double before = level_of(c.turned, "stereo", none, 0);
        EXPECT_NEAR(level_of(c.turned, "stereo", c.control, 6) / before, std::pow(10, 0.3), 1e-5) << c.turned;
        EXPECT_EQ(level_of(c.turned, "stereo", c.control, -INFINITY), 0.0);
        if (c.untouched) {
            EXPECT_EQ(level_of(c.untouched, "stereo", c.control, 6), level_of(c.untouched, "stereo", none, 0));
        }
    }
    EXPECT_EQ(level_of("LFE", "stereo", none, 0), 0.0);
    EXPECT_NEAR(level_of("LFE", "stereo", KORLA_LFE_DB, 0), std::sqrt(0.5), 2e-3);
    EXPECT_NEAR(level_of("LFE", "5.1", none, 0), 1.0, 1e-5);
    EXPECT_NEAR(level_of("LFE", "5.1", KORLA_LFE_DB, -20), 0.1, 1e-5);

    KorlaStream off(stream_config("5.1", "stereo"));
    off.set(KORLA_LIMITER, 0);
    Samples loud = off.input(300);
    loud.fill([](size_t, size_t c) { return c == 0 ? 3.0 : 0.0; });
    EXPECT_NEAR(peak(off.run(loud)), 3.0, 1e-5);
    EXPECT_EQ(off.meters().gain_reduction_db, 0.0f);
}

TEST(Stream, AControlMakesNoStep) {
    const struct {
        size_t channel;
        uint32_t control;
        float to_db;
        double gain;                                              // in the end
    } changes[] = {{2, KORLA_DIALOGUE_DB, 6, std::pow(10, 0.15)}, // -3 dB + 6 dB
                   {3, KORLA_LFE_DB, 0, std::pow(10, -0.15)},     // from nothing
                   {2, KORLA_GAIN_DB, -INFINITY, 0}};
    for (const auto& change : changes) {
        KorlaStream stream(stream_config("5.1", "stereo"));
        Samples in = stream.input(4800);
        const double step = 2 * 3.14159265358979 * 50 / 48000; // a sine of 50 Hz
        in.fill([&](size_t t, size_t c) {
            return c == change.channel ? 0.1 * std::sin(step * static_cast<double>(t)) : 0.0;
        });
        size_t calls = 0;
        const Samples out = stream.run(in, [&] {
            if (++calls == 20)
                stream.set(change.control, change.to_db);
            return size_t{100};
        });
        double largest = 0, loudest = 0;
        for (size_t t = 1; t < out.frames; t++) {
            largest = std::fmax(largest, std::fabs(out.get(t, 0) - out.get(t - 1, 0)));
            loudest = t < 4000 ? 0 : std::fmax(loudest, out.get(t, 0));
        }
        EXPECT_LE(largest, 1.5 * 0.1 * step * std::fmax(change.gain, std::sqrt(0.5))) << change.control;
        EXPECT_NEAR(loudest, 0.1 * change.gain, 1e-4) << "the gain has not arrived: " << change.control;
    }
}

TEST(Stream, ARampIsALineOf20Milliseconds) {
    KorlaStream stream(stream_config("5.1", "stereo"));
    Samples in = stream.input(4800);
    in.fill([](size_t, size_t c) { return c == 2 ? 0.1 : 0.0; });
    size_t calls = 0;
    const Samples out = stream.run(in, [&] {
        if (++calls == 20)
            stream.set(KORLA_DIALOGUE_DB, -INFINITY);
        return size_t{100};
    });
    constexpr size_t length = 960;
    size_t begin = 1000;
    while (out.get(begin, 0) == out.get(999, 0))
        begin++;
    for (size_t k = 0; k <= length; k++) // the first frame after the change has moved by a step
        EXPECT_NEAR(out.get(begin + k, 0), out.get(999, 0) * std::fmax(0.0, 1.0 - double(k + 1) / length), 1e-6) << k;
}

TEST(Stream, MetersShowWhatHappened) {
    KorlaStream stream(stream_config("5.1", "stereo"));
    Samples in = stream.input(640);
    in.fill([](size_t t, size_t c) { return t == 300 ? (c == 0 ? 0.25 : c == 4 ? -2.0 : 0.0) : 0.0; });
    Samples out(2, KORLA_F32, false, 700);
    size_t produced;
    ASSERT_EQ(korla_stream_process(stream, in.planes(0).data(), 640, out.planes(0).data(), 700, &produced), KORLA_OK);
    korla_meters meters = stream.meters();
    EXPECT_EQ(meters.frames_in, 640u);
    EXPECT_EQ(meters.frames_out, 608u);
    EXPECT_EQ(meters.input_peak[0], 0.25f);
    EXPECT_EQ(meters.input_peak[4], 2.0f);
    EXPECT_EQ(meters.input_peak[1], 0.0f);
    // 0.25 - 2 * 0.708 exceeds full scale
    EXPECT_NEAR(meters.gain_reduction_db, 20 * std::log10(2 * 0.7079458 - 0.25), 1e-4);
    EXPECT_NEAR(meters.output_peak[0], 1.0, 1e-6);
    meters = stream.meters();
    EXPECT_EQ(meters.gain_reduction_db, 0.0f);
    EXPECT_EQ(meters.input_peak[4], 0.0f);
    EXPECT_EQ(meters.frames_in, 640u);
    // A peak in the last frame counts, too.
    in.fill([](size_t t, size_t c) { return t == 639 && c == 1 ? 0.5 : 0.0; });
    ASSERT_EQ(korla_stream_reset(stream), KORLA_OK);
    const Samples last = stream.run(in);
    EXPECT_EQ(stream.meters().output_peak[1], static_cast<float>(peak(last)));
    EXPECT_GT(peak(last), 0.4);
}

TEST(Stream, ShowsItsMatrixAndTakesAnother) {
    korla_stream_config config = stream_config("FR,FL,FC", "stereo");
    const float given[] = {0.5f, 1, 0, 0, -0.25f, 2};
    config.matrix = given;
    KorlaStream stream(config);
    float gains[6];
    uint32_t source;
    ASSERT_EQ(korla_stream_matrix(stream, gains, &source), KORLA_OK);
    EXPECT_EQ(source, static_cast<uint32_t>(KORLA_MATRIX_GIVEN));
    for (int i = 0; i < 6; i++)
        EXPECT_EQ(gains[i], given[i]);
    Samples in = stream.input(100);
    in.fill([](size_t, size_t c) { return c == 0 ? 0.1 : c == 1 ? 0.2 : 0.05; });
    const Samples out = stream.run(in);
    EXPECT_NEAR(out.get(50, 0), 0.25, 1e-6);
    EXPECT_NEAR(out.get(50, 1), 0.05, 1e-6);
    stream.set(KORLA_DIALOGUE_DB, -INFINITY);
    stream.set(KORLA_GAIN_DB, 20);
    ASSERT_EQ(korla_stream_matrix(stream, gains, &source), KORLA_OK);
    EXPECT_NEAR(gains[1], 10.0f, 1e-5);
    EXPECT_EQ(gains[5], 0.0f);
}

// ---- bad input -------------------------------------------------------------------------------------------------------

TEST(Stream, RefusesWhatItCannotBe) {
    struct {
        korla_status status;
        const char* part_of_reason;
        void (*spoil)(korla_stream_config&);
    } const refusals[] = {
        {KORLA_BAD_ARGUMENT, "size", [](auto& c) { c.size--; }},
        {KORLA_BAD_ARGUMENT, "size", [](auto& c) { c.size = UINT32_MAX; }},
        {KORLA_BAD_RATE, "rate", [](auto& c) { c.rate = 0; }},
        {KORLA_UNKNOWN_LAYOUT, "13", [](auto& c) { c.in.count = 13; }},
        {KORLA_UNKNOWN_LAYOUT, "output: 0", [](auto& c) { c.out.count = 0; }},
        {KORLA_UNKNOWN_LAYOUT, "4294967295", [](auto& c) { c.out.count = UINT32_MAX; }},
        {KORLA_UNKNOWN_SPEAKER, "12", [](auto& c) { c.in.speakers[5] = 12; }},
        {KORLA_UNKNOWN_SPEAKER, "4294967295", [](auto& c) { c.in.speakers[0] = UINT32_MAX; }},
        {KORLA_REPEATED_SPEAKER, "FL", [](auto& c) { c.in.speakers[4] = 1; }},
        {KORLA_BAD_FORMAT, "0", [](auto& c) { c.in_format = 0; }},
        {KORLA_BAD_FORMAT, "7", [](auto& c) { c.out_format = 7; }},
        {KORLA_BAD_ARGUMENT, "mode", [](auto& c) { c.mode = 3; }},
        {KORLA_BAD_ARGUMENT, "flags", [](auto& c) { c.flags = 2; }},
        {KORLA_BAD_MATRIX, "row 2, column 1",
         [](auto& c) {
             static const float not_finite[12] = {0, 0, 0, 0, 0, 0, INFINITY};
             c.matrix = not_finite;
         }},
    };
    for (const auto& refusal : refusals) {
        korla_stream_config config = stream_config("5.1", "stereo");
        refusal.spoil(config);
        korla_stream* stream = reinterpret_cast<korla_stream*>(0x1234);
        char reason[200] = "";
        EXPECT_EQ(korla_stream_open(&config, nullptr, 0, &stream, reason, sizeof reason), refusal.status) << reason;
        EXPECT_NE(std::string(reason).find(refusal.part_of_reason), std::string::npos) << reason;
        EXPECT_EQ(stream, reinterpret_cast<korla_stream*>(0x1234));
        EXPECT_EQ(korla_stream_memory(&config), 0u);
    }
}

TEST(Stream, LivesInTheCallersMemory) {
    const korla_stream_config config = stream_config("7.1.4", "stereo");
    const size_t needed = korla_stream_memory(&config);
    korla_stream* stream;
    GuardedBuffer<std::byte> memory(needed, 5);
    EXPECT_EQ(korla_stream_open(&config, memory.data(), needed - 1, &stream, nullptr, 0), KORLA_NO_MEMORY);
    ASSERT_EQ(korla_stream_open(&config, memory.data(), needed, &stream, nullptr, 0), KORLA_OK);
    Samples in(12, KORLA_F32, false, 1000), out(2, KORLA_F32, false, 1000);
    EXPECT_EQ(korla_stream_process(stream, in.planes(0).data(), 1000, out.planes(0).data(), 1000, nullptr), KORLA_OK);
    korla_stream_close(stream);
}

TEST(Stream, RefusedCallsTouchNothing) {
    for (uint32_t mode : {KORLA_PUSH, KORLA_SAME_LENGTH, KORLA_SAME_LENGTH_32}) {
        korla_stream_config config = stream_config("5.1", "stereo");
        config.mode = mode;
        config.in_planar = 1;
        KorlaStream stream(config), fresh(config);
        Samples in = stream.input(256), out(2, KORLA_F32, false, 256), expected = out;
        Random random(9);
        in.fill([&](size_t, size_t) { return random.uniform(); });
        std::vector<void*> planes = in.planes(0), with_null = planes, target = out.planes(0), null_target = {nullptr};
        with_null[3] = nullptr;
        size_t produced = 77;
        const auto process = [&](void* const* from, size_t n, void* const* to, size_t capacity) {
            return korla_stream_process(stream, from, n, to, capacity, &produced);
        };
        for (size_t n : {size_t{UINT32_MAX} + 1, SIZE_MAX, SIZE_MAX - 31, SIZE_MAX / 96})
            EXPECT_LT(process(planes.data(), n, target.data(), 256), KORLA_OK) << n;
        EXPECT_EQ(process(nullptr, 256, target.data(), 256), KORLA_BAD_ARGUMENT);
        EXPECT_EQ(process(planes.data(), 256, nullptr, 256), KORLA_BAD_ARGUMENT);
        EXPECT_EQ(process(with_null.data(), 256, target.data(), 256), KORLA_BAD_ARGUMENT);
        EXPECT_EQ(process(planes.data(), 256, null_target.data(), 256), KORLA_BAD_ARGUMENT);
        EXPECT_EQ(process(planes.data(), 256, target.data(), 223), KORLA_NO_ROOM);
        EXPECT_EQ(process(planes.data(), 34, target.data(), 256),
                  mode == KORLA_SAME_LENGTH_32 ? KORLA_BAD_ARGUMENT : 0);
        EXPECT_EQ(korla_stream_reset(stream), KORLA_OK);
        produced = 77;
        EXPECT_EQ(korla_stream_drain(stream, nullptr, 0, &produced), KORLA_OK) << "nothing is pending";
        EXPECT_EQ(process(nullptr, 0, nullptr, 0), KORLA_OK);
        EXPECT_EQ(produced, 0u);

        ASSERT_EQ(process(planes.data(), 256, target.data(), 256), KORLA_OK);
        ASSERT_EQ(korla_stream_process(fresh, planes.data(), 256, expected.planes(0).data(), 256, nullptr), KORLA_OK);
        EXPECT_EQ(largest_difference(out, 0, expected, 0, 200), 0.0) << "a refused call left a trace";
        EXPECT_EQ(korla_stream_drain(stream, target.data(), 1, &produced), KORLA_NO_ROOM);

        float value = 0;
        for (const auto& [control, bad] : {std::pair{KORLA_DIALOGUE_DB, NAN},
                                           {KORLA_DIALOGUE_DB, 41.0f},
                                           {KORLA_GAIN_DB, INFINITY},
                                           {KORLA_CEILING_DB, 0.1f},
                                           {KORLA_CEILING_DB, -61.0f},
                                           {KORLA_CEILING_DB, NAN},
                                           {KORLA_LIMITER, 0.5f},
                                           {KORLA_CONTROL_COUNT, 0.0f}})
            EXPECT_EQ(korla_stream_set(stream, control, bad), KORLA_BAD_ARGUMENT) << control << ' ' << bad;
        EXPECT_EQ(korla_stream_get(stream, KORLA_DIALOGUE_DB, &value), KORLA_OK);
        EXPECT_EQ(value, 0.0f);
        korla_meters meters = {};
        EXPECT_EQ(korla_stream_meters(stream, &meters), KORLA_BAD_ARGUMENT) << "a record of no size";
    }
}

TEST(Stream, NullHandlesAreRefused) {
    float value;
    uint32_t mask;
    korla_layout l;
    char text[4];
    EXPECT_EQ(korla_stream_memory(nullptr), 0u);
    EXPECT_EQ(korla_stream_open(nullptr, nullptr, 0, nullptr, text, sizeof text), KORLA_BAD_ARGUMENT);
    EXPECT_EQ(korla_stream_reset(nullptr), KORLA_BAD_ARGUMENT);
    EXPECT_EQ(korla_stream_latency(nullptr) + korla_stream_ready(nullptr, 9) + korla_stream_pending(nullptr), 0u);
    EXPECT_EQ(korla_stream_process(nullptr, nullptr, 0, nullptr, 0, nullptr), KORLA_BAD_ARGUMENT);
    EXPECT_EQ(korla_stream_drain(nullptr, nullptr, 0, nullptr), KORLA_BAD_ARGUMENT);
    EXPECT_EQ(korla_stream_set(nullptr, 0, 0), KORLA_BAD_ARGUMENT);
    EXPECT_EQ(korla_stream_get(nullptr, 0, &value), KORLA_BAD_ARGUMENT);
    EXPECT_EQ(korla_stream_matrix(nullptr, &value, nullptr), KORLA_BAD_ARGUMENT);
    EXPECT_EQ(korla_stream_meters(nullptr, nullptr), KORLA_BAD_ARGUMENT);
    EXPECT_EQ(korla_layout_parse(nullptr, &l, nullptr, 0), KORLA_BAD_ARGUMENT);
    EXPECT_EQ(korla_layout_from_wave_mask(3, nullptr, nullptr, 0), KORLA_BAD_ARGUMENT);
    EXPECT_EQ(korla_layout_to_wave_mask(nullptr, &mask, nullptr, 0), KORLA_BAD_ARGUMENT);
    EXPECT_EQ(korla_layout_matrix(nullptr, &l, &value, nullptr, nullptr, 0), KORLA_BAD_ARGUMENT);
    EXPECT_EQ(korla_layout_text(nullptr, text, sizeof text), 0u);
    EXPECT_EQ(korla_layout_name(nullptr), nullptr);
    EXPECT_EQ(korla_speaker_by_name(nullptr), 0u);
    korla_stream_close(nullptr);
}

} // namespace
