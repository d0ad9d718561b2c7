// SPDX-License-Identifier: MIT
/// @file
/// Each function adds one subcommand to the command line. A subcommand does its work while the line
/// is parsed. It throws Failure, UsageError, or what the class IoMapping throws.
#pragma once

#include <CLI/CLI.hpp>

void addListCommand(CLI::App& app);
void addReadCommand(CLI::App& app);
void addWriteCommand(CLI::App& app);
void addToggleCommand(CLI::App& app);
void addInfoCommand(CLI::App& app);
void addWatchCommand(CLI::App& app);
void addTopCommand(CLI::App& app);
void addStatusCommand(CLI::App& app);
void addHelpCommand(CLI::App& app);

/// Adds all of them. The app must live as long as the command line is parsed.
void addCommands(CLI::App& app);
