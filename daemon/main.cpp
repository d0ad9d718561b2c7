// SPDX-License-Identifier: MIT
#include <malloc.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fstream>

#include "DescriptorLimit.h"
#include "Devices.h"
#include "Options.h"
#include "ServedBoards.h"
#include "Server.h"
#include "program/LogOutput.h"
#include "program/Report.h"
#include "program/Signals.h"
#include "program/StandardDescriptors.h"
#include "program/UsageError.h"

namespace {

constexpr const char* NAME = "iomappingd";

/// Keeps large blocks, such as a message with a long list, out of the heap, so that their memory
/// goes back to the system at once. Left to itself, malloc takes them into the heap after the first
/// one, and keeps them.
void returnLargeBlocks() {
    constexpr int LARGE = 128 * 1024;
    ::mallopt(M_MMAP_THRESHOLD, LARGE);
    ::mallopt(M_TRIM_THRESHOLD, LARGE);
}

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
        listServedBoards(addDrivers(drivers, options.mapFile));
        Server server(options.mapFile, drivers);
        server.run();
    } catch (const std::exception& e) {
        return report(NAME, std::string("cannot start: ") + e.what(), EXIT_FAILURE);
    }
    return EXIT_FAILURE;
}

}  // namespace

int main(int argc, char** argv) {
    fillStandardDescriptors();
    returnLargeBlocks();
    endOnSignals(flushLog);
    try {
        return serve(readOptions(argc, argv));
    } catch (const UsageError& e) {
        return reportUsageError(NAME, e.what());
    }
}
