// SPDX-License-Identifier: MIT
/// @file
#pragma once

#include <CLI/CLI.hpp>
#include <cstdlib>
#include <exception>
#include <string>

/// Runs a program whose command line CLI11 reads: fills the standard descriptors, parses the line,
/// which does the work, and reports a failure on one line of standard error under the name of the
/// app.
///
/// An app that takes a subcommand (`app.require_subcommand(0, 1)`) is refused a line without one. A
/// mistyped one is refused with a suggestion.
///
/// @param reasonOf gives the words for an exception that the work has thrown
/// @param statusOf gives the exit status for it
/// @return the exit status: EXIT_SUCCESS; what `statusOf` gives if the work failed; EXIT_FAILURE if
///         the output failed; EXIT_USAGE if the command line cannot be understood
int runProgram(
    CLI::App& app, int argc, char** argv, std::string (*reasonOf)(const std::exception& error),
    int (*statusOf)(const std::exception& error) = [](const std::exception& /*error*/) {
        return EXIT_FAILURE;
    });

/// Refuses a subcommand that the app does not have; suggests the one that is most likely meant.
///
/// @throws UsageError always
[[noreturn]] void refuseSubcommand(const CLI::App& app, const std::string& name);
