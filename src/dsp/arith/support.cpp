// Library housekeeping and the table-driven power of one half.
#include "korla/dsp/support.h"

#include <array>

namespace {

// 2^(-n/32768) in double: exp(-n ln2 / 32768) by its Taylor series on [0, ln 2].
constexpr double half_power(int n) {
    const double x = -0.693147180559945309417 * n / 32768.0;
    double sum = 0.0;
    for (int i = 24; i > 0; i--)
        sum = (sum + 1.0) * x / i;
    return 1.0 + sum;
}

template <int entries> constexpr auto half_power_table(int step) {
    std::array<float, entries> table{};
    for (int j = 0; j < entries; j++)
        table[j] = static_cast<float>(half_power(step * j));
    return table;
}

constexpr auto bits_0_2 = half_power_table<8>(1);
constexpr auto bits_3_6 = half_power_table<16>(8);
constexpr auto bits_7_10 = half_power_table<16>(128);
constexpr auto bits_11_14 = half_power_table<16>(2048);

} // namespace

int32_t KRL_dsplib_init(void) { return 0; }

float KRL_Lpow05I16(uint16_t x) {
    return (bits_3_6[(x >> 3) & 15] * bits_7_10[(x >> 7) & 15]) * (bits_11_14[(x >> 11) & 15] * bits_0_2[x & 7]);
}
