// SPDX-License-Identifier: MIT
#include <gmock/gmock.h>

#include "BusFixture.h"
#include "Outcome.h"

namespace {

using testing::HasSubstr;
using testing::MatchesRegex;
using testing::StartsWith;

class CommandLineTest : public BusFixture {
 protected:
    const std::string map = mapOf({R"({"address": 1, "size": 8, "count": 1})"});

    static Outcome run(const std::vector<std::string>& arguments) {
        std::vector<std::string> command{DAEMON};
        command.insert(command.end(), arguments.begin(), arguments.end());
        return outcomeOf(command);
    }
};

TEST_F(CommandLineTest, HelpNamesEveryOption) {
    const Outcome outcome = run({"--help"});
    EXPECT_EQ(outcome.status, 0);
    for (const char* text : {"--map=FILE", "/etc/io-mapping/map.json", "--log-level=LEVEL",
                             "notice (default)", "--version", "--help"}) {
        EXPECT_THAT(outcome.output, HasSubstr(text));
    }
}

TEST_F(CommandLineTest, TheVersionIsPrinted) {
    const Outcome outcome = run({"--version"});
    EXPECT_EQ(outcome.status, 0);
    EXPECT_THAT(outcome.output, MatchesRegex("iomappingd [0-9]+\\.[0-9]+\\.[0-9]+\n"));
}

TEST_F(CommandLineTest, WhatIsNotUnderstoodIsStatus2AndOneLine) {
    const std::vector<std::pair<std::vector<std::string>, std::string>> cases{
        {{"--frobnicate"}, "Unknown option --frobnicate"},
        {{"--map"}, "Missing argument for --map"},
        {{"--log-level", "loud"}, "unknown log level 'loud'"},
        {{"--log-level", "9"}, "unknown log level '9'"},
        {{"map.json"}, "unexpected argument 'map.json'"},
    };
    for (const auto& [arguments, reason] : cases) {
        SCOPED_TRACE(reason);
        expectFailure(run(arguments), "iomappingd", 2, reason + "; see iomappingd --help");
    }
}

TEST_F(CommandLineTest, AMissingMapIsStatus1AndOneLine) {
    expectFailure(run({"--map", "/nowhere/map.json"}), "iomappingd", 1,
                  "cannot read map file '/nowhere/map.json': No such file or directory; name "
                  "another one with --map");
}

TEST_F(CommandLineTest, AtTheDefaultLevelAGoodStartIsSilent) {
    Process& service = startService(map);
    EXPECT_EQ(BusClient().call("Read", "(1,)").text(), "(0,)");
    service.signal(SIGTERM);
    service.waitForExit();
    EXPECT_EQ(service.standardError(), "");
    EXPECT_EQ(service.standardOutput(), "");
}

TEST_F(CommandLineTest, ClosedStandardDescriptorsAreNoTargetOfTheLog) {
    const std::string path = directory.file("map.json", map);
    const Process service({"sh", "-c", R"(exec "$0" "$@" <&- >&- 2>&-)", DAEMON, "--map", path,
                           "--log-level", "information"});
    BusClient client;
    client.waitForService();
    EXPECT_EQ(client.call("Write", "(1, 7)").text(), "()");
    EXPECT_EQ(client.call("Read", "(1,)").text(), "(7,)");
}

TEST_F(CommandLineTest, OnATerminalALineHasTimePriorityAndLogger) {
    Process& service = startService(map, {"--log-level", "information"});
    EXPECT_EQ(BusClient().call("Read", "(1,)").text(), "(0,)");
    const std::string line = service.waitForLine("read value");
    EXPECT_THAT(line,
                MatchesRegex("[0-9]{4}-[0-9]{2}-[0-9]{2} [0-9]{2}:[0-9]{2}:[0-9]{2}\\.[0-9]{3} "
                             "Information register-1\\.[0-9a-f]+: "
                             "read value for address 1 -> 0"));
}

TEST_F(CommandLineTest, EveryMessageIsOneLine) {
    Process& service = startService(map, {"--log-level", "information"});
    EXPECT_EQ(BusClient().call("Read", "(1,)").text(), "(0,)");
    service.waitForLine("processing time");
    service.signal(SIGTERM);
    service.waitForExit();
    EXPECT_THAT(service.standardError(), HasSubstr(": call method 'Read'\n"));
    for (const std::string& line : Process::lines(service.standardError())) {
        EXPECT_THAT(line, HasSubstr(" Information "));
    }
}

TEST_F(CommandLineTest, UnderTheJournalALineHasAPriorityPrefixAndNoTime) {
    const auto service =
        launch(map, {"--log-level", "information"}, {{"JOURNAL_STREAM", "9:12345"}});
    BusClient client;
    client.waitForService();
    client.call("Read", "(2,)");
    EXPECT_THAT(service->waitForLine("was acquired on DBus"),
                StartsWith("<6>server: org.mirel.IoMapping was acquired on DBus"));
    EXPECT_THAT(service->waitForLine("not found"),
                MatchesRegex("<3>register-map\\.[0-9a-f]+: address '2' not found"));
}

}  // namespace
