// SPDX-License-Identifier: MIT
#include "Commands.h"
#include "Version.h"
#include "program/CommandLine.h"
#include "program/UsageError.h"

int main(int argc, char** argv) {
    CLI::App app("Makes and animates the files of a simulated device.", "iomap-sim");
    app.set_version_flag("--version", versionLine(app.get_name()));
    app.require_subcommand(0, 1);
    app.fallthrough();
    const auto options = std::make_shared<SimOptions>();
    CLI::Option* root =
        app.add_option("--root", options->root, "The directory with the device's files")
            ->type_name("DIR")
            ->envname("IOMAP_SIM_ROOT");
    addBoardCommands(app, options);
    addSensorCommands(app, options);
    addInputCommands(app, options);
    addValueCommands(app, options);
    addRunCommand(app, options);
    // Last, as subcommands would inherit it.
    app.footer(
        "A device for the map data/maps/device.json, and a button that is pushed:\n"
        "  export IOMAP_SIM_ROOT=/tmp/device\n"
        "  iomap-sim make kr62 pd5-1 pd5-2\n"
        "  iomap-sim press 1\n");
    app.parse_complete_callback([&app, root] {
        // A line without a subcommand has another fault, which is told in its place.
        if (root->empty() && !app.get_subcommands().empty()) {
            throw UsageError("no device: name its directory with --root or IOMAP_SIM_ROOT");
        }
    });
    return runProgram(app, argc, argv,
                      [](const std::exception& e) { return std::string(e.what()); });
}
