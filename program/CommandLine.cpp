// SPDX-License-Identifier: MIT
#include "CommandLine.h"

#include <cstdlib>
#include <iostream>

#include "Report.h"
#include "StandardDescriptors.h"
#include "UsageError.h"

namespace {

void parse(CLI::App& app, int argc, char** argv) {
    app.parse(argc, argv);
    if (app.get_require_subcommand_max() > 0 && app.get_subcommands().empty()) {
        throw UsageError("a subcommand is missing");
    }
}

}  // namespace

int runProgram(CLI::App& app, int argc, char** argv,
               std::string (*reasonOf)(const std::exception& error),
               int (*statusOf)(const std::exception& error)) {
    fillStandardDescriptors();
    int status = EXIT_SUCCESS;
    try {
        parse(app, argc, argv);
    } catch (const CLI::Success& e) {
        status = app.exit(e);
    } catch (const CLI::ParseError& e) {
        status = reportUsageError(app.get_name(), e.what());
    } catch (const UsageError& e) {
        status = reportUsageError(app.get_name(), e.what());
    } catch (const std::exception& e) {
        status = report(app.get_name(), reasonOf(e), statusOf(e));
    }
    std::cout.flush();
    return status != EXIT_SUCCESS || std::cout.good()
               ? status
               : report(app.get_name(), "cannot write to standard output", EXIT_FAILURE);
}
