// SPDX-License-Identifier: MIT
#include <optional>
#include <vector>

#include "Commands.h"
#include "Device.h"

namespace {

struct MakeOptions {
    std::vector<std::string> boards;
    std::optional<int> relays;
    std::optional<int> inputs;
    std::optional<int> outputs;
    std::optional<int> analogs;
};

sim::IoCounts countsOf(const std::string& board, const MakeOptions& options) {
    const sim::IoCounts usual = board == "kr62" ? sim::Device::IO_BOARD : sim::Device::EXPANDER;
    return {options.relays.value_or(usual.relays), options.inputs.value_or(usual.inputs),
            options.outputs.value_or(usual.outputs), options.analogs.value_or(usual.analogs)};
}

void make(const std::string& root, const MakeOptions& options) {
    const sim::Device device(root);
    device.make();
    for (const std::string& board : options.boards) {
        device.board(board).make(countsOf(board, options));
    }
}

void addMakeCommand(CLI::App& app, const std::shared_ptr<SimOptions>& common) {
    const auto options = std::make_shared<MakeOptions>();
    CLI::App* command =
        app.add_subcommand("make", "Make the main board, if it is not there, and boards");
    command->add_option("board", options->boards, "kr62 for an IO board, pd5-N for expander N")
        ->type_name("BOARD");
    const auto addCount = [command](const char* name, std::optional<int>& count,
                                    const char* description) {
        constexpr int MOST = 10000;
        command->add_option(name, count, description)
            ->type_name("N")
            ->check(CLI::Range(0, MOST).description(""));
    };
    addCount("--relays", options->relays, "Relays of each board (kr62: 4, pd5: 8)");
    addCount("--inputs", options->inputs, "Digital inputs of each board (8)");
    addCount("--outputs", options->outputs, "Digital outputs of each board, only stated (0)");
    addCount("--analogs", options->analogs, "Analog inputs of each board (4)");
    command->callback([options, common] { make(common->root, *options); });
}

/// A subcommand that does something to one board.
void addBoardCommand(CLI::App& app, const std::shared_ptr<SimOptions>& common, const char* name,
                     const char* description, void (sim::Board::*act)() const) {
    const auto board = std::make_shared<std::string>();
    CLI::App* command = app.add_subcommand(name, description);
    command->add_option("board", *board, "kr62 or pd5-N")->type_name("BOARD")->required();
    command->callback([board, common, act] { (sim::Device(common->root).board(*board).*act)(); });
}

}  // namespace

void addBoardCommands(CLI::App& app, const std::shared_ptr<SimOptions>& common) {
    addMakeCommand(app, common);
    addBoardCommand(app, common, "pull", "Take a board away", &sim::Board::pull);
    addBoardCommand(app, common, "restore", "Put a pulled board back, with the values it had",
                    &sim::Board::restore);
}
