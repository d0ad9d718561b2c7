// SPDX-License-Identifier: MIT
#include "program/Suggestion.h"

#include <gtest/gtest.h>

namespace {

std::string suggestion(const std::string& text) {
    return suggestionFor(text, {"list", "read", "write", "watch", "status"});
}

TEST(SuggestionTest, AMistypedWordIsRecognised) {
    EXPECT_EQ(suggestion("wirte"), "write") << "swapped letters";
    EXPECT_EQ(suggestion("lst"), "list") << "a letter left out";
    EXPECT_EQ(suggestion("reead"), "read") << "a letter too many";
    EXPECT_EQ(suggestion("wetch"), "watch") << "a wrong letter";
    EXPECT_EQ(suggestion("Read"), "read") << "a wrong letter";
    EXPECT_EQ(suggestion("sttauts"), "status") << "two faults in a long word";
}

TEST(SuggestionTest, ABegunWordIsRecognised) {
    EXPECT_EQ(suggestion("sta"), "status");
    EXPECT_EQ(suggestion("r"), "read");
}

TEST(SuggestionTest, ThereIsNoneForWhatIsFarFromAllWords) {
    for (const char* text : {"", "x", "xx", "ls", "dear", "frobnicate", "statistics"}) {
        EXPECT_EQ(suggestion(text), "") << text;
    }
    EXPECT_EQ(suggestion(std::string(1'000'000, 'w')), "");
    EXPECT_EQ(suggestionFor("read", {}), "");
}

TEST(SuggestionTest, TheNearestWordIsTaken) {
    EXPECT_EQ(suggestionFor("moved", {"remove", "move", "moves"}), "move");
    EXPECT_EQ(suggestionFor("cat", {"bat", "hat"}), "bat");
}

}  // namespace
