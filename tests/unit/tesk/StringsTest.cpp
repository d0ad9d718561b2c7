// SPDX-License-Identifier: MIT
#include "tesk/Strings.h"

#include <gmock/gmock.h>

namespace {

using testing::ElementsAre;

TEST(StringsTest, CutsAtEverySeparator) {
    EXPECT_THAT(tesk::Strings::split("2.3.4", ".", false), ElementsAre("2", "3", "4"));
    EXPECT_THAT(tesk::Strings::split("28-0000075f0e11", "-", true),
                ElementsAre("28", "0000075f0e11"));
}

TEST(StringsTest, ATextWithoutTheSeparatorIsOnePiece) {
    EXPECT_THAT(tesk::Strings::split("relays", " ", true), ElementsAre("relays"));
    EXPECT_THAT(tesk::Strings::split("", ".", false), ElementsAre(""));
    EXPECT_THAT(tesk::Strings::split("", ".", true), ElementsAre(""));
}

TEST(StringsTest, EmptyPiecesCount) {
    EXPECT_THAT(tesk::Strings::split(".", ".", false), ElementsAre("", ""));
    EXPECT_THAT(tesk::Strings::split(".a..b.", ".", false), ElementsAre("", "a", "", "b", ""));
    EXPECT_THAT(tesk::Strings::split("relays  4", " ", true), ElementsAre("relays", "", "4"));
}

TEST(StringsTest, ASeparatorMayBeLongerThanOneCharacter) {
    EXPECT_THAT(tesk::Strings::split("a::b:c::", "::", false), ElementsAre("a", "b:c", ""));
    EXPECT_THAT(tesk::Strings::split("aaa", "aa", false), ElementsAre("", "a"));
    EXPECT_THAT(tesk::Strings::split("a", "longer than the text", false), ElementsAre("a"));
}

TEST(StringsTest, TrimsThePiecesOnlyWhenAsked) {
    EXPECT_THAT(tesk::Strings::split(" a \t, b\r\n", ",", true), ElementsAre("a", "b"));
    EXPECT_THAT(tesk::Strings::split(" a \t, b\r\n", ",", false), ElementsAre(" a \t", " b\r\n"));
    EXPECT_THAT(tesk::Strings::split(" , ", ",", true), ElementsAre("", ""));
    EXPECT_THAT(tesk::Strings::split(" a b ", ",", true), ElementsAre("a b"));
}

}  // namespace
