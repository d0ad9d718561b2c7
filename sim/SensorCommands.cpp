// SPDX-License-Identifier: MIT
#include "Commands.h"
#include "Device.h"

namespace {

struct Options {
    std::string sensor;
    int temperature{20000};
};

CLI::App* addCommand(CLI::App& app, const char* name, const char* description, Options& options) {
    CLI::App* command = app.add_subcommand(name, description);
    command->add_option("sensor", options.sensor, "Its address, such as 28-00000a1b2c3d")
        ->type_name("SENSOR")
        ->required();
    return command;
}

}  // namespace

void addSensorCommands(CLI::App& app, const std::shared_ptr<SimOptions>& common) {
    const auto options = std::make_shared<Options>();
    CLI::App* plug = addCommand(app, "plug", "Plug a temperature sensor", *options);
    plug->add_option("temperature", options->temperature, "In thousandths of a degree")
        ->type_name("N")
        ->capture_default_str();
    plug->callback([options, common] {
        sim::Device(common->root).sensors().plug(options->sensor, options->temperature);
    });
    CLI::App* unplug = addCommand(app, "unplug", "Unplug a temperature sensor", *options);
    unplug->callback(
        [options, common] { sim::Device(common->root).sensors().unplug(options->sensor); });
}
