// Sequences of media-format blocks, probed and applied, with calls among them that fit the last accepted one.
//
// A twin is sent the accepted blocks alone and must give the same samples. Only where a refused block left its codes
// before the engine stood may the stream refuse what its twin does.
#include "hostile_host.h"

using namespace korla_fuzz;

namespace {

void check_answer(const acli_media_format& sent, const acli_media_format& answer) {
    require(std::memcmp(sent.input_channel_map, answer.input_channel_map, sizeof sent.input_channel_map) == 0);
    require(sent.input_channel_count == answer.input_channel_count && sent.sample_rate == answer.sample_rate);
    for (uint32_t i = 0; i < ACLI_MAX_CHANNELS; i++)
        require(answer.output_channel_map[i] <= 48 &&
                (i < answer.output_channel_count || answer.output_channel_map[i] == 0));
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    silence_the_log();
    Bytes bytes(data, size);
    Stream stream, twin;
    acli_media_format accepted = {};
    bool codes_of_refused = false;

    for (int round = 0; round < 6 && !bytes.empty(); round++) {
        const uint8_t choice = bytes.u8();
        const uint32_t mode = choice & 3u, parameter = choice & 4 ? bytes.u32() : ACLI_PARAM_MEDIA_FORMAT;
        const acli_media_format sent = media_format(bytes), answer = stream.send(sent, mode, parameter);
        check_answer(sent, answer);
        if (mode == ACLI_MODE_APPLY && parameter == ACLI_PARAM_MEDIA_FORMAT) {
            codes_of_refused = answer.output_channel_count == 0;
            if (!codes_of_refused)
                accepted = twin.send(sent, mode);
        }
        if (choice & 8 || accepted.input_channel_count > 64)
            continue;

        const bool out_of_memory = choice >> 6 & 1;
        const uint32_t frames = choice >> 4 & 1 ? 300 : 7, width = accepted.sample_format == ACLI_SAMPLE_INT16 ? 2 : 4;
        Buffer in(frames * accepted.input_channel_count * width, choice >> 5 & 1);
        Buffer out(frames * accepted.output_channel_count * width, choice >> 7), twins(out.size(), 0);
        acli_buffer source = {}, target = {}, twins_target = {};
        source.bytes = static_cast<uint32_t>(in.size());
        source.data = in.data();
        source.channels = accepted.input_channel_count;
        source.bits_per_sample = 8 * width;
        target.bytes = twins_target.bytes = static_cast<uint32_t>(out.size());
        target.data = out.data();
        twins_target.data = twins.data();
        const bool processed = stream.process(source, target, out_of_memory);
        if (!processed && (out_of_memory || codes_of_refused))
            continue;
        require(twin.process(source, twins_target, false) == processed);
        require(std::memcmp(out.data(), twins.data(), out.size()) == 0);
    }
    return 0;
}
