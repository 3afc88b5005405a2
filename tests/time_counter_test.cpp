#include <korla/dsp/time_counter.h>

#include <gtest/gtest.h>

#include <cmath>

namespace {

TEST(TimeCounter, WrapsModuloTwoToThe64) {
    EXPECT_EQ(KRL_time_add(UINT64_MAX, 3), 2u);
    EXPECT_EQ(KRL_time_sub(0, 1), UINT64_MAX);
    EXPECT_EQ(KRL_time_sub(5, UINT64_MAX - 4), 10u); // the counter wrapped in between
}

TEST(TimeCounter, ComparesUnsigned) {
    EXPECT_EQ(KRL_time_lt(1, UINT64_MAX), 1);
    EXPECT_EQ(KRL_time_lt(UINT64_MAX, 1), 0);
    EXPECT_EQ(KRL_time_lt(7, 7), 0);
}

TEST(TimeCounter, DividesInDouble) {
    EXPECT_EQ(KRL_time_div(7, 2), 3.5);
    EXPECT_EQ(KRL_time_div(UINT64_MAX, 1), 0x1p64); // converted first, so rounded
    EXPECT_EQ(KRL_time_div(1, UINT32_MAX), 1.0 / 4294967295.0);
    EXPECT_EQ(KRL_time_div(1, 0), INFINITY);
    EXPECT_TRUE(std::isnan(KRL_time_div(0, 0)));
}

TEST(TimeCounter, HooksLeaveTheValueAndResetClearsIt) {
    uint64_t time = 42;
    KRL_time_init(&time);
    KRL_time_end(&time);
    EXPECT_EQ(time, 42u);
    KRL_time_reset(&time);
    EXPECT_EQ(time, 0u);
    KRL_time_init(nullptr);
    KRL_time_end(nullptr);
    KRL_time_reset(nullptr);
}

} // namespace
