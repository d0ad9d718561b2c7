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

TEST(ReportTest, ControlCharactersAreWrittenAsNumbersAndTextIsKept) {
    EXPECT_EQ(printable("a\x1b[31mb\r\t\x7f"), "a\\x1b[31mb\\x0d\\x09\\x7f");
    EXPECT_EQ(printable(std::string_view("\0", 1)), "\\x00");
    EXPECT_EQ(printable("two\nlines"), "two lines");
    EXPECT_EQ(printable("für 温度 🌡 €"), "für 温度 🌡 €");
    EXPECT_EQ(printable("\u009b\u00a0\u009fx"), "\\xc2\\x9b\u00a0\\xc2\\x9fx");
    EXPECT_EQ(printable(""), "");
}

TEST(ReportTest, WhatIsNoUtf8IsWrittenAsNumbers) {
    EXPECT_EQ(printable("\xff\xc3("), "\\xff\\xc3(");
    EXPECT_EQ(printable("\xe2\x82"), "\\xe2\\x82");
    EXPECT_EQ(printable("\xc0\x9b"), "\\xc0\\x9b");
    EXPECT_EXIT(std::exit(report("tool", "no '\x1b'", 1)), ExitedWithCode(1),
                "^tool: no '\\\\x1b'\n$");
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
