// SPDX-License-Identifier: MIT
#include "fleet/generator/Schedule.h"

#include <gtest/gtest.h>

using std::chrono::milliseconds;
using std::chrono::seconds;

TEST(ScheduleTest, DevicesShareThePeriodEvenly) {
    const Clock::time_point start(seconds(5));
    const Schedule schedule = Schedule::of(start, 4, seconds(1));
    EXPECT_EQ(start, schedule.at(0));
    EXPECT_EQ(start + milliseconds(250), schedule.at(1));
    EXPECT_EQ(start + seconds(1), schedule.at(4));
}

TEST(ScheduleTest, ADayOfThousandsOfDevicesDoesNotOverflow) {
    const Schedule schedule = Schedule::of(Clock::time_point(), 5000, milliseconds(100));
    EXPECT_EQ(Clock::time_point(std::chrono::hours(24)),
              schedule.at(schedule.countIn(std::chrono::hours(24))));
}

TEST(ScheduleTest, ATimeHoldsTheMessagesThatAreDueInIt) {
    const Schedule schedule = Schedule::of(Clock::time_point(), 1000, seconds(1));
    EXPECT_EQ(30000U, schedule.countIn(seconds(30)));
}
