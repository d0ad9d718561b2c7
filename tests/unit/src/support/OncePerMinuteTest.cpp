// SPDX-License-Identifier: MIT
#include "support/OncePerMinute.h"

#include <gmock/gmock.h>

#include <chrono>
#include <string>

namespace {

using namespace std::chrono_literals;

class OncePerMinuteTest : public testing::Test {
 protected:
    bool allows(const std::string& subject, std::chrono::milliseconds time) {
        return limit.allows(subject, OncePerMinute::Clock::time_point(time));
    }

    OncePerMinute limit;
};

TEST_F(OncePerMinuteTest, TheFirstEventPassesAndTheNextAfterAMinute) {
    EXPECT_TRUE(allows("a", 0s));
    EXPECT_FALSE(allows("a", 0s));
    EXPECT_FALSE(allows("a", 59'999ms));
    EXPECT_TRUE(allows("a", 60s));
    EXPECT_FALSE(allows("a", 119'999ms));
    EXPECT_TRUE(allows("a", 120s));
}

TEST_F(OncePerMinuteTest, EverySubjectCountsForItself) {
    EXPECT_TRUE(allows("a", 0s));
    EXPECT_TRUE(allows("b", 30s));
    EXPECT_TRUE(allows("a", 60s));
    EXPECT_FALSE(allows("b", 60s));
}

TEST_F(OncePerMinuteTest, NewSubjectsWaitWhileTooManyWereLetThroughWithinAMinute) {
    for (std::size_t i = 0; i < OncePerMinute::MOST_SUBJECTS; ++i) {
        ASSERT_TRUE(allows(std::to_string(i), i == 0 ? 0s : 30s));
    }
    EXPECT_FALSE(allows("new", 59'999ms));
    // The first subject is forgotten and makes room for one other.
    EXPECT_TRUE(allows("new", 60s));
    EXPECT_FALSE(allows("newer", 60s));
    EXPECT_TRUE(allows("newer", 90s));
}

}  // namespace
