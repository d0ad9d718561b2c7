// SPDX-License-Identifier: MIT
#pragma once

#include <gio/gio.h>

#include <optional>
#include <string>
#include <vector>

#include "Process.h"

/// A service from its start, which ends with its name on the bus, until its owner goes.
class RunningService {
 public:
    /// @param bus the connection on which the name is awaited
    /// @param serviceName the name
    /// @param command the program and its arguments
    /// @throws std::runtime_error the name did not appear
    RunningService(GDBusConnection* bus, const std::string& serviceName,
                   const std::vector<std::string>& command);
    /// Kills the program and waits until the bus knows.
    ~RunningService();
    RunningService(const RunningService&) = delete;
    RunningService& operator=(const RunningService&) = delete;

    const std::string& name() const { return busName; }
    /// Milliseconds from before the fork until the name was seen on the bus.
    double startTime() const { return milliseconds; }
    /// Milliseconds that the program has spent on a core in all its threads.
    double cpuTime() const;
    pid_t pid() const { return process->pid(); }

 private:
    bool waitForName(bool wanted) const;

    std::string busName;
    std::optional<bool> present;
    guint watch;
    std::optional<Process> process;
    double milliseconds{0};
};
