// SPDX-License-Identifier: MIT
#include "PrivateBus.h"

#include <csignal>
#include <cstdlib>

PrivateBus::PrivateBus()
    : busAddress("unix:path=" + (directory.path() / "bus").string()),
      daemon(std::make_unique<Process>(std::vector<std::string>{
          "dbus-daemon", std::string("--config-file=") + PRIVATE_BUS_CONFIG,
          "--address=" + busAddress, "--nofork", "--nopidfile", "--print-address=1"})) {
    daemon->waitForLine("unix:path=");
    setenv("DBUS_SYSTEM_BUS_ADDRESS", busAddress.c_str(), 1);
}

PrivateBus::~PrivateBus() {
    unsetenv("DBUS_SYSTEM_BUS_ADDRESS");
}

void PrivateBus::kill() {
    daemon->signal(SIGKILL);
    daemon->waitForExit();
}
