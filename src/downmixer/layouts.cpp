// The built-in modes are one list of input layouts and one rule; the matrices follow from them at compile time.
#include "downmixer/layouts.h"

#include <cstddef>
#include <iterator>

#include "downmixer/gains.h"

namespace korla::downmixer {
namespace {

enum SecondOccurrence : int { second_9 = 39, second_10 = 40, second_3 = 41 };

constexpr bool has(uint64_t mask, int code) { return mask >> code & 1; }

// The order in which the matrices expect the input channels.
constexpr int canonical_order[] = {0,  1,  2,  3,  9,  10, 4,  5,  6,  7,  8,        11,        12,
                                   25, 26, 28, 29, 30, 31, 33, 34, 32, 27, second_9, second_10, second_3};

struct Layout {
    uint64_t inputs;
    int outputs;
};

// clang-format off
constexpr Layout layouts[] = {
    // mono and stereo
    {0x1, 2}, {0x3, 2}, {0x4, 2}, {0xC, 2},
    // 5.1
    {0x7, 6}, {0xB, 6}, {0xF, 6}, {0x33, 6}, {0xC7, 6}, {0xCF, 6}, {0x103, 6}, {0x107, 6}, {0x10B, 6}, {0x10F, 6},
    {0x1CF, 6}, {0x603, 6}, {0x607, 6}, {0x60B, 6}, {0x60F, 6}, {0x6C7, 6}, {0x6CB, 6}, {0x6CF, 6}, {0x1E03, 6},
    {0x1E07, 6}, {0x1E0B, 6}, {0x1E0F, 6}, {0x6000007, 6}, {0x600000F, 6}, {0x6000603, 6}, {0x6000607, 6},
    {0x600060B, 6}, {0x600060F, 6}, {0x8000007, 6}, {0x800000F, 6}, {0x8000607, 6}, {0x800060F, 6}, {0x80006C7, 6},
    {0x80006CB, 6}, {0x10000003F, 6}, {0x1000000CF, 6}, {0x100000603, 6}, {0x100000607, 6}, {0x10000060B, 6},
    {0x10000060F, 6}, {0x108000607, 6}, {0x10800060F, 6}, {0x2000000060F, 6}, {0x2000000070B, 6},
    // 7.1 or 5.1.2
    {0x13F, 8}, {0x633, 8}, {0x637, 8}, {0x63B, 8}, {0x63F, 8}, {0x703, 8}, {0x707, 8}, {0x70B, 8}, {0x70F, 8},
    {0x8000707, 8}, {0x800070F, 8}, {0xC000060F, 8}, {0x100000703, 8}, {0x100000707, 8}, {0x10000070B, 8},
    {0x10000070F, 8}, {0x18000000603, 8}, {0x18000000607, 8}, {0x1800000060B, 8}, {0x1800000060F, 8},
    {0x2000000063B, 8}, {0x2000000063F, 8},
    // 7.1.2, 5.1.4 and 7.1.4
    {0xC000063F, 10}, {0x63000060F, 10}, {0x63000063F, 12},
};
// clang-format on
constexpr int layout_count = std::size(layouts);
static_assert(layout_count == 73);

struct CodeList {
    int codes[16]{};
    int count = 0;
    constexpr void add(int code) { codes[count++] = code; }
    constexpr bool contains(int code) const {
        for (int i = 0; i < count; i++)
            if (codes[i] == code)
                return true;
        return false;
    }
};

constexpr CodeList columns_of(Layout layout) {
    CodeList columns;
    for (int code : canonical_order)
        if (has(layout.inputs, code))
            columns.add(code);
    return columns;
}

constexpr CodeList rows_of(Layout layout) {
    int heights = 0;
    for (int code = 25; code <= 36; code++)
        heights += has(layout.inputs, code);

    CodeList rows;
    auto add = [&rows](auto... codes) { (rows.add(codes), ...); };
    add(0, 1);
    if (layout.outputs > 2)
        add(2, 3, 9, 10);
    const bool backs =
        layout.outputs == 12 || (layout.outputs == 10 && heights == 2) || (layout.outputs == 8 && heights < 2);
    if (backs)
        add(4, 5);
    if (layout.outputs >= 8 && heights == 2)
        add(30, 31);
    if (layout.outputs >= 10 && heights == 4)
        add(28, 29, 33, 34);
    return rows;
}

constexpr float gain_into_stereo(Layout layout, int row, int code) {
    switch (code) {
    case 3: return gain_minus_12_5_db;
    case 2: return gain_minus_11_db;
    default: // a lone channel 0 feeds both sides
        if (!has(layout.inputs, 1))
            return gain_minus_11_db;
        return row == code ? gain_minus_8_db : 0.0f;
    }
}

// What input channel `code` gives to output channel `row`.
constexpr float gain(Layout layout, const CodeList& rows, int row, int code) {
    if (layout.outputs == 2)
        return gain_into_stereo(layout, row, code);

    const bool backs = rows.contains(4);
    auto into = [row](int target, float g) { return row == target ? g : 0.0f; };
    switch (code) {
    case 4:
    case 5: return into(backs && has(layout.inputs, 9) ? code : code + 5, gain_minus_8_db); // else the surrounds 9, 10
    case 6:
    case 7: return into(code - 6, gain_minus_9_5_db) + into(2, gain_minus_13_2_db);
    case 8: return into(backs ? 4 : 9, gain_minus_11_db) + into(backs ? 5 : 10, gain_minus_11_db);
    case 11:
    case 12: return into(code - 11, gain_minus_8_db);
    case 25:
    case 26: return into(code - 25, gain_minus_8_db);
    case 27: return into(2, gain_minus_8_db);
    case 32: return into(9, gain_minus_11_db) + into(10, gain_minus_11_db);
    case second_9: return into(4, gain_minus_8_db);
    case second_10: return into(5, gain_minus_8_db);
    case second_3: return 0.0f; // a second LFE is dropped
    default: return into(code, gain_minus_8_db);
    }
}

constexpr size_t coefficient_count() {
    size_t count = 0;
    for (Layout layout : layouts)
        count += static_cast<size_t>(layout.outputs) * columns_of(layout).count;
    return count;
}

struct Modes {
    float coefficients[coefficient_count()];
    uint16_t offsets[layout_count];
};

constexpr Modes make_modes() {
    Modes modes{};
    size_t next = 0;
    for (int i = 0; i < layout_count; i++) {
        const Layout layout = layouts[i];
        const CodeList rows = rows_of(layout), columns = columns_of(layout);
        modes.offsets[i] = static_cast<uint16_t>(next);
        for (int r = 0; r < rows.count; r++)
            for (int c = 0; c < columns.count; c++)
                modes.coefficients[next++] = gain(layout, rows, rows.codes[r], columns.codes[c]);
    }
    return modes;
}

constexpr bool rows_match_output_counts() {
    for (Layout layout : layouts)
        if (rows_of(layout).count != layout.outputs)
            return false;
    return true;
}
static_assert(rows_match_output_counts());

constexpr Modes modes = make_modes();

} // namespace

Speakers speakers_of(const uint8_t* codes) {
    Speakers speakers{0, 0};
    bool seen_3 = false, seen_9 = false, seen_10 = false;
    auto add = [&](bool& seen, int code, int second) {
        if (seen)
            speakers.mask |= uint64_t{1} << second;
        else
            speakers.mask += uint64_t{1} << code;
        seen = true;
    };
    for (int i = 0; i < map_length; i++) {
        const uint8_t code = codes[i];
        if (code == empty_slot)
            continue;
        if (code > empty_slot)
            return {0, 0};
        speakers.count++;
        switch (code) {
        case 3: add(seen_3, 3, second_3); break;
        case 9: add(seen_9, 9, second_9); break;
        case 10: add(seen_10, 10, second_10); break;
        default: speakers.mask += uint64_t{1} << code; // a repeated code carries into other codes' bits
        }
    }
    return speakers;
}

Mode mode_of(uint64_t mask) {
    for (int i = 0; i < layout_count; i++)
        if (layouts[i].inputs == mask)
            return {static_cast<uint32_t>(layouts[i].outputs), modes.coefficients + modes.offsets[i]};
    return {0, nullptr};
}

} // namespace korla::downmixer
