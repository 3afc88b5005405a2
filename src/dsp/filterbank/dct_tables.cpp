// The twiddle tables of the cosine transforms, formed at compile time.
//
// Five of the seven forms of a length read one quarter wave, forwards or backwards; the mirror symmetry of sin_cos_turn
// keeps backwards equal to the cosine to the bit. Two of them are the same, and one array.

#include "dsp/core/table.h"
#include "dsp/core/trig.h"
#include "korla/dsp/dct.h"

namespace krl {

namespace {

// sin(pi m / (2L)), m = 0..L.
template <size_t L> constexpr Table<L + 1> make_quarter_wave() {
    Table<L + 1> table{};
    for (size_t m = 0; m <= L / 2; m++) {
        const sin_cos angle = sin_cos_turn(static_cast<int64_t>(m), 4 * L);
        table.value[m] = static_cast<float>(angle.sin);
        table.value[L - m] = static_cast<float>(angle.cos);
    }
    return table;
}
template <size_t L> constexpr Table<L + 1> quarter_wave = make_quarter_wave<L>();

// sin(pi (m + shift) / (2L)), m = 0..L-1.
template <size_t L> constexpr Table<L> sines(size_t shift = 0) {
    Table<L> table{};
    for (size_t m = 0; m < L; m++)
        table.value[m] = quarter_wave<L>.value[m + shift];
    return table;
}

// cos(pi (m + shift) / (2L)), m = 0..L-1.
template <size_t L> constexpr Table<L> cosines(size_t shift = 0) {
    Table<L> table{};
    for (size_t m = 0; m < L; m++)
        table.value[m] = quarter_wave<L>.value[L - m - shift];
    return table;
}

// exp(j pi (4m + 1) / (8L)) / 2, m = 0..L-1.
template <size_t L> struct HalfRotations { Table<L> sines, cosines; };
template <size_t L> constexpr HalfRotations<L> make_half_rotations() {
    HalfRotations<L> table{};
    for (size_t m = 0; m < L; m++) {
        const sin_cos angle = sin_cos_turn(static_cast<int64_t>(4 * m + 1), 16 * L);
        table.sines.value[m] = static_cast<float>(0.5 * angle.sin);
        table.cosines.value[m] = static_cast<float>(0.5 * angle.cos);
    }
    return table;
}
template <size_t L> constexpr HalfRotations<L> half_rotations = make_half_rotations<L>();

} // namespace

#define DEFINE_ALL(L)                                                                                                  \
    KRL_DEFINE_TABLE(krl_dct_twiddle_table16_1_L##L, sines<L>(1));                                                     \
    KRL_DEFINE_TABLE(krl_dct_twiddle_table16_rev_L##L, cosines<L>());                                                  \
    KRL_DEFINE_TABLE(krl_dct_twiddle_table16_rev_1_L##L, cosines<L>(1));
#define DEFINE_SINE(L)                                                                                                 \
    KRL_DEFINE_TABLE(krl_dct_twiddle_table16_L##L, sines<L>());                                                        \
    KRL_DEFINE_TABLE(krl_dct_twiddle_table16_L##L##_1, Table<L>(half_rotations<L>.sines));                             \
    KRL_DEFINE_TABLE(krl_dct_twiddle_table16_L##L##_2, Table<L>(half_rotations<L>.cosines));
#define DEFINE_COSINE(L) KRL_DEFINE_TABLE_ALIAS(krl_dct_twiddle_table16_L##L##_cos, krl_dct_twiddle_table16_rev_L##L);

KRL_DCT_TWIDDLE_LENGTHS_ALL(DEFINE_ALL)
KRL_DCT_TWIDDLE_LENGTHS_SINE(DEFINE_SINE)
KRL_DCT_TWIDDLE_LENGTHS_COSINE(DEFINE_COSINE)

} // namespace krl
