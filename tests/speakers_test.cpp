// Speakers and layouts by name, and what is true of the matrix of every pair of layouts.
#include "stream_host.h"

using namespace korla_test;

namespace {

std::string text_of(const korla_layout& l) {
    char text[100];
    EXPECT_LT(korla_layout_text(&l, text, sizeof text), sizeof text);
    return text;
}

// "SL" for "SR" and back; a middle speaker for itself.
std::string other_side(std::string name) {
    for (char& c : name)
        if (name != "FLC" && name != "FRC" ? &c == &name.back() : &c == &name[1])
            c = c == 'L' ? 'R' : c == 'R' ? 'L' : c;
    return name;
}

struct Matrix {
    korla_layout in, out;
    std::vector<float> gains;
    uint32_t source = 99;

    Matrix(const std::string& from, const std::string& to)
        : in(layout(from)), out(layout(to)), gains(in.count * out.count) {
        char reason[200] = "";
        EXPECT_EQ(korla_layout_matrix(&in, &out, gains.data(), &source, reason, sizeof reason), KORLA_OK) << reason;
    }
    static uint32_t place(const korla_layout& l, const std::string& name) {
        uint32_t i = 0;
        while (i < l.count && korla_speaker_name(l.speakers[i]) != name)
            i++;
        return i;
    }
    // 0 where the output has no such speaker.
    float gain(const std::string& from, const std::string& to) const {
        const uint32_t i = place(in, from), o = place(out, to);
        return i < in.count && o < out.count ? gains[o * in.count + i] : 0.0f;
    }
};

TEST(Speakers, NamesAreReadAndWritten) {
    for (uint32_t code = 0; code <= 60; code++)
        if (const char* name = korla_speaker_name(code)) {
            EXPECT_EQ(korla_speaker_by_name(name), code) << name;
            EXPECT_NE(korla_speaker_by_name(other_side(name).c_str()), 0u) << name;
        }
    for (const auto& [alias, name] : {std::pair{"L", "FL"}, {"c", "FC"}, {"RS", "SR"}, {"rl", "BL"}, {"TML", "TSL"}})
        EXPECT_EQ(korla_speaker_by_name(alias), korla_speaker_by_name(name)) << alias;
    EXPECT_EQ(korla_speaker_by_name("FX"), 0u);
    EXPECT_EQ(korla_speaker_name(12), nullptr);

    EXPECT_GE(layout_names().size(), 40u);
    for (const std::string& name : layout_names()) {
        const korla_layout named = layout(name);
        EXPECT_EQ(korla_layout_name(&named), name);
        EXPECT_EQ(text_of(layout(text_of(named))), text_of(named)) << name;
    }
    EXPECT_EQ(text_of(layout("7.1.4")), "FL,FR,FC,LFE,SL,SR,BL,BR,TFL,TFR,TBL,TBR");
    EXPECT_EQ(text_of(layout("Quad")), "FL,FR,BL,BR");
    const korla_layout shuffled = layout("sr sl lfe fc fr fl");
    EXPECT_STREQ(korla_layout_name(&shuffled), "5.1");
    char cut[6];
    EXPECT_EQ(korla_layout_text(&shuffled, cut, sizeof cut), 18u);
    EXPECT_STREQ(cut, "SR,SL");
}

TEST(Speakers, RefusalsNameTheCulprit) {
    const auto reason_of = [](const char* text, korla_status expected) {
        korla_layout l = {3, {7, 7, 7}};
        char reason[200] = "";
        EXPECT_EQ(korla_layout_parse(text, &l, reason, sizeof reason), expected) << text;
        EXPECT_EQ(l.speakers[0], 7u) << "a refusal wrote a layout";
        return std::string(reason);
    };
    EXPECT_NE(reason_of("FL,FX", KORLA_UNKNOWN_SPEAKER).find("'FX'; known are FL FR FC"), std::string::npos);
    EXPECT_NE(reason_of("5.2", KORLA_UNKNOWN_LAYOUT).find("'5.2'"), std::string::npos);
    EXPECT_NE(reason_of("FL,FR,L", KORLA_REPEATED_SPEAKER).find("FL"), std::string::npos);
    EXPECT_NE(reason_of("FL FR FC LFE SL SR BL BR TFL TFR TBL TBR BC", KORLA_UNKNOWN_LAYOUT).find("12"),
              std::string::npos);
    for (const char* empty : {"", " , ,"})
        reason_of(empty, KORLA_UNKNOWN_LAYOUT);
    char two[2] = {1, 1};
    EXPECT_EQ(korla_layout_parse("XX", nullptr, two, 1), KORLA_BAD_ARGUMENT);
    EXPECT_EQ(two[0], 0);
    EXPECT_EQ(two[1], 1) << "a reason ran out of its bytes";
    for (korla_status status = KORLA_OK; status >= KORLA_COPIES; status--)
        EXPECT_STRNE(korla_status_text(status), korla_status_text(1)) << status;
}

TEST(Speakers, ChannelMasksMeanWhatTheySay) {
    for (const auto& [mask, text] : {std::pair{0x3u, "FL,FR"},
                                     {0x3Fu, "FL,FR,FC,LFE,BL,BR"},
                                     {0x60Fu, "FL,FR,FC,LFE,SL,SR"},
                                     {0x2D63Fu, "FL,FR,FC,LFE,BL,BR,SL,SR,TFL,TFR,TBL,TBR"},
                                     {0x12100u, "BC,TFC,TBC"}}) {
        korla_layout from_mask = {};
        uint32_t back = 0;
        EXPECT_EQ(korla_layout_from_wave_mask(mask, &from_mask, nullptr, 0), KORLA_OK);
        EXPECT_EQ(text_of(from_mask), text);
        EXPECT_EQ(korla_layout_to_wave_mask(&from_mask, &back, nullptr, 0), KORLA_OK);
        EXPECT_EQ(back, mask);
    }
    korla_layout l;
    for (uint32_t mask : {0u, 0x800u, 0x40003u, 0xFFFFFFFFu})
        EXPECT_NE(korla_layout_from_wave_mask(mask, &l, nullptr, 0), KORLA_OK) << mask;
    uint32_t mask;
    const korla_layout middle = layout("5.1.2");
    EXPECT_EQ(korla_layout_to_wave_mask(&middle, &mask, nullptr, 0), KORLA_UNKNOWN_SPEAKER);
}

// What must be true of every matrix that the library chooses by itself.
TEST(Downmix, NothingIsLostAndSidesAreKept) {
    for (const std::string& from : layout_names())
        for (const std::string& to : layout_names()) {
            const Matrix m(from, to);
            for (uint32_t i = 0; i < m.in.count; i++) {
                const std::string input = korla_speaker_name(m.in.speakers[i]);
                SCOPED_TRACE(from + " to " + to + ", " + input);
                double left = 0, right = 0, power = 0;
                for (uint32_t o = 0; o < m.out.count; o++) {
                    const std::string output = korla_speaker_name(m.out.speakers[o]);
                    const double gain = m.gain(input, output);
                    EXPECT_EQ(gain, m.gain(other_side(input), other_side(output))) << output << " is not symmetric";
                    EXPECT_GE(gain, 0.0);
                    EXPECT_TRUE(output != "LFE" || gain == (input == "LFE" ? 1.0 : 0.0));
                    const std::string mirror = other_side(output);
                    (output == mirror ? power : output < mirror ? left : right) += gain * gain;
                }
                power += left + right;
                if (input == "LFE")
                    continue;
                EXPECT_GT(power, 0.12) << "less than -9 dB is left";
                EXPECT_LT(power, 1.01);
                EXPECT_TRUE(input >= other_side(input) || right <= left) << "left is on the right";
                const float kept = m.gain(input, input);
                EXPECT_TRUE(m.source == KORLA_MATRIX_MODULE || kept == 0.0f || (kept == 1.0f && power == 1.0))
                    << "a speaker left its place";
            }
        }
}

TEST(Downmix, MatricesThatPeopleCheckByEye) {
    const float h = 0.70794578f, q = 0.50118722f, e = 0.35481337f; // -3, -6, -9 dB
    struct {
        const char *from, *to, *row;
        std::vector<float> gains;
    } const rows[] = {
        // FL FR FC LFE SL SR BL BR TFL TFR TBL TBR
        {"7.1.4", "stereo", "FL", {1, 0, h, 0, h, 0, h, 0, h, 0, q, 0}},
        {"7.1.4", "5.1", "SL", {0, 0, 0, 0, 1, 0, 1, 0, 0, 0, h, 0}},
        {"7.1.4", "5.1", "FL", {1, 0, 0, 0, 0, 0, 0, 0, h, 0, 0, 0}},
        {"7.1.4", "7.1", "BL", {0, 0, 0, 0, 0, 0, 1, 0, 0, 0, h, 0}},
        {"7.1.4", "7.1.2", "TSL", {0, 0, 0, 0, 0, 0, 0, 0, 1, 0, 1, 0}},
        {"7.1.4", "mono", "FC", {h, h, 1, 0, q, q, q, q, q, q, e, e}},
        {"5.1", "stereo", "FR", {0, 1, h, 0, 0, h}},
        {"5.1(back)", "stereo", "FR", {0, 1, h, 0, 0, h}},
        {"5.1", "lcrs", "BC", {0, 0, 0, 0, h, h}},
        {"6.1", "stereo", "FL", {1, 0, h, 0, h, 0, q}},
        {"7.1(wide)", "5.1", "FL", {1, 0, 0, 0, 0, 0, 1, 0}},
        {"5.1.2", "5.1.4", "TBL", {0, 0, 0, 0, 0, 0, h, 0}},
        {"7.1.4", "FL,FR,HL,HR", "HL", {0, 0, 0, 0, 0, 0, 0, 0, 1, 0, 0, 0}}, // within the ring, at full level
    };
    for (const auto& row : rows) {
        const Matrix m(row.from, row.to);
        ASSERT_EQ(m.in.count, row.gains.size()) << row.from;
        for (uint32_t i = 0; i < m.in.count; i++)
            EXPECT_NEAR(m.gain(korla_speaker_name(m.in.speakers[i]), row.row), row.gains[i], 2e-7)
                << row.from << " to " << row.to << ": " << korla_speaker_name(m.in.speakers[i]) << " into " << row.row;
    }
}

TEST(Downmix, SetsWithoutARuleGoToTheNearest) {
    for (uint32_t input = 1; input <= 48; input++) // never into an LFE, which a dialogue would be lost in
        for (uint32_t output = 1; output <= 48; output++)
            if (const char* from = korla_speaker_name(input), *to = korla_speaker_name(output);
                from && to && std::string(from) != "LFE" && std::string(to) != "LFE") {
                const Matrix m(from, std::string(to) + ",LFE");
                EXPECT_TRUE(m.gain(from, to) > 0.3f && m.gain(from, "LFE") == 0.0f) << from << " to " << to;
            }
    for (const char* nearest : {"TFL", "TFR"})
        EXPECT_NEAR(Matrix("FC", "SL,SR,TFL,TFR").gain("FC", nearest), std::sqrt(0.5), 1e-3) << nearest;
    EXPECT_EQ(Matrix("FL,SR", "BR,FC").gain("SR", "BR"), 1.0f);
    EXPECT_EQ(Matrix("FC,FL", "BL").gain("FC", "BL"), 1.0f);
    const korla_layout in = layout("FL,LFE"), out = layout("LFE");
    float gains[2];
    char reason[100] = "";
    EXPECT_EQ(korla_layout_matrix(&in, &out, gains, nullptr, reason, sizeof reason), KORLA_BAD_MATRIX);
    EXPECT_NE(std::string(reason).find("FL"), std::string::npos);
}

} // namespace
