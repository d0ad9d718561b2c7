// SPDX-License-Identifier: MIT
#include "fleet/generator/Latencies.h"

#include <gtest/gtest.h>

using std::chrono::nanoseconds;

namespace {

Latencies fromOneTo(int last) {
    Latencies latencies;
    for (int i = last; i > 0; --i) {
        latencies.add(nanoseconds(i));
    }
    return latencies;
}

}  // namespace

TEST(LatenciesTest, AQuantileIsTheLeastTimeThatSoManyDoNotExceed) {
    Latencies latencies = fromOneTo(2000);
    EXPECT_EQ(nanoseconds(1000), latencies.quantile(500));
    EXPECT_EQ(nanoseconds(1980), latencies.quantile(990));
    EXPECT_EQ(nanoseconds(1998), latencies.quantile(999));
    EXPECT_EQ(nanoseconds(2000), latencies.quantile(1000));
}

TEST(LatenciesTest, OfThreeTheMedianIsTheSecondAndTheRarestIsTheLongest) {
    Latencies latencies = fromOneTo(3);
    EXPECT_EQ(nanoseconds(2), latencies.quantile(500));
    EXPECT_EQ(nanoseconds(3), latencies.quantile(999));
    EXPECT_EQ(nanoseconds(1), latencies.quantile(1));
}

TEST(LatenciesTest, WithoutAnyMessageAllQuantilesAreZero) {
    EXPECT_EQ(nanoseconds(0), Latencies().quantile(500));
}
