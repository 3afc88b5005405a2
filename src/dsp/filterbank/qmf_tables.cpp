// The modulation tables of the QMF banks, formed at compile time.

#include "dsp/core/table.h"
#include "dsp/core/trig.h"
#include "korla/dsp/qmf.h"

namespace krl {

namespace {

// sin_gain * sin, cos_gain * cos of 2 pi (numerator(m) / denominator), in groups of four sines and four cosines.
template <size_t Pairs, class Numerator>
constexpr Table<2 * Pairs> grouped(Numerator numerator, int64_t denominator, double sin_gain, double cos_gain) {
    Table<2 * Pairs> table{};
    for (size_t m = 0; m < Pairs; m++) {
        const sin_cos angle = sin_cos_turn(numerator(static_cast<int64_t>(m)), denominator);
        const size_t at = m / 4 * 8 + m % 4;
        table.value[at] = static_cast<float>(sin_gain * angle.sin);
        table.value[at + 4] = static_cast<float>(cos_gain * angle.cos);
    }
    return table;
}

// pi m / (2M), m = 0..M-1
template <size_t M> constexpr Table<2 * M> rotations(double gain) {
    return grouped<M>([](int64_t m) { return m; }, 4 * M, gain, gain);
}
// pi (2m + 1) / (4T), m = 0..T/2-1
template <size_t T> constexpr Table<T> full_twiddles() {
    return grouped<T / 2>([](int64_t m) { return 2 * m + 1; }, 8 * T, 1.0, -1.0);
}
// pi (2m + 1) numerator / denominator, m = 0..M-1
template <size_t M> constexpr Table<2 * M> short_twiddles(int64_t numerator, int64_t denominator) {
    return grouped<M>([=](int64_t m) { return (2 * m + 1) * numerator; }, 2 * denominator, 1.0, 1.0);
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

KRL_DEFINE_TABLE(krl_cos_8_ast_mini_twiddle, short_twiddles<8>(7, 256));
KRL_DEFINE_TABLE(krl_cos_16_ast_mini_twiddle, short_twiddles<16>(3, 256));
KRL_DEFINE_TABLE(krl_cos_32_ast_mini_twiddle, short_twiddles<32>(1, 256));
KRL_DEFINE_TABLE(krl_cos_48_ast_mini_twiddle, short_twiddles<48>(1, 768));

} // namespace krl
