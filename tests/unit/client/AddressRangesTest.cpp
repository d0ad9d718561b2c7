// SPDX-License-Identifier: MIT
#include "client/AddressRanges.h"

#include <gtest/gtest.h>

#include <string>

namespace {

TEST(AddressRangesTest, NoRangesContainNothing) {
    EXPECT_TRUE(AddressRanges().empty());
    EXPECT_FALSE(AddressRanges().contains(0));
}

TEST(AddressRangesTest, ARangeContainsItsEndsAndWhatLiesBetween) {
    AddressRanges ranges;
    ranges.add({12, 14});
    ranges.add({20, 20});
    for (const int address : {12, 13, 14, 20}) {
        EXPECT_TRUE(ranges.contains(address)) << address;
    }
    for (const int address : {-12, 0, 11, 15, 19, 21}) {
        EXPECT_FALSE(ranges.contains(address)) << address;
    }
}

TEST(AddressRangesTest, AnAddressOrARangeIsUnderstood) {
    for (const std::string text : {"0", "12", "12-20", "0-2147483647"}) {
        const auto range = AddressRanges::parse(text);
        ASSERT_TRUE(range) << text;
        EXPECT_EQ(textOf(*range), text);
    }
    EXPECT_EQ(textOf(AddressRanges::Range{7, 7}), "7");
}

TEST(AddressRangesTest, EverythingElseIsNoRange) {
    for (const std::string text : {"", "-", "-1", "12-", "-12-13", "12-11", "a", "1 ", " 1",
                                   "1-2-3", "0x10", "2147483648", "1.5", "+1", "1--2"}) {
        EXPECT_FALSE(AddressRanges::parse(text)) << text;
    }
}

TEST(AddressRangesTest, AddressesAreToldInFewWords) {
    EXPECT_EQ(rangesText({}), "");
    EXPECT_EQ(rangesText({5}), "5");
    EXPECT_EQ(rangesText({9, 7, 5, 6, 5}), "5-7, 9");
    EXPECT_EQ(rangesText({0, 2147483646, 2147483647}), "0, 2147483646-2147483647");
}

}  // namespace
