// SPDX-License-Identifier: MIT
#include "Commands.h"

void addCommands(CLI::App& app) {
    app.require_subcommand(0, 1);
    addListCommand(app);
    addReadCommand(app);
    addWriteCommand(app);
    addToggleCommand(app);
    addInfoCommand(app);
    addWatchCommand(app);
    addTopCommand(app);
    addStatusCommand(app);
    addHelpCommand(app);
    // Last, as subcommands would inherit it.
    app.footer(
        "Exit status:\n"
        "  0  done\n"
        "  1  refused, or only partly done\n"
        "  2  the command line is wrong\n"
        "  3  no service: it is not running, cannot be started or does not answer, or no bus\n"
        "  4  this user has not the right\n\n"
        "Manual: man iomap\n");
}
