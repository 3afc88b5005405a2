// Windows and coefficients, computed at compile time.
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

// 2^x, by the series of the exponential function; |x| is at most 1.
constexpr double exp2(double x) {
    constexpr double ln_2 = 0.69314718055994530942;
    double sum = 1.0, term = 1.0;
    for (int n = 1; n < 20; n++)
        sum += term *= x * ln_2 / n;
    return sum;
}

// A recursion keeps 2^(-T / half-life) of its state over a sub-block of duration T, rounded to 1/32768; the rest is
// new.
constexpr krl::Table<8> set(double subblock_length, double rate_hz) {
    auto kept = [=](double half_life_ms) {
        const double steps = 32768.0 * exp2(-1000.0 * subblock_length / rate_hz / half_life_ms);
        return static_cast<float>(static_cast<int>(steps + 0.5)) / 32768.0f;
    };
    const float fall = kept(40.0), recovery = kept(160.0);
    return {{fall, 1.0f - fall, recovery, 1.0f - recovery, kept(5.0), kept(10.0), 0.0f, 0.0f}};
}

// One set per duration of a sub-block, from 0.17 to 2.7 ms. The sixth, for 32 samples at 88200 Hz and 64 at 176400, has
// always been that of 88100.
constexpr krl::Table<8> sets[21] = {
    set(32, 192000), set(32, 176400), set(40, 192000), set(40, 176400), set(32, 96000), set(32, 88100), set(40, 96000),
    set(40, 88200),  set(32, 64000),  set(40, 64000),  set(32, 48000),  set(32, 44100), set(40, 48000), set(40, 44100),
    set(32, 32000),  set(40, 32000),  set(32, 24000),  set(64, 44100),  set(40, 24000), set(64, 32000), set(64, 24000)};

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
