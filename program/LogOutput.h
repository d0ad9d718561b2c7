// SPDX-License-Identifier: MIT
/// @file
#pragma once

#include <string>

/// The priority of Poco::Message that a name or a number stands for: "none" or 0 to "trace" or 8.
///
/// @throws UsageError there is no such level
int parseLogLevel(const std::string& level);

/// The prefix that tells the journal that a line is an error. Empty where there is no journal.
std::string journalPrefix();

/// Sends the lines of all loggers to standard error: with a priority prefix for the journal, or
/// else with time and priority for a terminal.
///
/// Must precede the first use of a logger: a logger takes over the settings when it is made.
///
/// @param level the least urgent priority that is printed, as from parseLogLevel()
void openLog(int level);

/// Writes what the log has held back, for a process that ends at once: nothing else is written
/// afterwards. Does nothing before openLog(). Callable from a signal handler.
void flushLog() noexcept;
