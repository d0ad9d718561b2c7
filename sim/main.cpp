// SPDX-License-Identifier: MIT
#include <algorithm>
#include <cstdlib>
#include <iostream>

#include "Version.h"
#include "sim/Commands.h"

namespace {

constexpr int USAGE_STATUS = 2;

/// Says what is wrong, on one line, whatever the text quotes.
int report(std::string text, int status) {
    std::cout.flush();
    std::replace(text.begin(), text.end(), '\n', ' ');
    std::cerr << "iomap-sim: " << text << '\n';
    return status;
}

int refuse(const std::string& reason) {
    return report(reason + "; see iomap-sim --help", USAGE_STATUS);
}

int run(int argc, char** argv) {
    CLI::App app("Makes and animates the files of a simulated device.", "iomap-sim");
    app.set_version_flag("--version", std::string("iomap-sim ") + IO_MAPPING_VERSION);
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
        if (app.get_subcommands().empty()) {
            throw CLI::RequiredError("a subcommand is missing", CLI::ExitCodes::RequiredError);
        }
        if (root->empty()) {
            throw CLI::RequiredError("no device: name its directory with --root or IOMAP_SIM_ROOT",
                                     CLI::ExitCodes::RequiredError);
        }
    });
    try {
        app.parse(argc, argv);
        return EXIT_SUCCESS;
    } catch (const CLI::Success& e) {
        return app.exit(e);
    } catch (const CLI::ParseError& e) {
        return refuse(e.what());
    } catch (const std::exception& e) {
        return report(e.what(), EXIT_FAILURE);
    }
}

}  // namespace

int main(int argc, char** argv) {
    const int status = run(argc, argv);
    std::cout.flush();
    return status != EXIT_SUCCESS || std::cout.good()
               ? status
               : report("cannot write to standard output", EXIT_FAILURE);
}
