// SPDX-License-Identifier: MIT
#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>

#include "Build.h"
#include "BusFixture.h"
#include "Outcome.h"
#include "ProcessFigures.h"

namespace {

using testing::EndsWith;
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

TEST_F(CommandLineTest, ACheckPrintsWhatIsWrongAndItsStatusIsTheVerdict) {
    const std::string good = directory.file("good.json", map);
    Outcome outcome = run({"--check", "--map", good});
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(outcome.output + outcome.errors, "");
    outcome = run({"--check", "--json", "--map", good});
    EXPECT_EQ(outcome.output, "[]\n");
    const std::string bad =
        directory.file("bad.json", mapOf({R"({"address": 1, "size": 8, "count": 0})"}));
    outcome = run({"--check", "--map", bad});
    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(outcome.errors, "");
    EXPECT_EQ(outcome.output,
              bad +
                  ":1:52: error: field io_mapping[0], address 1: invalid value for count: 0; use "
                  "1 or more, or remove the field\n");
    expectFailure(run({"--check", "--devices", "kr26"}), "iomappingd", 2,
                  "there is no driver 'kr26'; see iomappingd --help");
    expectFailure(run({"--json"}), "iomappingd", 2,
                  "--devices and --json need --check; see iomappingd --help");
}

TEST_F(CommandLineTest, ACheckLooksAtTheLabelsToo) {
    const std::string good = directory.file("good.json", map);
    const std::string strange = directory.file("strange.json", R"({"labels": {"77": {}}})");
    const std::string warning = strange +
                                ":1:13: warning: register 77: the map has no such register; "
                                "correct the address, or remove the label\n";
    Outcome outcome = run({"--check", "--map", good, "--labels", strange});
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(outcome.output, warning);
    const std::string bad = directory.file("bad.json", R"({"labels": {"1": {"scale": 0}}})");
    outcome = run({"--check", "--json", "--map", good, "--labels", bad});
    EXPECT_EQ(outcome.status, 1);
    EXPECT_THAT(outcome.output, HasSubstr("\"line\":1,\"column\":28,\"field\":null,\"address\":1"));
    EXPECT_THAT(outcome.output, EndsWith("\"file\":\"" + bad + "\"}]\n"));
    expectFailure(run({"--labels", bad}), "iomappingd", 2,
                  "--labels needs --check; see iomappingd --help");
}

TEST_F(CommandLineTest, WithFaultsInTheMapNoLabelIsSaidToHaveNoRegister) {
    const std::string bad =
        directory.file("bad.json", mapOf({R"({"address": 1, "size": 8, "count": 0})"}));
    const std::string labels = directory.file("labels.json", R"({"labels": {"77": {}}})");
    EXPECT_THAT(run({"--check", "--map", bad, "--labels", labels}).output,
                testing::Not(HasSubstr("no such register")));
}

TEST_F(CommandLineTest, ACheckTakesTheLabelsOfTheDeviceWhereThereAreSome) {
    const std::string good = directory.file("good.json", map);
    const std::string labels = directory.file("labels.json", "{}");
    Process check({DAEMON, "--check", "--map", good}, {{"IO_MAPPING_LABELS", labels}});
    EXPECT_EQ(check.waitForExit(), 1);
    EXPECT_THAT(check.standardOutput(), HasSubstr(labels + ":1:1: error: there is no object"));
}

TEST_F(CommandLineTest, AMissingMapIsStatus1AndTellsTheRemedy) {
    const std::string line =
        "iomappingd: cannot read map file '/nowhere/map.json': No such file or directory; name "
        "another one with --map\n";
    const Outcome outcome = run({"--map", "/nowhere/map.json"});
    EXPECT_EQ(outcome.status, 1);
    EXPECT_THAT(outcome.errors, EndsWith(" Fatal server: map file not found\n" + line));
    expectFailure(run({"--map", "/nowhere/map.json", "--log-level", "none"}), "iomappingd", 1,
                  line.substr(12, line.size() - 13));
    const Outcome journal =
        outcomeOf({DAEMON, "--map", "/nowhere/map.json"}, {{"JOURNAL_STREAM", "9:12345"}});
    EXPECT_EQ(journal.errors, "<1>server: map file not found\n<3>" + line);
}

TEST_F(CommandLineTest, ACountThatNoMemoryHoldsIsRefusedAtOnceWithItsField) {
    const auto service = launch(mapOf({R"({"address": 1, "size": 1, "count": 1})",
                                       R"({"address": 2, "size": 1, "count": 2147483647})"}));
    EXPECT_EQ(service->waitForExit(), 1);
    const auto lines = Process::lines(service->standardError());
    ASSERT_EQ(lines.size(), 2U);
    EXPECT_THAT(lines[0], EndsWith("map.json', field io_mapping[1], address 2"));
    EXPECT_THAT(lines[1], EndsWith(" Fatal server: std::bad_alloc"));
}

TEST_F(CommandLineTest, TheFieldIsToldAlsoWhenTheMemoryIsUsedUp) {
    const Process& small = startService(map);
    constexpr double MORE = 64 * 1024;  // kilobytes
    const double limit = kilobytes(small.pid(), "status", "VmPeak:") + MORE;
    // The memory of a sanitizer's build cannot be limited.
    const std::string count = SANITIZED ? "2000000000" : "3000000";
    const std::string large = directory.file(
        "large.json", mapOf({R"({"address": 1, "size": 1, "count": )" + count + "}"}));
    const Outcome outcome =
        outcomeOf({"sh", "-c", R"(ulimit -v "$0" && exec "$@")",
                   SANITIZED ? "unlimited" : std::to_string(static_cast<long>(limit)), DAEMON,
                   "--map", large});
    EXPECT_EQ(outcome.status, 1);
    EXPECT_THAT(outcome.errors, HasSubstr("large.json', field io_mapping[0], address 1\n"));
    EXPECT_THAT(outcome.errors, EndsWith(" Fatal server: std::bad_alloc\n"));
}

TEST_F(CommandLineTest, AMapThatCannotBeReadIsToldWithTheSystemsReason) {
    const std::string fifo = directory.path() / "fifo";
    ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
    const std::string folder = directory.path();
    const std::vector<std::pair<std::string, std::string>> cases{
        {folder, "Is a directory"},
        {fifo, "Is not a regular file"},
        // The service's own memory: its first page can be opened and not be read.
        {"/proc/self/mem", "Input/output error"},
        {directory.file("file", "") + "/map.json", "Not a directory"},
    };
    for (const auto& [path, reason] : cases) {
        const Outcome outcome = run({"--map", path, "--log-level", "none"});
        expectFailure(
            outcome, "iomappingd", 1,
            "cannot read map file '" + path + "': " + reason + "; name another one with --map");
    }
}

TEST_F(CommandLineTest, UnderTheJournalAWrongCommandLineIsAnError) {
    const Outcome outcome = outcomeOf({DAEMON, "map.json"}, {{"JOURNAL_STREAM", "9:12345"}});
    EXPECT_EQ(outcome.errors,
              "<3>iomappingd: unexpected argument 'map.json'; see iomappingd --help\n");
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

TEST_F(CommandLineTest, AStandardErrorThatNobodyReadsStopsNothing) {
    constexpr int CALLS = EMULATED ? 1200 : 3000;
    const std::string fifo = directory.path() / "log";
    ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
    const FileDescriptor readEnd(open(fifo.c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC));
    const auto drained = [&readEnd] {
        std::string text;
        std::array<char, 4096> piece{};
        for (ssize_t got = 0; (got = read(readEnd.get(), piece.data(), piece.size())) > 0;) {
            text.append(piece.data(), static_cast<std::size_t>(got));
        }
        return text;
    };
    const std::string path = directory.file("map.json", map);
    const Process service({"sh", "-c", R"(exec 2>"$0"; exec "$@")", fifo, DAEMON, "--map", path});
    BusClient client;
    client.waitForService();
    for (int call = 1; call <= CALLS; ++call) {
        const std::string address = std::to_string(1000 + call);
        ASSERT_EQ(client.call("Read", "(" + address + ",)").errorText,
                  "address '" + address + "' not found");
    }
    const std::size_t written = Process::lines(drained()).size();
    ASSERT_GT(written, 0U);
    ASSERT_LT(written, CALLS);
    client.call("Read", "(2,)");
    const std::string rest = drained();
    EXPECT_THAT(rest, HasSubstr(" Warning log: " + std::to_string(CALLS - written) +
                                " log lines before this one are lost: nobody read them\n"));
    EXPECT_THAT(rest, HasSubstr("address '2' not found\n"));
}

TEST_F(CommandLineTest, AFloodOfOneLineIsCountedAlsoWhenTheServiceIsEnded) {
    constexpr int CALLS = EMULATED ? 100 : 1000;
    Process& service = startService(map);
    const BusClient client;
    for (int call = 0; call < CALLS; ++call) {
        EXPECT_EQ(client.call("Read", "(2,)").errorText, "address '2' not found");
    }
    service.signal(SIGTERM);
    EXPECT_EQ(service.waitForExit(), 0);
    const std::vector<std::string> lines = Process::lines(service.standardError());
    ASSERT_EQ(lines.size(), 4U);
    EXPECT_THAT(lines[2],
                MatchesRegex("20.* Error register-map\\.[0-9a-f]+: address '2' not found"));
    EXPECT_THAT(lines[3], MatchesRegex("20.* Error register-map\\.[0-9a-f]+: the last line came " +
                                       std::to_string(CALLS - 3) + " more times"));
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
