// SPDX-License-Identifier: MIT
#pragma once

#include <CLI/CLI.hpp>
#include <memory>
#include <string>

/// What all subcommands of iomap-sim share.
struct SimOptions {
    std::string root;  ///< The directory that stands for the root of the device.
};

/// Each adds subcommands to the command line. A subcommand does its work while the line is parsed;
/// it throws sim::Error or std::filesystem::filesystem_error.

/// make, pull and restore.
void addBoardCommands(CLI::App& app, const std::shared_ptr<SimOptions>& common);
/// plug and unplug.
void addSensorCommands(CLI::App& app, const std::shared_ptr<SimOptions>& common);
/// press and toggle.
void addInputCommands(CLI::App& app, const std::shared_ptr<SimOptions>& common);
/// set, get and expect.
void addValueCommands(CLI::App& app, const std::shared_ptr<SimOptions>& common);
/// run.
void addRunCommand(CLI::App& app, const std::shared_ptr<SimOptions>& common);
