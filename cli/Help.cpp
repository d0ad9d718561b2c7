// SPDX-License-Identifier: MIT
#include <iostream>
#include <memory>

#include "Commands.h"
#include "program/CommandLine.h"

namespace {

/// The help of the whole program or of a subcommand. App::help() would give that of this
/// subcommand.
std::string helpOf(const CLI::App& app, const std::string& name) {
    const std::vector<const CLI::App*> found = app.get_subcommands(
        [&name](const CLI::App* command) { return command->get_name() == name; });
    if (!name.empty() && found.empty()) {
        refuseSubcommand(app, name);
    }
    const CLI::App& subject = name.empty() ? app : *found.front();
    const std::string title = name.empty() ? app.get_name() : app.get_name() + ' ' + name;
    return app.get_formatter()->make_help(&subject, title, CLI::AppFormatMode::Normal);
}

}  // namespace

void addHelpCommand(CLI::App& app) {
    const auto name = std::make_shared<std::string>();
    CLI::App* command = app.add_subcommand("help", "Show the help of a subcommand, or this one");
    command->add_option("subcommand", *name, "The subcommand; none for all");
    command->footer("Example:\n  iomap help watch");
    command->callback([&app, name] { std::cout << helpOf(app, *name); });
}
