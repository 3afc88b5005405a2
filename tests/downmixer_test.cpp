#include <korla/diag.h>
#include <korla/downmixer.h>
#include <korla/limiter.h>

#include <cfenv>
#include <limits>
#include <map>

#include "guarded_buffer.h"
#include "reference/downmix_reference.h"
#include "signals.h"

using namespace korla_test;

namespace {

constexpr uint8_t empty_slot = 42;
constexpr float nan = std::numeric_limits<float>::quiet_NaN(), inf = std::numeric_limits<float>::infinity();

using Codes = std::vector<uint8_t>;
Codes map_of(Codes codes) {
    codes.resize(256, empty_slot);
    return codes;
}
Codes engine_codes(const std::string& names) { return codes(names, &Speaker::engine); }
// The speaker mask: second 9, 10 and 3 have bits of their own; any other code adds its bit, so that one that is there
// already carries into the next.
uint64_t mask_of(const Codes& codes) {
    uint64_t mask = 0;
    std::map<uint8_t, int> seen;
    for (uint8_t code : codes)
        if (code == 3 || code == 9 || code == 10)
            mask |= uint64_t{1} << (seen[code]++ == 0 ? code : code == 9 ? 39 : code == 10 ? 40 : 41);
        else
            mask += uint64_t{1} << code;
    return mask;
}

uint64_t memory_for(uint32_t block, const Codes& codes, uint32_t outputs) {
    uint64_t size = 1;
    korvex_downmixer_mem(block, map_of(codes).data(), outputs, &size);
    return size;
}
int32_t outputs_of(const Codes& codes, uint32_t& outputs) {
    outputs = 77;
    return korvex_downmixer_get_num_of_out_channels(map_of(codes).data(), &outputs);
}

// An engine in memory of exactly the reported size, with canaries around it, and the model that it has to follow.
class Engine {
public:
    Engine(uint32_t block, uint32_t rate, const Layout& layout, const std::vector<float>& custom = {},
           size_t misalignment = 1)
        : inputs(words(layout.inputs).size()), outputs(words(layout.outputs).size()), custom_(custom),
          model_(block, rate, custom.empty() ? matrix_of(layout.routes, layout.outputs) : custom, inputs, outputs),
          memory_(memory_for(block, engine_codes(layout.inputs), static_cast<uint32_t>(outputs)), misalignment) {
        handle_ = korvex_downmixer_init(block, rate, map_of(engine_codes(layout.inputs)).data(),
                                        static_cast<uint32_t>(outputs), custom.empty() ? nullptr : custom_.data(),
                                        memory_.data());
        EXPECT_EQ(korvex_downmixer_get_latency(handle_), 32u);
    }
    // Bytes in and out, which may be the same memory, through engine and model; `out` gets what the engine gave.
    void process(const uint8_t* in, Placement from, uint8_t* out, size_t out_slots, Placement to, uint32_t frames) {
        std::vector<uint8_t> expected(out, out + out_slots * slot_bytes(to.format));
        model_.process(in, from, expected.data(), to, frames);
        void *in_channels[256], *out_channels[256];
        for (size_t c = 0; c < inputs; c++)
            in_channels[c] = const_cast<uint8_t*>(in) + from.offset(c, 0);
        for (size_t c = 0; c < outputs; c++)
            out_channels[c] = out + to.offset(c, 0);
        korvex_downmixer_buffer source = {99, from.stride, from.format, in_channels};
        korvex_downmixer_buffer target = {static_cast<uint32_t>(outputs), to.stride, to.format, out_channels};
        ASSERT_EQ(korvex_downmixer_process(handle_, &source, &target, frames), 0);
        EXPECT_EQ(source.channel_count, inputs);
        for (size_t i = 0; i < expected.size(); i += slot_bytes(to.format))
            if (to.format == KORVEX_FORMAT_DOUBLE)
                ASSERT_TRUE(same_bits(load_as<double>(out + i), load_as<double>(&expected[i]))) << i;
            else if (is_integer(to.format))
                ASSERT_EQ(std::memcmp(out + i, &expected[i], slot_bytes(to.format)), 0) << i;
            else
                ASSERT_TRUE(same_bits(load_as<float>(out + i), load_as<float>(&expected[i]))) << i;
    }
    // Interleaved samples of any type.
    template <class Out = float, class In>
    std::vector<Out> run(const std::vector<In>& in, uint32_t in_format = KORVEX_FORMAT_FLOAT_STAGED,
                         uint32_t out_format = KORVEX_FORMAT_FLOAT_STAGED) {
        const size_t frames = in.size() / inputs;
        std::vector<Out> out(frames * outputs);
        process(reinterpret_cast<const uint8_t*>(in.data()), placement(in_format, true, inputs, frames),
                reinterpret_cast<uint8_t*>(out.data()), out.size(), placement(out_format, true, outputs, frames),
                static_cast<uint32_t>(frames));
        return out;
    }
    const size_t inputs, outputs;

private:
    std::vector<float> custom_;
    EngineModel model_;
    GuardedBuffer<uint8_t> memory_;
    korvex_downmixer_state* handle_;
};

TEST(BuiltInLayouts, EveryChannelGoesWhereTheTableSaysInTheBitsOfTheModel) {
    ASSERT_EQ(layouts.size(), 73u);
    for (const Layout& layout : layouts) {
        SCOPED_TRACE(layout.routes);
        // The mask does not depend on the order or on empty slots.
        Codes scattered = {empty_slot};
        for (uint8_t code : engine_codes(layout.inputs))
            scattered.insert(scattered.begin(), {code, empty_slot});
        uint32_t outputs;
        ASSERT_EQ(outputs_of(scattered, outputs), 0);
        ASSERT_EQ(outputs, words(layout.outputs).size());
        Engine engine(256, 44100, layout);
        EXPECT_EQ(measured_routes(layout.inputs, layout.outputs, [&](const auto& in) { return engine.run(in); }),
                  layout.routes);
        for (uint32_t frames : {256u, 17u, 256u, 1u, 33u, 0u, 256u})
            engine.run(Random(layout.mask).vector(frames * engine.inputs, -1.5f, 1.5f));
    }
}

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
    for (const Layout& layout : layouts) { // and all that one channel more or less makes of them
        const Codes codes = engine_codes(layout.inputs);
        ASSERT_EQ(mask_of(codes), layout.mask) << "the table contradicts itself";
        std::vector<Codes> neighbours(codes.size(), codes);
        for (size_t i = 0; i < codes.size(); i++)
            neighbours[i].erase(neighbours[i].begin() + static_cast<ptrdiff_t>(i));
        for (uint8_t code = 0; code < empty_slot; code++)
            if (std::ranges::count(codes, code) < (code == 3 || code == 9 || code == 10 ? 2 : 1)) {
                neighbours.push_back(codes);
                neighbours.back().push_back(code);
            }
        for (const Codes& neighbour : neighbours) {
            const auto known = std::ranges::find(layouts, mask_of(neighbour), &Layout::mask);
            const bool expected = known != layouts.end();
            uint32_t outputs;
            EXPECT_EQ(outputs_of(neighbour, outputs), expected ? 0 : -1) << std::hex << mask_of(neighbour);
            EXPECT_EQ(outputs, expected ? words(known->outputs).size() : neighbour.empty() ? 77 : 0);
            EXPECT_EQ(log(), expected ? "" : neighbour.empty() ? no_mask : no_mode);
        }
    }
}

TEST_F(DownmixerConfiguration, UnusableMapsAreRefusedAndLogged) {
    struct Case {
        Codes codes;
        uint32_t outputs; // 77: as it was
        bool has_memory;
        const char* log;
    };
    const Case cases[] = {
        {{0, 1, 43}, 77, false, no_mask},
        {{255}, 77, false, no_mask},
        {{0, 0}, 0, true, no_mode}, // twice the same: not a layout
        {{1, 1}, 2, true, ""},      // adds up to the mask of the centre alone; init counts two channels
        {{0, 1, 2, 3, 9, 10, 4, 5, 28, 29, 33, 34, 8}, 0, false, no_mode}, // 13 channels
    };
    for (const Case& c : cases) {
        uint32_t outputs;
        EXPECT_EQ(outputs_of(c.codes, outputs), *c.log ? -1 : 0);
        EXPECT_EQ(outputs, c.outputs);
        EXPECT_EQ(log(), c.log);
        EXPECT_EQ(memory_for(256, c.codes, 8) != 0, c.has_memory);
        EXPECT_EQ(log(), "") << "sizing does not log";
        std::vector<uint8_t> memory(1 << 16);
        EXPECT_EQ(korvex_downmixer_init(256, 48000, map_of(c.codes).data(), 8, nullptr, memory.data()), nullptr);
        log();
    }
}

TEST_F(DownmixerConfiguration, MemoryFollowsTheFormulaAndInitItsRefusals) {
    const Codes codes = engine_codes(seven_one), map = map_of(codes);
    std::vector<uint8_t> memory(1 << 20);
    const std::vector<float> matrix(257 * 8);
    for (uint32_t n : {1u, 2u, 12u, 256u})
        for (uint32_t block : {32u, 64u, 256u})
            EXPECT_EQ(memory_for(block, codes, n), 8u * n + 4u * (8 * block + block * n + block) + 233 + 8 * 8 +
                                                       korvex_ht_kvlim_query_memory(n, nullptr, nullptr, 32) + 8u * n +
                                                       14);
    for (uint32_t n : {0u, 257u}) {
        EXPECT_EQ(memory_for(256, codes, n), 0u);
        EXPECT_EQ(korvex_downmixer_init(256, 48000, map.data(), n, matrix.data(), memory.data()), nullptr);
    }
    EXPECT_EQ(korvex_downmixer_init(256, 48000, map.data(), 8, nullptr, nullptr), nullptr);
    EXPECT_EQ(korvex_downmixer_init(250, 48000, map.data(), 8, nullptr, memory.data()), nullptr);
    EXPECT_EQ(korvex_downmixer_init(256, 48000, map.data(), 7, nullptr, memory.data()), nullptr)
        << "the mode has more outputs than the memory was sized for";
    EXPECT_EQ(korvex_downmixer_get_latency(nullptr), 0u);
    for (size_t misalignment = 0; misalignment < 32; misalignment++) // any memory will do
        Engine(32, 48000, layouts[1], {}, misalignment).run(std::vector<float>(64, 1.0f));
}

// Slots full of what can go wrong in a format.
std::vector<uint8_t> samples(uint32_t format, size_t n, Random& random, bool infinite) {
    const float special[] = {0.0f, -0.0f, 1.0f,     -1.0f,          1.5f, -1.5f, 0x1p-149f, 1e-41f, 3e38f,
                             0.5f, -0.5f, 0x1p-16f, 0x1.fffffep-1f, nan,  inf,   -inf,      1e10f};
    std::vector<uint8_t> bytes(n * slot_bytes(format));
    for (uint8_t* slot = bytes.data(); slot != bytes.data() + bytes.size(); slot += slot_bytes(format)) {
        const uint64_t raw = uint64_t{random.bits()} << 32 | random.bits(); // of 64 bits only the low 32 count
        const float x = random.bits() % 8 ? random.uniform(-1.2f, 1.2f) : special[random.bits() % (infinite ? 17 : 13)];
        const double wide = x + random.uniform() * 0x1p-26;
        const void* value = is_integer(format) ? static_cast<const void*>(&raw) : &x;
        std::memcpy(slot, format == KORVEX_FORMAT_DOUBLE ? &wide : value, slot_bytes(format));
    }
    return bytes;
}

TEST(SampleFormats, EveryFrameCountStrideAlignmentAndRoundingGivesTheBitsOfTheModel) {
    struct Shape {
        uint64_t mask;
        bool interleaved_in, interleaved_out;
        size_t misalignment; // in bytes: samples need not be aligned
        uint32_t rate;       // at an unknown one the limiter rests, so infinities do not silence what follows
        bool same_memory;
        std::vector<float> custom;
    };
    // A zero in a matrix, of either sign, is no term: an infinity does not become NaN, and a sum starts at +0.
    const Shape shapes[] = {
        {0x63F, true, true, 0, 48000, false, {}}, {0xCF, false, true, 1, 44100, false, {}},
        {0x3, true, false, 3, 22050, false, {}},  {0x63000063F, false, false, 0, 192000, false, {}},
        {0x4, false, false, 5, 24000, false, {}}, {0xC, true, true, 7, 22050, false, {}},
        {0x60F, true, true, 2, 48000, true, {}},  {0x3, true, true, 0, 22050, false, {0.25f, 0.0f, -0.0f, 1.0f}}};
    constexpr int roundings[] = {FE_TONEAREST, FE_DOWNWARD, FE_TONEAREST, FE_UPWARD, FE_TOWARDZERO};
    constexpr uint32_t block = 96, formats[] = {3, 4, 5, 6, 7, 8, 2, 9, 0xFFFFFFFF}; // the last have no conversion
    for (const Shape& shape : shapes)
        for (uint32_t in_format : std::vector(formats, formats + 6))
            for (uint32_t out_format : formats) {
                const bool direct = in_format == KORVEX_FORMAT_FLOAT; // then the output holds the whole block, aligned
                if (direct && out_format != KORVEX_FORMAT_FLOAT)
                    continue;
                SCOPED_TRACE(std::to_string(shape.mask) + ", " + std::to_string(in_format) + " to " +
                             std::to_string(out_format));
                Engine engine(block, shape.rate, *std::ranges::find(layouts, shape.mask, &Layout::mask), shape.custom);
                Random random(shape.mask);
                const size_t misalignment = direct ? 0 : shape.misalignment;
                for (uint32_t frames :
                     {96u, 1u, 2u, 3u, 5u, 7u, 8u, 9u, 15u, 16u, 31u, 32u, 33u, 63u, 95u, 96u, 0u, 96u}) {
                    const uint32_t out_frames = direct ? block : frames;
                    const size_t out_slots = out_frames * engine.outputs;
                    GuardedBuffer<uint8_t> in(samples(in_format, frames * engine.inputs, random, shape.rate == 22050),
                                              misalignment);
                    GuardedBuffer<uint8_t> out(out_slots * slot_bytes(out_format), misalignment + 2 * !direct);
                    const bool same_memory = shape.same_memory && !direct && in_format == out_format;
                    std::fesetround(roundings[frames % 5]);
                    engine.process(in.data(), placement(in_format, shape.interleaved_in, engine.inputs, frames),
                                   (same_memory ? in : out).data(), out_slots,
                                   placement(out_format, shape.interleaved_out, engine.outputs, out_frames), frames);
                    std::fesetround(FE_TONEAREST);
                }
            }
}

// A mono input at 1/2.5118864 comes out as it went in.
const std::vector<float> wire = {1.0f / (256.0f * engine_boost)};
const Layout mono = {0, "C", "L", ""};

TEST(SampleFormats, IntegersComeBack) {
    std::vector<int16_t> all(65536 + 64);
    for (size_t i = 0; i < 65536; i++)
        all[i] = static_cast<int16_t>(i);
    Engine engine(65536 + 64, 48000, mono, wire);
    const auto out = engine.run<int16_t>(all, KORVEX_FORMAT_INT16, KORVEX_FORMAT_INT16);
    EXPECT_TRUE(std::equal(out.begin() + 32, out.begin() + 32 + 65536, all.begin()));
    std::vector<int64_t> wide(64); // in steps that the float steps of the path keep apart
    std::ranges::copy(std::vector<int64_t>{0, 1 << 30, -(1 << 30), 1 << 20, INT32_MIN / 4, 77 << 16}, wide.begin());
    const auto back = Engine(64, 48000, mono, wire).run<int64_t>(wide, 6, 6);
    EXPECT_TRUE(std::equal(back.begin() + 32, back.end(), wide.begin()));
}

TEST(SampleFormats, IntegersSaturateAndNanIsZero) {
    std::vector<float> x = {1.5f, -1.5f, inf, -inf, nan, 3e38f, -1e10f, 0.0f};
    x.resize(64);
    const std::vector<int64_t> largest = {1, -1, 1, -1, 0, 1, -1, 0};
    const auto out16 = Engine(64, 22050, mono, {1.0f}).run<int16_t>(x, 7, KORVEX_FORMAT_INT16);
    const auto out32 = Engine(64, 22050, mono, {1.0f}).run<int32_t>(x, 7, KORVEX_FORMAT_INT32);
    for (size_t i = 0; i < largest.size(); i++) {
        EXPECT_EQ(out16[32 + i], largest[i] * 32768 - (largest[i] > 0)) << x[i];
        EXPECT_EQ(out32[32 + i], largest[i] * 2147483648 - (largest[i] > 0)) << x[i];
    }
}

} // namespace
