// SPDX-License-Identifier: MIT
#pragma once

#include <filesystem>
#include <memory>
#include <string>

#include "Process.h"
#include "TemporaryDirectory.h"

/// A real dbus-daemon for a test. While it lives, DBUS_SYSTEM_BUS_ADDRESS names it for this process
/// and for the processes that it starts.
class PrivateBus {
 public:
    PrivateBus();
    ~PrivateBus();
    PrivateBus(const PrivateBus&) = delete;
    PrivateBus& operator=(const PrivateBus&) = delete;

    const std::string& address() const { return busAddress; }

    /// Has the bus start a program when somebody calls a name that nobody owns.
    ///
    /// @param name the well-known name, which the program then owns
    /// @param command the program's absolute path and its arguments
    void startOnDemand(const std::string& name, const std::string& command) const;

    /// Has the bus refuse everybody all calls to a name from now on.
    void deny(const std::string& name) const;

    /// Sends a signal to the bus.
    void signal(int number) const;

    /// Ends the bus, as if it had crashed.
    void kill();

 private:
    TemporaryDirectory directory;
    std::filesystem::path services;
    std::filesystem::path policies;
    std::string busAddress;
    std::unique_ptr<Process> daemon;
};
