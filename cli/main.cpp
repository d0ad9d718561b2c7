// SPDX-License-Identifier: MIT
#include "Commands.h"
#include "Version.h"
#include "client/Failure.h"
#include "program/CommandLine.h"

int main(int argc, char** argv) {
    CLI::App app("Reads, writes and watches the registers of the device.", "iomap");
    app.set_version_flag("--version", versionLine(app.get_name()));
    addCommands(app);
    return runProgram(app, argc, argv, reasonOf, exitStatusOf);
}
