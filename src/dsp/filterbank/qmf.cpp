// The parameters and the memory of a QMF bank: which are accepted, and what they need.
#include "dsp/filterbank/qmf.h"

#include "dsp/fft/fastest.h"
#include "dsp/filterbank/qmf_rotations.h"
#include "korla/dsp/dct.h"

namespace krl::qmf {

namespace {

constexpr BandTables all_tables[] = {
    {8, krl_cos_8_full, krl_cos_8_full_scl, short_rotations<8>.value, full_rotations<8, 32>.value,
     krl_dct_twiddle_table16_L8},
    {16, krl_cos_16_full, krl_cos_16_full_scl, short_rotations<16>.value, full_rotations<16, 32>.value,
     krl_dct_twiddle_table16_L16},
    {32, krl_cos_32_full, krl_cos_32_full_scl, short_rotations<32>.value, full_rotations<32, 32>.value,
     krl_dct_twiddle_table16_L32},
    {48, krl_cos_48_full, krl_cos_48_full_scl, short_rotations<48>.value, nullptr, krl_dct_twiddle_table16_L48},
    {64, krl_cos_64_full, krl_cos_64_full_scl, nullptr, full_rotations<64, 64>.value, krl_dct_twiddle_table16_L64},
};

const BandTables* tables_of(uint32_t bands) {
    for (const BandTables& tables : all_tables)
        if (tables.bands == bands)
            return &tables;
    return nullptr;
}

} // namespace

Bank configure(const Family& family, const Parameters& parameters, float* state, float* scratch) {
    const auto [M, slots, mode, P, prototype] = parameters;
    const BandTables* tables = tables_of(M);
    if (!tables || (P != 4 && P != 5) || !prototype || M > family.memory_bands(M))
        return {};
    const bool full = mode != no_twiddle && mode != short_twiddle;
    if (full && !tables->full_rotations)
        return {};
    const float* rotations = full ? tables->full_rotations : mode == short_twiddle ? tables->short_rotations : nullptr;
    return {parameters, M, tables, rotations, fft::fastest_forward(M), fft::fastest_forward(M / 2), state, scratch};
}

uint32_t query_memory(const Family& family, uint32_t bytes_per_block, uint32_t M, uint32_t selector, uint32_t* state,
                      uint32_t* scratch, uint32_t* instance) {
    const uint32_t band_bytes = family.memory_bands(M) * sizeof(float), blocks = (selector & 3) != 0 ? 9 : 7,
                   slack = 31;
    if (state)
        *state = slack + blocks * (band_bytes + bytes_per_block);
    if (scratch)
        *scratch = slack + 4 * band_bytes;
    if (instance)
        *instance = family.instance_bytes;
    return family.query_result;
}

} // namespace krl::qmf
