// SPDX-License-Identifier: MIT
#include <Poco/JSON/Array.h>

#include <iostream>
#include <memory>

#include "Arguments.h"
#include "Commands.h"
#include "Output.h"
#include "client/Failure.h"

namespace {

struct Options {
    std::vector<std::string> registers;
    bool json{false};
};

void printJsonReadings(const std::vector<int>& addresses, const std::vector<Reading>& readings) {
    Poco::JSON::Array::Ptr list = new Poco::JSON::Array;
    for (std::size_t i = 0; i < addresses.size(); ++i) {
        Poco::JSON::Object::Ptr entry = newJsonObject();
        entry->set("address", addresses[i]);
        setReading(*entry, readings[i]);
        list->add(entry);
    }
    printJson(list);
}

void read(const Options& options) {
    const std::vector<int> addresses = parseAddresses(options.registers);
    IoMapping io;
    const std::vector<Reading> readings = readEach(io, addresses);
    if (options.json) {
        printJsonReadings(addresses, readings);
    }
    // Without all values none is printed: the reader of the lines could not tell which is which.
    for (std::size_t i = 0; i < readings.size(); ++i) {
        if (!readings[i].error.empty()) {
            throw Failure(nameOf(io, addresses[i]) + ": " + readings[i].error);
        }
    }
    if (!options.json) {
        for (const Reading& reading : readings) {
            std::cout << textOf(reading) << '\n';
        }
    }
}

}  // namespace

void addReadCommand(CLI::App& app) {
    const auto options = std::make_shared<Options>();
    CLI::App* command =
        app.add_subcommand("read", "Print the values of registers, one a line, in the order asked");
    command->add_option("register", options->registers, "Addresses and ranges of addresses")
        ->type_name("ADDR|FIRST-LAST")
        ->required();
    command->add_flag("--json", options->json, "Print a JSON array of addresses and values");
    command->callback([options] { read(*options); });
}
