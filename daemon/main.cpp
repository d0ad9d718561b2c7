// SPDX-License-Identifier: MIT
#include <Poco/File.h>
#include <malloc.h>

#include <cstdlib>

#include "Check.h"
#include "DescriptorLimit.h"
#include "Devices.h"
#include "MapFile.h"
#include "Options.h"
#include "ServedBoards.h"
#include "Server.h"
#include "ServiceManager.h"
#include "UncaughtException.h"
#include "program/LogOutput.h"
#include "program/Report.h"
#include "program/Signals.h"
#include "program/StandardDescriptors.h"
#include "program/UsageError.h"
#include "support/ExceptionText.h"
#include "support/Log.h"

namespace {

constexpr const char* NAME = "iomappingd";

constexpr Pattern<> MAP_MISSING("map file not found");

/// Keeps large blocks, such as a message with a long list, out of the heap, so that their memory
/// goes back to the system at once. Left to itself, malloc takes them into the heap after the first
/// one, and keeps them.
void returnLargeBlocks() {
    constexpr int LARGE = 128 * 1024;
    ::mallopt(M_MMAP_THRESHOLD, LARGE);
    ::mallopt(M_TRIM_THRESHOLD, LARGE);
}

int reportFailure(const std::string& text) {
    return report(NAME, text, EXIT_FAILURE, journalPrefix());
}

/// What the server would say once it had the bus, and what the user can do.
int reportUnreadableMap(const std::string& path, const std::string& fault) {
    if (!Poco::File(path).exists()) {
        log(Poco::Logger::get("server"), Poco::Message::PRIO_FATAL, MAP_MISSING);
    }
    return reportFailure("cannot read map file '" + path + "': " + fault +
                         "; name another one with --map");
}

/// @return the exit status; the service ends by a signal, and so this is a failure
int serve(const Options& options) {
    openLog(options.logLevel);
    const std::string fault = MapFile::readingFault(options.mapFile);
    if (!fault.empty()) {
        return reportUnreadableMap(options.mapFile, fault);
    }
    raiseDescriptorLimit();
    DriverManager drivers;
    listServedBoards(addDrivers(drivers, options.mapFile));
    Server server(options.mapFile, drivers);
    const ServiceManager manager(server);
    server.run();
    return EXIT_FAILURE;
}

}  // namespace

int main(int argc, char** argv) {
    fillStandardDescriptors();
    returnLargeBlocks();
    endOnSignals(flushLog);
    endOnUncaughtException();
    try {
        const Options options = readOptions(argc, argv);
        return options.check ? checkMap(options) : serve(options);
    } catch (const UsageError& e) {
        return reportUsageError(NAME, e.what(), journalPrefix());
    } catch (const std::exception& e) {
        return reportFailure("cannot start: " + exceptionText(e));
    }
}
