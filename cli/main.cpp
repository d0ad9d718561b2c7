// SPDX-License-Identifier: MIT
#include "Commands.h"
#include "Version.h"
#include "client/Failure.h"
#include "program/CommandLine.h"
#include "program/UsageError.h"

int main(int argc, char** argv) {
    CLI::App app("Reads, writes and watches the registers of the device.", "iomap");
    app.set_version_flag("--version", std::string("iomap ") + IO_MAPPING_VERSION);
    app.require_subcommand(0, 1);
    addListCommand(app);
    addReadCommand(app);
    addWriteCommand(app);
    addInfoCommand(app);
    addWatchCommand(app);
    addStatusCommand(app);
    app.parse_complete_callback([&app] {
        if (app.get_subcommands().empty()) {
            throw UsageError("a subcommand is missing");
        }
    });
    return runProgram(app, argc, argv, reasonOf);
}
