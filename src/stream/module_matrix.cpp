// The module's matrices under a stream: the columns are in their order already, the rows in that of the output.
#include "stream/module_matrix.h"

#include "downmixer/matrices.h"
#include "stream/speakers.h"

namespace korla::stream {
namespace {

using downmixer::SpeakerList, downmixer::SpeakerSet;

SpeakerSet set_of(const korla_layout& layout) {
    SpeakerSet set;
    for (uint32_t i = 0; i < layout.count; i++)
        set += {find(layout.speakers[i])->speaker};
    return set;
}

} // namespace

bool module_matrix(const korla_layout& in, const korla_layout& out, Downmix& downmix) {
    const SpeakerSet inputs = set_of(in), outputs = set_of(out);
    downmixer::LayoutMatrix found = downmixer::explicit_matrix(inputs, outputs);
    if (!found.gains)
        found = downmixer::automatic_matrix(inputs);
    if (!found.gains || found.outputs != outputs)
        return false;
    uint32_t row = 0;
    for (downmixer::Speaker speaker : SpeakerList(outputs)) {
        for (uint32_t c = 0; c < in.count; c++)
            downmix.gains.of[place_of(speaker, out)][c] = found.gains[row * in.count + c];
        row++;
    }
    return true;
}

} // namespace korla::stream
