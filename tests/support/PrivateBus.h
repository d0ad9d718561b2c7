// SPDX-License-Identifier: MIT
#pragma once

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

    /// Ends the bus, as if it had crashed.
    void kill();

 private:
    TemporaryDirectory directory;
    std::string busAddress;
    std::unique_ptr<Process> daemon;
};
