// The modulation tables of the QMF banks, formed at compile time.

#include "dsp/core/table.h"
#include "dsp/core/trig.h"
#include "dsp/filterbank/qmf_rotations.h"
#include "korla/dsp/qmf.h"

namespace krl {

namespace {

// sin_gain * sin, cos_gain * cos of angle_of(m), in groups of four sines and four cosines.
template <uint32_t Pairs, class AngleOf>
constexpr Table<2 * Pairs> grouped(AngleOf angle_of, double sin_gain, double cos_gain) {
    Table<2 * Pairs> table{};
    for (uint32_t m = 0; m < Pairs; m++) {
        const sin_cos angle = angle_of(m);
        const size_t at = m / 4 * 8 + m % 4;
        table.value[at] = static_cast<float>(sin_gain * angle.sin);
        table.value[at + 4] = static_cast<float>(cos_gain * angle.cos);
    }
    return table;
}

// pi m / (2M), m = 0..M-1
template <uint32_t M> constexpr Table<2 * M> rotations(double gain) {
    return grouped<M>([](uint32_t m) { return sin_cos_turn(m, 4 * M); }, gain, gain);
}
template <uint32_t T> constexpr Table<T> full_twiddles() {
    return grouped<T / 2>([](uint32_t m) { return qmf::full_twiddle_angle(T, m); }, 1.0, -1.0);
}
template <uint32_t M> constexpr Table<2 * M> short_twiddles() {
    return grouped<M>([](uint32_t m) { return qmf::short_twiddle_angle(M, m); }, 1.0, 1.0);
}

} // namespace

KRL_DEFINE_TABLE(krl_cos_8_full, rotations<8>(0.5));
KRL_DEFINE_TABLE(krl_cos_8_full_scl, rotations<8>(0.5 / 8));
KRL_DEFINE_TABLE(krl_cos_16_full, rotations<16>(0.5));
KRL_DEFINE_TABLE(krl_cos_16_full_scl, rotations<16>(0.5 / 16));
KRL_DEFINE_TABLE(krl_cos_32_full, rotations<32>(0.5));
KRL_DEFINE_TABLE(krl_cos_32_full_scl, rotations<32>(0.5 / 32));
KRL_DEFINE_TABLE(krl_cos_48_full, rotations<48>(0.5));
KRL_DEFINE_TABLE(krl_cos_48_full_scl, rotations<48>(0.5 / 48));
KRL_DEFINE_TABLE(krl_cos_64_full, rotations<64>(0.5));
KRL_DEFINE_TABLE(krl_cos_64_full_scl, rotations<64>(0.5 / 64));

KRL_DEFINE_TABLE(krl_cos_64_full_twiddle, full_twiddles<64>());
KRL_DEFINE_TABLE(krl_cos_32_full_twiddle, full_twiddles<32>());

KRL_DEFINE_TABLE(krl_cos_8_ast_mini_twiddle, short_twiddles<8>());
KRL_DEFINE_TABLE(krl_cos_16_ast_mini_twiddle, short_twiddles<16>());
KRL_DEFINE_TABLE(krl_cos_32_ast_mini_twiddle, short_twiddles<32>());
KRL_DEFINE_TABLE(krl_cos_48_ast_mini_twiddle, short_twiddles<48>());

} // namespace krl
