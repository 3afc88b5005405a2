// Names, layouts and channel masks, to speakers and back.
#include "stream/speakers.h"

#include <cstring>
#include <iterator>

#include "downmixer/layouts.h"

namespace korla::stream {
namespace {

using namespace downmixer; // the speakers

// Azimuths and elevations are those of ITU-R BS.2051-3, the middle of the range that it allows; wide and height speakers
// that it does not know stand between their neighbours.
// clang-format off
constexpr SpeakerInfo speakers[] = {
    {FL,  "FL",  {"L"},          0, FR,   30,  0, Group::front},
    {FR,  "FR",  {"R"},          1, FL,  -30,  0, Group::front},
    {FC,  "FC",  {"C"},          2, FC,    0,  0, Group::dialogue},
    {LFE, "LFE", {"LF"},         3, LFE,   0,  0, Group::lfe},
    {SL,  "SL",  {"LS"},         9, SR,   90,  0, Group::surround},
    {SR,  "SR",  {"RS"},        10, SL,  -90,  0, Group::surround},
    {BL,  "BL",  {"LB", "RL"},   4, BR,  135,  0, Group::surround},
    {BR,  "BR",  {"RB", "RR"},   5, BL, -135,  0, Group::surround},
    {FLC, "FLC", {"LC"},         6, FRC,  15,  0, Group::front},
    {FRC, "FRC", {"RC"},         7, FLC, -15,  0, Group::front},
    {BC,  "BC",  {"CS"},         8, BC,  180,  0, Group::surround},
    {WL,  "WL",  {"LW"},        -1, WR,   60,  0, Group::front},
    {WR,  "WR",  {"RW"},        -1, WL,  -60,  0, Group::front},
    {HL,  "HL",  {"LH"},        -1, HR,   30, 30, Group::height},
    {HR,  "HR",  {"RH"},        -1, HL,  -30, 30, Group::height},
    {TFL, "TFL", {},            12, TFR,  45, 45, Group::height},
    {TFR, "TFR", {},            14, TFL, -45, 45, Group::height},
    {TSL, "TSL", {"TML"},       -1, TSR,  90, 45, Group::height},
    {TSR, "TSR", {"TMR"},       -1, TSL, -90, 45, Group::height},
    {TBL, "TBL", {"TRL"},       15, TBR, 135, 45, Group::height},
    {TBR, "TBR", {"TRR"},       17, TBL,-135, 45, Group::height},
    {TBC, "TBC", {},            16, TBC, 180, 45, Group::height},
    {TFC, "TFC", {},            13, TFC,   0, 45, Group::height},
    {WHL, "WHL", {"LWH"},       -1, WHR,  60, 30, Group::height},
    {WHR, "WHR", {"RWH"},       -1, WHL, -60, 30, Group::height},
};

struct NamedLayout {
    const char* name;
    korla_layout layout;
    const char* alias = nullptr;
};

// The speakers of a layout, in frame order.
template <class... S> constexpr korla_layout of(S... speaker) { return {sizeof...(S), {host_code_of(speaker)...}}; }

constexpr NamedLayout layouts[] = {
    // without height
    {"mono",        of(FC), "1.0"},
    {"stereo",      of(FL, FR), "2.0"},
    {"2.1",         of(FL, FR, LFE)},
    {"3.0",         of(FL, FR, FC)},
    {"3.1",         of(FL, FR, FC, LFE)},
    {"quad",        of(FL, FR, BL, BR)},
    {"4.0",         of(FL, FR, SL, SR), "quad(side)"},
    {"4.1",         of(FL, FR, LFE, SL, SR)},
    {"lcrs",        of(FL, FR, FC, BC)},
    {"lcrs.1",      of(FL, FR, FC, LFE, BC)},
    {"5.0",         of(FL, FR, FC, SL, SR), "5.0(side)"},
    {"5.1",         of(FL, FR, FC, LFE, SL, SR), "5.1(side)"},
    {"5.0(back)",   of(FL, FR, FC, BL, BR)},
    {"5.1(back)",   of(FL, FR, FC, LFE, BL, BR)},
    {"6.0",         of(FL, FR, FC, SL, SR, BC)},
    {"6.1",         of(FL, FR, FC, LFE, SL, SR, BC)},
    {"6.1(back)",   of(FL, FR, FC, LFE, BL, BR, BC)},
    {"6.0(open)",   of(FL, FR, SL, SR, BL, BR)}, // without a centre
    {"6.1(open)",   of(FL, FR, LFE, SL, SR, BL, BR)},
    {"hexagonal",   of(FL, FR, FC, BL, BR, BC)},
    {"7.0",         of(FL, FR, FC, SL, SR, BL, BR)},
    {"7.1",         of(FL, FR, FC, LFE, SL, SR, BL, BR)},
    {"7.0(front)",  of(FL, FR, FC, SL, SR, FLC, FRC)},
    {"7.1(front)",  of(FL, FR, FC, LFE, SL, SR, FLC, FRC)},
    {"7.1(wide)",   of(FL, FR, FC, LFE, SL, SR, WL, WR)},
    {"octagonal",   of(FL, FR, FC, SL, SR, BL, BR, BC)},
    {"9.1",         of(FL, FR, FC, LFE, SL, SR, BL, BR, WL, WR)},
    // with two height channels, at the sides unless said otherwise
    {"2.0.2",       of(FL, FR, TSL, TSR)},
    {"2.1.2",       of(FL, FR, LFE, TSL, TSR)},
    {"3.0.2",       of(FL, FR, FC, TSL, TSR)},
    {"3.1.2",       of(FL, FR, FC, LFE, TSL, TSR)},
    {"4.0.2",       of(FL, FR, SL, SR, TSL, TSR)},
    {"4.1.2",       of(FL, FR, LFE, SL, SR, TSL, TSR)},
    {"5.0.2",       of(FL, FR, FC, SL, SR, TSL, TSR)},
    {"5.1.2",       of(FL, FR, FC, LFE, SL, SR, TSL, TSR)},
    {"5.1.2(front)",of(FL, FR, FC, LFE, SL, SR, TFL, TFR)},
    {"6.0.2(open)", of(FL, FR, SL, SR, BL, BR, TSL, TSR)},
    {"6.1.2(open)", of(FL, FR, LFE, SL, SR, BL, BR, TSL, TSR)},
    {"7.0.2",       of(FL, FR, FC, SL, SR, BL, BR, TSL, TSR)},
    {"7.1.2",       of(FL, FR, FC, LFE, SL, SR, BL, BR, TSL, TSR)},
    {"7.1.2(front)",of(FL, FR, FC, LFE, SL, SR, BL, BR, TFL, TFR)},
    {"9.1.2",       of(FL, FR, FC, LFE, SL, SR, BL, BR, WL, WR, TSL, TSR)},
    // with four
    {"4.0.4",       of(FL, FR, SL, SR, TFL, TFR, TBL, TBR)},
    {"4.1.4",       of(FL, FR, LFE, SL, SR, TFL, TFR, TBL, TBR)},
    {"5.0.4",       of(FL, FR, FC, SL, SR, TFL, TFR, TBL, TBR)},
    {"5.1.4",       of(FL, FR, FC, LFE, SL, SR, TFL, TFR, TBL, TBR)},
    {"6.0.4(open)", of(FL, FR, SL, SR, BL, BR, TFL, TFR, TBL, TBR)},
    {"6.1.4(open)", of(FL, FR, LFE, SL, SR, BL, BR, TFL, TFR, TBL, TBR)},
    {"7.0.4",       of(FL, FR, FC, SL, SR, BL, BR, TFL, TFR, TBL, TBR)},
    {"7.1.4",       of(FL, FR, FC, LFE, SL, SR, BL, BR, TFL, TFR, TBL, TBR)},
};
// clang-format on
constexpr size_t speaker_count = std::size(speakers), layout_count = std::size(layouts);

// The module adds up the products of a frame in this order.
constexpr bool order_is_canonical() {
    for (size_t i = 0; i < std::size(canonical_order) && canonical_order[i] != SL2; i++)
        if (canonical_order[i] != speakers[i].speaker)
            return false;
    return true;
}
static_assert(order_is_canonical());

constexpr bool mirrors_agree() {
    for (const SpeakerInfo& s : speakers)
        for (const SpeakerInfo& other : speakers)
            if (other.speaker == s.mirror && (other.mirror != s.speaker || other.elevation != s.elevation ||
                                              (other.azimuth != -s.azimuth && s.azimuth != 180)))
                return false;
    return true;
}
static_assert(mirrors_agree());

constexpr bool is_separator(char c) { return c == ',' || c == ' '; }
constexpr char upper(char c) { return c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c; }

// Whether `length` characters of text are `name`, in either case.
bool matches(const char* text, size_t length, const char* name) {
    if (!name || std::strlen(name) != length)
        return false;
    for (size_t i = 0; i < length; i++)
        if (upper(text[i]) != upper(name[i]))
            return false;
    return true;
}

const SpeakerInfo* find_name(const char* text, size_t length) {
    for (const SpeakerInfo& s : speakers)
        if (matches(text, length, s.name) || matches(text, length, s.aliases[0]) || matches(text, length, s.aliases[1]))
            return &s;
    return nullptr;
}

const SpeakerInfo* find_bit(int wave_bit) {
    for (const SpeakerInfo& s : speakers)
        if (s.wave_bit == wave_bit)
            return &s;
    return nullptr;
}

const NamedLayout* find_layout(const char* text) {
    const size_t length = std::strlen(text);
    for (const NamedLayout& named : layouts)
        if (matches(text, length, named.name) || matches(text, length, named.alias))
            return &named;
    return nullptr;
}

// "FL FR FC ...", for reasons.
struct AllNames {
    char text[4 * speaker_count + 1] = "";
    AllNames() {
        for (const SpeakerInfo& s : speakers) {
            if (&s != speakers)
                std::strcat(text, " ");
            std::strcat(text, s.name);
        }
    }
};

// Speakers as they are read one by one.
struct Reader {
    korla_layout layout{};
    const Reason& reason;

    explicit Reader(const Reason& r) : reason(r) {}
    korla_status add(const SpeakerInfo& speaker) {
        if (contains(layout, speaker.speaker))
            return reason.give(KORLA_REPEATED_SPEAKER, "speaker %s stands there twice", speaker.name);
        if (layout.count == KORLA_MAX_SPEAKERS)
            return reason.give(KORLA_UNKNOWN_LAYOUT, "more than %d speakers", KORLA_MAX_SPEAKERS);
        layout.speakers[layout.count++] = host_code_of(speaker.speaker);
        return KORLA_OK;
    }
};

} // namespace

const SpeakerInfo* find(uint32_t code) {
    if (code >= std::size(speaker_of_host_code))
        return nullptr;
    for (const SpeakerInfo& s : speakers)
        if (s.speaker == speaker_of_host_code[code])
            return &s;
    return nullptr;
}

size_t rank_of(uint32_t code) { return static_cast<size_t>(find(code) - speakers); }

uint32_t place_of(Speaker speaker, const korla_layout& layout) {
    uint32_t place = 0;
    while (place < layout.count && layout.speakers[place] != host_code_of(speaker))
        place++;
    return place;
}

bool contains(const korla_layout& layout, Speaker speaker) { return place_of(speaker, layout) < layout.count; }

korla_status check(const korla_layout& layout, const char* what, const Reason& reason) {
    if (layout.count == 0 || layout.count > KORLA_MAX_SPEAKERS)
        return reason.give(KORLA_UNKNOWN_LAYOUT, "%s: %u speakers; there must be 1 to %d", what, layout.count,
                           KORLA_MAX_SPEAKERS);
    for (uint32_t i = 0; i < layout.count; i++) {
        const uint32_t code = layout.speakers[i];
        if (!find(code))
            return reason.give(KORLA_UNKNOWN_SPEAKER, "%s: channel %u: no speaker has the code %u", what, i + 1, code);
        for (uint32_t j = 0; j < i; j++)
            if (layout.speakers[j] == code)
                return reason.give(KORLA_REPEATED_SPEAKER, "%s: channels %u and %u are both %s", what, j + 1, i + 1,
                                   find(code)->name);
    }
    return KORLA_OK;
}

} // namespace korla::stream

using namespace korla::stream;

const char* korla_status_text(korla_status status) {
    switch (status) {
    case KORLA_OK: return "no error";
    case KORLA_BAD_ARGUMENT: return "an argument is null or out of range";
    case KORLA_UNKNOWN_SPEAKER: return "unknown speaker";
    case KORLA_REPEATED_SPEAKER: return "a speaker is listed twice";
    case KORLA_UNKNOWN_LAYOUT: return "unknown layout, or not 1 to 12 speakers";
    case KORLA_BAD_FORMAT: return "unknown sample format";
    case KORLA_BAD_RATE: return "the sample rate is 0";
    case KORLA_BAD_MATRIX: return "a gain is not finite, or a speaker has nowhere to go";
    case KORLA_NO_MEMORY: return "not enough memory";
    case KORLA_NO_ROOM: return "the output buffer is too small";
    case KORLA_COPIES: return "the stream copies and has no controls";
    default: return "unknown status";
    }
}

const char* korla_speaker_name(uint32_t speaker) {
    const SpeakerInfo* found = find(speaker);
    return found ? found->name : nullptr;
}

uint32_t korla_speaker_by_name(const char* name) {
    const SpeakerInfo* found = name ? find_name(name, std::strlen(name)) : nullptr;
    return found ? korla::downmixer::host_code_of(found->speaker) : 0;
}

korla_status korla_layout_parse(const char* text, korla_layout* layout, char* reason_text, size_t reason_bytes) {
    const Reason reason(reason_text, reason_bytes);
    if (!text || !layout)
        return reason.give(KORLA_BAD_ARGUMENT, "a null pointer");
    if (const NamedLayout* named = find_layout(text)) {
        *layout = named->layout;
        return KORLA_OK;
    }
    Reader reader(reason);
    for (const char* name = text; *name;) {
        size_t length = 0;
        while (name[length] && !is_separator(name[length]))
            length++;
        if (length > 0) {
            const SpeakerInfo* speaker = find_name(name, length);
            if (!speaker) {
                const AllNames all;
                const int shown = static_cast<int>(length < 32 ? length : 32);
                return reader.layout.count == 0 && name[length] == 0
                           ? reason.give(KORLA_UNKNOWN_LAYOUT,
                                         "no layout or speaker '%.*s'; layouts are such as stereo, "
                                         "5.1, 7.1.4, speakers %s",
                                         shown, name, all.text)
                           : reason.give(KORLA_UNKNOWN_SPEAKER, "no speaker '%.*s'; known are %s", shown, name,
                                         all.text);
            }
            if (const korla_status status = reader.add(*speaker); status != KORLA_OK)
                return status;
        }
        name += length;
        while (*name && is_separator(*name))
            name++;
    }
    if (reader.layout.count == 0)
        return reason.give(KORLA_UNKNOWN_LAYOUT, "no speakers");
    *layout = reader.layout;
    return KORLA_OK;
}

size_t korla_layout_text(const korla_layout* layout, char* text, size_t bytes) {
    size_t length = 0;
    auto put = [&](const char* piece) {
        for (; *piece; piece++, length++)
            if (text && length + 1 < bytes)
                text[length] = *piece;
    };
    const uint32_t count = layout ? layout->count : 0;
    for (uint32_t i = 0; i < count && i < KORLA_MAX_SPEAKERS; i++) {
        const SpeakerInfo* speaker = find(layout->speakers[i]);
        char number[16];
        std::snprintf(number, sizeof number, "#%u", layout->speakers[i]);
        put(i == 0 ? "" : ",");
        put(speaker ? speaker->name : number);
    }
    if (text && bytes > 0)
        text[length < bytes ? length : bytes - 1] = 0;
    return length;
}

const char* korla_layout_name(const korla_layout* layout) {
    if (!layout || check(*layout, "", Reason(nullptr, 0)) != KORLA_OK)
        return nullptr;
    for (const NamedLayout& named : layouts) {
        uint32_t common = 0;
        for (uint32_t i = 0; i < layout->count; i++)
            common += contains(named.layout, find(layout->speakers[i])->speaker);
        if (common == layout->count && common == named.layout.count)
            return named.name;
    }
    return nullptr;
}

const char* korla_layout_at(uint32_t index, korla_layout* layout) {
    if (index >= layout_count)
        return nullptr;
    if (layout)
        *layout = layouts[index].layout;
    return layouts[index].name;
}

korla_status korla_layout_from_wave_mask(uint32_t mask, korla_layout* layout, char* reason_text, size_t reason_bytes) {
    const Reason reason(reason_text, reason_bytes);
    if (!layout)
        return reason.give(KORLA_BAD_ARGUMENT, "a null pointer");
    if (mask == 0)
        return reason.give(KORLA_UNKNOWN_LAYOUT, "the channel mask is empty");
    Reader reader(reason);
    for (int bit = 0; bit < 32; bit++) {
        if (!(mask >> bit & 1))
            continue;
        const SpeakerInfo* speaker = find_bit(bit);
        if (!speaker)
            return reason.give(KORLA_UNKNOWN_SPEAKER, "no speaker stands for bit %d of the channel mask", bit);
        if (const korla_status status = reader.add(*speaker); status != KORLA_OK)
            return status;
    }
    *layout = reader.layout;
    return KORLA_OK;
}

korla_status korla_layout_to_wave_mask(const korla_layout* layout, uint32_t* mask, char* reason_text,
                                       size_t reason_bytes) {
    const Reason reason(reason_text, reason_bytes);
    if (!layout || !mask)
        return reason.give(KORLA_BAD_ARGUMENT, "a null pointer");
    if (const korla_status status = check(*layout, "layout", reason); status != KORLA_OK)
        return status;
    uint32_t bits = 0;
    for (uint32_t i = 0; i < layout->count; i++) {
        const SpeakerInfo& speaker = *find(layout->speakers[i]);
        if (speaker.wave_bit < 0)
            return reason.give(KORLA_UNKNOWN_SPEAKER, "channel masks have no bit for %s", speaker.name);
        bits |= 1u << speaker.wave_bit;
    }
    *mask = bits;
    return KORLA_OK;
}
