#include "dsp/filterbank/qmf.h"

#include "korla/dsp/dct.h"

namespace krl::qmf {

namespace {

constexpr BandTables all_tables[] = {
    {8, krl_cos_8_full, krl_cos_8_full_scl, krl_cos_8_ast_mini_twiddle, krl_cos_32_full_twiddle,
     krl_dct_twiddle_table16_L8},
    {16, krl_cos_16_full, krl_cos_16_full_scl, krl_cos_16_ast_mini_twiddle, krl_cos_32_full_twiddle,
     krl_dct_twiddle_table16_L16},
    {32, krl_cos_32_full, krl_cos_32_full_scl, krl_cos_32_ast_mini_twiddle, krl_cos_32_full_twiddle,
     krl_dct_twiddle_table16_L32},
    {48, krl_cos_48_full, krl_cos_48_full_scl, krl_cos_48_ast_mini_twiddle, nullptr, krl_dct_twiddle_table16_L48},
    {64, krl_cos_64_full, krl_cos_64_full_scl, nullptr, krl_cos_64_full_twiddle, krl_dct_twiddle_table16_L64},
};

// The bands that the memory of a family is sized for.
uint32_t bands_of_memory(Family family, uint32_t M) {
    const bool by_bands = family == Family::L ? M <= 64 : M == 64;
    return by_bands ? M : 32;
}

const krl_fft_pair* fastest_forward_fft(uint32_t n) {
    const krl_fft_pair* pair = KRL_r8_cplx_fwd_pair(n);
    return krl_valid_pair_ptr(pair) ? pair : KRL_r4_cplx_fwd_pair(n);
}

} // namespace

Bank configure(Family family, uint32_t M, uint32_t slots, uint32_t mode, uint32_t P, const float* prototype,
               void* state, void* scratch) {
    const BandTables* tables = nullptr;
    for (const BandTables& candidate : all_tables)
        if (candidate.bands == M)
            tables = &candidate;
    const bool full = mode != no_twiddle && mode != short_twiddle;
    if (!tables || (P != 4 && P != 5) || !prototype || bands_of_memory(family, M) < M ||
        (full && !tables->full_twiddle))
        return {};
    const float* twiddle = full ? tables->full_twiddle : mode == short_twiddle ? tables->short_twiddle : nullptr;
    return {M,
            P,
            slots,
            M,
            mode,
            prototype,
            tables,
            twiddle,
            fastest_forward_fft(M),
            fastest_forward_fft(M / 2),
            static_cast<float*>(state),
            static_cast<float*>(scratch)};
}

MemorySizes memory_sizes(Family family, uint32_t M, uint32_t selector, uint32_t bytes_per_block) {
    const uint32_t bands = bands_of_memory(family, M);
    const uint32_t blocks = (selector & 3) != 0 ? 9 : 7;
    const uint32_t slack = 31, sample = sizeof(float);
    return {slack + blocks * (bands * sample + bytes_per_block), slack + 4 * bands * sample,
            family == Family::L ? 127u : 119u, family == Family::L ? 127u : 1024u};
}

uint32_t store_sizes(const MemorySizes& sizes, uint32_t* state, uint32_t* scratch, uint32_t* instance) {
    if (state)
        *state = sizes.state;
    if (scratch)
        *scratch = sizes.scratch;
    if (instance)
        *instance = sizes.instance;
    return sizes.result;
}

} // namespace krl::qmf
