// SPDX-License-Identifier: MIT
#include "CommandLine.h"

#include <cstdlib>
#include <iostream>
#include <vector>

#include "Report.h"
#include "StandardDescriptors.h"
#include "Suggestion.h"
#include "UsageError.h"

namespace {

/// The subcommand that the app has and that is most likely meant by a text; or nothing.
std::string suggestionOf(const CLI::App& app, const std::string& text) {
    std::vector<std::string> names;
    for (const CLI::App* const command : app.get_subcommands({})) {
        names.push_back(command->get_name());
    }
    return suggestionFor(text, names);
}

void parse(CLI::App& app, int argc, char** argv) {
    try {
        app.parse(argc, argv);
    } catch (const CLI::ExtrasError&) {
        const std::vector<std::string> words = app.remaining();
        if (app.get_subcommands().empty() && !words.empty() &&
            !suggestionOf(app, words.front()).empty()) {
            refuseSubcommand(app, words.front());
        }
        throw;
    }
    if (app.get_require_subcommand_max() > 0 && app.get_subcommands().empty()) {
        throw UsageError("a subcommand is missing");
    }
}

}  // namespace

void refuseSubcommand(const CLI::App& app, const std::string& name) {
    const std::string suggestion = suggestionOf(app, name);
    throw UsageError("there is no subcommand '" + name + "'" +
                     (suggestion.empty() ? "" : "; perhaps '" + suggestion + "' is meant"));
}

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
