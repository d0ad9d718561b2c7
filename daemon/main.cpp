// SPDX-License-Identifier: MIT
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fstream>

#include "DescriptorLimit.h"
#include "Devices.h"
#include "Options.h"
#include "Server.h"
#include "program/LogOutput.h"
#include "program/Report.h"
#include "program/Signals.h"
#include "program/UsageError.h"

namespace {

constexpr const char* NAME = "iomappingd";

/// @return the exit status; the service ends by a signal, and so this is a failure
int serve(const Options& options) {
    if (!std::ifstream(options.mapFile).is_open()) {
        return report(NAME,
                      "cannot read map file '" + options.mapFile + "': " + std::strerror(errno) +
                          "; name another one with --map",
                      EXIT_FAILURE);
    }
    openLog(options.logLevel);
    raiseDescriptorLimit();
    try {
        DriverManager drivers;
        addDrivers(drivers, options.mapFile);
        Server server(options.mapFile, drivers);
        server.run();
    } catch (const std::exception& e) {
        return report(NAME, std::string("cannot start: ") + e.what(), EXIT_FAILURE);
    }
    return EXIT_FAILURE;
}

}  // namespace

int main(int argc, char** argv) {
    endOnSignals();
    try {
        return serve(readOptions(argc, argv));
    } catch (const UsageError& e) {
        return reportUsageError(NAME, e.what());
    }
}
