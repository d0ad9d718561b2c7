// SPDX-License-Identifier: MIT
#include <chrono>
#include <thread>

#include "Commands.h"
#include "Device.h"
#include "Error.h"
#include "IoNumber.h"

namespace {

struct Options {
    std::string input;
    double seconds{0.2};
};

/// An input of a board.
struct Input {
    sim::Board board;
    int number{0};
};

Input inputOf(const std::string& root, const std::string& name) {
    const auto slash = name.find('/');
    const auto number = sim::ioNumber(slash == std::string::npos ? name : name.substr(slash + 1));
    if (!number) {
        throw sim::Error("'" + name +
                         "' is no input; 3 is one of the IO board, pd5-1/3 one of an "
                         "expander");
    }
    return {sim::Device(root).board(slash == std::string::npos ? "kr62" : name.substr(0, slash)),
            *number};
}

void press(const Input& input, double seconds) {
    input.board.setInput(input.number, 1);
    std::this_thread::sleep_for(std::chrono::duration<double>(seconds));
    input.board.setInput(input.number, 0);
}

CLI::App* addCommand(CLI::App& app, const char* name, const char* description, Options& options) {
    CLI::App* command = app.add_subcommand(name, description);
    command
        ->add_option("input", options.input,
                     "N for input N of the IO board, pd5-1/N for one of expander 1")
        ->type_name("INPUT")
        ->required();
    return command;
}

}  // namespace

void addInputCommands(CLI::App& app, const std::shared_ptr<SimOptions>& common) {
    constexpr double LONGEST = 1e6;
    const auto options = std::make_shared<Options>();
    CLI::App* pressCommand =
        addCommand(app, "press", "Push the button at an input: 1 for a while, then 0", *options);
    pressCommand->add_option("--for", options->seconds, "How long it is held")
        ->type_name("SECONDS")
        ->check(CLI::Range(0.0, LONGEST).description(""))
        ->capture_default_str();
    pressCommand->callback(
        [options, common] { press(inputOf(common->root, options->input), options->seconds); });
    CLI::App* toggle = addCommand(app, "toggle", "Set an input to its other value", *options);
    toggle->callback([options, common] {
        const Input input = inputOf(common->root, options->input);
        input.board.toggleInput(input.number);
    });
}
