// SPDX-License-Identifier: MIT
#include "mqtt/Backoff.h"

#include <gtest/gtest.h>

namespace {

using std::chrono::milliseconds;

TEST(BackoffTest, ThePauseDoublesUpToFiveMinutes) {
    Backoff backoff([] { return 1.0; });
    for (const int expected : {1000, 2000, 4000, 8000, 16000, 32000, 64000, 128000, 256000}) {
        EXPECT_EQ(backoff.next(), milliseconds(expected));
    }
    EXPECT_EQ(backoff.next(), milliseconds(300'000));
    EXPECT_EQ(backoff.next(), milliseconds(300'000));
}

TEST(BackoffTest, ThePauseIsAnythingUpToItsBound) {
    double part = 0;
    Backoff backoff([&part] { return part; });
    EXPECT_EQ(backoff.next(), Backoff::SHORTEST) << "but never nothing";
    part = 0.25;
    EXPECT_EQ(backoff.next(), milliseconds(500));
}

TEST(BackoffTest, AConnectionThatLastedMakesThePauseShortAgain) {
    Backoff backoff([] { return 1.0; });
    backoff.next();
    backoff.next();
    backoff.reset();
    EXPECT_EQ(backoff.next(), milliseconds(1000));
}

TEST(BackoffTest, ARefusedLoginWaitsAMinuteMore) {
    Backoff backoff([] { return 0.0; });
    EXPECT_GE(backoff.nextAfterRefusal(), milliseconds(60'000));
}

}  // namespace
