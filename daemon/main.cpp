// SPDX-License-Identifier: MIT
#include <Poco/FormattingChannel.h>
#include <Poco/Logger.h>
#include <Poco/PatternFormatter.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iostream>

#include "DescriptorLimit.h"
#include "Devices.h"
#include "EndProcess.h"
#include "Options.h"
#include "Server.h"
#include "program/StandardErrorChannel.h"

namespace {

/// The journal keeps time and source itself and takes the priority from a prefix.
constexpr const char* JOURNAL_LINE = "<%l>%s: %t";
constexpr const char* TERMINAL_LINE = "%Y-%m-%d %H:%M:%S.%i %p %s: %t";

void endOnSignals() {
    struct sigaction action {};
    action.sa_handler = [](int /*signal*/) { endProcess(EXIT_SUCCESS); };
    for (const int signal : {SIGTERM, SIGINT}) {
        sigaction(signal, &action, nullptr);
    }
}

void openLog(int level) {
    const bool journal = std::getenv("JOURNAL_STREAM") != nullptr;
    const Poco::AutoPtr<Poco::PatternFormatter> formatter(
        new Poco::PatternFormatter(journal ? JOURNAL_LINE : TERMINAL_LINE));
    const Poco::AutoPtr<StandardErrorChannel> output(new StandardErrorChannel);
    Poco::Logger::root().setChannel(
        Poco::AutoPtr<Poco::FormattingChannel>(new Poco::FormattingChannel(formatter, output)));
    Poco::Logger::root().setLevel(level);
}

void requireMapFile(const std::string& path) {
    if (!std::ifstream(path).is_open()) {
        std::cerr << "iomappingd: cannot read map file '" << path << "': " << std::strerror(errno)
                  << "; name another one with --map\n";
        std::exit(EXIT_FAILURE);
    }
}

}  // namespace

int main(int argc, char** argv) {
    endOnSignals();
    const Options options = readOptions(argc, argv);
    requireMapFile(options.mapFile);
    openLog(options.logLevel);
    raiseDescriptorLimit();
    try {
        DriverManager drivers;
        addDrivers(drivers, options.mapFile);
        Server server(options.mapFile, drivers);
        server.run();
    } catch (const std::exception& e) {
        std::cerr << "iomappingd: cannot start: " << e.what() << '\n';
    }
    return EXIT_FAILURE;
}
