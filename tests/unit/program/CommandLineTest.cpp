// SPDX-License-Identifier: MIT
#include "program/CommandLine.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <unistd.h>

#include <cstdlib>
#include <iostream>
#include <stdexcept>
#include <string>
#include <vector>

#include "program/UsageError.h"

namespace {

using testing::ExitedWithCode;

/// A program "tool" with the option --number and the subcommand "work".
class CommandLineTest : public testing::Test {
 protected:
    CommandLineTest() {
        app.add_option("--number", number, "A number");
        app.add_subcommand("work", "Do it")->callback([this] { work(); });
    }

    /// In a child process: runs the program and ends with its status. Its output can be matched.
    [[noreturn]] void run(std::vector<std::string> arguments) {
        dup2(STDERR_FILENO, STDOUT_FILENO);
        exitWithStatusOf(std::move(arguments));
    }

    [[noreturn]] void exitWithStatusOf(std::vector<std::string> arguments) {
        arguments.insert(arguments.begin(), "/usr/bin/tool");
        std::vector<char*> pointers;
        for (std::string& argument : arguments) {
            pointers.push_back(argument.data());
        }
        const auto reasonOf = [](const std::exception& e) {
            return std::string("it failed: ") + e.what();
        };
        const int count = static_cast<int>(pointers.size());
        std::exit(statusOf == nullptr
                      ? runProgram(app, count, pointers.data(), reasonOf)
                      : runProgram(app, count, pointers.data(), reasonOf, statusOf));
    }

    CLI::App app{"A tool.", "tool"};
    int number{0};
    int (*statusOf)(const std::exception& error){nullptr};
    std::function<void()> work = [] { std::cout << "done\n"; };
};

TEST_F(CommandLineTest, WorkThatIsDoneIsStatus0) {
    EXPECT_EXIT(run({"work"}), ExitedWithCode(0), "^done\n$");
}

TEST_F(CommandLineTest, WorkThatFailsIsStatus1AndOneLineInTheWordsOfTheProgram) {
    work = [] { throw std::runtime_error("no\nluck"); };
    EXPECT_EXIT(run({"work"}), ExitedWithCode(1), "^tool: it failed: no luck\n$");
}

TEST_F(CommandLineTest, AProgramMayHaveStatusesOfItsOwnForFailures) {
    work = [] { throw std::runtime_error("no luck"); };
    statusOf = [](const std::exception& /*error*/) { return 77; };
    EXPECT_EXIT(run({"work"}), ExitedWithCode(77), "^tool: it failed: no luck\n$");
    EXPECT_EXIT(run({"--bogus"}), ExitedWithCode(2), "--bogus");
}

TEST_F(CommandLineTest, WhatIsNotUnderstoodIsStatus2AndOneLine) {
    work = [] { throw UsageError("'x' is no y"); };
    EXPECT_EXIT(run({"work"}), ExitedWithCode(2), "^tool: 'x' is no y; see tool --help\n$");
    EXPECT_EXIT(run({"--bogus"}), ExitedWithCode(2),
                "^tool: The following argument was not expected: --bogus; see tool --help\n$");
}

TEST_F(CommandLineTest, OnlyAProgramThatTakesASubcommandNeedsOne) {
    EXPECT_EXIT(run({"--number", "1"}), ExitedWithCode(0), "^$");
    app.require_subcommand(0, 1);
    EXPECT_EXIT(run({"--number", "1"}), ExitedWithCode(2),
                "^tool: a subcommand is missing; see tool --help\n$");
    EXPECT_EXIT(run({"--number", "1", "work"}), ExitedWithCode(0), "^done\n$");
}

TEST_F(CommandLineTest, HelpIsStatus0WithoutASubcommand) {
    app.require_subcommand(0, 1);
    EXPECT_EXIT(run({"--help"}), ExitedWithCode(0), "A tool\\.");
}

TEST_F(CommandLineTest, OutputThatCannotBeWrittenIsStatus1) {
    EXPECT_EXIT(
        {
            dup2(open("/dev/full", O_WRONLY | O_CLOEXEC), STDOUT_FILENO);
            exitWithStatusOf({"work"});
        },
        ExitedWithCode(1), "^tool: cannot write to standard output\n$");
}

}  // namespace
