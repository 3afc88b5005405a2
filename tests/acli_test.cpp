#include <korla/acli.h>
#include <korla/diag.h>

#include <cstddef>

#include "guarded_buffer.h"
#include "module_host.h"
#include "reference/downmix_reference.h"
#include "signals.h"

using namespace korla_test;

namespace {

// Wire layouts: between the fields that are named here stand fields of one size without gaps.
#define AT(record, field, offset) (offsetof(record, field) == (offset))
static_assert(sizeof(acli_descriptor) == 120 && AT(acli_descriptor, interface_version, 4) &&
              AT(acli_descriptor, name, 8));
static_assert(AT(acli_descriptor, query, 40) && AT(acli_descriptor, create, 56) && AT(acli_descriptor, process, 72));
static_assert(AT(acli_descriptor, set_param, 80) && AT(acli_descriptor, destroy, 96) &&
              AT(acli_descriptor, reserved, 104));
static_assert(sizeof(acli_media_format) == 2088 && AT(acli_media_format, sample_rate, 8));
static_assert(AT(acli_media_format, interleaved, 16) && AT(acli_media_format, output_layout_mask, 20));
static_assert(AT(acli_media_format, layout_index, 28) && AT(acli_media_format, sample_format, 32));
static_assert(AT(acli_media_format, input_channel_map, 36) && AT(acli_media_format, output_channel_map, 1060));
static_assert(AT(acli_buffer, bytes, 4) && AT(acli_buffer, data, 8) && AT(acli_buffer, channels, 48));
static_assert(AT(acli_buffer, bits_per_sample, 84) && AT(acli_param_value, mode, 0) && AT(acli_param_value, format, 8));
#undef AT

TEST(Descriptor, HasTheBytesThatAHostLooksFor) {
    constexpr uint8_t head[] = {0x54, 0x4C, 0x43, 0x41, 0x00, 0x01, 0x00, 0x00};
    EXPECT_EQ(std::memcmp(&ACLI, head, sizeof head), 0);
    EXPECT_STREQ(ACLI.name, "KorlaDownmixer");
    EXPECT_STREQ(ACLI.vendor, "NRX");
    EXPECT_TRUE(!ACLI.reserved[0] && !ACLI.reserved[1]);
    char *copy, *none = session_identity;
    session_identity[0] = 'X'; // writable, and what the copies are made from
    EXPECT_EQ(ACLI.get_name(1, &copy), copy);
    session_identity[0] = 'K';
    EXPECT_STREQ(copy, "XorlaDownmixer");
    for (uint32_t id : {0u, 2u, 0xFFFFFFFFu})
        EXPECT_TRUE(ACLI.get_name(id, &none) == nullptr && none == nullptr);
    EXPECT_TRUE(ACLI.free_name(copy) == 0 && ACLI.free_name(nullptr) == 0);
}

TEST(Descriptor, RefusesWhatItDoesNotKnow) {
    Stream stream;
    const uint32_t two = 2, one = 1;
    uint32_t a = 99, b = 99;
    auto query = [](void* handle, uint32_t id, const uint32_t* in, uint32_t* out7, uint32_t* out8) {
        return ACLI.query(handle, id, 1, 2, in, 3, out7, out8);
    };
    EXPECT_TRUE(query(nullptr, 3, &two, &a, &b) == -1 && query(stream, 3, nullptr, &a, &b) == -1);
    EXPECT_TRUE(query(stream, 3, &two, nullptr, &b) == -1 && query(stream, 3, &two, &a, nullptr) == -1);
    EXPECT_TRUE(query(stream, 2, nullptr, &a, &b) == -2 && query(stream, 3, &one, &a, &b) == -2);
    EXPECT_TRUE(a == 99 && b == 99);
    EXPECT_TRUE(query(stream, 3, &two, &a, &b) == 0 && a == 4 && b == 0);
    for (auto* stub : {ACLI.unsupported_3, ACLI.unsupported_5, ACLI.unsupported_8})
        EXPECT_TRUE(stub(nullptr) == ACLI_FAILED && stub(stream, 1, 2, 3) == ACLI_UNSUPPORTED);
    acli_buffer buffer = {};
    acli_media_format format = media_format(stereo);
    acli_param_value value = {2, 0, &format}, no_block = {ACLI_MODE_APPLY, 0, nullptr};
    EXPECT_TRUE(ACLI.create(0, 0, nullptr) == -1 && ACLI.destroy(nullptr) == -1);
    EXPECT_EQ(ACLI.process(nullptr, &buffer, &buffer), -1);
    EXPECT_TRUE(ACLI.process(stream, nullptr, &buffer) == -1 && ACLI.process(stream, &buffer, nullptr) == -1);
    EXPECT_EQ(ACLI.set_param(nullptr, 4, 0, 0, &value), -1);
    for (const acli_param_value* without_block : {static_cast<acli_param_value*>(nullptr), &no_block})
        EXPECT_EQ(ACLI.set_param(stream, 4, 0, 0, without_block), -1);
    EXPECT_EQ(ACLI.set_param(stream, 4, 0, 0, &value), 0) << "other modes and parameters do nothing";
    EXPECT_EQ(ACLI.set_param(stream, 5, 0, 0, nullptr), 0);
    EXPECT_EQ(format.output_channel_count, 0u);
    EXPECT_EQ(ACLI.process(stream, &buffer, &buffer), -1) << "not configured";
}

// What a stream of this format does to every channel, once the block says what it must.
std::string routes_through(const acli_media_format& format, const std::string& inputs, const std::string& outputs) {
    Stream stream;
    acli_media_format block = format;
    std::fill_n(block.output_channel_map, ACLI_MAX_CHANNELS, 77u);
    auto expected = codes(outputs, &Speaker::host);
    EXPECT_EQ(stream.apply(block).output_channel_count, expected.size());
    expected.resize(ACLI_MAX_CHANNELS);
    EXPECT_TRUE(std::ranges::equal(stream.applied.output_channel_map, expected));
    const std::string routes = measured_routes(inputs, outputs, [&](const auto& in) { return stream.run(in); });
    // At eight times full scale the limiter works on everything that is not a copy.
    const size_t n_in = words(inputs).size(), n_out = words(outputs).size(), both = std::min(n_in, n_out);
    const auto loud = Random(5).vector(300 * n_in, -8, 8), out = stream.run(loud);
    bool copies = true;
    for (size_t t = 0; t < 300; t++)
        copies &= std::equal(&loud[t * n_in], &loud[t * n_in] + both, &out[t * n_out]);
    return std::string(copies ? "copied: " : "") + routes;
}

TEST(Layouts, AutomaticOnesSendEveryChannelWhereTheTableSays) {
    for (const Layout& layout : layouts) {
        acli_media_format block = media_format(layout.inputs);
        const std::string expected = std::string(layout.inputs == layout.outputs ? "copied: " : "") + layout.routes;
        EXPECT_EQ(routes_through(block, layout.inputs, layout.outputs), expected);
        block.layout_index = 16; // its mask is reported all the same
        EXPECT_EQ(Stream().apply(block).output_layout_mask, 0x40Fu);
        block.layout_index = 32;
        EXPECT_EQ(Stream().apply(block).output_layout_mask, 0u);
    }
}

TEST(Layouts, ExplicitOnesSendEveryChannelWhereTheTableSays) {
    int matrices = 0;
    for (int index = 0; index < 32; index++) {
        const std::string outputs = channels_of(output_masks[index]);
        EXPECT_EQ(Stream().apply(media_format("C", index)).output_layout_mask, output_masks[index]);
        for (uint32_t mask : output_masks)
            if (mask < 0x20 && output_masks[index] < 0x20) {
                const std::string inputs = mask == 0x1 ? "L" : channels_of(mask);
                matrices++;
                EXPECT_EQ(routes_through(media_format(inputs, index), inputs, outputs),
                          std::string(inputs == outputs ? "copied: " : "") + explicit_routes(inputs, outputs));
            }
    }
    EXPECT_EQ(matrices, 144);
}

TEST(Layouts, SomeOfThemInFull) {
    struct Case {
        int index;
        std::string inputs, outputs, routes;
    };
    const Case cases[] = {
        {0, seven_one, stereo, "L>gL R>gR C>hL+hR LFE> Ls>hL Rs>hR Lb>hL Rb>hR"},
        {15, seven_one, five_one, "L>gL R>gR C>gC LFE>gLFE Ls>gLs Rs>gRs Lb>gLs Rb>gRs"},
        {automatic, "L R C LFE Lc Rc Cb", five_one, "L>gL R>gR C>gC LFE>gLFE Lc>kL+mC Rc>kR+mC Cb>hLs+hRs"},
        {15, "Ltf", five_one, "Ltf>hL+hR"},
        {6, "L R C", "L R C LFE Ltm Rtm", "copied: L>gL R>gR C>gC"}, // no matrix to heights, as the limiter would see
        {15, stereo, five_one, "copied: L>gL R>gR"},                 // none from two channels
        {0, seven_one + " Ltm Rtm", stereo, "copied: L>gL R>gR C> LFE> Ls> Rs> Lb> Rb> Ltm> Rtm>"}, // nor from ten
        {0, "L R C LFE LFE2 Ls", stereo, "copied: L>gL R>gR C> LFE> LFE2> Ls>"}}; // the LFE counts once: five channels
    for (const Case& c : cases)
        EXPECT_EQ(routes_through(media_format(c.inputs, c.index), c.inputs, c.outputs), c.routes);
    acli_media_format with_unmapped = media_format(five_one + " L"); // codes that stand for no loudspeaker do not count
    for (uint32_t code : {0u, 12u, 15u, 16u, 17u, 22u, 27u, 28u, 29u, 30u, 33u, 34u}) {
        with_unmapped.input_channel_map[6] = code;
        EXPECT_EQ(Stream().apply(with_unmapped).output_channel_count, 6u) << code;
    }
    // Maps outside the listed classes are read by position: what stands where the class has Ls goes where Ls goes.
    for (const std::string& pair :
         words("L R Ls=L R LFE,L R C Cb=L R C LFE,L R Lb Rb=L R Ls Rs,L R C Lb Rb=L R C Ls Rs,"
               "L R C LFE Lb Rb=L R C LFE Ls Rs,L R LFE Cb Ls Rs Lh=L R LFE Ls Rs Lb Rb",
               ',')) {
        const std::string inputs = words(pair, '=')[0], as_if = words(pair, '=')[1];
        const auto in = Random(4).vector(words(inputs).size() * 512);
        EXPECT_EQ(Stream(media_format(inputs, 27)).run(in), Stream(media_format(as_if, 27)).run(in)) << inputs;
    }
}

// Keeps refusals off standard output.
struct Log {
    Log() {
        kpf_log_set_callback([](void* user, const char* s) { *static_cast<std::string*>(user) += s; }, &text);
    }
    ~Log() { kpf_log_set_callback(nullptr, nullptr); }
    std::string text;
};

// A refused block leaves its channel codes behind, which must not meet the matrix of an accepted one: every pair of an
// accepted and a refused block, before the engine stands and after. A probe leaves nothing behind.
TEST(MediaFormat, RefusalsAndProbesNeverChangeWhatAStreamMixes) {
    struct Accepted {
        std::string inputs;
        int index;
        size_t columns; // of the matrix that is kept; 0: the engine's own
        bool copies;
    };
    const Accepted accepted[] = {{"C", 0, 1, false},
                                 {"L R C", 15, 3, false},
                                 {"L R LFE Ls Rs", 0, 5, false},
                                 {seven_one, 0, 8, false},
                                 {"R L C LFE Ls Rs Lb Rb", 27, 8, false},
                                 {"L R C Lc Rc", automatic, 0, false},
                                 {five_one, automatic, 0, true},
                                 {seven_one_four, 0, 0, true}};
    std::vector<acli_media_format> refused(2, media_format(stereo));
    refused[0].input_channel_map[255] = 49;
    refused[1].explicit_layout = 1, refused[1].layout_index = 32;
    const size_t codes_change = refused.size(); // from here on
    for (size_t n = 0; n <= 13; n++) {
        refused.push_back(media_format(""));
        std::fill_n(refused.back().input_channel_map, n, 20u);
    }
    Log log;
    const auto input = Random(1).vector(12 * 300);
    for (const Accepted& a : accepted)
        for (size_t r = 0; r < refused.size(); r++)
            for (uint32_t mode : {ACLI_MODE_PROBE, ACLI_MODE_APPLY})
                for (bool running : {false, true}) {
                    SCOPED_TRACE(a.inputs + ", refused " + std::to_string(r) + (running ? ", running" : ""));
                    acli_media_format format = media_format(a.inputs, a.index);
                    format.input_channel_count =
                        12; // more than there are channels: no count gives the refused map away
                    Stream stream(format), undisturbed(format);
                    if (running) {
                        EXPECT_EQ(stream.run(input), undisturbed.run(input));
                    }
                    refused[r].output_channel_count = 5;
                    const size_t channels = r < codes_change ? 0 : r - codes_change;
                    EXPECT_EQ(stream.set(refused[r], mode).output_channel_count,
                              r < codes_change || channels ? 0u : 5u);
                    if (running || a.copies || mode == ACLI_MODE_PROBE || r < codes_change ||
                        (a.columns && channels == a.columns)) {
                        EXPECT_EQ(stream.run(input), undisturbed.run(input));
                    } else {
                        std::vector<float> out(input.size());
                        acli_buffer target = buffer_of(out.data(), 4 * out.size());
                        EXPECT_EQ(stream.process(buffer_of(input.data(), 4 * input.size(), 12, 32), target), -1);
                        EXPECT_EQ(out, std::vector<float>(input.size()));
                        stream.apply(format);
                        EXPECT_EQ(stream.run(input), undisturbed.run(input));
                    }
                }
    EXPECT_NE(log.text.find("ERROR (downmixer:1056): Not supported input channel configuration\n"), std::string::npos);
    Stream never_applied;
    never_applied.set(media_format(five_one), ACLI_MODE_PROBE);
    acli_buffer buffer = {};
    EXPECT_EQ(never_applied.process(buffer, buffer), -1);
}

TEST(PassThrough, NeverReadsOrWritesPastTheBuffers) {
    // The stream has 12 channels in and 2 out; the buffer says otherwise, and ends before the frames that result.
    for (uint32_t channels : {1u, 2u, 12u, 255u}) {
        Stream stream(media_format(seven_one_four, 0));
        GuardedBuffer<int16_t> in(std::vector<int16_t>(601, 7)), out(2 * (601 / channels));
        const acli_buffer source = buffer_of(in.data(), 1202, channels, 16);
        acli_buffer target = buffer_of(out.data(), out.size() * 2);
        ASSERT_EQ(stream.process(source, target), 0);
        EXPECT_EQ(target.bytes, out.size() * 2);
        for (size_t i = 0; i < out.size(); i++) // sample i % 2 of frame i / 2, as far as there is input
            ASSERT_EQ(out[i], i / 2 * 12 + i % 2 < 601 ? 7 : 0) << i;
        EXPECT_EQ(stream.process(buffer_of(nullptr, 1202, channels, 16), target), -1);
        target.data = nullptr;
        EXPECT_EQ(stream.process(source, target), -1);
    }
}

TEST(Process, GivesTheBitsOfTheModelChunkByChunk) {
    constexpr uint32_t formats[][2] = {{ACLI_SAMPLE_INT16, KORVEX_FORMAT_INT16},
                                       {ACLI_SAMPLE_INT32, KORVEX_FORMAT_INT32},
                                       {ACLI_SAMPLE_FLOAT32, KORVEX_FORMAT_FLOAT_STAGED}};
    for (auto [host_format, engine_format] : formats)
        for (bool interleaved : {true, false}) {
            EngineModel model(256, 44100, matrix_of(explicit_routes(seven_one, stereo), stereo), 8, 2);
            Stream stream(media_format(seven_one, 0, host_format, interleaved, 44100));
            Random random(1);
            const uint32_t slot = slot_bytes(engine_format);
            for (uint32_t frames : {1000u, 256u, 1u, 511u, 257u, 2048u}) {
                std::vector<uint8_t> in, out(frames * 2 * slot), expected = out;
                while (in.size() < frames * 8 * slot) {
                    const float x = random.uniform(-1.5f, 1.5f);
                    from_float(engine_format, x, &*in.insert(in.end(), slot, 0));
                }
                for (uint32_t t = 0; t < frames; t += 256) { // 1000 frames go as 256, 256, 256 and 232
                    const uint32_t n = std::min(256u, frames - t);
                    model.process(&in[t * 8 * slot], placement(engine_format, interleaved, 8, n),
                                  &expected[t * 2 * slot], placement(engine_format, interleaved, 2, n), n);
                }
                acli_buffer target = buffer_of(out.data(), out.size());
                EXPECT_EQ(stream.process(buffer_of(in.data(), in.size(), 8, 8 * slot), target), 0);
                EXPECT_EQ(out, expected) << frames << " frames, host format " << host_format;
            }
        }
}

TEST(Process, RefusesWhatDoesNotFitAndHostileSizes) {
    // Bytes, channels, bits per sample, capacity, and what comes out, -1 for a refusal.
    constexpr int64_t refused = -1, calls[][5] = {{600, 3, 16, 399, refused},
                                                  {600, 3, 16, 400, 400},
                                                  {605, 3, 16, 4000, 400},
                                                  {0, 3, 16, 400, 0},
                                                  {600, 0, 16, 400, 0},
                                                  {600, 3, 0, 400, 0},
                                                  {0x7FFFFFFF, 1, 8, 400, refused},
                                                  {0x80000000, 1, 16, 400, refused},
                                                  {0xFFFFFFFF, 3, 16, 400, 0},
                                                  {600, 3, 0xFFFFFFF8, 400, 0},
                                                  {600, 0x80000000, 16, 400, 0},
                                                  {600, 0x55555556, 24, 400, refused},
                                                  {0x40000000, 1, 32, 400, refused},
                                                  {0x7FFFFFFE, 2, 0x80000008, 400, refused},
                                                  {0x7FFFFFFF, 1, 0x40000008, 8, refused}};
    GuardedBuffer<int16_t> in(std::vector<int16_t>(303, 8000));
    for (const std::string& inputs : {std::string("L R C"), seven_one_four}) // mixed and copied
        for (auto [bytes, channels, bits, capacity, produced] : calls) {
            Stream stream(media_format(inputs, 0, ACLI_SAMPLE_INT16));
            GuardedBuffer<int16_t> out(std::vector<int16_t>(200, -1));
            acli_buffer source = buffer_of(in.data(), bytes, channels, bits), target = buffer_of(out.data(), capacity);
            EXPECT_EQ(stream.process(source, target), produced == refused ? -1 : 0)
                << bytes << ' ' << channels << ' ' << bits;
            EXPECT_EQ(target.bytes, produced == refused ? capacity : produced);
            EXPECT_EQ(out.values() != std::vector<int16_t>(200, -1), produced > 0) << "written";
        }
    // 2^28 frames of eight 16-bit channels are 2^32 bytes, which must not count as none.
    acli_buffer target = buffer_of(in.data(), 400);
    Stream copying(media_format("L R C", 16, ACLI_SAMPLE_INT16));
    EXPECT_EQ(copying.process(buffer_of(in.data(), 0x20000000, 1, 16), target), -1);
}

TEST(Process, RefusesConfigurationsThatContradictTheCall) {
    GuardedBuffer<int16_t> in(std::vector<int16_t>(300, 8000)), out(std::vector<int16_t>(600, -1));
    auto refused = [&](const acli_media_format& format, const int16_t* from, int16_t* to, uint32_t channels = 3) {
        acli_buffer target = buffer_of(to, 1200);
        return Stream(format).process(buffer_of(from, 600, channels, 16), target) == -1 && target.bytes == 1200;
    };
    acli_media_format format = media_format("L R C", 0, ACLI_SAMPLE_INT16);
    EXPECT_TRUE(refused(format, nullptr, out.data()) && refused(format, in.data(), nullptr));
    EXPECT_TRUE(refused(format, in.data(), out.data(), 1)) << "three times the frames";
    for (uint32_t channels : {0u, 2u, 4u, 257u, 0x40000001u, 0xFFFFFFFFu}) { // the map has three
        format.input_channel_count = channels;
        EXPECT_TRUE(refused(format, in.data(), out.data())) << channels;
    }
    for (uint32_t sample_format : {1u, 2u, 4u, 5u, 17u, 19u, 0xFFFFFFFFu, uint32_t{ACLI_SAMPLE_FLOAT32}})
        EXPECT_TRUE(refused(media_format("L R C", 0, sample_format), in.data(), out.data())) << sample_format;
    EXPECT_EQ(out.values(), std::vector<int16_t>(600, -1));
}

TEST(Process, FollowsEveryReconfigurationAndSharesNothing) {
    Stream stream;
    for (auto& [inputs, index, rate] : {std::tuple{std::string("L R C"), 0, 48000u},
                                        {five_one, automatic, 48000},
                                        {seven_one, 15, 96000},
                                        {"L R C Lc Rc", automatic, 44100},
                                        {"L R C", 0, 22050}}) {
        stream.apply(media_format(inputs, index, ACLI_SAMPLE_FLOAT32, true, rate));
        Stream fresh(stream.applied);
        const auto in = Random(6).vector(words(inputs).size() * 900, -2, 2);
        for (int i = 0; i < 2; i++)
            EXPECT_EQ(stream.run(in), fresh.run(in)) << inputs;
    }
}

} // namespace
