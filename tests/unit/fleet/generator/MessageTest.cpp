// SPDX-License-Identifier: MIT
#include "fleet/generator/Message.h"

#include <gtest/gtest.h>

#include <sstream>

#include "tesk/Json.h"

TEST(MessageTest, ABatchIsJsonAndCarriesWhenItWasDue) {
    const Clock::time_point due(std::chrono::nanoseconds(987654321012));
    const std::string message = messageOf(7, due);
    EXPECT_EQ(due, dueOf(message));
    std::istringstream text(message);
    const auto batch = tesk::jsonParse(text);
    EXPECT_EQ(7, batch->getValue<int>("sequence"));
    EXPECT_EQ(10U, batch->getArray("changes")->size());
}

TEST(MessageTest, OtherTextsCarryNoTime) {
    EXPECT_FALSE(dueOf(""));
    EXPECT_FALSE(dueOf("{}"));
    EXPECT_FALSE(dueOf(R"({"monotonic":)"));
    EXPECT_FALSE(dueOf(R"({"monotonic":"x"})"));
}
