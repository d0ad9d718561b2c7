// SPDX-License-Identifier: MIT
#include <algorithm>
#include <cstdlib>
#include <iostream>

#include "Commands.h"
#include "Failure.h"
#include "Version.h"

namespace {

constexpr int USAGE_STATUS = 2;

/// Says what is wrong, on one line, whatever the text quotes.
int report(std::string text, int status) {
    std::cout.flush();
    std::replace(text.begin(), text.end(), '\n', ' ');
    std::cerr << "iomap: " << text << '\n';
    return status;
}

int refuse(const std::string& reason) {
    return report(reason + "; see iomap --help", USAGE_STATUS);
}

int run(int argc, char** argv) {
    CLI::App app("Reads, writes and watches the registers of the device.", "iomap");
    app.set_version_flag("--version", std::string("iomap ") + IO_MAPPING_VERSION);
    app.require_subcommand(0, 1);
    addListCommand(app);
    addReadCommand(app);
    addWriteCommand(app);
    addInfoCommand(app);
    addWatchCommand(app);
    addStatusCommand(app);
    try {
        app.parse(argc, argv);
        return app.get_subcommands().empty() ? refuse("a subcommand is missing") : EXIT_SUCCESS;
    } catch (const CLI::Success& e) {
        return app.exit(e);
    } catch (const CLI::ParseError& e) {
        return refuse(e.what());
    } catch (const UsageError& e) {
        return refuse(e.what());
    } catch (const std::exception& e) {
        return report(reasonOf(e), EXIT_FAILURE);
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
