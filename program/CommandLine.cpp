// SPDX-License-Identifier: MIT
#include "CommandLine.h"

#include <algorithm>
#include <cstdlib>
#include <iostream>

#include "ExitStatus.h"
#include "UsageError.h"

namespace {

/// Says what is wrong, on one line, whatever the text quotes.
int report(const CLI::App& app, std::string text, int status) {
    std::cout.flush();
    std::replace(text.begin(), text.end(), '\n', ' ');
    std::cerr << app.get_name() << ": " << text << '\n';
    return status;
}

int refuse(const CLI::App& app, const std::string& reason) {
    return report(app, reason + "; see " + app.get_name() + " --help", EXIT_USAGE);
}

}  // namespace

int runProgram(CLI::App& app, int argc, char** argv,
               std::string (*reasonOf)(const std::exception& error)) {
    int status = EXIT_SUCCESS;
    try {
        app.parse(argc, argv);
    } catch (const CLI::Success& e) {
        status = app.exit(e);
    } catch (const CLI::ParseError& e) {
        status = refuse(app, e.what());
    } catch (const UsageError& e) {
        status = refuse(app, e.what());
    } catch (const std::exception& e) {
        status = report(app, reasonOf(e), EXIT_FAILURE);
    }
    std::cout.flush();
    return status != EXIT_SUCCESS || std::cout.good()
               ? status
               : report(app, "cannot write to standard output", EXIT_FAILURE);
}
