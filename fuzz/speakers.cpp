// Texts and masks of layouts: any text, any layout, any mask, any room for a reason; what was read is written and read again.
#include <korla/speakers.h>

#include <cmath>

#include "hostile_host.h"

using namespace korla_fuzz;

namespace {

// Room for a reason, of any size.
struct Reason {
    explicit Reason(Bytes& bytes) : buffer(bytes.u8() % 90u, 0) {}
    char* text() { return reinterpret_cast<char*>(buffer.data()); }
    void check(korla_status status) {
        require(korla_status_text(status) != nullptr);
        require(status == KORLA_OK || buffer.size() == 0 || std::memchr(text(), 0, buffer.size()));
    }
    Buffer buffer;
};

korla_layout any_layout(Bytes& bytes) {
    korla_layout layout = {};
    layout.count = bytes.u8() % 15u;
    for (uint32_t& speaker : layout.speakers)
        speaker = bytes.u8() % 64u;
    return layout;
}

bool same(const korla_layout& a, const korla_layout& b) {
    return a.count == b.count && std::memcmp(a.speakers, b.speakers, a.count * sizeof a.speakers[0]) == 0;
}

void check_layout(const korla_layout& layout, Bytes& bytes) {
    require(layout.count >= 1 && layout.count <= KORLA_MAX_SPEAKERS);
    for (uint32_t i = 0; i < layout.count; i++) {
        const char* const name = korla_speaker_name(layout.speakers[i]);
        require(name && korla_speaker_by_name(name) == layout.speakers[i]);
    }
    korla_layout again = {};
    Buffer text(korla_layout_text(&layout, nullptr, 0) + 1, 0);
    char* const written = reinterpret_cast<char*>(text.data());
    require(korla_layout_text(&layout, written, text.size()) == text.size() - 1);
    require(korla_layout_parse(written, &again, nullptr, 0) == KORLA_OK && same(layout, again));

    Reason reason(bytes);
    uint32_t mask = 0;
    const korla_status status = korla_layout_to_wave_mask(&layout, &mask, reason.text(), reason.buffer.size());
    reason.check(status);
    if (status == KORLA_OK)
        require(korla_layout_from_wave_mask(mask, &again, nullptr, 0) == KORLA_OK && again.count == layout.count);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    Bytes bytes(data, size);
    const uint8_t what = bytes.u8() % 4;
    korla_layout layout = {};
    korla_status status;
    Reason reason(bytes);
    if (what == 0) {
        const uint32_t mask = bytes.u32();
        status = korla_layout_from_wave_mask(mask, &layout, reason.text(), reason.buffer.size());
        uint32_t again = 0;
        require(status != KORLA_OK ||
                (korla_layout_to_wave_mask(&layout, &again, nullptr, 0) == KORLA_OK && again == mask));
    } else if (what == 1) {
        const korla_layout in = any_layout(bytes), out = any_layout(bytes);
        Buffer room(bytes.u8(), 0); // for a text that is cut, of a layout that may be none
        korla_layout_text(&in, reinterpret_cast<char*>(room.data()), room.size());
        korla_layout_name(&in);
        Buffer gains(sizeof(float) * (in.count <= 12 && out.count <= 12 ? in.count * out.count : 0), 0);
        status = korla_layout_matrix(&in, &out, reinterpret_cast<float*>(gains.data()), nullptr, reason.text(),
                                     reason.buffer.size());
        for (size_t i = 0; status == KORLA_OK && i < gains.size() / sizeof(float); i++) {
            const float gain = reinterpret_cast<float*>(gains.data())[i];
            require(gain >= 0.0f && gain <= 2.0f);
        }
        layout = in;
    } else {
        Buffer text(bytes.rest_size() + 1, 0);
        if (bytes.rest_size() > 0)
            std::memcpy(text.data(), bytes.rest(), bytes.rest_size());
        text.data()[text.size() - 1] = 0;
        korla_speaker_by_name(reinterpret_cast<char*>(text.data()));
        status = korla_layout_parse(reinterpret_cast<char*>(text.data()), &layout, reason.text(), reason.buffer.size());
        require(status == KORLA_OK || layout.count == 0);
    }
    reason.check(status);
    if (status == KORLA_OK)
        check_layout(layout, bytes);
    return 0;
}
