#include "module/custom_matrices.h"

#include <iterator>

#include "downmixer/gains.h"
#include "module/channel_codes.h"

namespace korla::module {
namespace {

// Layout mask bits of the channels that take part.
enum : uint32_t { fronts = 1 << 0, centre = 1 << 1, lfe = 1 << 2, surrounds = 1 << 3, backs = 1 << 4 };

constexpr uint32_t output_masks[] = {0x1, 0x5, 0x3, 0x7, 0x9, 0xD, 0xB, 0xF, 0x19, 0x1D, 0x1B, 0x1F};

// What stands in the columns of each input class; a lone channel counts as `mono`, whatever its code.
constexpr uint32_t mono = 0;
constexpr uint32_t input_classes[] = {
    mono,
    fronts | centre,
    fronts | lfe,
    fronts | centre | lfe,
    fronts | surrounds,
    fronts | lfe | surrounds,
    fronts | centre | surrounds,
    fronts | centre | lfe | surrounds,
    fronts | surrounds | backs,
    fronts | lfe | surrounds | backs,
    fronts | centre | surrounds | backs,
    fronts | centre | lfe | surrounds | backs,
};
constexpr int class_count = std::size(input_classes), output_count = std::size(output_masks);
static_assert(class_count * output_count == 144);

constexpr uint32_t no_class = ~0u;

constexpr uint32_t input_class(uint32_t input_channels, uint32_t mask) {
    switch (input_channels) {
    case 1: return mono;
    case 3: return mask & centre ? fronts | centre : fronts | lfe;
    case 4: return mask & (centre | lfe) ? fronts | centre | lfe : fronts | surrounds;
    case 5: return mask & lfe ? fronts | lfe | surrounds : fronts | centre | surrounds;
    case 6: return mask & lfe ? fronts | centre | lfe | surrounds : fronts | surrounds | backs;
    case 7: return mask & lfe ? fronts | lfe | surrounds | backs : fronts | centre | surrounds | backs;
    case 8: return fronts | centre | lfe | surrounds | backs;
    default: return no_class;
    }
}

struct Codes {
    uint8_t code[8]{};
    int count = 0;
};
constexpr Codes codes_of(uint32_t mask) {
    Codes codes;
    for (const LayoutBit& bit : layout_bits)
        if (mask >> (&bit - layout_bits) & 1)
            for (uint8_t code : bit.codes)
                if (code != empty_slot)
                    codes.code[codes.count++] = code;
    return codes;
}

// What input channel `code` gives to output channel `row`.
constexpr float gain(int row, int code, uint32_t output_mask) {
    auto into = [row](int target, float g) { return row == target ? g : 0.0f; };
    switch (code) {
    case 2:
        if (output_mask & centre)
            return into(2, gain_minus_8_db);
        return row <= 1 ? gain_minus_11_db : 0.0f;
    case 3: return into(3, gain_minus_8_db); // without an LFE the channel is dropped
    case 9:
    case 10: // surrounds fold into the fronts
        return output_mask & surrounds ? into(code, gain_minus_8_db) : into(code - 9, gain_minus_11_db);
    case 4:
    case 5: // backs fold into the surrounds, else into the fronts
        if (output_mask & backs)
            return into(code, gain_minus_8_db);
        return output_mask & surrounds ? into(code + 5, gain_minus_8_db) : into(code - 4, gain_minus_11_db);
    default: return into(code, gain_minus_8_db);
    }
}

struct Matrices {
    float gains[class_count][output_count][8 * 8]; // row by row, as many columns as the class has
};

constexpr Matrices make_matrices() {
    Matrices all{};
    for (int c = 0; c < class_count; c++)
        for (int o = 0; o < output_count; o++) {
            const Codes rows = codes_of(output_masks[o]), columns = codes_of(input_classes[c]);
            float* next = all.gains[c][o];
            for (int r = 0; r < rows.count; r++) {
                if (input_classes[c] == mono)
                    *next++ = rows.code[r] <= 1 ? gain_minus_11_db : 0.0f;
                for (int i = 0; i < columns.count; i++)
                    *next++ = gain(rows.code[r], columns.code[i], output_masks[o]);
            }
        }
    return all;
}
constexpr Matrices matrices = make_matrices();

template <int count> int index_of(const uint32_t (&list)[count], uint32_t value) {
    for (int i = 0; i < count; i++)
        if (list[i] == value)
            return i;
    return -1;
}

} // namespace

const float* custom_matrix(uint32_t input_channels, uint32_t input_mask, uint32_t output_mask) {
    const int c = index_of(input_classes, input_class(input_channels, input_mask));
    const int o = index_of(output_masks, output_mask);
    return c < 0 || o < 0 ? nullptr : matrices.gains[c][o];
}

} // namespace korla::module
