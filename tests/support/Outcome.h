// SPDX-License-Identifier: MIT
#pragma once

#include <gtest/gtest.h>

#include <map>
#include <string>
#include <vector>

#include "Process.h"

/// How a run of a program ended and what it printed.
struct Outcome {
    int status;
    std::string output;
    std::string errors;
};

/// Runs a program to its end.
///
/// @param command see Process
/// @param environment see Process
/// @throws std::runtime_error the program does not end
inline Outcome outcomeOf(const std::vector<std::string>& command,
                         const std::map<std::string, std::string>& environment = {}) {
    Process process(command, environment);
    const int status = process.waitForExit();
    return {status, process.standardOutput(), process.standardError()};
}

/// Expects a run in which nothing went wrong.
///
/// @return what the program printed
inline std::string expectSuccess(const Outcome& outcome) {
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(outcome.errors, "");
    return outcome.output;
}

/// Expects a failure that the program reports on one line, and nothing on standard output.
inline void expectFailure(const Outcome& outcome, const std::string& program, int status,
                          const std::string& reason) {
    EXPECT_EQ(outcome.status, status);
    EXPECT_EQ(outcome.errors, program + ": " + reason + "\n");
    EXPECT_EQ(outcome.output, "");
}
