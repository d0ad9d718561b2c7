// SPDX-License-Identifier: MIT
#include <iostream>
#include <map>
#include <memory>

#include "Arguments.h"
#include "Commands.h"
#include "Output.h"
#include "Writes.h"
#include "client/Failure.h"

namespace {

struct Options {
    std::vector<std::string> registers;
    bool json{false};
    bool raw{false};
};

/// The values of registers that have two of them, by address.
///
/// @throws Failure names all registers that cannot be read or have another value than 0 and 1
std::map<int, int> bitsOf(IoMapping& io, const std::vector<int>& addresses) {
    const std::vector<Reading> readings = readEach(io, addresses);
    std::map<int, int> bits;
    std::map<int, std::string> refusals;
    std::vector<int> unknown;
    for (std::size_t i = 0; i < addresses.size(); ++i) {
        const Reading& reading = readings[i];
        if (reading.unknown) {
            unknown.push_back(addresses[i]);
        } else if (!reading.error.empty()) {
            refusals[addresses[i]] = reading.error;
        } else if (reading.value != 0 && reading.value != 1) {
            refusals[addresses[i]] =
                "the value is " + std::to_string(reading.value) + ", neither 0 nor 1";
        }
        bits[addresses[i]] = reading.value;
    }
    // The service need not be asked for the type of each address of a long range.
    std::string text =
        unknown.empty() ? "" : "there is no register at " + rangesText(unknown) + "; ";
    for (const auto& [address, reason] : refusals) {
        text += nameOf(io, address) + ": " + reason + "; ";
    }
    if (!text.empty()) {
        throw Failure(text + "nothing is written");
    }
    return bits;
}

void toggle(const Options& options) {
    const Labels names = deviceLabels();
    const Labels labels = options.raw ? Labels() : names;
    const std::vector<int> addresses = parseAddresses(options.registers, names);
    IoMapping io;
    std::map<int, int> bits = bitsOf(io, addresses);
    std::vector<Assignment> assignments;
    for (const int address : addresses) {
        bits[address] = 1 - bits[address];
        assignments.push_back({address, bits[address]});
    }
    writeAll(io, assignments, options.json);
    if (!options.json) {
        for (const auto& [address, value] : assignments) {
            std::cout << shownText({value, {}}, labels.find(address)) << '\n';
        }
    }
}

}  // namespace

void addToggleCommand(CLI::App& app) {
    const auto options = std::make_shared<Options>();
    CLI::App* command =
        app.add_subcommand("toggle", "Write 1 where 0 is, and 0 where 1 is; print the new values");
    command->add_option("register", options->registers, "Names, addresses and ranges of addresses")
        ->type_name("NAME|ADDR|FIRST-LAST")
        ->required();
    command->add_flag("--raw", options->raw, "Print raw values, without states");
    command->add_flag("--json", options->json, "Print what was written as a JSON object");
    command->footer("Example:\n  iomap toggle light 3");
    command->callback([options] { toggle(*options); });
}
