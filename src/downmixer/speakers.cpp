// The set of speakers in a channel map, as layouts are looked up by it.
#include "downmixer/speakers.h"

namespace korla::downmixer {

Speakers speakers_of(const uint8_t* codes) {
    Speakers speakers{};
    SpeakerSet seen;
    for (int i = 0; i < map_length; i++) {
        if (codes[i] == no_speaker)
            continue;
        if (codes[i] > no_speaker)
            return {};
        const auto speaker = static_cast<Speaker>(codes[i]);
        const bool again = seen.has(speaker);
        seen += {speaker};
        speakers.count++;
        if (again && speaker == SL)
            speakers.set += {SL2};
        else if (again && speaker == SR)
            speakers.set += {SR2};
        else if (again && speaker == LFE)
            speakers.set += {LFE2};
        else // any other repeated code carries into other codes' bits
            speakers.set.bits += uint64_t{1} << speaker;
    }
    return speakers;
}

} // namespace korla::downmixer
