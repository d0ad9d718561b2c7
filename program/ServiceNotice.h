// SPDX-License-Identifier: MIT
#pragma once

#include <chrono>
#include <optional>
#include <string>

// What a program tells the manager that has started it, by the protocol of sd_notify(3). The
// library of systemd does the same, and loads six more libraries, which hold 136 kB of memory and
// take a twentieth of the start.

/// Whether the manager wants to hear from this program (NOTIFY_SOCKET).
bool isSupervised();

/// Tells the manager lines such as "READY=1". Does nothing without a manager, and never waits.
/// Usable from any thread.
///
/// @return whether the manager has got the lines
bool notifySupervisor(const std::string& lines);

/// After how long a silence the manager's watchdog ends this program (WATCHDOG_USEC, WATCHDOG_PID).
///
/// @return nothing without a watchdog for this program
std::optional<std::chrono::microseconds> watchdogLimit();
