// The engine: configuration, the bits of its model, and what holds whatever the gains are.
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

// An engine in memory of exactly the reported size, with canaries around it.
class Engine {
public:
    Engine(uint32_t block, uint32_t rate, const Layout& layout, const std::vector<float>& custom = {},
           size_t misalignment = 1)
        : inputs(words(layout.inputs).size()), outputs(words(layout.outputs).size()), custom_(custom),
          memory_(memory_for(block, engine_codes(layout.inputs), static_cast<uint32_t>(outputs)), misalignment) {
        handle_ = korvex_downmixer_init(block, rate, map_of(engine_codes(layout.inputs)).data(),
                                        static_cast<uint32_t>(outputs), custom.empty() ? nullptr : custom_.data(),
                                        memory_.data());
        EXPECT_EQ(korvex_downmixer_get_latency(handle_), 32u);
    }
    void process(const uint8_t* in, Placement from, uint8_t* out, Placement to, uint32_t frames) {
        void *in_channels[256], *out_channels[256];
        for (size_t c = 0; c < inputs; c++)
            in_channels[c] = const_cast<uint8_t*>(in) + from.offset(c, 0);
        for (size_t c = 0; c < outputs; c++)
            out_channels[c] = out + to.offset(c, 0);
        korvex_downmixer_buffer source = {99, from.stride, from.format, in_channels};
        korvex_downmixer_buffer target = {static_cast<uint32_t>(outputs), to.stride, to.format, out_channels};
        ASSERT_EQ(korvex_downmixer_process(handle_, &source, &target, frames), 0);
        EXPECT_EQ(source.channel_count, inputs);
    }
    // Interleaved float samples.
    std::vector<float> run(const std::vector<float>& in) {
        const size_t frames = in.size() / inputs;
        std::vector<float> out(frames * outputs);
        process(reinterpret_cast<const uint8_t*>(in.data()), placement(7, interleaved, inputs, frames),
                reinterpret_cast<uint8_t*>(out.data()), placement(7, interleaved, outputs, frames),
                static_cast<uint32_t>(frames));
        return out;
    }
    const size_t inputs, outputs;

private:
    std::vector<float> custom_;
    GuardedBuffer<uint8_t> memory_;
    korvex_downmixer_state* handle_;
};

TEST(BuiltInLayouts, EveryChannelGoesWhereTheTableSays) {
    ASSERT_GE(layouts.size(), 73u);
    for (const Layout& layout : layouts) {
        SCOPED_TRACE(layout.routes);
        // The mask does not depend on the order or on empty slots.
        Codes scattered = {empty_slot};
        for (uint8_t code : engine_codes(layout.inputs))
            scattered.insert(scattered.begin(), {code, empty_slot});
        uint32_t outputs;
        ASSERT_EQ(korvex_downmixer_get_num_of_out_channels(map_of(scattered).data(), &outputs), 0);
        ASSERT_EQ(outputs, words(layout.outputs).size());
        Engine engine(256, 44100, layout);
        EXPECT_EQ(measured_routes(layout.inputs, layout.outputs, [&](const auto& in) { return engine.run(in); }),
                  layout.routes);
        // Loud noise stays within full scale and three units in its last place; silence is silent after the latency.
        for (float level : {1.0f, 30.0f, 0.0f, 0.0f})
            for (float x : engine.run(Random(layout.mask).vector(256 * engine.inputs, -level, level)))
                ASSERT_LE(std::fabs(x), 1.0f + 3 * 0x1p-23f);
        for (float x : engine.run(std::vector<float>(256 * engine.inputs)))
            ASSERT_EQ(x, 0.0f);
    }
}

TEST(DownmixerConfiguration, ExactlyTheListedLayoutsAreKnownAndOthersRefusedAndLogged) {
    std::string log;
    kpf_log_set_callback([](void* user, const char* line) { static_cast<std::string*>(user)->append(line); }, &log);
    std::vector<Codes> maps = {{},
                               {0, 1, 43},
                               {255}, // no channels, invalid ones
                               {0, 0},
                               {1, 1},                                        // adds up to the mask of the centre alone
                               {0, 1, 2, 3, 9, 10, 4, 5, 28, 29, 33, 34, 8}}; // 13 channels
    for (const Layout& layout : layouts) { // and all that one channel more or less makes of them
        const Codes codes = engine_codes(layout.inputs);
        ASSERT_EQ(mask_of(codes), layout.mask) << "the table contradicts itself";
        for (uint8_t code : codes)
            std::erase(maps.emplace_back(codes), code);
        for (uint8_t code = 0; code < empty_slot; code++)
            maps.emplace_back(codes).push_back(code);
    }
    std::vector<uint8_t> memory(1 << 16);
    for (const Codes& codes : maps) {
        const uint64_t mask =
            std::ranges::count_if(codes, [](uint8_t c) { return c > empty_slot; }) ? 0 : mask_of(codes);
        const auto layout = std::ranges::find(layouts, mask, &Layout::mask);
        const bool known = layout != layouts.end(), fits = mask != 0 && codes.size() <= 12;
        uint32_t outputs = 77;
        EXPECT_EQ(korvex_downmixer_get_num_of_out_channels(map_of(codes).data(), &outputs), known ? 0 : -1);
        EXPECT_EQ(outputs, known ? words(layout->outputs).size() : mask ? 0 : 77) << std::hex << mask;
        EXPECT_EQ(std::exchange(log, ""), known ? ""
                                          : mask
                                              ? "ERROR (downmixer:1056): Not supported input channel configuration\n"
                                                "ERROR (downmixer:582): Calling calculate_proper_downmix_mode failed\n"
                                              : "ERROR (downmixer:575): Calling get_speakers_mask failed\n");
        EXPECT_EQ(memory_for(32, codes, 12) != 0, fits) << std::hex << mask;
        EXPECT_EQ(log, "") << "sizing does not log";
        // A carry may give a mask with fewer bits than there are channels.
        const bool usable = known && fits && std::popcount(mask) == static_cast<int>(codes.size());
        EXPECT_EQ(korvex_downmixer_init(32, 48000, map_of(codes).data(), 12, nullptr, memory.data()) != nullptr,
                  usable);
        log.clear();
        EXPECT_EQ(korvex_downmixer_init(33, 48000, map_of(codes).data(), 12, nullptr, memory.data()), nullptr);
        EXPECT_EQ(std::exchange(log, ""),
                  fits && !known ? "ERROR (downmixer:1056): Not supported input channel configuration\n" : "")
            << "the layout is looked up, and missed, before the block is judged";
    }
    kpf_log_set_callback(nullptr, nullptr);
}

TEST(DownmixerConfiguration, MemoryFollowsTheFormulaAndInitItsRefusals) {
    const Codes codes = engine_codes(seven_one), map = map_of(codes);
    std::vector<uint8_t> memory(1 << 20);
    const std::vector<float> matrix(257 * 8);
    for (uint32_t n : {1u, 2u, 12u, 256u})
        for (uint32_t block : {32u, 64u, 256u})
            EXPECT_EQ(memory_for(block, codes, n), 16u * n + 4u * (8 * block + block * n + block) + 247 + 8 * 8 +
                                                       korvex_ht_kvlim_query_memory(n, nullptr, nullptr, 32));
    auto refuses = [&](uint32_t block, uint32_t n, const float* custom, void* mem) {
        return korvex_downmixer_init(block, 48000, map.data(), n, custom, mem) == nullptr;
    };
    for (uint32_t n : {0u, 257u})
        EXPECT_TRUE(memory_for(256, codes, n) == 0 && refuses(256, n, matrix.data(), memory.data()));
    EXPECT_TRUE(refuses(256, 8, nullptr, nullptr) && refuses(250, 8, nullptr, memory.data()));
    EXPECT_TRUE(refuses(256, 7, nullptr, memory.data())) << "the mode has more outputs than the memory was sized for";
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

bool same_slot(uint32_t format, const uint8_t* a, const uint8_t* b) { // every NaN equals every NaN
    return format == KORVEX_FORMAT_DOUBLE ? same_bits(load_as<double>(a), load_as<double>(b))
           : is_integer(format)           ? std::equal(a, a + slot_bytes(format), b)
                                          : same_bits(load_as<float>(a), load_as<float>(b));
}

TEST(Process, GivesTheBitsOfTheModelWhateverFormatArrangementMemoryAndRounding) {
    constexpr int roundings[] = {FE_TONEAREST, FE_DOWNWARD, FE_TONEAREST, FE_UPWARD, FE_TOWARDZERO};
    Random random(1);
    auto any = [&random](std::vector<uint32_t> choices) { return choices[random.bits() % choices.size()]; };
    for (int i = 0; i < 2000; i++) {
        Layout layout = *std::ranges::find(layouts, any({0x3, 0x4, 0x7, 0xC, 0xCF, 0x60F, 0x63F}), &Layout::mask);
        std::vector<float> matrix = matrix_of(layout.routes, layout.outputs), custom;
        if (i % 4 == 0) { // a zero of either sign is no term: infinity does not become NaN, and a sum starts at +0
            layout.inputs = layout.outputs = "FL FR FC";
            matrix = custom = {0.25f, 0, -0.0f, 0, 1, 0.5f, -0.0f, 0.3f, 0};
        }
        const size_t n = words(layout.inputs).size();
        if (i % 8 == 1 && n > 1) { // every input goes to one output, in reverse order: mixed while it is read
            layout.outputs =
                layout.inputs; // more than one, because the model detects as a limiter of strided samples does
            custom.assign(n * n, -0.0f);
            for (size_t o = 0; o < n; o++)
                custom[o * n + n - 1 - o] = (o % 2 ? -0.25f : 0.3f) / static_cast<float>(o + 1);
            if (i % 16 == 1) // but one input to two outputs, and one nowhere
                custom[n * n - 1] = 0.2f, custom[n * n - n] = 0.0f;
            matrix = custom;
        }
        const uint32_t block = any({32, 96, 288}), rate = any({24000, 48000, 192000, 22050});
        const bool rests = rate == 22050; // so that infinities do not silence what follows
        const uint32_t in_format = any({3, 4, 5, 6, 7, 8});
        const bool direct = in_format == KORVEX_FORMAT_FLOAT; // then the output is float and holds a whole block
        const uint32_t out_format = direct ? 3 : any({3, 4, 5, 6, 7, 8, 2, 9, 0xFFFFFFFF}); // the last: no conversion
        const uint32_t in_arrangement = any({planar, interleaved, gapped, apart});
        const uint32_t out_arrangement = any({planar, interleaved, gapped, apart});
        SCOPED_TRACE(layout.routes + ", block " + std::to_string(block) + ", formats " + std::to_string(in_format) +
                     ", " + std::to_string(out_format) + ", arrangements " + std::to_string(in_arrangement) + ", " +
                     std::to_string(out_arrangement));
        Engine engine(block, rate, layout, custom);
        EngineModel model(block, rate, matrix, engine.inputs, engine.outputs);
        for (uint32_t frames : {block, any({1, 2, 3, 5, 7, 8, 9, 15}), any({0, 16, 31, 32, 33}), block + 34, block}) {
            const Placement from = placement(in_format, in_arrangement, engine.inputs, frames);
            const Placement to =
                placement(out_format, out_arrangement, engine.outputs, std::max(direct * block, frames));
            // In memory of their own or in the same, at any alignment.
            const bool shares = any({0, 0, 1});
            const size_t in_at = any({0, 4, direct ? 8u : 7u, 64}), out_at = any({0, direct ? 4u : 3u, 4096});
            const size_t slots = std::max(from.slots, to.slots) * 4 * shares;
            GuardedBuffer<uint8_t> in(samples(in_format, std::max(from.slots, slots) + in_at + out_at, random, rests));
            GuardedBuffer<uint8_t> other(samples(out_format, to.slots + out_at, random, false));
            GuardedBuffer<uint8_t>& out = shares ? in : other;
            auto expected = out.values();
            std::fesetround(roundings[i % 5]);
            model.process(in.data() + in_at, from, expected.data() + out_at, to, frames);
            engine.process(in.data() + in_at, from, out.data() + out_at, to, frames);
            std::fesetround(FE_TONEAREST);
            for (size_t at = out_at; at + slot_bytes(out_format) <= expected.size(); at += slot_bytes(out_format))
                ASSERT_TRUE(same_slot(out_format, out.data() + at, expected.data() + at)) << frames << ", byte " << at;
        }
    }
}

TEST(SampleFormats, All16BitValuesComeBack) {
    Engine wire(65536 + 32, 48000, {0, "FC", "FL", ""}, {1.0f / (256.0f * engine_boost)});
    std::vector<int16_t> all(65536 + 32), out(all.size());
    for (size_t i = 0; i < all.size(); i++)
        all[i] = static_cast<int16_t>(i);
    const Placement place = placement(KORVEX_FORMAT_INT16, interleaved, 1, all.size());
    wire.process(reinterpret_cast<uint8_t*>(all.data()), place, reinterpret_cast<uint8_t*>(out.data()), place,
                 static_cast<uint32_t>(all.size()));
    EXPECT_TRUE(std::equal(out.begin() + 32, out.end(), all.begin()));
}

} // namespace
