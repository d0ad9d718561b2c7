// SPDX-License-Identifier: MIT
#include "support/Pattern.h"

#include <gmock/gmock.h>

#include <limits>

namespace {

template <typename... Args>
auto making(const char* text) {
    return [text] { return Pattern<Args...>(text)(Args()...); };
}

const auto doesNotFit =
    testing::ThrowsMessage<std::logic_error>("the placeholders of a pattern do not fit its types");

TEST(PatternTest, PutsTheArgumentsInTheirPlaces) {
    constexpr Pattern<int, std::string, int, unsigned> pattern("a %d, b '%s', c '%d', d %?u.");
    EXPECT_EQ(pattern(-1, "text", 0, 7), "a -1, b 'text', c '0', d 7.");
}

TEST(PatternTest, WithoutPlaceholdersIsTheTextItself) {
    constexpr Pattern<> pattern("io mapping not found");
    EXPECT_EQ(pattern(), "io mapping not found");
    EXPECT_EQ(Pattern<>("")(), "");
}

TEST(PatternTest, PrintsAnIntegerOfAnySignednessInItsOwn) {
    constexpr Pattern<int, unsigned> pattern("%?u %?u");
    EXPECT_EQ(pattern(-1, std::numeric_limits<unsigned>::max()), "-1 4294967295");
    EXPECT_EQ(pattern(std::numeric_limits<int>::min(), 0), "-2147483648 0");
}

TEST(PatternTest, PrintsUnsignedAndSizes) {
    constexpr Pattern<unsigned, std::size_t> pattern("%u of %z");
    EXPECT_EQ(pattern(4294967295U, std::numeric_limits<std::size_t>::max()),
              "4294967295 of " + std::to_string(std::numeric_limits<std::size_t>::max()));
}

TEST(PatternTest, ConvertsArgumentsToItsTypes) {
    constexpr Pattern<std::string, int> pattern("%s-%d");
    const short index = 3;
    EXPECT_EQ(pattern("pd5", index), "pd5-3");
}

TEST(PatternTest, APlaceholderInAnArgumentIsPrinted) {
    constexpr Pattern<std::string, int> pattern("'%s' %d");
    EXPECT_EQ(pattern("100% %s %d", 1), "'100% %s %d' 1");
}

TEST(PatternTest, DoesNotFitWithTheWrongNumberOfPlaceholders) {
    EXPECT_THAT(making<>("%d"), doesNotFit);
    EXPECT_THAT(making<int>("none"), doesNotFit);
    EXPECT_THAT(making<int>(""), doesNotFit);
    EXPECT_THAT((making<int, int>("%d")), doesNotFit);
    EXPECT_THAT(making<int>("%d %d"), doesNotFit);
    EXPECT_THAT(making<int>("%d, 5 %"), doesNotFit);
    EXPECT_THAT(making<int>("50%"), doesNotFit);
    EXPECT_THAT(making<>("100%%"), doesNotFit);
}

TEST(PatternTest, DoesNotFitWithAPlaceholderOfAnotherType) {
    EXPECT_THAT(making<int>("%s"), doesNotFit);
    EXPECT_THAT(making<int>("%u"), doesNotFit);
    EXPECT_THAT(making<int>("%z"), doesNotFit);
    EXPECT_THAT(making<int>("%?d"), doesNotFit);
    EXPECT_THAT(making<int>("%x"), doesNotFit);
    EXPECT_THAT(making<int>("%3d"), doesNotFit);
    EXPECT_THAT(making<unsigned>("%d"), doesNotFit);
    EXPECT_THAT(making<unsigned>("%s"), doesNotFit);
    EXPECT_THAT(making<std::string>("%d"), doesNotFit);
    EXPECT_THAT(making<std::string>("%?u"), doesNotFit);
    EXPECT_THAT(making<std::size_t>("%d"), doesNotFit);
    EXPECT_THAT(making<long>("%d"), doesNotFit);
    EXPECT_THAT((making<int, std::string>("%s %d")), doesNotFit);
    EXPECT_THAT((making<std::string, int>("%s %s")), doesNotFit);
}

TEST(PatternTest, WhatFitsIsMadeAtRunTimeToo) {
    EXPECT_EQ((making<int, std::string>("%d %s")()), "0 ");
    EXPECT_EQ(making<unsigned>("%u")(), "0");
}

}  // namespace
