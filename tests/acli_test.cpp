#include <korla/acli.h>
#include <korla/diag.h>

#include <cstddef>
#include <limits>

#include "guarded_buffer.h"
#include "module_host.h"
#include "reference/downmix_reference.h"
#include "signals.h"

using namespace korla_test;

namespace {

// ---- wire layouts
// -----------------------------------------------------------------------------------------------------
#define AT(record, field, offset) static_assert(offsetof(record, field) == (offset))
static_assert(sizeof(acli_descriptor) == 120);
AT(acli_descriptor, magic, 0);
AT(acli_descriptor, interface_version, 4);
AT(acli_descriptor, name, 8);
AT(acli_descriptor, vendor, 16);
AT(acli_descriptor, get_name, 24);
AT(acli_descriptor, free_name, 32);
AT(acli_descriptor, query, 40);
AT(acli_descriptor, unsupported_3, 48);
AT(acli_descriptor, create, 56);
AT(acli_descriptor, unsupported_5, 64);
AT(acli_descriptor, process, 72);
AT(acli_descriptor, set_param, 80);
AT(acli_descriptor, unsupported_8, 88);
AT(acli_descriptor, destroy, 96);
AT(acli_descriptor, reserved, 104);
static_assert(sizeof(acli_media_format) == 2088);
AT(acli_media_format, input_channel_count, 0);
AT(acli_media_format, output_channel_count, 4);
AT(acli_media_format, sample_rate, 8);
AT(acli_media_format, interleaved, 16);
AT(acli_media_format, output_layout_mask, 20);
AT(acli_media_format, explicit_layout, 24);
AT(acli_media_format, layout_index, 28);
AT(acli_media_format, sample_format, 32);
AT(acli_media_format, input_channel_map, 36);
AT(acli_media_format, output_channel_map, 1060);
AT(acli_media_format, reserved_2084, 2084);
AT(acli_param_value, mode, 0);
AT(acli_param_value, format, 8);
AT(acli_buffer, bytes, 4);
AT(acli_buffer, data, 8);
AT(acli_buffer, channels, 48);
AT(acli_buffer, bits_per_sample, 84);
#undef AT

// ---- descriptor and small entry points
// --------------------------------------------------------------------------------
TEST(Descriptor, HasTheBytesThatAHostLooksFor) {
    constexpr uint8_t head[] = {0x54, 0x4C, 0x43, 0x41, 0x00, 0x01, 0x00, 0x00};
    EXPECT_EQ(std::memcmp(&ACLI, head, sizeof head), 0);
    EXPECT_STREQ(ACLI.name, "KorlaDownmixer");
    EXPECT_STREQ(ACLI.vendor, "NRX");
    EXPECT_EQ(ACLI.reserved[0], nullptr);
    EXPECT_EQ(ACLI.reserved[1], nullptr);
    EXPECT_EQ(std::memcmp(session_identity, "KorlaDownmixer", sizeof session_identity), 0);
}

TEST(Descriptor, NamesAreCopies) {
    char *a, *b, *none = session_identity;
    EXPECT_EQ(ACLI.get_name(1, &a), a);
    EXPECT_EQ(ACLI.get_name(1, &b), b);
    EXPECT_NE(a, b);
    EXPECT_STREQ(a, "KorlaDownmixer");
    for (uint32_t id : {0u, 2u, 0xFFFFFFFFu}) {
        EXPECT_EQ(ACLI.get_name(id, &none), nullptr);
        EXPECT_EQ(none, nullptr);
    }
    session_identity[0] = 'X'; // writable, and what the copies are made from
    char* c;
    ACLI.get_name(1, &c);
    EXPECT_STREQ(c, "XorlaDownmixer");
    session_identity[0] = 'K';
    for (void* name :
         {static_cast<void*>(a), static_cast<void*>(b), static_cast<void*>(c), static_cast<void*>(nullptr)})
        EXPECT_EQ(ACLI.free_name(name), 0);
}

TEST(Descriptor, QueryAnswersOneQuestion) {
    Stream stream;
    const uint32_t two = 2, one = 1;
    uint32_t a = 99, b = 99;
    EXPECT_EQ(ACLI.query(nullptr, 3, 0, 0, &two, 0, &a, &b), -1);
    EXPECT_EQ(ACLI.query(stream, 2, 0, 0, nullptr, 0, &a, &b), -2);
    EXPECT_EQ(ACLI.query(stream, 3, 0, 0, nullptr, 0, &a, &b), -1);
    EXPECT_EQ(ACLI.query(stream, 3, 0, 0, &one, 0, &a, &b), -2);
    EXPECT_EQ(ACLI.query(stream, 3, 0, 0, &two, 0, nullptr, &b), -1);
    EXPECT_EQ(ACLI.query(stream, 3, 0, 0, &two, 0, &a, nullptr), -1);
    EXPECT_EQ(a, 99u);
    EXPECT_EQ(b, 99u);
    EXPECT_EQ(ACLI.query(stream, 3, 1, 2, &two, 3, &a, &b), 0);
    EXPECT_EQ(a, 4u);
    EXPECT_EQ(b, 0u);
}

TEST(Descriptor, StubsAndNullArguments) {
    Stream stream;
    for (auto* stub : {ACLI.unsupported_3, ACLI.unsupported_5, ACLI.unsupported_8}) {
        EXPECT_EQ(stub(nullptr), ACLI_FAILED);
        EXPECT_EQ(stub(stream, 1, 2, 3), ACLI_UNSUPPORTED);
    }
    EXPECT_EQ(ACLI.create(0, 0, nullptr), -1);
    EXPECT_EQ(ACLI.destroy(nullptr), -1);
    acli_buffer buffer = {};
    acli_media_format format = media_format({1, 2});
    acli_param_value value = {ACLI_MODE_APPLY, 0, &format}, no_block = {ACLI_MODE_APPLY, 0, nullptr};
    EXPECT_EQ(ACLI.process(nullptr, &buffer, &buffer), -1);
    EXPECT_EQ(ACLI.process(stream, nullptr, &buffer), -1);
    EXPECT_EQ(ACLI.process(stream, &buffer, nullptr), -1);
    EXPECT_EQ(ACLI.set_param(nullptr, 4, 0, 0, &value), -1);
    EXPECT_EQ(ACLI.set_param(stream, 4, 0, 0, nullptr), -1);
    EXPECT_EQ(ACLI.set_param(stream, 4, 0, 0, &no_block), -1);
    // Other parameters and modes do nothing, whatever comes with them.
    EXPECT_EQ(ACLI.set_param(stream, 5, 0, 0, nullptr), 0);
    EXPECT_EQ(ACLI.set_param(stream, 3, 0, 0, &value), 0);
    value.mode = 2;
    EXPECT_EQ(ACLI.set_param(stream, 4, 0, 0, &value), 0);
    EXPECT_EQ(format.output_channel_count, 0u);
    EXPECT_EQ(ACLI.process(stream, &buffer, &buffer), -1) << "not configured";
}

// ---- media format
// -----------------------------------------------------------------------------------------------------
std::vector<uint32_t> output_map(const acli_media_format& format) {
    std::vector<uint32_t> map(format.output_channel_map, format.output_channel_map + ACLI_MAX_CHANNELS);
    while (!map.empty() && map.back() == 0)
        map.pop_back();
    return map;
}

TEST(MediaFormat, AllExplicitLayoutsAreListed) {
    for (uint32_t index = 0; index < 32; index++) {
        Stream stream;
        acli_media_format block = media_format({3}, static_cast<int>(index));
        std::fill_n(block.output_channel_map, ACLI_MAX_CHANNELS, 77u);
        const auto result = stream.apply(block);
        const auto expected = host_codes(output_layouts[index].channels);
        EXPECT_EQ(result.output_layout_mask, output_layouts[index].mask) << index;
        EXPECT_EQ(result.output_channel_count, expected.size()) << index;
        EXPECT_EQ(output_map(result), expected) << index;
    }
}

TEST(MediaFormat, AutomaticLayoutsAreThoseOfTheEngine) {
    for (const Layout& layout : layouts) {
        std::vector<uint32_t> codes;
        for (const std::string& name : layout.inputs())
            codes.push_back(speaker(name).host);
        acli_media_format block = media_format(codes);
        block.layout_index = 16; // its mask is reported all the same
        const auto result = Stream().apply(block);
        const auto expected = host_codes(layout.outputs);
        EXPECT_EQ(result.output_channel_count, expected.size()) << layout.routes;
        EXPECT_EQ(output_map(result), expected) << layout.routes;
        EXPECT_EQ(result.output_layout_mask, 0x40Fu);
        block.layout_index = 32;
        const auto beyond = Stream().apply(block);
        EXPECT_EQ(output_map(beyond), expected) << layout.routes;
        EXPECT_EQ(beyond.output_layout_mask, 0u);
    }
}

TEST(MediaFormat, HostCodesBecomeTheStatedEngineCodes) {
    // Host code -> engine code, 42: none.
    constexpr uint8_t engine_of[49] = {42, 0,  1,  2,  9,  10, 3,  8,  4,  5,  32, 27, 42, 6,  7,  42, 42,
                                       42, 15, 16, 25, 26, 42, 35, 36, 30, 31, 42, 42, 42, 42, 11, 12, 42,
                                       42, 28, 29, 33, 34, 13, 14, 17, 18, 19, 20, 21, 22, 23, 24};
    kpf_log_set_callback([](void*, const char*) {}, nullptr);
    for (uint32_t code = 0; code <= 48; code++) {
        // Seen through the layouts that L R C LFE Ls Rs make with it: an unmapped code leaves 5.1, the others have to
        // be in the table of layouts (or not) under their engine code.
        const std::string base = "L R C LFE Ls Rs";
        auto codes = host_codes(base);
        codes.push_back(code);
        uint64_t mask = 0x60F;
        const uint8_t engine = engine_of[code];
        mask = engine == 42 ? mask : mask >> engine & 1 ? 0 : mask | uint64_t{1} << engine;
        mask = engine == 3 ? 0x2000000060F : mask;
        uint32_t outputs = 0;
        for (const Layout& layout : layouts)
            if (layout.mask == mask)
                outputs = static_cast<uint32_t>(words(layout.outputs).size());
        EXPECT_EQ(Stream().apply(media_format(codes)).output_channel_count, outputs) << code;
    }
    for (const Speaker& s : speakers)
        EXPECT_EQ(engine_of[s.host], s.engine) << s.name;
    kpf_log_set_callback(nullptr, nullptr);
}

TEST(MediaFormat, RefusalsShowInTheCountAndLeaveTheStreamAlone) {
    std::string log;
    kpf_log_set_callback([](void* user, const char* line) { static_cast<std::string*>(user)->append(line); }, &log);
    acli_media_format bad_code = media_format({1, 2, 49});
    acli_media_format bad_last = media_format({1, 2});
    bad_last.input_channel_map[255] = 49;
    acli_media_format bad_index = media_format({1, 2});
    bad_index.explicit_layout = 1, bad_index.layout_index = 32;
    // 7.1 with the height pair 20/21 is no layout of the engine.
    const acli_media_format no_layout = media_format({1, 2, 3, 6, 4, 5, 8, 9, 20, 21});
    const acli_media_format no_channel = media_format({0, 12});
    for (acli_media_format refused : {bad_code, bad_last, bad_index, no_layout, no_channel}) {
        Stream stream(media_format(host_codes("L R C"), 0));
        const auto input = Random(1).vector(3 * 512);
        Stream undisturbed(media_format(host_codes("L R C"), 0));
        EXPECT_EQ(stream.run(input), undisturbed.run(input));
        EXPECT_EQ(stream.set(refused, ACLI_MODE_APPLY).output_channel_count, 0u);
        EXPECT_EQ(stream.run(input), undisturbed.run(input));
        refused.output_channel_count = 5; // a map without a channel leaves the count as it is
        EXPECT_EQ(stream.set(refused, ACLI_MODE_PROBE).output_channel_count,
                  refused.input_channel_map[0] == 0 ? 5u : 0u);
    }
    EXPECT_NE(log.find("ERROR (downmixer:1056): Not supported input channel configuration\n"), std::string::npos);
    kpf_log_set_callback(nullptr, nullptr);
}

TEST(MediaFormat, ProbeAnswersAndLeavesTheStreamAlone) {
    Stream stream(media_format(host_codes("L R C LFE Ls Rs"), 0)), undisturbed(stream.applied);
    const auto input = Random(2).vector(6 * 700);
    EXPECT_EQ(stream.run(input), undisturbed.run(input));
    const auto answer = stream.set(media_format({1, 2, 3, 13, 14}), ACLI_MODE_PROBE);
    EXPECT_EQ(answer.output_channel_count, 6u);
    EXPECT_EQ(output_map(answer), (std::vector<uint32_t>{1, 2, 3, 6, 4, 5}));
    EXPECT_EQ(stream.run(input), undisturbed.run(input));
    Stream never_applied;
    never_applied.set(media_format({1, 2, 3}), ACLI_MODE_PROBE);
    acli_buffer buffer = {};
    EXPECT_EQ(never_applied.process(buffer, buffer), -1);
}

// ---- matrices through the module
// --------------------------------------------------------------------------------------

// What a host measures: constant 0.25 in one channel at a time through the running stream.
std::string measured_routes(Stream& stream, const std::vector<std::string>& inputs,
                            const std::vector<std::string>& outputs) {
    const size_t n_in = inputs.size(), n_out = outputs.size();
    // Settled: out = in * gain * 256 * boost, rounded as the crossfade rounds in its middle.
    auto level_after = [](float gain) {
        const float y = 0.25f * gain, boosted = y * std::bit_cast<float>(0x3C20C2BFu);
        const float w = korla_test::limiter_window(32)[0];
        return std::fma(1.0f - w, boosted, boosted * w) * 256.0f;
    };
    std::string routes;
    for (size_t c = 0; c < n_in; c++) {
        std::vector<float> in(256 * n_in);
        for (size_t t = 0; t < 128; t++)
            in[t * n_in + c] = 0.25f;
        const auto out = stream.run(in);
        routes += (c ? " " : "") + inputs[c] + '>';
        const char* separator = "";
        for (size_t o = 0; o < n_out; o++)
            if (const float level = out[32 * n_out + o]; level != 0.0f) {
                char letter = '?';
                for (const Gain& gain : gains)
                    letter = std::fabs(level - level_after(gain.value)) < 1e-7f ? gain.letter : letter;
                routes.append(separator).append(1, letter).append(outputs[o]);
                separator = "+";
            }
    }
    return routes;
}

TEST(Matrices, AutomaticLayoutsSendEveryChannelWhereTheTableSays) {
    for (const Layout& layout : layouts) {
        std::string names;
        for (const std::string& name : layout.inputs())
            names += name + ' ';
        Stream stream(media_format(host_codes(names)));
        if (names == std::string(layout.outputs) + ' ')
            continue; // passes through
        EXPECT_EQ(measured_routes(stream, layout.inputs(), words(layout.outputs)), layout.routes);
    }
}

TEST(Matrices, ExplicitLayoutsSendEveryChannelWhereTheTableSays) {
    int passed_through = 0;
    for (const char* inputs : custom_inputs)
        for (const CustomOutput& output : custom_outputs) {
            const auto names = words(inputs);
            const std::string outputs = output_layouts[output.layout_index].channels;
            std::string expected;
            for (const std::string& name : names)
                for (const std::string& route : words(output.routes))
                    if (route.substr(0, route.find('>')) == name)
                        expected += (expected.empty() ? "" : " ") + route;
            if (names.size() == 1)
                expected = "L>hL+hR";
            Stream stream(media_format(host_codes(inputs), static_cast<int>(output.layout_index)));
            if (inputs == outputs) {
                passed_through++;
                const auto in = Random(3).vector(names.size() * 300, -4, 4);
                EXPECT_EQ(stream.run(in), in);
            } else
                EXPECT_EQ(measured_routes(stream, names, words(outputs)), expected) << inputs << " to " << outputs;
        }
    EXPECT_EQ(passed_through, 11); // of the 12 classes all but mono are output layouts as well
}

TEST(Matrices, ALoneChannelOfAnyNameFeedsBothFronts) {
    for (const char* name : {"R", "C", "Ls", "Ltf"}) {
        Stream stream(media_format(host_codes(name), 15));
        EXPECT_EQ(measured_routes(stream, {name}, words(five_one)), std::string(name) + ">hL+hR");
    }
}

TEST(Matrices, TheClassOfAnInputIsItsCountAndACentreOrLfe) {
    // Maps outside the listed classes are read by position: what stands where the class has Ls goes where Ls goes.
    struct Case {
        const char *inputs, *as_if;
    };
    for (const Case& c : {Case{"L R Ls", "L R LFE"}, Case{"L R C Cb", "L R C LFE"}, Case{"L R Lb Rb", "L R Ls Rs"},
                          Case{"L R C Lb Rb", "L R C Ls Rs"}, Case{"L R C LFE Lb Rb", "L R C LFE Ls Rs"},
                          Case{"L R LFE Cb Ls Rs Lh", "L R LFE Ls Rs Lb Rb"}}) {
        Stream stream(media_format(host_codes(c.inputs), 27)), reference(media_format(host_codes(c.as_if), 27));
        const auto in = Random(4).vector(words(c.inputs).size() * 512);
        EXPECT_EQ(stream.run(in), reference.run(in)) << c.inputs;
    }
}

// ---- pass-through
// -----------------------------------------------------------------------------------------------------
TEST(PassThrough, EqualMapsAndMissingMatricesCopyFrames) {
    struct Case {
        const char* inputs;
        int index;
        size_t copied; // channels of a frame
    };
    const Case cases[] = {
        {"L R C LFE Ls Rs", automatic, 6},                        // 5.1 as it is
        {"L R C LFE Ls Rs Lb Rb Ltf Rtf Ltb Rtb", automatic, 12}, // 7.1.4 as it is
        {"L R C LFE Ls Rs", 16, 6},                               // no matrix to a height layout
        {"L R C LFE Ls Rs Lb Rb Ltf Rtf Ltb Rtb", 0, 2},          // none from 12 channels
        {"L R", 15, 2},                                           // none from 2
        {"L R C LFE LFE Ls", 0, 2},                               // the LFE twice: counts as five channels
    };
    for (const Case& c : cases) {
        Stream stream(media_format(host_codes(c.inputs), c.index));
        const size_t n_in = stream.applied.input_channel_count, n_out = stream.applied.output_channel_count;
        const auto in = Random(5).vector(n_in * 300, -8, 8);
        const auto out = stream.run(in);
        for (size_t t = 0; t < 300; t++)
            for (size_t o = 0; o < n_out; o++)
                ASSERT_EQ(out[t * n_out + o], o < c.copied ? in[t * n_in + o] : 0.0f) << c.inputs << ", frame " << t;
    }
    Stream mixed(media_format(host_codes("L R C LFE Ls Rs"), 14)); // not equal, has a matrix
    EXPECT_NE(mixed.run(std::vector<float>(6 * 64, 0.5f)), std::vector<float>(5 * 64, 0.5f));
}

TEST(PassThrough, NeverReadsOrWritesPastTheBuffers) {
    // The stream has 12 channels in and 2 out; the buffer says otherwise, and ends before the frames that result.
    for (uint32_t channels : {1u, 2u, 12u, 255u}) {
        Stream stream(media_format(host_codes("L R C LFE Ls Rs Lb Rb Ltf Rtf Ltb Rtb"), 0));
        GuardedBuffer<int16_t> in(std::vector<int16_t>(601, 7)), out(2 * (601 / channels));
        acli_buffer source = {}, target = {};
        source.bytes = 1202, source.data = in.data(), source.channels = channels, source.bits_per_sample = 16;
        target.bytes = static_cast<uint32_t>(out.size() * 2), target.data = out.data();
        ASSERT_EQ(stream.process(source, target), 0);
        EXPECT_EQ(target.bytes, out.size() * 2);
        for (size_t i = 0; i < out.size(); i++) // sample i % 2 of frame i / 2, as far as there is input
            ASSERT_EQ(out[i], i / 2 * 12 + i % 2 < 601 ? 7 : 0) << i;
        source.data = nullptr;
        EXPECT_EQ(stream.process(source, target), -1);
        source.data = in.data(), target.data = nullptr;
        EXPECT_EQ(stream.process(source, target), -1);
    }
}

// ---- driver
// -----------------------------------------------------------------------------------------------------------
template <class T>
std::vector<T> noise(size_t n, uint64_t seed) {
    Random random(seed);
    std::vector<T> x(n);
    for (T& v : x)
        v = std::is_integral_v<T> ? static_cast<T>(random.bits()) : static_cast<T>(random.uniform(-1.5f, 1.5f));
    return x;
}

template <class T>
void compare_with_model(uint32_t host_format, uint32_t engine_format, bool interleaved) {
    const auto inputs = words("L R C LFE Ls Rs Lb Rb");
    std::string routes_text = "L>gL R>gR C>hL+hR LFE> Ls>hL Rs>hR Lb>hL Rb>hR";
    EngineModel model(256, 44100, matrix_of(words(routes_text), words("L R")), 8, 2);
    Stream stream(media_format(host_codes(seven_one), 0, host_format, interleaved, 44100));
    for (uint32_t frames : {1000u, 256u, 1u, 511u, 257u, 2048u}) {
        const auto in = noise<T>(frames * 8, frames + 1);
        const auto out = stream.run(in);
        std::vector<T> expected(frames * 2);
        for (uint32_t t = 0; t < frames; t += 256) { // 1000 frames go as 256, 256, 256 and 232
            const uint32_t n = std::min(256u, frames - t);
            const Placement from = interleaved ? Placement{engine_format, 8, 1} : Placement{engine_format, 1, n};
            const Placement to = interleaved ? Placement{engine_format, 2, 1} : Placement{engine_format, 1, n};
            model.process(reinterpret_cast<const uint8_t*>(in.data() + t * 8), from,
                          reinterpret_cast<uint8_t*>(expected.data() + t * 2), to, n);
        }
        EXPECT_EQ(out, expected) << frames << " frames, host format " << host_format;
    }
}
TEST(Process, GivesTheBitsOfTheModelChunkByChunk) {
    for (bool interleaved : {true, false}) {
        compare_with_model<int16_t>(ACLI_SAMPLE_INT16, KORVEX_FORMAT_INT16, interleaved);
        compare_with_model<int32_t>(ACLI_SAMPLE_INT32, KORVEX_FORMAT_INT32, interleaved);
        compare_with_model<float>(ACLI_SAMPLE_FLOAT32, KORVEX_FORMAT_FLOAT_STAGED, interleaved);
    }
}

class ProcessRules : public ::testing::Test {
protected:
    ProcessRules() : stream(media_format(host_codes("L R C"), 0, ACLI_SAMPLE_INT16)) {
        source.bytes = 3 * 2 * 100, source.data = in.data(), source.channels = 3, source.bits_per_sample = 16;
        target.bytes = 2 * 2 * 100, target.data = out.data();
    }
    int32_t process() { return stream.process(source, target); }
    void expect_refused() {
        const uint32_t bytes = target.bytes;
        const auto before = out.values();
        EXPECT_EQ(process(), -1);
        EXPECT_EQ(target.bytes, bytes);
        EXPECT_EQ(out.values(), before);
    }
    Stream stream;
    GuardedBuffer<int16_t> in{std::vector<int16_t>(300, 8000)}, out{std::vector<int16_t>(200, -1)};
    acli_buffer source = {}, target = {};
};

TEST_F(ProcessRules, CapacityMustHoldTheResult) {
    target.bytes--;
    expect_refused();
    target.bytes++;
    EXPECT_EQ(process(), 0);
    EXPECT_EQ(target.bytes, 400u);
    source.bytes += 5; // not a whole frame
    EXPECT_EQ(process(), 0);
    EXPECT_EQ(target.bytes, 400u);
    target.bytes = 4000; // more room than needed
    EXPECT_EQ(process(), 0);
    EXPECT_EQ(target.bytes, 400u);
}

TEST_F(ProcessRules, NothingInNothingOut) {
    source.bytes = 0;
    EXPECT_EQ(process(), 0);
    EXPECT_EQ(target.bytes, 0u);
    for (uint32_t* field : {&source.channels, &source.bits_per_sample}) {
        source.bytes = 600, source.channels = 3, source.bits_per_sample = 16, target.bytes = 400;
        *field = 0;
        EXPECT_EQ(process(), 0);
        EXPECT_EQ(target.bytes, 0u);
    }
    EXPECT_EQ(out.values(), std::vector<int16_t>(200, -1));
}

TEST_F(ProcessRules, NullDataAndUnknownFormatsAreRefused) {
    source.data = nullptr;
    expect_refused();
    source.data = in.data();
    target.data = nullptr;
    expect_refused();
    target.data = out.data();
    for (uint32_t format : {1u, 2u, 4u, 5u, 17u, 19u, 0xFFFFFFFFu}) {
        stream.apply(media_format(host_codes("L R C"), 0, format));
        expect_refused();
    }
}

TEST_F(ProcessRules, CountsThatContradictTheConfigurationAreRefused) {
    auto format = stream.applied;
    for (uint32_t channels : {0u, 2u, 257u, 0x40000001u, 0xFFFFFFFFu}) { // the map has three
        format.input_channel_count = channels;
        stream.apply(format);
        expect_refused();
    }
    format.input_channel_count = 4; // a frame with a channel that is not in the map: more bytes than there are
    stream.apply(format);
    expect_refused();
    stream.apply(media_format(host_codes("L R C"), 0, ACLI_SAMPLE_FLOAT32)); // 16 bits announced, 32 configured
    expect_refused();
    stream.apply(media_format(host_codes("L R C"), 0, ACLI_SAMPLE_INT16));
    source.channels = 1; // three times the frames
    target.bytes = 1200;
    EXPECT_EQ(process(), -1);
}

TEST_F(ProcessRules, HostileSizesDoNotWrapPastTheChecks) {
    struct Sizes {
        uint32_t bytes, channels, bits, capacity;
    };
    const Sizes hostile[] = {
        {0x7FFFFFFF, 1, 8, 0xFFFFFFFF}, {0x80000000, 1, 16, 0xFFFFFFFF}, {0xFFFFFFFF, 3, 16, 400},
        {0x7FFFFFFF, 1, 16, 400},       {600, 3, 0xFFFFFFF8, 400},       {600, 0x80000000, 16, 400},
        {600, 0x55555556, 24, 400},     {0x40000000, 1, 32, 400},        {0x7FFFFFFE, 2, 0x80000008, 400},
        {0x7FFFFFFF, 1, 0x40000008, 8},
    };
    for (const Sizes& s : hostile) { // the data are 600 and 400 bytes all the same
        source.bytes = s.bytes, source.channels = s.channels, source.bits_per_sample = s.bits;
        target.bytes = std::min(s.capacity, 400u);
        if (process() == 0) {
            EXPECT_EQ(target.bytes, 0u) << s.bytes << ' ' << s.channels << ' ' << s.bits;
        }
    }
    // 2^28 frames of eight 16-bit channels are 2^32 bytes, which must not count as none; here with frames copied.
    source.bytes = 0x20000000, source.channels = 1, source.bits_per_sample = 16;
    Stream copying(media_format(host_codes("L R C"), 16, ACLI_SAMPLE_INT16));
    target.bytes = 400;
    EXPECT_EQ(copying.process(source, target), -1);
}

TEST(Process, FollowsEveryReconfiguration) {
    Stream stream;
    struct Step {
        const char* inputs;
        int index;
        uint32_t rate;
    };
    for (const Step& step : {Step{"L R C", 0, 48000},
                             {"L R C LFE Ls Rs", automatic, 48000},
                             {"L R C LFE Ls Rs Lb Rb", 15, 96000},
                             {"L R C Lc Rc", automatic, 44100},
                             {"L R C", 0, 22050},
                             {"L R C", 0, 48000}}) {
        stream.apply(media_format(host_codes(step.inputs), step.index, ACLI_SAMPLE_FLOAT32, true, step.rate));
        Stream fresh(stream.applied);
        const auto in = Random(6).vector(words(step.inputs).size() * 900, -2, 2);
        for (int i = 0; i < 2; i++)
            EXPECT_EQ(stream.run(in), fresh.run(in)) << step.inputs;
    }
}

TEST(Process, AutomaticLayoutForgetsTheMatrixOfAnExplicitOne) {
    Stream stream(media_format(host_codes("L R C LFE Ls Rs"), 0));
    stream.apply(media_format(host_codes("L R C Lc Rc")));
    EXPECT_EQ(measured_routes(stream, words("L R C Lc Rc"), words(five_one)), "L>gL R>gR C>gC Lc>kL+mC Rc>kR+mC");
}

TEST(Process, ImpulseComesOutAfter32Frames) {
    for (uint32_t rate : {24000u, 44100u, 48000u, 96000u, 192000u, 22050u}) {
        Stream stream(media_format(host_codes("L R C"), 0, ACLI_SAMPLE_FLOAT32, true, rate));
        std::vector<float> in(3 * 512);
        in[3 * 300] = 0.5f;
        const auto out = stream.run(in);
        for (size_t t = 0; t < 512; t++)
            ASSERT_NEAR(out[2 * t], t == 332 ? 0.5f : 0.0f, 1e-6f) << rate; // g * 2.51 = 1
    }
}

TEST(Process, StreamsShareNothing) {
    const auto a_in = Random(7).vector(3 * 2048, -2, 2), b_in = Random(8).vector(8 * 2048, -2, 2);
    const auto a_format = media_format(host_codes("L R C"), 0), b_format = media_format(host_codes(seven_one), 15);
    Stream a(a_format), b(b_format);
    const auto a_alone = Stream(a_format).run(a_in), b_alone = Stream(b_format).run(b_in);
    std::vector<float> a_out, b_out;
    for (size_t t = 0; t < 2048; t += 256) {
        for (float v : a.run(std::vector<float>(a_in.begin() + 3 * t, a_in.begin() + 3 * (t + 256))))
            a_out.push_back(v);
        for (float v : b.run(std::vector<float>(b_in.begin() + 8 * t, b_in.begin() + 8 * (t + 256))))
            b_out.push_back(v);
    }
    EXPECT_EQ(a_out, a_alone);
    EXPECT_EQ(b_out, b_alone);
}

} // namespace
