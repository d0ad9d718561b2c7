// SPDX-License-Identifier: MIT
#include <glib.h>
#include <malloc.h>
#include <mosquitto.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <ctime>
#include <future>
#include <iostream>
#include <thread>

#include "Credentials.h"
#include "DeviceId.h"
#include "EndProcess.h"
#include "Gateway.h"
#include "Mailbox.h"
#include "Settings.h"
#include "Uplink.h"
#include "Version.h"
#include "client/Failure.h"
#include "program/CommandLine.h"
#include "program/LogOutput.h"
#include "program/ServiceNotice.h"

namespace {

using std::chrono::microseconds;
using std::chrono::seconds;
using Clock = std::chrono::steady_clock;

/// How often the threads are looked at, unless the watchdog of systemd wants it more often.
constexpr seconds ROUND(10);

/// A thread that has not looked around for so long never will again. A resolver of names and
/// several calls of the bus may take their time.
constexpr seconds PATIENCE(120);

/// How long the end may take.
constexpr seconds END_LIMIT(4);

struct Options {
    std::string config{Settings::DEFAULT_FILE};
    std::string logLevel{"notice"};
    bool check{false};
};

const char* environmentOf(const char* name) {
    const char* const value = std::getenv(name);
    return value != nullptr ? value : "";
}

/// Prints every fault of the configuration and its labels.
void checkFiles(const Options& options) {
    std::vector<std::string> faults = Settings::faultsOf(options.config);
    for (std::string& fault : faults) {
        fault.insert(0, ": ").insert(0, options.config);
    }
    if (faults.empty()) {
        const std::string labels = Settings::read(options.config).labelsFile;
        // Without the file, no register has a name.
        if (const auto text = Labels::textOf(labels)) {
            for (const Labels::Fault& fault : Labels::faultsIn(*text)) {
                faults.push_back(labels + ": " + fault.message);
            }
        }
    }
    for (const std::string& fault : faults) {
        std::cout << fault << '\n';
    }
    if (!faults.empty()) {
        throw Failure(std::to_string(faults.size()) + " faults in the configuration");
    }
}

std::string randomWord() {
    const guint32 number = g_random_int();
    std::array<char, 16> text{};
    g_snprintf(text.data(), text.size(), "%08x", number);
    return text.data();
}

/// The same id for each start, and another one for each prefix and device: a broker lets only one
/// of two clients with the same id in.
std::string clientIdOf(const Settings& settings) {
    std::string id = settings.prefix + "-" + settings.device;
    std::replace(id.begin(), id.end(), '/', '-');
    return id;
}

/// The threads' heartbeats, looked at every now and then.
class Pulse {
 public:
    explicit Pulse(unsigned first) : last(first) {}

    bool isAlive(unsigned beats, Clock::time_point now) {
        if (beats != last) {
            last = beats;
            seen = now;
        }
        return now - seen < PATIENCE;
    }

 private:
    unsigned last;
    Clock::time_point seen{Clock::now()};
};

/// How often to look at the threads: so often that the watchdog of systemd hears in time.
timespec roundOf() {
    microseconds round = ROUND;
    if (const auto limit = watchdogLimit()) {
        round = std::min(round, *limit / 3);
    }
    const auto whole = std::chrono::duration_cast<seconds>(round);
    timespec time{};
    time.tv_sec = static_cast<std::time_t>(whole.count());
    time.tv_nsec = static_cast<long>(std::chrono::nanoseconds(round - whole).count());
    return time;
}

/// Waits for a signal to end, and tells systemd meanwhile that both threads live.
void supervise(const sigset_t& signals, const Gateway& gateway, const Uplink& uplink) {
    Pulse bus(gateway.heartbeat());
    Pulse network(uplink.heartbeat());
    const timespec round = roundOf();
    notifySupervisor("READY=1");
    while (sigtimedwait(&signals, nullptr, &round) < 0) {
        const auto now = Clock::now();
        const bool busLives = bus.isAlive(gateway.heartbeat(), now);
        if (network.isAlive(uplink.heartbeat(), now) && busLives) {
            notifySupervisor("WATCHDOG=1");
        }
    }
    notifySupervisor("STOPPING=1");
}

/// Never returns: the thread of the bus has no end of its own.
void serve(const Settings& settings) {
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGTERM);
    sigaddset(&signals, SIGINT);
    // Before any thread begins, so that all of them inherit it.
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);
    std::signal(SIGPIPE, SIG_IGN);
    mosquitto_lib_init();

    const std::string session = randomWord();
    Mailbox mailbox([] { g_main_context_wakeup(nullptr); });
    Gateway gateway(settings, Labels::read(settings.labelsFile), mailbox, session);
    Uplink uplink(settings,
                  Credentials::read(environmentOf("CREDENTIALS_DIRECTORY"), settings.broker),
                  mailbox, environmentOf("STATE_DIRECTORY"), session);
    std::thread([&gateway] { gateway.run(); }).detach();
    std::promise<void> ended;
    std::thread([&uplink, &ended] {
        uplink.run();
        ended.set_value();
    }).detach();

    supervise(signals, gateway, uplink);
    uplink.stop();
    ended.get_future().wait_for(END_LIMIT);
    endProcess(EXIT_SUCCESS);
}

void work(const Options& options) {
    const int level = parseLogLevel(options.logLevel);
    if (options.check) {
        checkFiles(options);
        return;
    }
    openLog(level);
    Settings settings = Settings::read(options.config);
    if (settings.device.empty()) {
        settings.device = deviceIdOf();
    }
    if (settings.broker.clientId.empty()) {
        settings.broker.clientId = clientIdOf(settings);
    }
    serve(settings);
}

}  // namespace

int main(int argc, char** argv) {
    // A few threads that rarely work need no heap each.
    mallopt(M_ARENA_MAX, 1);
    CLI::App app("Shows the registers of the device to an MQTT broker.", "iomap-mqtt");
    app.set_version_flag("--version", versionLine(app.get_name()));
    Options options;
    app.add_option("--config", options.config,
                   "The configuration (default: " + options.config + ")")
        ->type_name("FILE");
    app.add_option("--log-level", options.logLevel,
                   "none, fatal, critical, error, warning, notice (default), information, debug or "
                   "trace")
        ->type_name("LEVEL");
    app.add_flag("--check", options.check,
                 "Print every fault of the configuration and of its labels, and end");
    app.callback([&options] { work(options); });
    return runProgram(app, argc, argv, reasonOf);
}
