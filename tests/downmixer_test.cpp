#include <korla/diag.h>
#include <korla/downmixer.h>
#include <korla/limiter.h>

#include <algorithm>
#include <cfenv>
#include <map>
#include <set>

#include "guarded_buffer.h"
#include "reference/downmix_reference.h"
#include "reference/layouts.h"
#include "signals.h"

using namespace korla_test;

namespace {

constexpr uint8_t empty_slot = 42;

std::vector<uint8_t> map_of(const std::vector<uint8_t>& codes) {
    std::vector<uint8_t> map(256, empty_slot);
    std::copy(codes.begin(), codes.end(), map.begin());
    return map;
}
std::vector<uint8_t> codes_of(const std::vector<std::string>& names) {
    std::vector<uint8_t> codes;
    for (const std::string& name : names)
        codes.push_back(speaker(name).engine);
    return codes;
}
// The speaker mask: second 9, 10 and 3 have bits of their own; any other code adds its bit, so that one that is there
// already carries into the next.
uint64_t mask_of(const std::vector<uint8_t>& codes) {
    uint64_t mask = 0;
    std::map<uint8_t, int> seen;
    for (uint8_t code : codes)
        if (code == 3 || code == 9 || code == 10)
            mask |= uint64_t{1} << (seen[code]++ == 0 ? code : code == 9 ? 39 : code == 10 ? 40 : 41);
        else
            mask += uint64_t{1} << code;
    return mask;
}
const Layout& layout_of(uint64_t mask) {
    return *std::find_if(std::begin(layouts), std::end(layouts), [=](const Layout& l) { return l.mask == mask; });
}

uint64_t memory_for(uint32_t block, const std::vector<uint8_t>& map, uint32_t outputs) {
    uint64_t size = 1;
    korvex_downmixer_mem(block, map.data(), outputs, &size);
    return size;
}

// An engine in memory of exactly the reported size, with canaries around it.
class Engine {
public:
    Engine(uint32_t block, uint32_t rate, const std::vector<uint8_t>& codes, uint32_t outputs,
           const float* matrix = nullptr, size_t misalignment = 1)
        : map_(map_of(codes)), memory_(memory_for(block, map_, outputs), misalignment) {
        handle_ = korvex_downmixer_init(block, rate, map_.data(), outputs, matrix, memory_.data());
    }
    operator korvex_downmixer_state*() const { return handle_; }

    void process(const void* in, Placement from, uint32_t inputs, void* out, Placement to, uint32_t outputs,
                 uint32_t frames) {
        void *in_channels[256], *out_channels[256];
        for (uint32_t c = 0; c < inputs; c++)
            in_channels[c] = static_cast<uint8_t*>(const_cast<void*>(in)) + from.offset(c, 0);
        for (uint32_t c = 0; c < outputs; c++)
            out_channels[c] = static_cast<uint8_t*>(out) + to.offset(c, 0);
        korvex_downmixer_buffer in_buffer = {99, from.stride, from.format, in_channels};
        korvex_downmixer_buffer out_buffer = {outputs, to.stride, to.format, out_channels};
        ASSERT_EQ(korvex_downmixer_process(handle_, &in_buffer, &out_buffer, frames), 0);
        EXPECT_EQ(in_buffer.channel_count, inputs);
        EXPECT_EQ(out_buffer.channel_count, outputs);
    }

private:
    std::vector<uint8_t> map_;
    GuardedBuffer<uint8_t> memory_;
    korvex_downmixer_state* handle_;
};

Placement interleaved(uint32_t format, uint32_t channels) { return {format, channels, 1}; }
Placement planar(uint32_t format, uint32_t frames) { return {format, 1, frames}; }

// What a constant input of 0.25 through gain `gain`, below the limiter's threshold, comes out as.
float level_after(float gain) {
    LimiterModel limiter(1, 32);
    limiter.set_boost(std::bit_cast<float>(0x3C20C2BFu), std::bit_cast<float>(0x3C20C2BFu));
    limiter.num_channels = 1;
    std::vector<float> x(32);
    float* channel = x.data();
    for (int i = 0; i < 2; i++) {
        std::fill(x.begin(), x.end(), 0.25f * gain);
        limiter.process(&channel, &channel, &channel, 1, 1, 1);
    }
    return x[0];
}

// The matrix of an engine, measured with one channel hot at a time, in the notation of the tables.
std::string measured_routes(Engine& engine, const std::vector<std::string>& inputs,
                            const std::vector<std::string>& outputs) {
    constexpr uint32_t block = 64, latency = 32;
    const auto n_in = static_cast<uint32_t>(inputs.size()), n_out = static_cast<uint32_t>(outputs.size());
    std::string routes;
    for (uint32_t c = 0; c < n_in; c++) {
        std::vector<float> in(block * n_in), out(block * n_out);
        for (uint32_t t = 0; t < block / 2; t++)
            in[t * n_in + c] = 0.25f;
        engine.process(in.data(), interleaved(KORVEX_FORMAT_FLOAT_STAGED, n_in), n_in, out.data(),
                       interleaved(KORVEX_FORMAT_FLOAT_STAGED, n_out), n_out, block);
        routes += (c ? " " : "") + inputs[c] + '>';
        const char* separator = "";
        for (uint32_t o = 0; o < n_out; o++)
            if (const float level = out[latency * n_out + o]; level != 0.0f) {
                char letter = '?';
                for (const Gain& gain : gains)
                    letter = level == level_after(gain.value) ? gain.letter : letter;
                routes.append(separator).append(1, letter).append(outputs[o]);
                separator = "+";
            }
    }
    return routes;
}

class BuiltInLayout : public ::testing::TestWithParam<Layout> {};

TEST_P(BuiltInLayout, EveryChannelGoesWhereTheTableSays) {
    const Layout& layout = GetParam();
    const auto inputs = layout.inputs(), outputs = words(layout.outputs);
    const auto codes = codes_of(inputs);
    ASSERT_EQ(mask_of(codes), layout.mask) << "the table contradicts itself";
    uint32_t num_out = 0;
    ASSERT_EQ(korvex_downmixer_get_num_of_out_channels(map_of(codes).data(), &num_out), 0);
    ASSERT_EQ(num_out, outputs.size());
    Engine engine(64, 48000, codes, num_out);
    ASSERT_NE(engine, nullptr);
    EXPECT_EQ(measured_routes(engine, inputs, outputs), layout.routes);

    // The mask does not depend on the order or on empty slots.
    std::vector<uint8_t> scattered = {empty_slot};
    for (uint8_t code : codes)
        scattered.insert(scattered.begin(), {code, empty_slot});
    ASSERT_EQ(korvex_downmixer_get_num_of_out_channels(map_of(scattered).data(), &num_out), 0);
    EXPECT_EQ(num_out, outputs.size());
}

TEST_P(BuiltInLayout, GivesTheBitsOfTheModelInAStreamWithShortChunks) {
    const Layout& layout = GetParam();
    const auto outputs = words(layout.outputs);
    const auto codes = codes_of(layout.inputs());
    const auto n_in = static_cast<uint32_t>(codes.size()), n_out = static_cast<uint32_t>(outputs.size());
    constexpr uint32_t block = 64;
    Engine engine(block, 44100, codes, n_out);
    EngineModel model(block, 44100, matrix_of(words(layout.routes), outputs), n_in, n_out);
    Random random(layout.mask);
    for (uint32_t frames : {64u, 64u, 17u, 64u, 1u, 33u, 0u, 64u}) {
        const auto in = random.vector(block * n_in, -1.5f, 1.5f);
        GuardedBuffer<float> out(frames * n_out);
        std::vector<float> expected(frames * n_out);
        const Placement from = interleaved(KORVEX_FORMAT_FLOAT_STAGED, n_in);
        const Placement to = interleaved(KORVEX_FORMAT_FLOAT_STAGED, n_out);
        engine.process(in.data(), from, n_in, out.data(), to, n_out, frames);
        model.process(reinterpret_cast<const uint8_t*>(in.data()), from, reinterpret_cast<uint8_t*>(expected.data()),
                      to, frames);
        ASSERT_TRUE(bit_equal(out.data(), expected, expected.size())) << frames << " frames";
    }
}

INSTANTIATE_TEST_SUITE_P(All, BuiltInLayout, ::testing::ValuesIn(layouts), [](const auto& info) {
    std::ostringstream name;
    name << "0x" << std::hex << std::uppercase << info.param.mask;
    return name.str();
});

// Collects the log instead of letting it go to standard output.
class DownmixerConfiguration : public ::testing::Test {
protected:
    void SetUp() override {
        kpf_log_set_callback([](void* user, const char* line) { static_cast<std::string*>(user)->append(line); },
                             &log_);
    }
    void TearDown() override { kpf_log_set_callback(nullptr, nullptr); }
    std::string log() { return std::exchange(log_, {}); }
    std::string log_;
};

const char* const no_mask = "ERROR (downmixer:575): Calling get_speakers_mask failed\n";
const char* const no_mode = "ERROR (downmixer:1056): Not supported input channel configuration\n"
                            "ERROR (downmixer:582): Calling calculate_proper_downmix_mode failed\n";

TEST_F(DownmixerConfiguration, ExactlyTheListedLayoutsAreKnown) {
    std::set<uint64_t> known;
    for (const Layout& layout : layouts)
        known.insert(layout.mask);
    ASSERT_EQ(known.size(), 73u);
    for (const Layout& layout : layouts) { // and all that one channel more or less makes of them
        const auto codes = codes_of(layout.inputs());
        std::vector<std::vector<uint8_t>> neighbours;
        for (size_t i = 0; i < codes.size(); i++) {
            neighbours.push_back(codes);
            neighbours.back().erase(neighbours.back().begin() + static_cast<ptrdiff_t>(i));
        }
        for (uint8_t code = 0; code < empty_slot; code++)
            if (const auto n = std::count(codes.begin(), codes.end(), code);
                n == 0 || (n == 1 && (code == 3 || code == 9 || code == 10))) {
                neighbours.push_back(codes);
                neighbours.back().push_back(code);
            }
        for (const auto& neighbour : neighbours) {
            const uint64_t mask = mask_of(neighbour);
            const bool expected = known.count(mask) != 0;
            const auto map = map_of(neighbour);
            uint32_t num_out = 77;
            EXPECT_EQ(korvex_downmixer_get_num_of_out_channels(map.data(), &num_out), expected ? 0 : -1)
                << std::hex << mask;
            const size_t outputs = expected ? words(layout_of(mask).outputs).size() : neighbour.empty() ? 77 : 0;
            EXPECT_EQ(num_out, outputs) << std::hex << mask;
            EXPECT_EQ(log(), expected ? "" : neighbour.empty() ? no_mask : no_mode);
        }
    }
}

TEST_F(DownmixerConfiguration, UnusableMapsAreRefusedAndLogged) {
    struct Case {
        std::vector<uint8_t> codes;
        uint32_t num_out; // 77: as it was
        bool has_memory;
        const char* log;
    };
    const Case cases[] = {
        {{}, 77, false, no_mask},
        {{0, 1, 43}, 77, false, no_mask},
        {{255}, 77, false, no_mask},
        {{0, 0}, 0, true, no_mode}, // twice the same: not a layout
        {{1, 1}, 2, true, ""},      // adds up to the mask of the centre alone; init counts two channels
        {{0, 1, 13}, 0, true, no_mode},
        {{0, 1, 2, 3, 9, 10, 4, 5, 28, 29, 33, 34, 8}, 0, false, no_mode}, // 13 channels
    };
    for (const Case& c : cases) {
        const auto map = map_of(c.codes);
        uint32_t num_out = 77;
        EXPECT_EQ(korvex_downmixer_get_num_of_out_channels(map.data(), &num_out), *c.log ? -1 : 0);
        EXPECT_EQ(num_out, c.num_out);
        EXPECT_EQ(log(), c.log);
        EXPECT_EQ(memory_for(256, map, 8) != 0, c.has_memory);
        EXPECT_EQ(log(), "") << "sizing does not log";
        std::vector<uint8_t> memory(1 << 16);
        EXPECT_EQ(korvex_downmixer_init(256, 48000, map.data(), 8, nullptr, memory.data()), nullptr);
        log();
    }
}

TEST_F(DownmixerConfiguration, MemoryFollowsTheFormulaAndInitItsRefusals) {
    const auto map = map_of({0, 1, 2, 3, 9, 10, 4, 5});
    EXPECT_EQ(memory_for(256, map, 8), 8 * 8 + 4 * (8 * 256 + 256 * 8 + 256) + 233 + 8 * 8 +
                                           korvex_ht_kvlim_query_memory(8, nullptr, nullptr, 32) + 8 * 8 + 14);
    for (uint32_t num_out : {1u, 2u, 12u, 256u})
        for (uint32_t block : {32u, 64u, 256u})
            EXPECT_EQ(memory_for(block, map, num_out),
                      8u * num_out + 4u * (8 * block + block * num_out + block) + 233 + 8 * 8 +
                          korvex_ht_kvlim_query_memory(num_out, nullptr, nullptr, 32) + 8u * num_out + 14);
    std::vector<uint8_t> memory(1 << 20);
    std::vector<float> matrix(257 * 8);
    for (uint32_t num_out : {0u, 257u}) {
        EXPECT_EQ(memory_for(256, map, num_out), 0u);
        EXPECT_EQ(korvex_downmixer_init(256, 48000, map.data(), num_out, matrix.data(), memory.data()), nullptr);
    }
    EXPECT_EQ(korvex_downmixer_init(256, 48000, map.data(), 8, nullptr, nullptr), nullptr);
    EXPECT_EQ(korvex_downmixer_init(250, 48000, map.data(), 8, nullptr, memory.data()), nullptr);
    EXPECT_EQ(korvex_downmixer_init(256, 48000, map.data(), 7, nullptr, memory.data()), nullptr)
        << "the mode has more outputs than the memory was sized for";
    EXPECT_EQ(korvex_downmixer_get_latency(nullptr), 0u);
    for (uint32_t rate : {44100u, 22050u})
        EXPECT_EQ(korvex_downmixer_get_latency(Engine(256, rate, {0, 1}, 2)), 32u);
    for (size_t misalignment = 0; misalignment < 32; misalignment++) { // any memory will do
        Engine engine(32, 48000, {0, 1}, 2, nullptr, misalignment);
        float in[64] = {1, 1}, out[64];
        engine.process(in, interleaved(7, 2), 2, out, interleaved(7, 2), 2, 32);
    }
}

// ---- sample formats
// ---------------------------------------------------------------------------------------------------

// Slots full of what can go wrong in a format.
std::vector<uint8_t> samples(uint32_t format, size_t n, uint64_t seed) {
    Random random(seed);
    const size_t width = slot_bytes(format);
    std::vector<uint8_t> bytes(n * width);
    constexpr float special[] = {0.0f,   -0.0f, 1.0f, -1.0f, 1.5f,     -1.5f,         0x1p-149f,
                                 1e-41f, 3e38f, 0.5f, -0.5f, 0x1p-16f, 0x1.fffffep-1f};
    for (size_t i = 0; i < n; i++) {
        uint8_t* slot = bytes.data() + i * width;
        const uint64_t raw = uint64_t{random.bits()} << 32 | random.bits();
        const float x = random.bits() % 8 ? random.uniform(-1.2f, 1.2f) : special[random.bits() % std::size(special)];
        if (format == KORVEX_FORMAT_INT16 || format == KORVEX_FORMAT_INT32 || format == KORVEX_FORMAT_INT32_IN_64)
            std::memcpy(slot, &raw, width); // of a slot of 64 bits only the low 32 count
        else if (format == KORVEX_FORMAT_DOUBLE) {
            const double wide = x + random.uniform() * 0x1p-26;
            std::memcpy(slot, &wide, width);
        } else
            std::memcpy(slot, &x, width);
    }
    return bytes;
}

bool same_slots(uint32_t format, const uint8_t* a, const uint8_t* b, size_t n) {
    for (size_t i = 0; i < n; i++) {
        const size_t at = i * slot_bytes(format);
        const bool equal = format == KORVEX_FORMAT_DOUBLE ? same_bits(load_as<double>(a + at), load_as<double>(b + at))
                           : format == KORVEX_FORMAT_FLOAT || format == KORVEX_FORMAT_FLOAT_STAGED
                               ? same_bits(load_as<float>(a + at), load_as<float>(b + at))
                               : std::memcmp(a + at, b + at, slot_bytes(format)) == 0;
        if (!equal)
            return false;
    }
    return true;
}

class Formats : public ::testing::TestWithParam<std::tuple<uint32_t, uint32_t>> {};

TEST_P(Formats, EveryFrameCountStrideAndAlignmentGivesTheBitsOfTheModel) {
    const auto [in_format, out_format] = GetParam();
    struct Shape {
        const Layout& layout;
        bool planar_in, planar_out;
        size_t misalignment; // in bytes: samples need not be aligned
    };
    const Shape shapes[] = {{layout_of(0x63F), false, false, 0}, {layout_of(0xCF), true, false, 1},
                            {layout_of(0x3), false, true, 3},    {layout_of(0x63000063F), true, true, 0},
                            {layout_of(0x4), true, true, 5},     {layout_of(0xC), false, false, 7}};
    constexpr uint32_t block = 96;
    for (const Shape& shape : shapes) {
        const auto outputs = words(shape.layout.outputs);
        const auto codes = codes_of(shape.layout.inputs());
        const auto n_in = static_cast<uint32_t>(codes.size()), n_out = static_cast<uint32_t>(outputs.size());
        Engine engine(block, 48000, codes, n_out);
        EngineModel model(block, 48000, matrix_of(words(shape.layout.routes), outputs), n_in, n_out);
        const bool direct = in_format == KORVEX_FORMAT_FLOAT; // then the output holds the whole block, and is aligned
        uint64_t seed = shape.layout.mask;
        for (uint32_t frames : {96u, 1u, 2u, 3u, 5u, 7u, 8u, 9u, 15u, 16u, 31u, 32u, 33u, 63u, 95u, 96u, 0u, 96u}) {
            const uint32_t out_frames = direct ? block : frames;
            const Placement from = shape.planar_in ? planar(in_format, frames) : interleaved(in_format, n_in);
            const Placement to = shape.planar_out ? planar(out_format, out_frames) : interleaved(out_format, n_out);
            GuardedBuffer<uint8_t> in(samples(in_format, frames * n_in, ++seed), direct ? 0 : shape.misalignment);
            GuardedBuffer<uint8_t> out(out_frames * n_out * slot_bytes(out_format),
                                       direct ? 0 : shape.misalignment + 2);
            auto expected = out.values();
            engine.process(in.data(), from, n_in, out.data(), to, n_out, frames);
            model.process(in.data(), from, expected.data(), to, frames);
            ASSERT_TRUE(same_slots(out_format, out.data(), expected.data(), out_frames * n_out))
                << shape.layout.routes << ", " << frames << " frames";
        }
    }
}

std::vector<std::tuple<uint32_t, uint32_t>> format_pairs() {
    std::vector<std::tuple<uint32_t, uint32_t>> pairs = {{KORVEX_FORMAT_FLOAT, KORVEX_FORMAT_FLOAT}}; // mixed straight
    for (uint32_t in = KORVEX_FORMAT_INT16; in <= KORVEX_FORMAT_DOUBLE; in++)
        for (uint32_t out = KORVEX_FORMAT_FLOAT; out <= KORVEX_FORMAT_DOUBLE; out++)
            pairs.emplace_back(in, out);
    return pairs;
}
INSTANTIATE_TEST_SUITE_P(Pairs, Formats, ::testing::ValuesIn(format_pairs()), [](const auto& info) {
    return std::to_string(std::get<0>(info.param)) + "to" + std::to_string(std::get<1>(info.param));
});

// An engine of one channel whose gains cancel to the last bit or nearly so: mono at 1/2.5118864.
struct Wire {
    float gain;
    Engine engine;
    explicit Wire(float g) : gain(g), engine(256, 48000, {0}, 1, &gain) {}
    // The samples as they come out, latency removed.
    template <class In, class Out>
    std::vector<Out> run(const std::vector<In>& x, uint32_t in_format, uint32_t out_format) {
        std::vector<In> in = x;
        in.resize((x.size() + 32 + 255) / 256 * 256);
        std::vector<Out> out(in.size());
        for (size_t t = 0; t < in.size(); t += 256)
            engine.process(in.data() + t, interleaved(in_format, 1), 1, out.data() + t, interleaved(out_format, 1), 1,
                           256);
        return {out.begin() + 32, out.begin() + 32 + static_cast<ptrdiff_t>(x.size())};
    }
};

TEST(SampleFormats, All16BitValuesComeBack) {
    Wire wire(1.0f / (256.0f * std::bit_cast<float>(0x3C20C2BFu)));
    std::vector<int16_t> all(65536);
    for (size_t i = 0; i < all.size(); i++)
        all[i] = static_cast<int16_t>(i);
    EXPECT_EQ((wire.run<int16_t, int16_t>(all, KORVEX_FORMAT_INT16, KORVEX_FORMAT_INT16)), all);
}

TEST(SampleFormats, IntegersAndTheirExtremes) {
    Wire wire(1.0f / (256.0f * std::bit_cast<float>(0x3C20C2BFu)));
    // In steps that the float steps of the path keep apart.
    const std::vector<int32_t> ints = {0, 1 << 30, -(1 << 30), 1 << 20, INT32_MIN / 4, 77 << 16};
    EXPECT_EQ((wire.run<int32_t, int32_t>(ints, KORVEX_FORMAT_INT32, KORVEX_FORMAT_INT32)), ints);
    std::vector<int64_t> wide;
    for (int32_t x : ints)
        wide.push_back(static_cast<int64_t>(x) & 0xFFFFFFFF); // the upper half is not read
    EXPECT_EQ((wire.run<int64_t, int64_t>(wide, KORVEX_FORMAT_INT32_IN_64, KORVEX_FORMAT_INT32_IN_64)),
              std::vector<int64_t>(ints.begin(), ints.end()));
}

// Special values reach the output conversion through the limiter at rest, whose gain they do not move while its rate is
// not set: out = x * gain * 2.51...
TEST(SampleFormats, ConversionSaturatesAndMapsNanToZero) {
    constexpr float nan = std::numeric_limits<float>::quiet_NaN(), inf = std::numeric_limits<float>::infinity();
    float gain = 1.0f;
    const std::vector<float> x = {1.5f, -1.5f, inf, -inf, nan, 3e38f, -3e38f, 1e10f, -1e10f, 0.0f};
    const std::vector<int64_t> expected16 = {32767, -32768, 32767, -32768, 0, 32767, -32768, 32767, -32768, 0};
    const std::vector<int64_t> expected32 = {INT32_MAX, INT32_MIN, INT32_MAX, INT32_MIN, 0,
                                             INT32_MAX, INT32_MIN, INT32_MAX, INT32_MIN, 0};
    for (uint32_t format : {4u, 5u, 6u}) {
        Engine engine(32, 22050, {0}, 1, &gain);
        std::vector<float> in = x;
        in.resize(32);
        std::vector<uint8_t> out(32 * 8);
        for (int i = 0; i < 2; i++)
            engine.process(in.data(), interleaved(7, 1), 1, out.data(), interleaved(format, 1), 1, 32);
        for (size_t i = 0; i < x.size(); i++) {
            const uint8_t* slot = out.data() + i * slot_bytes(format);
            const int64_t value = format == 4   ? load_as<int16_t>(slot)
                                  : format == 5 ? load_as<int32_t>(slot)
                                                : load_as<int64_t>(slot);
            EXPECT_EQ(value, (format == 4 ? expected16 : expected32)[i]) << x[i] << " in format " << format;
        }
    }
}

TEST(SampleFormats, RoundsInTheCurrentMode) {
    const Layout& layout = layout_of(0x3);
    std::vector<std::vector<uint8_t>> results;
    for (int mode : {FE_TONEAREST, FE_DOWNWARD, FE_UPWARD, FE_TOWARDZERO}) {
        Engine engine(64, 48000, {0, 1}, 2);
        EngineModel model(64, 48000, matrix_of(words(layout.routes), words(layout.outputs)), 2, 2);
        const auto in = samples(KORVEX_FORMAT_INT16, 128, 3);
        std::vector<uint8_t> out(256), expected(256);
        const Placement place = interleaved(KORVEX_FORMAT_INT16, 2);
        std::fesetround(mode);
        for (int i = 0; i < 2; i++) {
            engine.process(in.data(), place, 2, out.data(), place, 2, 64);
            model.process(in.data(), place, expected.data(), place, 64);
        }
        std::fesetround(FE_TONEAREST);
        EXPECT_EQ(out, expected) << mode;
        results.push_back(out);
    }
    EXPECT_NE(results[0], results[1]);
    EXPECT_NE(results[1], results[2]);
}

TEST(Engine, SkipsZeroCoefficientsAndAddsInChannelOrder) {
    constexpr float inf = std::numeric_limits<float>::infinity();
    constexpr uint32_t block = 32;
    // Row 0 must not see channel 1 (an infinity times 0 would be NaN); -0 in the matrix is 0 as well.
    const std::vector<float> matrix = {0.25f, 0.0f, 0.5f, -0.0f, 1.0f, 0.0f, 1.0f, 1.0f, 1.0f};
    Engine engine(block, 22050, {0, 1, 2}, 3, matrix.data());
    EngineModel model(block, 22050, matrix, 3, 3);
    std::vector<float> in(block * 3), out(block * 3), expected(block * 3);
    for (uint32_t t = 0; t < block; t++) {
        in[3 * t] = t % 2 ? -0.0f : 1.0f;
        in[3 * t + 1] = t < 8 ? inf : t < 16 ? -0x1p30f : -0.0f;
        in[3 * t + 2] = t % 3 ? -0.0f : 0x1p30f;
    }
    const Placement place = interleaved(KORVEX_FORMAT_FLOAT_STAGED, 3);
    for (int i = 0; i < 2; i++) {
        engine.process(in.data(), place, 3, out.data(), place, 3, block);
        model.process(reinterpret_cast<uint8_t*>(in.data()), place, reinterpret_cast<uint8_t*>(expected.data()), place,
                      block);
    }
    EXPECT_BITS_EQ(out, expected, out.size());
    for (uint32_t t = 0; t < block; t++)
        ASSERT_TRUE(std::isfinite(out[3 * t])) << t;
    EXPECT_FALSE(std::signbit(out[3 * 17])) << "a sum starts at +0";
}

TEST(Engine, InputAndOutputMayBeTheSameMemory) {
    for (uint32_t format : {4u, 5u, 6u, 7u, 8u}) {
        const Layout& layout = layout_of(0x60F);
        const auto codes = codes_of(layout.inputs());
        Engine engine(64, 48000, codes, 6), apart(64, 48000, codes, 6);
        for (int i = 0; i < 3; i++) {
            auto both = samples(format, 64 * 6, i);
            const auto in = both;
            std::vector<uint8_t> out(in.size());
            engine.process(both.data(), interleaved(format, 6), 6, both.data(), interleaved(format, 6), 6, 64);
            apart.process(in.data(), interleaved(format, 6), 6, out.data(), interleaved(format, 6), 6, 64);
            EXPECT_TRUE(same_slots(format, both.data(), out.data(), 64 * 6)) << format;
        }
    }
}

TEST(Engine, UnknownOutputFormatsLeaveTheOutputAlone) {
    for (uint32_t format : {0u, 1u, 2u, 9u, 0xFFFFFFFFu}) {
        Engine engine(32, 48000, {0, 1}, 2);
        const std::vector<float> in(64, 0.5f);
        std::vector<float> out(128, 9.0f);
        for (int i = 0; i < 2; i++)
            engine.process(in.data(), interleaved(7, 2), 2, out.data(), interleaved(format, 2), 2, 32);
        EXPECT_EQ(out, std::vector<float>(128, 9.0f)) << format;
    }
}

} // namespace
