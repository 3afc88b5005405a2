// Whole sessions of a host against the plain model of the module: streams come and go side by side, blocks are probed and
// applied, many like the one before but for a field or two, refused ones between accepted ones, and buffers are mixed in between.
// What a stream answers is what docs/layouts.md says, and its samples are those of the model to the bit.
#include <korla/acli.h>

#include <map>
#include <optional>
#include <vector>

#include "hostile_host.h"
#include "reference/downmix_reference.h"

using namespace korla_fuzz;
using namespace korla_test;

namespace {

// The channels of a host's map: those that are not empty slots.
std::vector<uint32_t> channels_of(const acli_media_format& block) {
    std::vector<uint32_t> channels;
    for (uint32_t code : block.input_channel_map) {
        bool further = code == 18 || code == 19 || (code >= 39 && code <= 48);
        for (const Speaker& speaker : speakers)
            further |= speaker.host == code;
        if (further)
            channels.push_back(code);
    }
    return channels;
}

// What a block asks for.
struct Plan {
    bool known = true; // by the page; if not, the answer is the module's own
    bool refused = false, copies = false;
    std::vector<uint32_t> outputs; // host codes
    std::vector<float> matrix;
};

// The routes of an explicit layout for the class that the channels are taken for; none: frames are copied.
std::optional<std::string> explicit_routes(const std::vector<uint32_t>& channels, const std::string& outputs) {
    static const Rows classes = page("Channels | Centre | LFE | Taken for");
    const auto count = [&](uint32_t code) { return std::ranges::count(channels, code); };
    constexpr uint32_t centre = 3, lfe = 6;
    if (outputs.find('T') != std::string::npos || count(lfe) > 1)
        return std::nullopt;
    const auto agrees = [](const std::string& cell, bool has) { return cell == "any" || (cell == "yes") == has; };
    for (const auto& row : classes)
        if (std::stoul(row[0]) == channels.size() && agrees(row[1], count(centre) > 0) &&
            agrees(row[2], count(lfe) > 0))
            return routes_of(row[3] == "mono" ? "FL" : named(output_layouts, &OutputLayout::name, row[3]).channels,
                             outputs);
    return std::nullopt;
}

Plan plan_for(const acli_media_format& block) {
    static const auto automatic_layouts = [] {
        std::map<std::vector<uint32_t>, const Layout*> all;
        for (const Layout& layout : layouts) {
            auto map = codes(layout.inputs, &Speaker::host);
            std::ranges::sort(map);
            all[map] = &layout;
        }
        return all;
    }();
    Plan plan;
    auto channels = channels_of(block);
    plan.refused = std::ranges::any_of(block.input_channel_map, [](uint32_t code) { return code > 48; });
    if (block.explicit_layout) {
        plan.refused |= block.layout_index >= output_layouts.size();
        if (plan.refused)
            return plan;
        const std::string& outputs = output_layouts[block.layout_index].channels;
        plan.outputs = codes(outputs, &Speaker::host);
        if (const auto routes = explicit_routes(channels, outputs))
            plan.matrix = matrix_of(*routes, outputs);
        else
            plan.copies = true;
    } else if (!plan.refused) {
        std::ranges::sort(channels);
        const auto found = automatic_layouts.find(channels);
        plan.refused = found == automatic_layouts.end();
        // Repeated codes may add up to another layout.
        plan.known = !plan.refused || std::ranges::adjacent_find(channels) == channels.end();
        if (plan.refused)
            return plan;
        plan.outputs = codes(found->second->outputs, &Speaker::host);
        plan.matrix = matrix_of(found->second->routes, found->second->outputs);
    }
    auto same = plan.outputs;
    same.resize(ACLI_MAX_CHANNELS);
    plan.copies |= std::ranges::equal(block.input_channel_map, same);
    return plan;
}

uint32_t engine_format(uint32_t host_format) {
    return host_format == ACLI_SAMPLE_INT16   ? KORVEX_FORMAT_INT16
           : host_format == ACLI_SAMPLE_INT32 ? KORVEX_FORMAT_INT32
                                              : KORVEX_FORMAT_FLOAT_STAGED;
}

class Session {
public:
    bool open() const { return stream_ != nullptr; }
    void toggle(bool out_of_memory) {
        if (stream_) {
            *this = Session();
            return;
        }
        callocs_until_failure = out_of_memory ? 0 : -1;
        stream_ = std::make_unique<Stream>();
        callocs_until_failure = -1;
        require(static_cast<bool>(*stream_) != out_of_memory);
        if (out_of_memory)
            stream_.reset();
    }

    acli_media_format last_sent = {};

    void send(const acli_media_format& block, uint32_t mode) {
        last_sent = block;
        const acli_media_format answer = stream_->send(block, mode);
        if (mode > ACLI_MODE_APPLY) {
            require(std::memcmp(&answer, &block, sizeof block) == 0);
            return;
        }
        const Plan plan = plan_for(block);
        const auto channels = channels_of(block);
        const bool refused = answer.output_channel_count == 0 ||
                             (!block.explicit_layout && channels.empty()); // whose count is left alone
        if (plan.known) {
            require(refused == plan.refused);
            if (!refused) {
                auto outputs = plan.outputs;
                require(answer.output_channel_count == outputs.size());
                outputs.resize(ACLI_MAX_CHANNELS);
                require(std::ranges::equal(answer.output_channel_map, outputs));
                require(answer.output_layout_mask ==
                        (block.layout_index < output_layouts.size() ? output_layouts[block.layout_index].mask : 0));
            }
        }
        if (mode != ACLI_MODE_APPLY)
            return;
        if (refused) {
            refused_since_ = true;
            return;
        }
        format_ = answer, plan_ = plan;
        configured_ = true, refused_since_ = false, stands_ = false;
        const bool usual = block.input_channel_count == channels.size() &&
                           (block.sample_format == ACLI_SAMPLE_INT16 || block.sample_format == ACLI_SAMPLE_INT32 ||
                            block.sample_format == ACLI_SAMPLE_FLOAT32);
        modelled_ = plan.known && usual;
        engine_.reset();
        if (modelled_ && !plan.copies)
            engine_ = std::make_unique<EngineModel>(ACLI_MAX_CHUNK, block.sample_rate, plan.matrix, channels.size(),
                                                    plan.outputs.size());
    }

    // A buffer that agrees with the configuration, or with one thing wrong.
    void process(Bytes& bytes) {
        const uint8_t choice = bytes.u8(), fault = bytes.u8();
        const size_t ins = std::min(format_.input_channel_count, 64u), outs = format_.output_channel_count;
        const size_t sent = choice & 1 ? bytes.u8() : bytes.u16() % 700u, frames = ins ? sent : 0;
        const uint32_t format = engine_format(format_.sample_format);
        const size_t width = slot_bytes(format), room = frames * outs * width;
        Buffer in(frames * ins * width, choice >> 1 & 3), out(room + 8, choice >> 3 & 3);
        fill(in, format, std::ldexp(1.0f, choice >> 5) * 0x1p-3f);
        std::vector<uint8_t> expected(out.data(), out.data() + out.size());
        acli_buffer source = {}, target = {};
        source.bytes = static_cast<uint32_t>(in.size()), source.data = in.data();
        source.channels = static_cast<uint32_t>(ins), source.bits_per_sample = static_cast<uint32_t>(8 * width);
        target.bytes = static_cast<uint32_t>(out.size()), target.data = out.data();
        const bool out_of_memory = fault == 1, too_small = fault == 2 && room > 0, no_data = fault == 3;
        if (too_small)
            target.bytes = static_cast<uint32_t>(room - 1);
        if (no_data)
            (choice & 1 ? source : target).data = nullptr;
        const bool done = stream_->process(source, target, out_of_memory);
        if (!configured_) {
            require(!done);
            return;
        }
        if (!modelled_) { // whatever it did, from here on its engine has a past
            stands_ |= done;
            return;
        }
        const bool mixes = engine_ != nullptr, memory_was_needed = mixes && !stands_;
        bool refused = too_small || no_data || (out_of_memory && memory_was_needed);
        if (refused_since_ && memory_was_needed && !done) // its codes may be in the way
            refused = true;
        else
            stands_ |= mixes && !too_small && !(out_of_memory && memory_was_needed);
        require(done == !refused);
        if (done) {
            require(target.bytes == room);
            expect(in, frames, ins, outs, format, expected.data());
        }
        require(std::memcmp(out.data(), expected.data(), expected.size()) == 0);
    }

private:
    static void fill(Buffer& buffer, uint32_t format, float level) {
        for (size_t i = 0; i < buffer.size() / slot_bytes(format); i++) {
            const float noise = static_cast<float>(static_cast<int32_t>((i + 1) * 2654435761u)) * 0x1p-31f;
            from_float(format, level * noise, buffer.data() + i * slot_bytes(format));
        }
    }

    void expect(Buffer& in, size_t frames, size_t ins, size_t outs, uint32_t format, uint8_t* out) {
        const size_t width = slot_bytes(format);
        if (!engine_) {
            for (size_t t = 0; t < frames; t++)
                std::memcpy(out + t * outs * width, in.data() + t * ins * width, std::min(ins, outs) * width);
            return;
        }
        const int arrangement = format_.interleaved ? interleaved : planar;
        for (size_t t = 0; t < frames; t += ACLI_MAX_CHUNK) {
            const size_t n = std::min<size_t>(frames - t, ACLI_MAX_CHUNK);
            engine_->process(in.data() + t * ins * width, placement(format, arrangement, ins, n),
                             out + t * outs * width, placement(format, arrangement, outs, n), n);
        }
    }

    std::unique_ptr<Stream> stream_;
    acli_media_format format_ = {}; // as last accepted
    Plan plan_;
    std::unique_ptr<EngineModel> engine_; // of streams that mix
    bool configured_ = false, modelled_ = false;
    bool stands_ = false;        // the engine, in its memory
    bool refused_since_ = false; // a block was, since the last accepted one
};

// A block with a map that the page knows, in the page's order or another one, or with a channel more, which it hardly knows.
acli_media_format usual_block(Bytes& bytes) {
    acli_media_format block = {};
    const uint8_t choice = bytes.u8();
    constexpr uint32_t formats[] = {ACLI_SAMPLE_INT16, ACLI_SAMPLE_INT32, ACLI_SAMPLE_FLOAT32, ACLI_SAMPLE_FLOAT32};
    constexpr uint32_t rates[] = {48000, 44100, 96000, 12345};
    block.interleaved = choice & 1, block.explicit_layout = choice >> 1 & 1;
    block.sample_format = formats[choice >> 2 & 3], block.sample_rate = rates[choice >> 4 & 3];
    block.layout_index = bytes.u8() % 32u;
    auto map = codes(layouts[bytes.u8() % layouts.size()].inputs, &Speaker::host);
    std::rotate(map.begin(), map.begin() + (choice & 64 ? bytes.u8() % static_cast<int>(map.size()) : 0), map.end());
    if (choice & 128)
        map.push_back(bytes.u8() % 49u);
    std::ranges::copy(map, block.input_channel_map);
    block.input_channel_count = static_cast<uint32_t>(map.size());
    return block;
}

void change_one_field(acli_media_format& block, Bytes& bytes) {
    const uint8_t value = bytes.u8();
    block.output_channel_count = 0;
    switch (bytes.u8() % 8) {
    case 0: block.interleaved ^= 1; break;
    case 1: block.explicit_layout ^= 1; break;
    case 2: block.layout_index = value % 40u; break;
    case 3: block.sample_rate = value & 1 ? 48000 : 300u * value; break;
    case 4: block.sample_format = value % 20u; break;
    case 5: block.input_channel_count = value % 20u; break;
    case 6: block.input_channel_map[bytes.u8() % 14] = value % 52u; break;
    default: // a channel more
        if (block.input_channel_count < 14)
            block.input_channel_map[block.input_channel_count++] = value % 49u;
    }
}

// What needs no stream, or none in particular.
void other_entry_points(Bytes& bytes) {
    char* name = nullptr;
    const uint32_t id = bytes.u8() % 3u;
    require((ACLI.get_name(id, &name) != nullptr) == (id == 1) && (name == nullptr) == (id != 1));
    require(!name || std::strcmp(name, "KorlaDownmixer") == 0);
    require(ACLI.free_name(name) == ACLI_OK);
    acli_media_format block = {};
    acli_param_value value = {ACLI_MODE_APPLY, 0, &block};
    acli_buffer buffer = {};
    require(ACLI.set_param(nullptr, ACLI_PARAM_MEDIA_FORMAT, 0, 0, &value) == ACLI_FAILED);
    require(ACLI.process(nullptr, &buffer, &buffer) == ACLI_FAILED && ACLI.destroy(nullptr) == ACLI_FAILED);
    Stream stream;
    void* const handle = stream.handle();
    const uint32_t selector = bytes.u8() % 4u, question = bytes.u8() % 5u;
    uint32_t a = 9, b = 9;
    const int32_t answer = ACLI.query(handle, question, 0, 0, &selector, 0, &a, &b);
    require(answer == (question == 3 && selector == 2 ? ACLI_OK : ACLI_UNSUPPORTED));
    require(answer == ACLI_OK ? a == 4 && b == 0 : a == 9 && b == 9);
    require(ACLI.unsupported_3(handle) == ACLI_UNSUPPORTED && ACLI.unsupported_8(nullptr) == ACLI_FAILED);
    require(ACLI.process(handle, &buffer, nullptr) == ACLI_FAILED &&
            ACLI.process(handle, nullptr, &buffer) == ACLI_FAILED);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    silence_the_log();
    Bytes bytes(data, size);
    Session sessions[3];
    for (int step = 0; step < 24 && !bytes.empty(); step++) {
        const uint8_t choice = bytes.u8();
        Session& session = sessions[choice % 3];
        const uint8_t what = choice / 3 % 8;
        if (what == 7)
            other_entry_points(bytes);
        else if (!session.open() || what == 6)
            session.toggle(choice >= 240);
        else if (what <= 2) {
            acli_media_format block = session.last_sent;
            if (what == 0)
                block = usual_block(bytes);
            else
                for (int more = 1; more != 0; more = bytes.u8() & 1)
                    change_one_field(block, bytes);
            session.send(block, bytes.u8() % 8 == 0 ? bytes.u8() % 3u : uint32_t{ACLI_MODE_APPLY});
        } else
            session.process(bytes);
    }
    return 0;
}
