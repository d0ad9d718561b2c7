// SPDX-License-Identifier: MIT
#include "Commands.h"
#include "Version.h"
#include "client/Failure.h"
#include "program/CommandLine.h"

int main(int argc, char** argv) {
    CLI::App app("Reads, writes and watches the registers of the device.", "iomap");
    app.set_version_flag("--version", versionLine(app.get_name()));
    app.require_subcommand(0, 1);
    addListCommand(app);
    addReadCommand(app);
    addWriteCommand(app);
    addInfoCommand(app);
    addWatchCommand(app);
    addStatusCommand(app);
    // Last, as subcommands would inherit it.
    app.footer(
        "Exit status:\n"
        "  0  done\n"
        "  1  refused, or only partly done\n"
        "  2  the command line is wrong\n"
        "  3  no service: it is not running, cannot be started or does not answer, or no bus\n"
        "  4  this user has not the right\n\n"
        "Manual: man iomap\n");
    return runProgram(app, argc, argv, reasonOf, exitStatusOf);
}
