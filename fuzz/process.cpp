// Any process descriptor on a stream of any configuration: sizes, counts and widths that contradict each other and the
// configuration, null data, memory that runs out. The byte counts of the descriptors are true, everything else may lie.
#include "hostile_host.h"

using namespace korla_fuzz;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    silence_the_log();
    Bytes bytes(data, size);
    callocs_until_failure = bytes.u8() % 8 == 7 ? 0 : -1;
    void* stream = nullptr;
    const bool created = ACLI.create(0, 0, &stream) == ACLI_OK;
    callocs_until_failure = -1;
    require(created == (stream != nullptr));
    if (!created)
        return 0;

    for (int call = 0; call < 8 && !bytes.empty(); call++) {
        const uint8_t choice = bytes.u8();
        if (choice & 1) {
            acli_media_format format = media_format(bytes);
            acli_param_value value = {ACLI_MODE_APPLY, 0, &format};
            ACLI.set_param(stream, ACLI_PARAM_MEDIA_FORMAT, 0, 0, &value);
        }
        const uint32_t in_bytes = bytes.u16(), capacity = bytes.u16();
        Buffer in(in_bytes, choice >> 1 & 3), out(capacity, choice >> 3 & 3);
        acli_buffer source = {}, target = {};
        source.bytes = in_bytes;
        source.data = choice >> 4 == 15 ? nullptr : in.data();
        source.channels = choice & 32 ? bytes.u32() : bytes.u8();
        source.bits_per_sample = choice & 64 ? bytes.u32() : 8u * (bytes.u8() & 7u);
        target.bytes = capacity;
        target.data = choice >> 4 == 14 ? nullptr : out.data();
        callocs_until_failure = choice & 128 ? 0 : -1;
        const int32_t result = ACLI.process(stream, &source, &target);
        callocs_until_failure = -1;
        require(result == ACLI_OK || result == ACLI_FAILED);
        require(result == ACLI_OK ? target.bytes <= capacity : target.bytes == capacity);
    }
    require(ACLI.destroy(stream) == ACLI_OK);
    return 0;
}
