// SPDX-License-Identifier: MIT
#pragma once

#include <CLI/CLI.hpp>

/// Each adds one subcommand to the command line. The subcommand does its work while the line is
/// parsed; it throws Failure, UsageError, or what the client class throws.

void addListCommand(CLI::App& app);
void addReadCommand(CLI::App& app);
void addWriteCommand(CLI::App& app);
void addInfoCommand(CLI::App& app);
void addWatchCommand(CLI::App& app);
void addStatusCommand(CLI::App& app);
