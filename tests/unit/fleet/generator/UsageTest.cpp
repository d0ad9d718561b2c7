// SPDX-License-Identifier: MIT
#include "fleet/generator/Usage.h"

#include <gtest/gtest.h>
#include <sys/prctl.h>
#include <unistd.h>

#include <array>
#include <ctime>
#include <stdexcept>

using std::chrono::microseconds;

TEST(UsageTest, AProcessUsesWhatTheClockOfItsProcessorTells) {
    timespec used{};
    do {  // The figure counts in hundredths of a second.
        ::clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &used);
    } while (used.tv_sec == 0 && used.tv_nsec < 100'000'000);
    const microseconds atLeast(used.tv_sec * 1'000'000LL + used.tv_nsec / 1000 - 40'000);
    EXPECT_GE(Usage::of(::getpid()).processor, atLeast);
    EXPECT_GT(Usage::of(::getpid()).residentKilobytes, 500U);
}

TEST(UsageTest, ANameWithBlanksAndParenthesesHidesNothing) {
    std::array<char, 16> name{};
    ::prctl(PR_GET_NAME, name.data());
    const Usage before = Usage::of(::getpid());
    ::prctl(PR_SET_NAME, "a) 1 2 (b");
    const Usage after = Usage::of(::getpid());
    ::prctl(PR_SET_NAME, name.data());
    EXPECT_GE(after.processor, before.processor);
    EXPECT_LT(after.processor - before.processor, std::chrono::minutes(1));
}

TEST(UsageTest, AProcessThatIsNotThereIsAnError) {
    EXPECT_THROW(Usage::of(-1), std::runtime_error);
}
