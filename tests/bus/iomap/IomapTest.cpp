// SPDX-License-Identifier: MIT
#include <chrono>
#include <csignal>

#include "Deadline.h"
#include "IomapFixture.h"
#include "RegisterType.h"

namespace {

using testing::AllOf;
using testing::HasSubstr;
using testing::MatchesRegex;

using Arguments = std::vector<std::string>;

constexpr const char* ABSENT = "the service is not running; start iomappingd";
constexpr const char* DENIED =
    "this user may not do that; become root or a member of the group io-mapping";

/// The command line of iomap, and what its subcommands have in common.
class IomapTest : public IomapFixture {
 protected:
    const std::string map = mapOf({R"({"address": 1, "size": 8, "count": 2})"});

    /// One use of each subcommand that asks the service for something.
    const std::vector<Arguments> uses{
        {"list"},
        {"list", "--type", "virtual"},
        {"list", "--json"},
        {"read", "1"},
        {"read", "1-2", "--json"},
        {"info", "1"},
        {"info", "1", "--json"},
        {"watch"},
        {"watch", "1"},
        {"watch", "--type", "virtual", "--json"},
        {"status"},
        {"toggle", "1"},
        {"top"},
        {"read", "--wait", "1=1"},
    };
};

TEST_F(IomapTest, HelpNamesEverySubcommandAndOption) {
    const std::vector<std::pair<Arguments, Arguments>> cases{
        {{},
         {"list ", "read ", "write ", "toggle ", "help ", "info ", "watch ", "top ", "status ",
          "--version", "\n  3  no service", "\n  4  this user has not the right\n", "man iomap"}},
        {{"list"}, {"--type TYPE", "--brief", "--json"}},
        {{"read"},
         {"ADDR|FIRST-LAST", "--wait NAME=VALUE|ADDR=VALUE", "--timeout SECONDS", "--json"}},
        {{"toggle"}, {"ADDR|FIRST-LAST", "--json"}},
        {{"help"}, {"subcommand"}},
        {{"write"}, {"ADDR=VALUE", "--json"}},
        {{"info"}, {"ADDR|FIRST-LAST", "--json"}},
        {{"watch"},
         {"ADDR|FIRST-LAST", "--type TYPE", "--count N", "--timeout SECONDS", "--interval SECONDS",
          "--initial", "--changes", "--format FORMAT", "--json"}},
        {{"top"}, {"--type TYPE", "--group GROUP"}},
        {{"status"},
         {"--wait SECONDS", "--strict", "--map FILE", "--runtime-directory DIRECTORY", "--json"}},
    };
    for (auto [arguments, texts] : cases) {
        for (const char* help : {"--help", "-h"}) {
            Arguments command = arguments;
            command.emplace_back(help);
            const std::string output = iomapDone(command);
            for (const std::string& text : texts) {
                EXPECT_THAT(output, HasSubstr(text));
            }
        }
    }
}

TEST_F(IomapTest, EverySubcommandShowsAnExampleOfItselfTheExitStatusesAndTheManual) {
    for (const char* subcommand :
         {"list", "read", "write", "toggle", "info", "watch", "top", "status", "help"}) {
        EXPECT_THAT(iomapDone({subcommand, "--help"}),
                    AllOf(testing::ContainsRegex("Examples?:\n  iomap " + std::string(subcommand)),
                          HasSubstr("\n  3  no service"), HasSubstr("\nManual: man iomap\n")));
    }
    EXPECT_THAT(iomapDone({"--help"}), HasSubstr("Example:\n  iomap read "));
}

TEST_F(IomapTest, HelpIsAlsoASubcommandThatNeedsNoBus) {
    bus.kill();
    EXPECT_EQ(iomapDone({"help"}), iomapDone({"--help"}));
    for (const char* subcommand : {"list", "watch", "help"}) {
        EXPECT_EQ(iomapDone({"help", subcommand}), iomapDone({subcommand, "--help"}));
    }
}

TEST_F(IomapTest, TheVersionIsPrinted) {
    EXPECT_THAT(iomapDone({"--version"}), MatchesRegex("iomap [0-9]+\\.[0-9]+\\.[0-9]+\n"));
}

TEST_F(IomapTest, WhatIsNotUnderstoodIsStatus2AndOneLineEvenWithoutABus) {
    bus.kill();
    const std::vector<std::pair<Arguments, std::string>> cases{
        {{}, "a subcommand is missing"},
        {{"frobnicate"}, "The following argument was not expected: frobnicate"},
        {{"raed", "1"}, "there is no subcommand 'raed'; perhaps 'read' is meant"},
        {{"stat"}, "there is no subcommand 'stat'; perhaps 'status' is meant"},
        {{"help", "wach"}, "there is no subcommand 'wach'; perhaps 'watch' is meant"},
        {{"help", "frobnicate"}, "there is no subcommand 'frobnicate'"},
        {{"toggle"}, "register is required"},
        {{"toggle", "x"}, "'x' is neither an address nor a range FIRST-LAST"},
        {{"read", "--wait", "1"}, "'1' is not of the form ADDR=VALUE"},
        {{"read", "1", "--timeout", "1"}, "--timeout requires --wait"},
        {{"read", "--wait", "1=1", "--timeout", "x"},
         "'x' is not a number of seconds from 0 to 1000000000"},
        {{"--bogus"}, "The following argument was not expected: --bogus"},
        {{"list", "--bogus"}, "The following argument was not expected: --bogus"},
        {{"list", "1"}, "The following argument was not expected: 1"},
        {{"list", "--type"}, "--type: 1 required TYPE missing"},
        {{"list", "--type", "virtual", "relay"}, "The following argument was not expected: relay"},
        {{"read"}, "register is required"},
        {{"read", "--json"}, "register is required"},
        {{"read", "x"}, "'x' is neither an address nor a range FIRST-LAST"},
        {{"read", "1", "5-"}, "'5-' is neither an address nor a range FIRST-LAST"},
        {{"read", "two\nlines"}, "'two lines' is neither an address nor a range FIRST-LAST"},
        {{"read", "\x1b[2J"}, "'\\x1b[2J' is neither an address nor a range FIRST-LAST"},
        {{"list", "\x1b]0;ü\a"}, "The following argument was not expected: \\x1b]0;ü\\x07"},
        {{"read", "1", "list"}, "'list' is neither an address nor a range FIRST-LAST"},
        {{"write"}, "assignment is required"},
        {{"write", "1"}, "'1' is not of the form ADDR=VALUE"},
        {{"write", "x=1"}, "'x=1' does not start with an address"},
        {{"write", "1=x"}, "'1=x' has no value from -2147483648 to 4294967295"},
        {{"info"}, "register is required"},
        {{"info", "3-1"}, "'3-1' is neither an address nor a range FIRST-LAST"},
        {{"watch", "x"}, "'x' is neither an address nor a range FIRST-LAST"},
        {{"watch", "--count", "0"}, "--count: Value 0 not in range 1 to 1000000000"},
        {{"watch", "--count", "x"}, "--count: Value x not in range 1 to 1000000000"},
        {{"watch", "--timeout", "-1"}, "'-1' is not a number of seconds from 0 to 1000000000"},
        {{"watch", "--timeout", "nan"}, "'nan' is not a number of seconds from 0 to 1000000000"},
        {{"watch", "--interval", "0.01"}, "--interval is 0.1 seconds at least"},
        {{"status", "--wait", "1m"}, "'1m' is not a number of seconds from 0 to 1000000000"},
        {{"status", "1"}, "The following argument was not expected: 1"},
    };
    for (const auto& [arguments, reason] : cases) {
        SCOPED_TRACE(reason);
        expectFailure(iomap(arguments), 2, reason + "; see iomap --help");
    }
}

TEST_F(IomapTest, ATypeThatIsUnknownIsStatus2AndTheTypesAreNamed) {
    std::string types;
    for (const RegisterType type : getAllTypes()) {
        types += (types.empty() ? "" : ", ") + getTypeName(type);
    }
    for (const char* subcommand : {"list", "watch"}) {
        const Outcome outcome = iomap({subcommand, "--type", "Relay"});
        EXPECT_EQ(outcome.status, 2);
        EXPECT_EQ(outcome.errors, "iomap: no register type 'Relay'; the types are " + types +
                                      "; see iomap --help\n");
    }
}

TEST_F(IomapTest, WithoutAServiceEverySubcommandIsStatus3AndOneLine) {
    for (const Arguments& use : uses) {
        SCOPED_TRACE(use.front());
        expectFailure(iomap(use), 3, ABSENT);
    }
    expectFailure(iomap({"write", "1=1"}), 3, std::string("register 1: ") + ABSENT);
}

TEST_F(IomapTest, WithoutABusEverySubcommandIsStatus3AndOneLine) {
    bus.kill();
    std::vector<Arguments> all = uses;
    all.push_back({"write", "1=1"});
    for (const Arguments& use : all) {
        SCOPED_TRACE(use.front());
        expectFailure(iomap(use), 3,
                      "cannot reach the D-Bus system bus: Could not connect: Connection refused; "
                      "is dbus-daemon running?");
    }
}

TEST_F(IomapTest, AServiceThatCannotBeStartedIsStatus3) {
    bus.startOnDemand(BusClient::SERVICE, "/bin/false");
    for (const Arguments& use : uses) {
        SCOPED_TRACE(use.front());
        EXPECT_EQ(iomap(use).status, 3);
    }
    EXPECT_EQ(iomap({"write", "1=1"}).status, 3);
}

TEST_F(IomapTest, WhatThePolicyOfTheBusDoesNotAllowIsStatus4) {
    startService(map);
    bus.deny(BusClient::SERVICE);
    for (const Arguments& use : uses) {
        SCOPED_TRACE(use.front());
        expectFailure(iomap(use), 4, DENIED);
    }
    expectFailure(iomap({"write", "1=1"}), 4, std::string("register 1: ") + DENIED);
}

TEST_F(IomapTest, AServiceThatDoesNotAnswerIsAskedNoMore) {
    const Process& service = startService(map);
    service.signal(SIGSTOP);
    // All run at the same time, for each takes the 5 seconds of a call.
    const auto start = std::chrono::steady_clock::now();
    std::vector<std::unique_ptr<Process>> runs;
    for (const Arguments& use : uses) {
        runs.push_back(std::make_unique<Process>(commandOf(use)));
    }
    runs.push_back(std::make_unique<Process>(commandOf({"read", "1-100"})));
    for (const auto& process : runs) {
        EXPECT_EQ(process->waitForExit(), 3);
        EXPECT_EQ(process->standardOutput(), "");
        EXPECT_EQ(process->standardError(),
                  "iomap: the service does not answer; restart iomappingd\n");
    }
    // To start so many programs takes an emulated processor or a sanitized build longer than a
    // second call would.
    if (!EMULATED && !SANITIZED) {
        EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(9));
    }
    service.signal(SIGCONT);
}

TEST_F(IomapTest, OutputThatCannotBeWrittenIsStatus1) {
    startService(map);
    for (const char* use : {"list", "read 1", "info 1", "status", "--help", "write --json 1=1"}) {
        const Outcome outcome =
            outcomeOf({"sh", "-c", "\"$0\" " + std::string(use) + " >/dev/full", IOMAP});
        EXPECT_EQ(outcome.status, 1) << use;
        EXPECT_EQ(outcome.errors, "iomap: cannot write to standard output\n");
    }
}

}  // namespace
