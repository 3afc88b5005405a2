// Any media-format block, probed and applied, with a call behind it that fits what the module answered.
#include "hostile_host.h"

using namespace korla_fuzz;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    silence_the_log();
    Bytes bytes(data, size);
    callocs_until_failure = -1;
    void* stream = nullptr;
    require(ACLI.create(0, 0, &stream) == ACLI_OK && stream);

    for (int round = 0; round < 4 && !bytes.empty(); round++) {
        const uint8_t choice = bytes.u8();
        acli_media_format format = media_format(bytes);
        const acli_media_format sent = format;
        acli_param_value value = {choice & 3u, 0, &format};
        require(ACLI.set_param(stream, choice & 4 ? bytes.u32() : ACLI_PARAM_MEDIA_FORMAT, 0, 0, &value) == ACLI_OK);

        // What the host sent is not changed; what it is answered is complete.
        require(std::memcmp(sent.input_channel_map, format.input_channel_map, sizeof sent.input_channel_map) == 0);
        require(sent.input_channel_count == format.input_channel_count && sent.sample_rate == format.sample_rate);
        for (uint32_t i = 0; i < ACLI_MAX_CHANNELS; i++)
            require(format.output_channel_map[i] <= 48 &&
                    (i < format.output_channel_count || format.output_channel_map[i] == 0));

        const uint32_t frames = choice >> 3 & 1 ? 300 : 7, width = format.sample_format == ACLI_SAMPLE_INT16 ? 2 : 4;
        if (format.input_channel_count > 64 || format.output_channel_count > 64)
            continue;
        Buffer in(frames * format.input_channel_count * width, choice >> 4 & 7);
        Buffer out(frames * format.output_channel_count * width, choice >> 5);
        acli_buffer source = {}, target = {};
        source.bytes = frames * format.input_channel_count * width;
        source.data = in.data();
        source.channels = format.input_channel_count;
        source.bits_per_sample = 8 * width;
        target.bytes = frames * format.output_channel_count * width;
        target.data = out.data();
        const uint32_t capacity = target.bytes;
        callocs_until_failure = choice >> 6 & 1 ? 0 : -1;
        const int32_t result = ACLI.process(stream, &source, &target);
        callocs_until_failure = -1;
        require(result == ACLI_OK || result == ACLI_FAILED);
        require(result == ACLI_OK ? target.bytes <= capacity : target.bytes == capacity);
    }
    require(ACLI.destroy(stream) == ACLI_OK);
    return 0;
}
