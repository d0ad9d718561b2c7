// SPDX-License-Identifier: MIT
#include <Poco/JSON/Array.h>

#include <iostream>
#include <memory>

#include "Arguments.h"
#include "Commands.h"
#include "Output.h"

namespace {

struct Options {
    std::vector<std::string> registers;
    bool json{false};
};

void info(const Options& options) {
    const std::vector<int> addresses = parseAddresses(options.registers);
    IoMapping io;
    const std::vector<RegisterInfo> infos = infosOf(io, addresses);
    if (options.json) {
        Poco::JSON::Array::Ptr list = new Poco::JSON::Array;
        for (const RegisterInfo& entry : infos) {
            list->add(jsonOf(entry));
        }
        printJson(list);
        return;
    }
    for (const RegisterInfo& entry : infos) {
        std::cout << "register " << entry.address << ": type " << getTypeName(entry.type)
                  << ", index " << entry.index << ", maximum " << entry.maximum << '\n';
    }
}

}  // namespace

void addInfoCommand(CLI::App& app) {
    const auto options = std::make_shared<Options>();
    CLI::App* command = app.add_subcommand("info", "Show the type, index and maximum of registers");
    command->add_option("register", options->registers, "Addresses and ranges of addresses")
        ->type_name("ADDR|FIRST-LAST")
        ->required();
    command->add_flag("--json", options->json, "Print a JSON array");
    command->callback([options] { info(*options); });
}
