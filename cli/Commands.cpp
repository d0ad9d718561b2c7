// SPDX-License-Identifier: MIT
#include "Commands.h"

#include <string>

namespace {

constexpr const char* ENDING =
    "Exit status:\n"
    "  0  done\n"
    "  1  refused, or only partly done\n"
    "  2  the command line is wrong\n"
    "  3  no service: it is not running, cannot be started or does not answer, or no bus\n"
    "  4  this user has not the right\n\n"
    "Manual: man iomap\n";

}  // namespace

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
    for (CLI::App* const command : app.get_subcommands({})) {
        command->footer(command->get_footer() + "\n\n" + ENDING);
    }
    // Last, as subcommands would inherit it.
    app.footer(std::string("Example:\n  iomap read door 20-25\n\n") + ENDING);
}
