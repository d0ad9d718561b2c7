// SPDX-License-Identifier: MIT
#include <mosquitto.h>

#include <csignal>
#include <exception>
#include <iostream>
#include <sstream>
#include <string>

#include "Load.h"
#include "program/CommandLine.h"

namespace {

double milliseconds(std::chrono::nanoseconds time) {
    return std::chrono::duration<double, std::milli>(time).count();
}

std::string textOf(Latencies& latencies) {
    std::ostringstream text;
    text << R"({"count":)" << latencies.count();
    for (const auto& [name, perMille] :
         {std::pair("p50", 500), std::pair("p90", 900), std::pair("p99", 990),
          std::pair("p999", 999), std::pair("max", 1000)}) {
        text << ",\"" << name << "\":" << milliseconds(latencies.quantile(std::size_t(perMille)));
    }
    return text.str() + "}";
}

std::string textOf(const Usage& usage) {
    return R"({"cpu_ms":)" + std::to_string(usage.processor.count() / 1000) + R"(,"resident_kb":)" +
           std::to_string(usage.residentKilobytes) + "}";
}

std::string textOf(const Sample& moment) {
    return R"({"ms":)" + std::to_string(milliseconds(moment.time.time_since_epoch())) +
           R"(,"generator":)" + textOf(moment.generator) + R"(,"broker":)" + textOf(moment.broker) +
           "}";
}

/// One line of JSON; all times are in milliseconds.
void print(LoadFigures figures) {
    std::cout << R"({"connecting_ms":)" << milliseconds(figures.connecting) << R"(,"sent":)"
              << figures.sent << R"(,"acknowledged":)" << figures.acknowledged << R"(,"delivered":)"
              << figures.delivered << R"(,"lateness":)" << textOf(figures.lateness)
              << R"(,"acknowledgment":)" << textOf(figures.acknowledgment) << R"(,"delivery":)"
              << textOf(figures.delivery) << R"(,"before":)" << textOf(figures.before)
              << R"(,"connected":)" << textOf(figures.connected) << R"(,"start":)"
              << textOf(figures.start) << R"(,"end":)" << textOf(figures.end) << "}\n";
}

void addOptions(CLI::App& app, LoadOptions& options, std::uint64_t& period, std::uint64_t& warmUp,
                std::uint64_t& measured) {
    app.add_option("--port", options.port, "Where the broker listens on this machine")->required();
    app.add_option("--broker", options.broker, "The process of the broker")->required();
    app.add_option("--connections", options.connections, "Devices")
        ->check(CLI::Range(1, 60000))
        ->capture_default_str();
    app.add_option("--connect-rate", options.connectRate, "Connections made in a second")
        ->check(CLI::Range(1, 100000))
        ->capture_default_str();
    app.add_option("--sources", options.sources, "Addresses of the loopback to connect from")
        ->check(CLI::Range(1, 254))
        ->capture_default_str();
    app.add_option("--period", period, "Milliseconds between two messages of a device")
        ->check(CLI::Range(1, 3600000))
        ->capture_default_str();
    app.add_option("--warm-up", warmUp, "Seconds before what is measured")
        ->check(CLI::Range(0, 3600))
        ->capture_default_str();
    app.add_option("--seconds", measured, "Seconds that are measured")
        ->check(CLI::Range(1, 3600))
        ->capture_default_str();
}

}  // namespace

int main(int argc, char** argv) {
    std::signal(SIGPIPE, SIG_IGN);
    CLI::App app(
        "Simulates a fleet of devices that send to an MQTT broker, and measures the broker.",
        "fleet-generator");
    LoadOptions options;
    std::uint64_t period = 1000;
    std::uint64_t warmUp = 5;
    std::uint64_t measured = 30;
    addOptions(app, options, period, warmUp, measured);
    app.callback([&] {
        options.period = std::chrono::milliseconds(period);
        options.warmUp = std::chrono::seconds(warmUp);
        options.measured = std::chrono::seconds(measured);
        mosquitto_lib_init();
        print(Load(options).run());
    });
    return runProgram(app, argc, argv,
                      [](const std::exception& error) -> std::string { return error.what(); });
}
