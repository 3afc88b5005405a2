// One rule for every matrix, applied at compile time to every pair of layouts.
#include "downmixer/matrices.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <iterator>

#include "downmixer/automatic_layouts.h"
#include "downmixer/gains.h"

namespace korla::downmixer {
namespace {

// The layouts without heights. Explicit matrices lead from each of them, mono in place of stereo, to each of them.
constexpr int bed_count = 12;
constexpr SpeakerSet bed(int mains, int lfe) { return speakers_in({mains, lfe, 0}); }
constexpr SpeakerSet mono{FC};

constexpr auto explicit_layouts = [] {
    std::array<LayoutPair, bed_count * bed_count> pairs;
    auto nth_bed = [](int i) { return bed(2 + i / 2, i % 2); };
    for (int i = 0; i < bed_count; i++)
        for (int o = 0; o < bed_count; o++)
            pairs[size_t{bed_count} * i + o] = {i == 0 ? mono : nth_bed(i), nth_bed(o)};
    return pairs;
}();

// A way: the one or two speakers into which an input goes.
struct Target {
    Speaker speaker = no_speaker;
    float gain = 0.0f;
};
struct Way {
    Target targets[2];
    constexpr bool leads_into(SpeakerSet outputs) const {
        return outputs.has(targets[0].speaker) && (targets[1].speaker == no_speaker || outputs.has(targets[1].speaker));
    }
};
constexpr Way at(Speaker place) { return {{{place, gain_minus_8_db}}}; }
constexpr Way folded_into(Speaker place) { return {{{place, gain_minus_11_db}}}; }
constexpr Way between(Speaker left, Speaker right) { return {{{left, gain_minus_11_db}, {right, gain_minus_11_db}}}; }

// An input takes the first of its ways whose speakers the output has.
struct Route {
    Speaker input;
    Way ways[3];
};
// clang-format off
constexpr Route routes[] = {
    {FL,  {at(FL)}},
    {FR,  {at(FR)}},
    {FC,  {at(FC), between(FL, FR)}},
    {LFE, {at(LFE)}},
    {SL,  {at(SL), folded_into(FL)}},
    {SR,  {at(SR), folded_into(FR)}},
    {BL,  {at(BL), at(SL), folded_into(FL)}},
    {BR,  {at(BR), at(SR), folded_into(FR)}},
    {FLC, {{{{FL, gain_minus_9_5_db}, {FC, gain_minus_13_2_db}}}}},
    {FRC, {{{{FR, gain_minus_9_5_db}, {FC, gain_minus_13_2_db}}}}},
    {BC,  {between(BL, BR), between(SL, SR)}},
    {WL,  {at(FL)}},
    {WR,  {at(FR)}},
    {HL,  {at(FL)}},
    {HR,  {at(FR)}},
    {TFC, {at(FC)}},
    {TBC, {between(SL, SR)}},
    {TFL, {at(TFL)}},
    {TFR, {at(TFR)}},
    {TSL, {at(TSL)}},
    {TSR, {at(TSR)}},
    {TBL, {at(TBL)}},
    {TBR, {at(TBR)}},
    {SL2, {at(BL)}},
    {SR2, {at(BR)}},
    {LFE2, {}}, // one LFE is enough
};
// clang-format on

// The way of one input of a pair; without targets: it is dropped.
constexpr Way way_of(Speaker input, const LayoutPair& pair) {
    SpeakerSet outputs = pair.outputs;
    if (pair.inputs.count() == 1)
        return between(FL, FR);
    if (input == LFE && pair.inputs == SpeakerSet{FC, LFE})
        return {{{FL, gain_minus_12_5_db}, {FR, gain_minus_12_5_db}}};
    if ((input == BL || input == BR) && !pair.inputs.has(SL))
        outputs -= {BL, BR}; // backs without sides stand in for them
    for (const Route& route : routes)
        if (route.input == input)
            for (const Way& way : route.ways)
                if (way.leads_into(outputs))
                    return way;
    return {};
}

// False: the matrix of some pair has an empty column that is not one of these.
template <class Pairs> constexpr bool every_input_is_heard(const Pairs& pairs, SpeakerSet unless) {
    for (const LayoutPair& pair : pairs)
        for (Speaker input : SpeakerList(pair.inputs))
            if (way_of(input, pair).targets[0].speaker == no_speaker && !unless.has(input))
                return false;
    return true;
}
static_assert(every_input_is_heard(automatic_layouts, {LFE2}), "a layout loses an input: give it a way in `routes`");
static_assert(every_input_is_heard(explicit_layouts, {LFE}), "a layout loses an input: give it a way in `routes`");

constexpr bool every_layout_fits() {
    for (const LayoutPair& pair : automatic_layouts)
        if (pair.inputs.count() > max_inputs || SpeakerList(pair.inputs).count != pair.inputs.count())
            return false;
    return true;
}
static_assert(every_layout_fits(), "a layout has more than 12 channels, or one without a place in canonical_order");

constexpr bool outputs_are_what_hosts_are_told() {
    for (const LayoutPair& pair : automatic_layouts) {
        const SpeakerList inputs(pair.inputs);
        if (automatic_outputs(pair.outputs.count(), std::count_if(inputs.begin(), inputs.end(), is_height)) !=
            pair.outputs)
            return false;
    }
    return true;
}
static_assert(outputs_are_what_hosts_are_told(), "hosts would list other channels than the layout's outputs");

constexpr bool no_layout_stands_twice() {
    for (const LayoutPair& pair : automatic_layouts)
        for (const LayoutPair* other = &pair + 1; other != std::end(automatic_layouts); other++)
            if (pair.inputs == other->inputs)
                return false;
    return true;
}
static_assert(no_layout_stands_twice());

template <const auto& pairs> struct Matrices {
    static constexpr size_t gain_count = [] {
        size_t count = 0;
        for (const LayoutPair& pair : pairs)
            count += pair.outputs.count() * pair.inputs.count();
        return count;
    }();
    float gains[gain_count]{};
    uint16_t first[std::size(pairs)]{}; // of each pair's gains

    constexpr Matrices() {
        size_t next = 0;
        for (size_t i = 0; i < std::size(pairs); i++) {
            const SpeakerList columns(pairs[i].inputs), rows(pairs[i].outputs);
            first[i] = static_cast<uint16_t>(next);
            for (uint32_t column = 0; column < columns.count; column++)
                for (const Target& target : way_of(columns.speakers[column], pairs[i]).targets)
                    for (uint32_t row = 0; row < rows.count; row++)
                        if (rows.speakers[row] == target.speaker)
                            gains[next + row * columns.count + column] = target.gain;
            next += rows.count * columns.count;
        }
    }
};

template <const auto& pairs> constexpr Matrices<pairs> matrices;

template <const auto& pairs> LayoutMatrix nth(size_t i) {
    return {pairs[i].inputs, pairs[i].outputs, matrices<pairs>.gains + matrices<pairs>.first[i]};
}

} // namespace

LayoutMatrix automatic_matrix(SpeakerSet inputs) {
    for (size_t i = 0; i < std::size(automatic_layouts); i++)
        if (automatic_layouts[i].inputs == inputs)
            return nth<automatic_layouts>(i);
    return {};
}

LayoutMatrix explicit_matrix(SpeakerSet inputs, SpeakerSet outputs) {
    for (size_t i = 0; i < std::size(explicit_layouts); i++)
        if (explicit_layouts[i].inputs == inputs && explicit_layouts[i].outputs == outputs)
            return nth<explicit_layouts>(i);
    return {};
}

SpeakerSet explicit_input(const uint8_t* codes) {
    auto occurrences = [codes](Speaker code) { return std::count(codes, codes + map_length, code); };
    const auto channels = map_length - occurrences(no_speaker);
    const bool centre = occurrences(FC) > 0, lfe = occurrences(LFE) > 0;
    if (occurrences(LFE) > 1)
        return {};
    switch (channels) {
    case 1: return mono;
    case 3: return centre ? bed(3, 0) : bed(2, 1);
    case 4: return centre || lfe ? bed(3, 1) : bed(4, 0);
    case 5: return lfe ? bed(4, 1) : bed(5, 0);
    case 6: return lfe ? bed(5, 1) : bed(6, 0);
    case 7: return lfe ? bed(6, 1) : bed(7, 0);
    case 8: return bed(7, 1);
    default: return {};
    }
}

} // namespace korla::downmixer
