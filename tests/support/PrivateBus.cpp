// SPDX-License-Identifier: MIT
#include "PrivateBus.h"

#include <csignal>
#include <cstdlib>
#include <stdexcept>

PrivateBus::PrivateBus()
    : services(directory.path() / "services"),
      policies(directory.path() / "policies"),
      busAddress("unix:path=" + (directory.path() / "bus").string()) {
    std::filesystem::create_directory(services);
    std::filesystem::create_directory(policies);
    const std::string config = directory.file(
        "bus.conf", std::string("<busconfig><include>") + PRIVATE_BUS_CONFIG +
                        "</include><servicedir>" + services.string() + "</servicedir><includedir>" +
                        policies.string() + "</includedir></busconfig>");
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

void PrivateBus::deny(const std::string& name) const {
    writeFile(policies / "deny.conf",
              "<busconfig><policy context='mandatory'><deny send_destination='" + name +
                  "'/></policy></busconfig>");
    // Answered when it is done, unlike a signal.
    Process reload({"busctl", "--system", "call", "org.freedesktop.DBus", "/org/freedesktop/DBus",
                    "org.freedesktop.DBus", "ReloadConfig"});
    if (reload.waitForExit() != 0) {
        throw std::runtime_error("the bus does not read its policy: " + reload.standardError());
    }
}

void PrivateBus::signal(int number) const {
    daemon->signal(number);
}

void PrivateBus::kill() {
    daemon->signal(SIGKILL);
    daemon->waitForExit();
}
