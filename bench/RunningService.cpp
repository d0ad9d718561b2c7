// SPDX-License-Identifier: MIT
#include "RunningService.h"

#include <chrono>
#include <ctime>
#include <stdexcept>

#include "Deadline.h"

RunningService::RunningService(GDBusConnection* bus, const std::string& serviceName,
                               const std::vector<std::string>& command)
    : busName(serviceName),
      watch(g_bus_watch_name_on_connection(
          bus, busName.c_str(), G_BUS_NAME_WATCHER_FLAGS_NONE,
          [](GDBusConnection* /*connection*/, const gchar* /*name*/, const gchar* /*owner*/,
             gpointer flag) { *static_cast<std::optional<bool>*>(flag) = true; },
          [](GDBusConnection* /*connection*/, const gchar* /*name*/, gpointer flag) {
              *static_cast<std::optional<bool>*>(flag) = false;
          },
          &present, nullptr)) {
    // The answer also tells that the bus will report the change.
    if (!waitForName(false)) {
        throw std::runtime_error(busName + " is on the bus before its service has started");
    }
    const auto start = std::chrono::steady_clock::now();
    process.emplace(command);
    if (!waitForName(true)) {
        throw std::runtime_error(command.front() + " did not get " + busName + " on the bus");
    }
    milliseconds =
        std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count();
}

RunningService::~RunningService() {
    process.reset();
    waitForName(false);
    g_bus_unwatch_name(watch);
}

bool RunningService::waitForName(bool wanted) const {
    return runUntil([this, wanted] { return present == wanted; });
}

double RunningService::cpuTime() const {
    clockid_t clock = 0;
    timespec spent{};
    if (clock_getcpuclockid(process->pid(), &clock) != 0 || clock_gettime(clock, &spent) != 0) {
        throw std::runtime_error("cannot read the CPU time of " + busName);
    }
    const auto nanoseconds =
        std::chrono::seconds(spent.tv_sec) + std::chrono::nanoseconds(spent.tv_nsec);
    return std::chrono::duration<double, std::milli>(nanoseconds).count();
}
