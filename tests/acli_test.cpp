// The module as hosts meet it: descriptor, layouts, refusals, and what calls of any size, format and arrangement give.
#include <korla/acli.h>
#include <korla/diag.h>

#include <cmath>
#include <cstddef>
#include <numeric>
#include <set>
#include <tuple>

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

// Keeps refusals off standard output.
struct Log {
    Log() {
        kpf_log_set_callback([](void* user, const char* s) { *static_cast<std::string*>(user) += s; }, &text);
    }
    ~Log() { kpf_log_set_callback(nullptr, nullptr); }
    std::string text;
};

// A stream from these inputs to an explicit or an automatic layout, once its answer says what it must.
Stream stream_to(const std::string& outputs, acli_media_format format) {
    auto expected = codes(outputs, &Speaker::host);
    std::fill_n(format.output_channel_map, ACLI_MAX_CHANNELS, 77u);
    Stream stream(format);
    EXPECT_EQ(stream.applied.output_channel_count, expected.size());
    expected.resize(ACLI_MAX_CHANNELS);
    EXPECT_TRUE(std::ranges::equal(stream.applied.output_channel_map, expected));
    return stream;
}

// What a stream does to every channel.
std::string routes_through(const std::string& inputs, int index, const std::string& outputs) {
    Stream stream = stream_to(outputs, media_format(inputs, index));
    const std::string routes = measured_routes(inputs, outputs, [&](const auto& in) { return stream.run(in); });
    // At eight times full scale the limiter works on everything that is not a copy.
    const size_t n_in = words(inputs).size(), n_out = words(outputs).size(), both = std::min(n_in, n_out);
    const auto loud = Random(5).vector(300 * n_in, -8, 8), out = stream.run(loud);
    bool copies = true;
    for (size_t t = 0; t < 300; t++)
        copies &= std::equal(&loud[t * n_in], &loud[t * n_in] + both, &out[t * n_out]);
    return std::string(copies ? "copied: " : "") + routes;
}

TEST(Layouts, AutomaticOnesAreAnsweredAsThePageSays) {
    for (const Layout& layout : layouts)
        for (uint32_t index : {16u, 32u}) {
            acli_media_format format = media_format(layout.inputs);
            format.layout_index = index; // its mask is reported all the same
            EXPECT_EQ(stream_to(layout.outputs, format).applied.output_layout_mask, index == 16 ? 0x40Fu : 0u);
        }
    // Of all that these make together, exactly those on the page are known.
    std::vector<std::vector<uint8_t>> units;
    for (const std::string& names :
         words("FL,FR,FC,LFE,SL SR,BL BR,FLC FRC,BC,WL WR,HL HR,TFL TFR,TSL TSR,TBL TBR,TBC,TFC,SL2 SR2,LFE2", ','))
        units.push_back(codes(names, &Speaker::engine));
    std::set<std::string> known;
    kpf_log_set_level(KPF_LOG_ERROR + 1);
    for (uint32_t chosen = 0; chosen < 1u << units.size(); chosen++) {
        std::vector<uint8_t> map(256, 42);
        auto end = map.begin();
        for (size_t u = 0; u < units.size(); u++)
            if (chosen >> u & 1)
                end = std::ranges::copy(units[u], end).out;
        std::sort(map.begin(), end);
        if (uint32_t outputs; korvex_downmixer_get_num_of_out_channels(map.data(), &outputs) == 0)
            known.emplace(map.begin(), end);
    }
    kpf_log_set_level(KPF_LOG_TRACE);
    EXPECT_EQ(known.size(), layouts.size());
}

TEST(Layouts, ExplicitOnesSendEveryChannelWhereThePageSays) {
    int matrices = 0;
    for (size_t index = 0; index < output_layouts.size(); index++) {
        const auto& [name, mask, outputs] = output_layouts[index];
        EXPECT_EQ(Stream(media_format("FC", static_cast<int>(index))).applied.output_layout_mask, mask) << name;
        for (const OutputLayout& from : output_layouts)
            if (from.mask < 0x20 && mask < 0x20) { // neither has heights
                const std::string inputs = from.channels == stereo ? "FL" : from.channels;
                matrices++;
                EXPECT_EQ(routes_through(inputs, static_cast<int>(index), outputs),
                          std::string(inputs == outputs ? "copied: " : "") + routes_of(inputs, outputs));
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
        {0, seven_one, stereo, "FL>gFL FR>gFR FC>hFL+hFR LFE> SL>hFL SR>hFR BL>hFL BR>hFR"},
        {15, seven_one, five_one, "FL>gFL FR>gFR FC>gFC LFE>gLFE SL>gSL SR>gSR BL>gSL BR>gSR"},
        {automatic, "FL FR FC LFE FLC FRC BC", five_one,
         "FL>gFL FR>gFR FC>gFC LFE>gLFE FLC>kFL+mFC FRC>kFR+mFC BC>hSL+hSR"},
        {automatic, "FL FR FC LFE BL BR BC", seven_one, "FL>gFL FR>gFR FC>gFC LFE>gLFE BL>gSL BR>gSR BC>hBL+hBR"},
        {automatic, "FC LFE", stereo, "FC>hFL+hFR LFE>nFL+nFR"},
        {automatic, five_one, five_one, "copied: FL>gFL FR>gFR FC>gFC LFE>gLFE SL>gSL SR>gSR"},
        {6, "FL FR FC", "FL FR FC LFE TSL TSR",
         "copied: FL>gFL FR>gFR FC>gFC"},                // no matrix to heights, as the limiter would see
        {15, stereo, five_one, "copied: FL>gFL FR>gFR"}, // none from two channels
        {0, seven_one + " TSL TSR", stereo, "copied: FL>gFL FR>gFR FC> LFE> SL> SR> BL> BR> TSL> TSR>"}, // nor from ten
        {0, "FL FR FC LFE LFE2 SL", stereo, "copied: FL>gFL FR>gFR FC> LFE> LFE2> SL>"}}; // nor with two LFEs
    for (const Case& c : cases) {
        EXPECT_EQ(routes_through(c.inputs, c.index, c.outputs), c.routes);
        std::vector<float> impulse(256 * words(c.inputs).size());
        impulse[0] = 1.0f;
        const auto out = Stream(media_format(c.inputs, c.index)).run(impulse);
        const auto silent = std::ranges::find_if(out, [](float x) { return x != 0.0f; }) - out.begin();
        EXPECT_EQ(silent / words(c.outputs).size(), c.routes.starts_with("copied") ? 0 : 32) << "latency";
    }
}

TEST(Layouts, ExplicitOnesTakeAnyMapForTheClassOnThePage) {
    int classes = 0;
    for (const auto& row : page("Channels | Centre | LFE | Taken for"))
        for (const std::string any : {"WL", "WL FC", "WL LFE", "WL FC LFE"}) {
            auto agrees = [&](const std::string& cell, const std::string& name) {
                return cell == "any" || (cell == "yes") == (std::ranges::count(words(any), name) > 0);
            };
            if (row[3] == "mono" || !agrees(row[1], "FC") || !agrees(row[2], "LFE"))
                continue;
            classes++;
            auto map = words(any + " HR BC TBL TBC FRC BL TSR");
            map.resize(std::stoul(row[0]));
            std::string inputs;
            for (const std::string& name : map)
                inputs.append(inputs.empty() ? "" : " ").append(name);
            const std::string& taken_for = named(output_layouts, &OutputLayout::name, row[3]).channels;
            const auto in = Random(4).vector(map.size() * 512);
            EXPECT_EQ(Stream(media_format(inputs, 0)).run(in), Stream(media_format(taken_for, 0)).run(in)) << inputs;
        }
    EXPECT_EQ(classes, 24);
}

TEST(Layouts, HostCodesAreChannelsWhereThePageNamesThem) {
    std::set<uint32_t> channels = {18, 19, 39, 40, 41, 42, 43, 44, 45, 46, 47, 48}; // in the page's text
    for (const Speaker& speaker : speakers)
        channels.insert(speaker.host);
    Log log;
    for (uint32_t code = 0; code <= 48; code++) {
        acli_media_format alone = media_format("FL", 15), with_5_1 = media_format(five_one + " FL");
        alone.input_channel_map[0] = with_5_1.input_channel_map[6] = code;
        Stream stream(alone);
        EXPECT_EQ(measured_routes("FL", five_one, [&](const auto& in) { return stream.run(in); }),
                  channels.contains(code) ? "FL>hFL+hFR" : "FL>gFL")
            << code;
        EXPECT_TRUE(channels.contains(code) || Stream(with_5_1).applied.output_channel_count == 6) << code;
    }
}

// One stream, applied anew again and again. A refused block leaves its channel codes behind, which must not meet the
// matrix of an accepted one: every pair of the two, before the engine stands and after. A probe leaves nothing behind.
TEST(MediaFormat, RefusalsAndProbesNeverChangeWhatAStreamMixes) {
    constexpr int built_in = 0, copies = -1;
    struct Accepted {
        std::string inputs;
        int index, columns; // of the matrix that is kept
    };
    const Accepted accepted[] = {{"FC", 0, 1},
                                 {"FL FR FC", 15, 3},
                                 {"FL FR LFE SL SR", 0, 5},
                                 {"FR FL FC LFE SL SR BL BR", 27, 8},
                                 {seven_one, 0, 8},
                                 {five_one, automatic, copies},
                                 {"FL FR FC FLC FRC", automatic, built_in},
                                 {seven_one_four, 0, copies}};
    const auto input = Random(1).vector(12 * 300);
    Log log;
    Stream stream, never_applied;
    for (const Accepted& a : accepted)
        for (int n = -2; n <= 13; n++)
            for (uint32_t mode : {ACLI_MODE_PROBE, ACLI_MODE_APPLY})
                for (bool running : {false, true}) {
                    SCOPED_TRACE(a.inputs + ", refused " + std::to_string(n) + (running ? ", running" : ""));
                    acli_media_format format = media_format(a.inputs, a.index),
                                      refused = media_format("", n == -2 ? 32 : automatic);
                    format.input_channel_count = 12; // so that no count gives other codes away
                    std::fill_n(refused.input_channel_map, std::max(n, 0), 20u); // no layout: n front heights
                    refused.input_channel_map[255] = n == -1 ? 49 : 0;
                    refused.output_channel_count = 5;
                    format.sample_rate = n % 2 ? 44100 : 96000;
                    stream.apply(format);
                    Stream undisturbed(format);
                    EXPECT_TRUE(!running || stream.run(input) == undisturbed.run(input));
                    EXPECT_EQ(stream.set(refused, mode).output_channel_count, n == 0 ? 5u : 0u);
                    const bool goes_on =
                        running || mode == ACLI_MODE_PROBE || n < 0 || a.columns == copies || (n > 0 && n == a.columns);
                    EXPECT_EQ(stream.try_run(input), goes_on ? undisturbed.run(input) : std::vector<float>());
                }
    EXPECT_NE(log.text.find("ERROR (downmixer:1056): Not supported input channel configuration\n"), std::string::npos);
    // Repeated codes may add up to a layout, here with heights that none has: accepted, but nothing is listed or mixed.
    acli_media_format absurd = media_format("FL FR SL SR SR2");
    std::fill_n(absurd.input_channel_map + 5, 8, 24u);
    absurd.input_channel_count = 12;
    EXPECT_EQ(stream.apply(absurd).output_channel_count, 8u);
    EXPECT_EQ(std::ranges::count(stream.applied.output_channel_map, 0u), 256);
    EXPECT_TRUE(stream.try_run(input).empty());
    never_applied.set(media_format(five_one), ACLI_MODE_PROBE);
    acli_buffer buffer = {};
    EXPECT_EQ(never_applied.process(buffer, buffer), -1);
}

TEST(PassThrough, CopiesFramesWithinTheBuffersWhateverTheArrangement) {
    // The stream has 12 channels in and 2 or 12 out; the buffer says otherwise, and ends before the frames that result.
    for (uint32_t channels : {1u, 2u, 12u, 255u})
        for (auto [index, interleaved] : {std::pair{0, true}, {0, false}, {automatic, true}}) {
            Stream stream(media_format(seven_one_four, index, ACLI_SAMPLE_INT16, interleaved));
            const size_t outputs = stream.applied.output_channel_count;
            GuardedBuffer<int16_t> in(601), out(outputs * (601 / channels));
            std::iota(in.data(), in.data() + 601, int16_t{1});
            const acli_buffer source = buffer_of(in.data(), 1202, channels, 16);
            acli_buffer target = buffer_of(out.data(), out.size() * 2);
            ASSERT_EQ(stream.process(source, target), 0);
            EXPECT_EQ(target.bytes, out.size() * 2);
            for (size_t i = 0; i < out.size(); i++) {
                const size_t at = i / outputs * 12 + i % outputs;
                ASSERT_EQ(out[i], at < 601 ? at + 1 : 0) << i; // as far as there is input
            }
            EXPECT_EQ(stream.process(buffer_of(nullptr, 1202, channels, 16), target), -1);
            target.data = nullptr;
            EXPECT_EQ(stream.process(source, target), -1);
            if (channels == 12) { // what the stream has: then it may work in place
                target.data = in.data();
                EXPECT_TRUE(stream.process(source, target) == 0 &&
                            std::equal(out.data(), out.data() + out.size(), in.data()));
            }
        }
}

// Frames of floats in another format, one channel behind the other where they are not interleaved.
std::vector<uint8_t> samples(const std::vector<float>& frames, size_t channels, uint32_t engine_format,
                             bool interleaved) {
    const Placement place = placement(engine_format, interleaved, channels, frames.size() / channels);
    std::vector<uint8_t> bytes(frames.size() * slot_bytes(engine_format));
    for (size_t i = 0; i < frames.size(); i++)
        from_float(engine_format, frames[i], &bytes[place.offset(i % channels, i / channels)]);
    return bytes;
}

TEST(Process, AnyFormatAndArrangementInOneCallIsFloatsChunkByChunkAlsoInPlace) {
    constexpr uint32_t formats[][2] = {{ACLI_SAMPLE_INT16, KORVEX_FORMAT_INT16},
                                       {ACLI_SAMPLE_INT32, KORVEX_FORMAT_INT32},
                                       {ACLI_SAMPLE_FLOAT32, KORVEX_FORMAT_FLOAT_STAGED}};
    for (auto& [inputs, index] : {std::pair{seven_one, 0}, {std::string("FL FR FC LFE FLC FRC"), automatic}})
        for (auto [host_format, engine_format] : formats)
            for (bool interleaved : {true, false}) {
                const acli_media_format format = media_format(inputs, index, host_format, interleaved);
                Stream by_chunk(media_format(inputs, index)), stream(format), in_place(format);
                const size_t in_channels = words(inputs).size(), out_channels = by_chunk.applied.output_channel_count;
                Random random(1);
                for (uint32_t frames : {1000u, 256u, 1u, 511u, 257u}) { // 1000 frames go as 256, 256, 256 and 232
                    std::vector<uint8_t> in, expected;
                    for (uint32_t t = 0; t < frames; t += 256) {
                        std::vector<float> chunk = random.vector(std::min(256u, frames - t) * in_channels);
                        for (float& x : chunk)
                            x = std::floor(x * 0x1p15f) * 0x1p-15f; // the same in all formats
                        std::ranges::copy(samples(chunk, in_channels, engine_format, interleaved),
                                          std::back_inserter(in));
                        std::ranges::copy(samples(by_chunk.run(chunk), out_channels, engine_format, interleaved),
                                          std::back_inserter(expected));
                    }
                    std::vector<uint8_t> out(expected.size());
                    const acli_buffer source =
                        buffer_of(in.data(), in.size(), in_channels, 8 * slot_bytes(engine_format));
                    acli_buffer target = buffer_of(out.data(), out.size()), same = buffer_of(in.data(), out.size());
                    EXPECT_TRUE(stream.process(source, target) == 0 && in_place.process(source, same) == 0);
                    in.resize(out.size());
                    EXPECT_EQ(out, expected) << inputs << ", " << frames << " frames, host format " << host_format;
                    EXPECT_EQ(in, expected) << "in place";
                }
            }
}

TEST(Process, RefusesWhatDoesNotFitAndHostileSizes) {
    // Bytes, channels, bits per sample, capacity, and what comes out, -1 for a refusal.
    constexpr int64_t calls[][5] = {{600, 3, 16, 399, -1},
                                    {600, 3, 16, 400, 400},
                                    {605, 3, 16, 4000, 400},
                                    {0, 3, 16, 400, 0},
                                    {600, 0, 16, 400, 0},
                                    {600, 3, 0, 400, 0},
                                    {0x7FFFFFFF, 1, 8, 400, -1},
                                    {0x80000000, 1, 16, 400, -1},
                                    {0xFFFFFFFF, 3, 16, 400, 0},
                                    {600, 3, 0xFFFFFFF8, 400, 0},
                                    {600, 0x80000000, 16, 400, 0},
                                    {600, 0x55555556, 24, 400, -1},
                                    {0x40000000, 1, 32, 400, -1},
                                    {0x7FFFFFFE, 2, 0x80000008, 400, -1},
                                    {0x7FFFFFFF, 1, 0x40000008, 8, -1}};
    GuardedBuffer<int16_t> in(std::vector<int16_t>(303, 8000));
    for (const std::string& inputs : {std::string("FL FR FC"), seven_one_four}) // mixed and copied
        for (auto [bytes, channels, bits, capacity, produced] : calls) {
            Stream stream(media_format(inputs, 0, ACLI_SAMPLE_INT16));
            GuardedBuffer<int16_t> out(std::vector<int16_t>(200, -1));
            acli_buffer source = buffer_of(in.data(), bytes, channels, bits), target = buffer_of(out.data(), capacity);
            EXPECT_EQ(stream.process(source, target), produced < 0 ? -1 : 0) << bytes << ' ' << channels << ' ' << bits;
            EXPECT_EQ(target.bytes, produced < 0 ? capacity : produced);
            EXPECT_EQ(out.values() != std::vector<int16_t>(200, -1), produced > 0) << "written";
        }
    // 2^28 frames of eight 16-bit channels are 2^32 bytes, which must not count as none.
    acli_buffer target = buffer_of(in.data(), 400);
    Stream copying(media_format("FL FR FC", 16, ACLI_SAMPLE_INT16));
    EXPECT_EQ(copying.process(buffer_of(in.data(), 0x20000000, 1, 16), target), -1);
}

TEST(Process, RefusesConfigurationsThatContradictTheCall) {
    GuardedBuffer<int16_t> in(std::vector<int16_t>(300, 8000)), out(600);
    acli_media_format format = media_format("FL FR FC", 0, ACLI_SAMPLE_INT16);
    auto refused = [&](uint32_t channels, uint32_t bits = 16, uint32_t capacity = 1200, bool from = true,
                       bool to = true) {
        acli_buffer target = buffer_of(to ? out.data() : nullptr, capacity);
        const int32_t result =
            Stream(format).process(buffer_of(from ? in.data() : nullptr, 600, channels, bits), target);
        return result == -1 && target.bytes == capacity;
    };
    EXPECT_TRUE(refused(3, 16, 1200, false, true) && refused(3, 16, 1200, true, false)) << "no data";
    EXPECT_TRUE(refused(1)) << "three times the frames";
    EXPECT_TRUE(refused(6, 8, 399)) << "100 frames of four bytes, whatever the bits per sample";
    for (uint32_t channels : {0u, 2u, 257u, 299u, 0x40000001u, 0xFFFFFFFFu}) { // the map has three
        format.input_channel_count = channels;
        EXPECT_TRUE(refused(300)) << channels << ", for one frame of 300";
    }
    for (uint32_t sample_format : {1u, 2u, 4u, 5u, 17u, 19u, 0xFFFFFFFFu, uint32_t{ACLI_SAMPLE_FLOAT32}}) {
        format = media_format("FL FR FC", 0, sample_format);
        EXPECT_TRUE(refused(3)) << sample_format;
    }
    EXPECT_EQ(out.values(), std::vector<int16_t>(600));
    format = media_format("FL FR FC", 0, ACLI_SAMPLE_INT16);
    EXPECT_FALSE(refused(6, 8, 400));
    format.input_channel_count = 256;
    EXPECT_FALSE(refused(300));
}

} // namespace
