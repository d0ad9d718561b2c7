// SPDX-License-Identifier: MIT
#include "program/LogOutput.h"

#include <Poco/Logger.h>
#include <gmock/gmock.h>

#include <cstdlib>

#include "program/UsageError.h"

namespace {

using testing::ExitedWithCode;
using testing::ThrowsMessage;

/// In a child process: opens the log at the level "notice", writes two lines and ends.
[[noreturn]] void logTwoLines() {
    openLog(parseLogLevel("notice"));
    // A logger that is new takes over what was set.
    Poco::Logger& logger = Poco::Logger::get("log-output-test");
    logger.information("below the level");
    logger.error("broken");
    std::_Exit(EXIT_SUCCESS);
}

TEST(LogOutputTest, ALevelIsANameOrANumber) {
    EXPECT_EQ(parseLogLevel("none"), 0);
    EXPECT_EQ(parseLogLevel("notice"), 5);
    EXPECT_EQ(parseLogLevel("trace"), 8);
    EXPECT_EQ(parseLogLevel("6"), 6);
}

TEST(LogOutputTest, AnotherLevelIsAUsageError) {
    for (const std::string level : {"loud", "9", "-1", ""}) {
        EXPECT_THAT([level] { parseLogLevel(level); },
                    ThrowsMessage<UsageError>("unknown log level '" + level + "'"));
    }
}

TEST(LogOutputTest, OnATerminalALineHasTimeAndPriority) {
    EXPECT_EXIT(
        {
            unsetenv("JOURNAL_STREAM");
            logTwoLines();
        },
        ExitedWithCode(0),
        "^[0-9]{4}-[0-9]{2}-[0-9]{2} [0-9]{2}:[0-9]{2}:[0-9]{2}\\.[0-9]{3} Error "
        "log-output-test: broken\n$");
}

TEST(LogOutputTest, ForTheJournalALineStartsWithItsPriority) {
    EXPECT_EXIT(
        {
            setenv("JOURNAL_STREAM", "9:12345", 1);
            logTwoLines();
        },
        ExitedWithCode(0), "^<3>log-output-test: broken\n$");
}

}  // namespace
