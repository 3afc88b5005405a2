// Twiddle tables of the modulated bank.
#include "dsp/core/table.h"
#include "dsp/core/trig.h"
#include "korla/dsp/mfb.h"

namespace {

// e^(-i pi (2m + offset) / (4 bands)) for m = 0 .. bands - 1, in groups of four real and four imaginary parts.
template <int bands, int offset> constexpr auto twiddles() {
    return krl::make_table<2 * bands>([](int i) {
        const int m = i / 8 * 4 + i % 4;
        const krl::sin_cos angle = krl::sin_cos_turn(2 * m + offset, 8 * bands);
        return i % 8 < 4 ? angle.cos : -angle.sin;
    });
}

} // namespace

KRL_DEFINE_TABLE(KRL_MFB_TWID64E, twiddles<64, 1>());
KRL_DEFINE_TABLE(KRL_MFB_TWID128E, twiddles<128, 1>());
KRL_DEFINE_TABLE(KRL_MFB_TWID256E, twiddles<256, 1>());
KRL_DEFINE_TABLE(KRL_MFB_TWID64O, twiddles<64, 0>());
