// SPDX-License-Identifier: MIT
#include "support/PathBelow.h"

#include <gtest/gtest.h>

namespace {

TEST(PathBelowTest, ADirectoryHasItselfAndWhatIsInIt) {
    EXPECT_TRUE(isAtOrBelow("/sys/kernel/pd5-1", "/sys/kernel/pd5-1"));
    EXPECT_TRUE(isAtOrBelow("/sys/kernel/pd5-1/relays/1/value", "/sys/kernel/pd5-1"));
}

TEST(PathBelowTest, ALongerNameOrAPlaceAboveIsNotInADirectory) {
    EXPECT_FALSE(isAtOrBelow("/sys/kernel/pd5-10/relays/1/value", "/sys/kernel/pd5-1"));
    EXPECT_FALSE(isAtOrBelow("/sys/kernel/pd5-10", "/sys/kernel/pd5-1"));
    EXPECT_FALSE(isAtOrBelow("/sys/kernel", "/sys/kernel/pd5-1"));
    EXPECT_FALSE(isAtOrBelow("", "/sys/kernel/pd5-1"));
}

}  // namespace
