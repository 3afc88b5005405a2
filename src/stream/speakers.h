// The speakers that have a name and a place, and the layouts that have a name.
#pragma once

#include <cstddef>
#include <cstdint>

#include "downmixer/speakers.h"
#include "korla/speakers.h"
#include "stream/reason.h"

namespace korla::stream {

// What a control turns up and down together.
enum class Group : uint8_t { front, dialogue, surround, height, lfe };

// A speaker by engine code, with what people know of it.
struct SpeakerInfo {
    downmixer::Speaker speaker;
    const char* name;
    const char* aliases[2];    // other names in use
    int8_t wave_bit;           // of a WAVE channel mask; -1: none
    downmixer::Speaker mirror; // the speaker on the other side; itself in the middle
    int16_t azimuth;           // degrees from the front to the left
    int8_t elevation;          // degrees
    Group group;
};

// By the host code that layouts hold. Null: no such speaker.
const SpeakerInfo* find(uint32_t code);

// The place of a speaker in the order in which the module's matrices list channels.
size_t rank_of(uint32_t code);

bool contains(const korla_layout& layout, downmixer::Speaker speaker);
// The channel of a speaker that the layout contains.
uint32_t place_of(downmixer::Speaker speaker, const korla_layout& layout);

// Checks the speakers of a layout; `what` ("input") begins the reason.
korla_status check(const korla_layout& layout, const char* what, const Reason& reason);

} // namespace korla::stream
