#include "limiter/tables.h"

#include <iterator>

#include "dsp/core/table.h"
#include "dsp/core/trig.h"
#include "korla/limiter.h"

namespace korla::limiter {
namespace {

// ---- windows -------------------------------------------------------------------------------------------------------

// w[i] = sin^2(pi (i + 0.5) / (2N)) = (1 - cos(2 pi (2i + 1) / (4N))) / 2, rounded to 1/32768 with halves up, at most
// 32767/32768. w[i] + w[N-1-i] is 1 except at the ends of the longest window.
constexpr float window_value(int i, int n) {
    const double sin_squared = (1.0 - krl::cos_turn(2 * i + 1, 4 * n)) / 2.0;
    const int steps = static_cast<int>(32768.0 * sin_squared + 0.5);
    return static_cast<float>(steps < 32767 ? steps : 32767) / 32768.0f;
}

// ---- coefficients --------------------------------------------------------------------------------------------------

constexpr krl::Table<8> set(int c0, int c2, int c4, int c5) {
    auto unit = [](int numerator) { return static_cast<float>(numerator) / 32768.0f; };
    return {{unit(c0), unit(32768 - c0), unit(c2), unit(32768 - c2), unit(c4), unit(c5), 0.0f, 0.0f}};
}

// {slow fall, 1 - it, slow recovery, 1 - it, release, unused, 0, 0}, one set per sub-block duration T: slow fall =
// exp(-T / 57.7 ms), slow recovery = exp(-T / 230.7 ms), release = exp(-T / 7.21 ms), unused = exp(-T / 14.4 ms), in
// steps of 1/32768. The numbers, not the formulas, are the contract.
constexpr krl::Table<8> sets[21] = {
    set(32673, 32744, 32020, 32392), //  0  0.1667 ms
    set(32665, 32742, 31954, 32359), //  1  0.1814
    set(32650, 32738, 31835, 32298), //  2  0.2083
    set(32639, 32736, 31754, 32257), //  3  0.2268
    set(32579, 32721, 31288, 32020), //  4  0.3333
    set(32562, 32716, 31159, 31953), //  5  0.3628
    set(32532, 32709, 30929, 31835), //  6  0.4167
    set(32511, 32704, 30771, 31754), //  7  0.4535
    set(32485, 32697, 30574, 31652), //  8  0.5000
    set(32415, 32679, 30048, 31379), //  9  0.6250
    set(32392, 32673, 29875, 31288), // 10  0.6667
    set(32359, 32665, 29632, 31161), // 11  0.7256
    set(32298, 32650, 29193, 30929), // 12  0.8333
    set(32257, 32639, 28896, 30771), // 13  0.9070
    set(32205, 32626, 28526, 30574), // 14  1.0000
    set(32066, 32591, 27554, 30048), // 15  1.2500
    set(32020, 32579, 27238, 29875), // 16  1.3333
    set(31954, 32563, 26796, 29632), // 17  1.4512
    set(31835, 32532, 26008, 29193), // 18  1.6667
    set(31652, 32485, 24834, 28526), // 19  2.0000
    set(31288, 32392, 22641, 27238), // 20  2.6667
};

template <int n> constexpr auto window() {
    return krl::make_table<n>([](int i) { return window_value(i, n); });
}

// The sets of one sub-block length, by rate; -1 where the rate is not offered.
constexpr int none = -1;
template <class... Numbers> constexpr auto coefficients(Numbers... numbers) {
    return krl::Table<sizeof...(numbers), const float*>{{(numbers == none ? nullptr : sets[numbers].value)...}};
}

} // namespace
} // namespace korla::limiter

using namespace korla::limiter;

KRL_DEFINE_TABLE(korvex_ht_a_kvlim_win_32, window<32>());
KRL_DEFINE_TABLE(korvex_ht_a_kvlim_win_40, window<40>());
KRL_DEFINE_TABLE(korvex_ht_a_kvlim_win_64, window<64>());
KRL_DEFINE_TABLE(korvex_ht_a_kvlim_win_128, window<128>());
KRL_DEFINE_TABLE(korvex_ht_a_kvlim_win_256, window<256>());

// By rate: 192, 176.4, 96, 88.2, 64, 48, 44.1, 32 and 24 kHz.
KRL_DEFINE_TABLE(korvex_ht_ap_kvlim_coefs_256, coefficients(16, 17, 20, none, none, none, none, none, none));
KRL_DEFINE_TABLE(korvex_ht_ap_kvlim_coefs_128, coefficients(10, 11, 16, 17, 19, 20, none, none, none));
KRL_DEFINE_TABLE(korvex_ht_ap_kvlim_coefs_64, coefficients(4, 5, 10, 11, 14, 16, 17, 19, 20));
KRL_DEFINE_TABLE(korvex_ht_ap_kvlim_coefs_40, coefficients(2, 3, 6, 7, 9, 12, 13, 15, 18));
KRL_DEFINE_TABLE(korvex_ht_ap_kvlim_coefs_32, coefficients(0, 1, 4, 5, 8, 10, 11, 14, 16));

namespace korla::limiter {

SubblockTables tables_of(uint32_t subblock_length) {
    switch (subblock_length) {
    case 256: return {korvex_ht_a_kvlim_win_256, korvex_ht_ap_kvlim_coefs_256, 1};
    case 128: return {korvex_ht_a_kvlim_win_128, korvex_ht_ap_kvlim_coefs_128, 1};
    case 64: return {korvex_ht_a_kvlim_win_64, korvex_ht_ap_kvlim_coefs_64, 1};
    case 40: return {korvex_ht_a_kvlim_win_40, korvex_ht_ap_kvlim_coefs_40, 2};
    case 32: return {korvex_ht_a_kvlim_win_32, korvex_ht_ap_kvlim_coefs_32, 3};
    default: return {nullptr, nullptr, 0};
    }
}

int rate_index(uint32_t rate_hz) {
    constexpr uint32_t rates_hz[] = {192000, 176400, 96000, 88200, 64000, 48000, 44100, 32000, 24000};
    for (int i = 0; i < static_cast<int>(std::size(rates_hz)); i++)
        if (rates_hz[i] == rate_hz)
            return i;
    return -1;
}

} // namespace korla::limiter
