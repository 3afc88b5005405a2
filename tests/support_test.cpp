// Small helpers: the power of one half and the time counters.
#include <korla/dsp/support.h>
#include <korla/dsp/time_counter.h>

#include <gtest/gtest.h>

#include <cmath>

namespace {

TEST(Support, HalfPowerIsWithinItsSevenRoundingsForAllArguments) {
    for (uint32_t i = 0; i < 65536; i++) {
        const double exact = std::exp2(-static_cast<double>(i & 0x7fff) / 32768.0);
        ASSERT_NEAR(KRL_Lpow05I16(static_cast<uint16_t>(i)) / exact, 1.0, 4.2e-7) << i;
    }
    EXPECT_EQ(KRL_Lpow05I16(0), 1.0f);
    EXPECT_EQ(KRL_dsplib_init(), 0);
}

TEST(TimeCounter, WrapsComparesUnsignedDividesInDoubleAndResets) {
    EXPECT_EQ(KRL_time_add(UINT64_MAX, 3), 2u);
    EXPECT_EQ(KRL_time_sub(5, UINT64_MAX - 4), 10u); // the counter wrapped in between
    EXPECT_TRUE(KRL_time_lt(1, UINT64_MAX) == 1 && KRL_time_lt(UINT64_MAX, 1) == 0 && KRL_time_lt(7, 7) == 0);
    EXPECT_EQ(KRL_time_div(7, 2), 3.5);
    EXPECT_EQ(KRL_time_div(UINT64_MAX, 1), 0x1p64); // converted first, so rounded
    EXPECT_EQ(KRL_time_div(1, 0), INFINITY);
    EXPECT_TRUE(std::isnan(KRL_time_div(0, 0)));

    uint64_t time = 42;
    for (uint64_t* t : {&time, static_cast<uint64_t*>(nullptr)}) {
        KRL_time_init(t);
        KRL_time_end(t);
        EXPECT_EQ(time, t ? 42u : 0u);
        KRL_time_reset(t);
    }
}

} // namespace
