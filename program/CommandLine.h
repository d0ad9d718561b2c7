// SPDX-License-Identifier: MIT
#pragma once

#include <CLI/CLI.hpp>
#include <exception>
#include <string>

/// Parses the command line, which does the work, and says what went wrong on one line of standard
/// error. For all command-line programs of the project, under the name that the app has.
///
/// @param reasonOf gives the words for what the work has thrown.
/// @return the exit status: 0, or 1 if the work or the output failed, or 2 if the command line
///          cannot be understood.
int runProgram(CLI::App& app, int argc, char** argv,
               std::string (*reasonOf)(const std::exception& error));
