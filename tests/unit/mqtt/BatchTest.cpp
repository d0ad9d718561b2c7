// SPDX-License-Identifier: MIT
#include "mqtt/Batch.h"

#include <gtest/gtest.h>

#include <string>

namespace {

Batch batch() {
    Batch result;
    result.sequence = 7;
    result.session = "ab12";
    result.boot = "boot-1";
    result.moment = {1'767'323'045'678, 5000, false};
    result.changes = R"([[1,2,3],[4,null,0,"no \"sensor\" here"]])";
    return result;
}

TEST(BatchTest, TheMessageTellsAllOfTheTime) {
    EXPECT_EQ(batch().payload(),
              R"({"sequence":7,"session":"ab12","boot":"boot-1","time":"2026-01-02T03:04:05.678Z",)"
              R"("monotonic":5000,"synchronised":false,)"
              R"("changes":[[1,2,3],[4,null,0,"no \"sensor\" here"]]})");
}

TEST(BatchTest, ALineGivesTheBatchBack) {
    const auto again = Batch::fromLine(batch().line());
    ASSERT_TRUE(again);
    EXPECT_EQ(again->payload(), batch().payload());
}

TEST(BatchTest, ALineThatWasCutOffIsNoBatch) {
    const std::string line = batch().line();
    for (std::size_t length = 0; length < line.size(); ++length) {
        const auto found = Batch::fromLine(line.substr(0, length));
        // Within the list, a bracket may come last by chance.
        EXPECT_TRUE(!found || line[length - 1] == ']') << length;
    }
    EXPECT_FALSE(Batch::fromLine("x" + line));
}

TEST(BatchTest, TheTimeIsCorrectedOnceTheClockIsRight) {
    Batch late = batch();
    late.correct({1'767'400'000'000, 65'000, true}, "boot-1");
    EXPECT_EQ(late.moment.wall, 1'767'400'000'000 - 60'000);
    EXPECT_TRUE(late.moment.synchronised);
    EXPECT_NE(late.payload().find("\"corrected\":true"), std::string::npos);
}

TEST(BatchTest, TheTimeIsLeftAloneWhenNothingBetterIsKnown) {
    Batch unsure = batch();
    unsure.correct({1'767'400'000'000, 65'000, false}, "boot-1");
    EXPECT_EQ(unsure.payload(), batch().payload()) << "the clock is still wrong";
    unsure.correct({1'767'400'000'000, 65'000, true}, "boot-2");
    EXPECT_EQ(unsure.payload(), batch().payload()) << "nobody knows the time between two starts";
    Batch unknown = batch();
    unknown.boot = UNKNOWN_BOOT;
    unknown.correct({1'767'400'000'000, 65'000, true}, UNKNOWN_BOOT);
    EXPECT_EQ(unknown.moment.wall, batch().moment.wall) << "the device may have started anew";
    Batch right = batch();
    right.moment.synchronised = true;
    right.correct({1, 65'000, true}, "boot-1");
    EXPECT_EQ(right.moment.wall, batch().moment.wall) << "it was right";
}

}  // namespace
