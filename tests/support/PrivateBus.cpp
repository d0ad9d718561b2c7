// SPDX-License-Identifier: MIT
#include "PrivateBus.h"

#include <csignal>
#include <cstdlib>

PrivateBus::PrivateBus()
    : services(directory.path() / "services"),
      busAddress("unix:path=" + (directory.path() / "bus").string()) {
    std::filesystem::create_directory(services);
    const std::string config = directory.file(
        "bus.conf", std::string("<busconfig><include>") + PRIVATE_BUS_CONFIG +
                        "</include><servicedir>" + services.string() + "</servicedir></busconfig>");
    daemon = std::make_unique<Process>(std::vector<std::string>{
        "dbus-daemon", "--config-file=" + config, "--address=" + busAddress, "--nofork",
        "--nopidfile", "--print-address=1"});
    daemon->waitForLine("unix:path=");
    setenv("DBUS_SYSTEM_BUS_ADDRESS", busAddress.c_str(), 1);
}

PrivateBus::~PrivateBus() {
    unsetenv("DBUS_SYSTEM_BUS_ADDRESS");
}

void PrivateBus::startOnDemand(const std::string& name, const std::string& command) const {
    writeFile(services / (name + ".service"),
              "[D-BUS Service]\nName=" + name + "\nExec=" + command + "\n");
}

void PrivateBus::signal(int number) const {
    daemon->signal(number);
}

void PrivateBus::kill() {
    daemon->signal(SIGKILL);
    daemon->waitForExit();
}
