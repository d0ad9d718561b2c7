// SPDX-License-Identifier: MIT
#include "daemon/Options.h"

#include <gmock/gmock.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "program/UsageError.h"

namespace {

using testing::AllOf;
using testing::ExitedWithCode;
using testing::HasSubstr;
using testing::MatchesRegex;
using testing::ThrowsMessage;

Options optionsOf(std::vector<std::string> arguments) {
    arguments.insert(arguments.begin(), "iomappingd");
    std::vector<char*> pointers;
    for (std::string& argument : arguments) {
        pointers.push_back(argument.data());
    }
    pointers.push_back(nullptr);
    return readOptions(static_cast<int>(arguments.size()), pointers.data());
}

/// For a child process: what is printed goes to standard error, which can be matched.
void printOptionsOf(const std::vector<std::string>& arguments) {
    dup2(STDERR_FILENO, STDOUT_FILENO);
    optionsOf(arguments);
}

TEST(OptionsTest, WithoutOptionsTheMapIsThatOfTheSystemAndTheLevelNotice) {
    const Options options = optionsOf({});
    EXPECT_EQ(options.mapFile, "/etc/io-mapping/map.json");
    EXPECT_EQ(options.logLevel, 5);
}

TEST(OptionsTest, AnotherMapMayBeNamedInTwoForms) {
    EXPECT_EQ(optionsOf({"--map", "a map.json"}).mapFile, "a map.json");
    EXPECT_EQ(optionsOf({"--map=/b.json"}).mapFile, "/b.json");
    EXPECT_EQ(optionsOf({"--map="}).mapFile, "");
    EXPECT_EQ(optionsOf({"--map", "a", "--map", "b"}).mapFile, "b");
}

TEST(OptionsTest, ALevelIsANameOrANumber) {
    EXPECT_EQ(optionsOf({"--log-level", "none"}).logLevel, 0);
    EXPECT_EQ(optionsOf({"--log-level=trace"}).logLevel, 8);
    EXPECT_EQ(optionsOf({"--log-level", "3"}).logLevel, 3);
}

TEST(OptionsTest, WhatIsNotUnderstoodIsAUsageError) {
    const std::vector<std::pair<std::vector<std::string>, std::string>> cases{
        {{"--frobnicate"}, "Unknown option --frobnicate"},
        {{"-x"}, "Unknown option -x"},
        {{"--map"}, "Missing argument for --map"},
        {{"--log-level"}, "Missing argument for --log-level"},
        {{"--log-level", "loud"}, "unknown log level 'loud'"},
        {{"--log-level", ""}, "unknown log level ''"},
        {{"--map", "a.json", "b.json"}, "unexpected argument 'b.json'"},
        {{"--version", "now"}, "unexpected argument 'now'"},
    };
    for (const auto& [arguments, reason] : cases) {
        EXPECT_THAT([words = arguments] { optionsOf(words); }, ThrowsMessage<UsageError>(reason));
    }
}

TEST(OptionsTest, ACheckIsAskedForWithItsDevicesAndItsForm) {
    EXPECT_FALSE(optionsOf({}).check);
    const Options plain = optionsOf({"--check"});
    EXPECT_TRUE(plain.check);
    EXPECT_FALSE(plain.json);
    EXPECT_FALSE(plain.devices.has_value());
    const Options full = optionsOf({"--check", "--json", "--devices", "kr62,pd5-1"});
    EXPECT_TRUE(full.json);
    EXPECT_EQ(full.devices, "kr62,pd5-1");
    EXPECT_EQ(optionsOf({"--check", "--devices="}).devices, "");
    EXPECT_FALSE(plain.labels.has_value());
    EXPECT_EQ(optionsOf({"--check", "--labels", "a b.json"}).labels, "a b.json");
    EXPECT_THAT(
        [] {
            optionsOf({"--labels", "x"});
        },
        ThrowsMessage<UsageError>("--labels needs --check"));
    for (const std::vector<std::string>& words :
         {std::vector<std::string>{"--json"}, {"--devices", "kr62"}}) {
        EXPECT_THAT([&words] { optionsOf(words); },
                    ThrowsMessage<UsageError>("--devices and --json need --check"));
    }
}

TEST(OptionsTest, TheVersionIsPrintedAndNoMore) {
    EXPECT_EXIT(printOptionsOf({"--version"}), ExitedWithCode(0),
                MatchesRegex("iomappingd [0-9]+\\.[0-9]+\\.[0-9]+\n"));
}

TEST(OptionsTest, TheHelpNamesEveryOption) {
    EXPECT_EXIT(printOptionsOf({"--help"}), ExitedWithCode(0),
                AllOf(HasSubstr("--map=FILE"), HasSubstr("/etc/io-mapping/map.json"),
                      HasSubstr("--log-level=LEVEL"), HasSubstr("notice (default)"),
                      HasSubstr("--check"), HasSubstr("--devices=LIST"), HasSubstr("--labels=FILE"),
                      HasSubstr("--json"), HasSubstr("--version")));
}

}  // namespace
