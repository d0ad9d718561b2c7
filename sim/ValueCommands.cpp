// SPDX-License-Identifier: MIT
#include <chrono>
#include <iostream>
#include <sstream>

#include "Commands.h"
#include "Device.h"
#include "Error.h"

namespace {

struct Options {
    std::string name;
    std::string value;
    double seconds{2};
};

void expect(const sim::Device& device, const Options& options) {
    const sim::Attribute attribute = device.value(options.name);
    if (!attribute.waitFor(options.value, std::chrono::duration<double>(options.seconds))) {
        std::ostringstream text;
        text << options.name << " is '" << attribute.text() << "', not '" << options.value
             << "', after " << options.seconds << " s";
        throw sim::Error(text.str());
    }
}

CLI::App* addCommand(CLI::App& app, const char* name, const char* description, Options& options,
                     bool takesValue) {
    CLI::App* command = app.add_subcommand(name, description);
    command
        ->add_option("name", options.name,
                     "cpu, the address of a sensor, or a value file of a board: kr62/relays/1, "
                     "kr62/leds/3/color, pd5-1/analogs/2/enable")
        ->type_name("NAME")
        ->required();
    if (takesValue) {
        command->add_option("value", options.value, "A number; a word for edges")
            ->type_name("VALUE")
            ->required();
    }
    return command;
}

}  // namespace

void addValueCommands(CLI::App& app, const std::shared_ptr<SimOptions>& common) {
    constexpr double LONGEST = 1e6;
    const auto options = std::make_shared<Options>();
    addCommand(app, "set", "Set a value; the counter of an input counts its edge", *options, true)
        ->callback(
            [options, common] { sim::Device(common->root).set(options->name, options->value); });
    addCommand(app, "get", "Print a value", *options, false)->callback([options, common] {
        std::cout << sim::Device(common->root).value(options->name).text() << '\n';
    });
    CLI::App* expectCommand =
        addCommand(app, "expect", "Wait until a value is there, or fail", *options, true);
    expectCommand->add_option("--within", options->seconds, "How long it may take")
        ->type_name("SECONDS")
        ->check(CLI::Range(0.0, LONGEST).description(""))
        ->capture_default_str();
    expectCommand->callback([options, common] { expect(sim::Device(common->root), *options); });
}
