// Any process descriptor on a stream of any configuration: sizes, counts and widths that contradict each other and the
// configuration, null data, memory that runs out. The byte counts of the descriptors are true, everything else may lie.
#include "hostile_host.h"

using namespace korla_fuzz;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    silence_the_log();
    Bytes bytes(data, size);
    callocs_until_failure = bytes.u8() % 8 == 7 ? 0 : -1;
    Stream stream;
    callocs_until_failure = -1;
    if (!stream)
        return 0;

    for (int call = 0; call < 8 && !bytes.empty(); call++) {
        const uint8_t choice = bytes.u8();
        if (choice & 1)
            stream.send(media_format(bytes), ACLI_MODE_APPLY);
        const uint32_t in_bytes = bytes.u16(), capacity = bytes.u16();
        Buffer in(in_bytes, choice >> 1 & 3), out(capacity, choice >> 3 & 3);
        acli_buffer source = {}, target = {};
        source.bytes = in_bytes;
        source.data = choice >> 4 == 15 ? nullptr : in.data();
        source.channels = choice & 32 ? bytes.u32() : bytes.u8();
        source.bits_per_sample = choice & 64 ? bytes.u32() : 8u * (bytes.u8() & 7u);
        target.bytes = capacity;
        target.data = choice >> 4 == 14 ? nullptr : out.data();
        stream.process(source, target, choice & 128);
    }
    return 0;
}
