// SPDX-License-Identifier: MIT
#pragma once

#include <string>

/// Tells systemd the state of the program, if systemd has started it: "READY=1", "WATCHDOG=1",
/// "STOPPING=1". Without systemd, nothing happens.
void notifySystemd(const std::string& state);
