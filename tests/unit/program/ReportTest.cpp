// SPDX-License-Identifier: MIT
#include "program/Report.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <iostream>

namespace {

using testing::ExitedWithCode;

TEST(ReportTest, IsOneLineUnderTheNameOfTheProgram) {
    EXPECT_EXIT(std::exit(report("tool", "it broke", EXIT_FAILURE)), ExitedWithCode(1),
                "^tool: it broke\n$");
    EXPECT_EXIT(std::exit(report("tool", "it quotes\ntwo\nlines", 7)), ExitedWithCode(7),
                "^tool: it quotes two lines\n$");
}

TEST(ReportTest, AUsageErrorNamesTheHelpAndIsStatus2) {
    EXPECT_EXIT(std::exit(reportUsageError("tool", "what is 'a\nb'?")), ExitedWithCode(2),
                "^tool: what is 'a b'\\?; see tool --help\n$");
}

TEST(ReportTest, ComesAfterWhatWasPrinted) {
    EXPECT_EXIT(
        {
            dup2(STDERR_FILENO, STDOUT_FILENO);
            std::cout << "output, ";
            std::exit(report("tool", "error", EXIT_FAILURE));
        },
        ExitedWithCode(1), "^output, tool: error\n$");
}

}  // namespace
