// SPDX-License-Identifier: MIT
#include "tesk/Json.h"

#include <Poco/JSON/Array.h>
#include <gmock/gmock.h>

#include <map>
#include <sstream>
#include <utility>
#include <vector>

#include "tesk/Exceptions.h"

namespace {

using testing::AllOf;
using testing::EndsWith;
using testing::HasSubstr;
using testing::ThrowsMessage;

Poco::JSON::Object::Ptr parse(const std::string& text) {
    std::istringstream in(text);
    return tesk::jsonParse(in);
}

TEST(JsonTest, GivesTheRootObject) {
    const auto root =
        parse(R"({"io_mapping": [{"address": 12}, 2], "name": "\u0041\n", "no": null})");
    ASSERT_FALSE(root.isNull());
    EXPECT_EQ(root->size(), 3U);
    EXPECT_EQ(root->getArray("io_mapping")->getObject(0)->getValue<int>("address"), 12);
    EXPECT_EQ(root->getValue<std::string>("name"), "A\n");
    EXPECT_TRUE(root->isNull("no"));
}

TEST(JsonTest, AnEmptyObjectIsAnObject) {
    for (const char* text : {"{}", " \t\r\n{ } \n"}) {
        const auto root = parse(text);
        ASSERT_FALSE(root.isNull()) << text;
        EXPECT_EQ(root->size(), 0U);
    }
}

TEST(JsonTest, ARootThatIsNoObjectIsAnEmptyPointer) {
    for (const char* text : {"[]", "[{\"a\": 1}]", "1", "-3.5", "\"{}\"", "\"\"", "true", "false",
                             "null", " \n[1,\n2] "}) {
        EXPECT_TRUE(parse(text).isNull()) << text;
    }
}

TEST(JsonTest, WhatIsNotJsonIsAParseError) {
    for (const char* text : {"",
                             " \n ",
                             "{",
                             "}",
                             "{\"a\"",
                             "{\"a\":}",
                             "{\"a\":1,}",
                             "{a:1}",
                             "{'a':1}",
                             "{\"a\":01}",
                             "{} {}",
                             "{} x",
                             "[",
                             "]",
                             "[1,",
                             "[1]]",
                             "[] x",
                             "tru",
                             "nul",
                             "1 2",
                             "\"open",
                             "@",
                             "{\"a\":\"\xff\"}",
                             "{/*a*/}"}) {
        EXPECT_THROW(parse(text), tesk::ParseException) << "text '" << text << "'";
    }
}

TEST(JsonTest, AParseErrorCarriesTheParsersWordsAndTheLine) {
    EXPECT_THAT([] { parse("{\"a\" 1}"); },
                ThrowsMessage<tesk::ParseException>(
                    "JSON Exception: expected ':' after member name, line 1"));
    EXPECT_THAT([] { parse("{} x"); },
                ThrowsMessage<tesk::ParseException>(
                    "JSON Exception: Excess characters found after JSON end., line 1"));
}

TEST(JsonTest, TheLineIsTheOneAtWhichTheParserGaveUp) {
    const std::map<std::string, std::string> lines{
        {"", "line 1"},
        {"{\n\n  x\n}\n", "line 3"},
        {"{\n\"a\": 1,\n}\n\n", "line 3"},
        {"{\"a\":\n\n@}\n", "line 3"},
        {"{\n\"a\":[\n1,\n2\n", "line 5"},
        {"[1,\n2,\n@]\n", "line 3"},
        {"@\n\n", "line 1"},
    };
    for (const auto& [text, line] : lines) {
        EXPECT_THAT([text = text] { parse(text); },
                    ThrowsMessage<tesk::ParseException>(EndsWith(", " + line)))
            << "text '" << text << "'";
    }
}

TEST(JsonTest, ANumberThatFitsNoIntegerIsAParseError) {
    EXPECT_THAT([] { parse("{\"a\":\n99999999999999999999}"); },
                ThrowsMessage<tesk::ParseException>(
                    AllOf(HasSubstr("99999999999999999999"), EndsWith(", line 2"))));
}

TEST(JsonTest, EndlessNestingIsAParseError) {
    for (const std::string& open : {std::string("{\"a\":"), std::string("[")}) {
        std::string text;
        for (int level = 0; level < 100000; ++level) {
            text += open;
        }
        EXPECT_THROW(parse(text), tesk::ParseException);
    }
}

TEST(JsonTest, ReadsTheStreamToItsEnd) {
    std::istringstream in("{}   ");
    tesk::jsonParse(in);
    EXPECT_EQ(in.peek(), std::istringstream::traits_type::eof());
}

TEST(JsonTest, TellsTheByteAtWhichItGivesUp) {
    const std::vector<std::pair<std::string, std::size_t>> rows{
        {"{\"a\": 1,\n ]}", 10}, {"{\"a\" 1}", 5}, {"truth", 3}, {"", 0}};
    for (const auto& [text, byte] : rows) {
        std::istringstream in(text);
        std::size_t gaveUpAt = 99;
        EXPECT_THROW(tesk::jsonParse(in, &gaveUpAt), tesk::ParseException) << text;
        EXPECT_EQ(gaveUpAt, byte) << text;
    }
}

}  // namespace
