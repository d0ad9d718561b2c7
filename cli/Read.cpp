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
    bool raw{false};
};

void printJsonReadings(const std::vector<int>& addresses, const std::vector<Reading>& readings,
                       const Labels& labels) {
    Poco::JSON::Array::Ptr list = new Poco::JSON::Array;
    for (std::size_t i = 0; i < addresses.size(); ++i) {
        Poco::JSON::Object::Ptr entry = newJsonObject();
        entry->set("address", addresses[i]);
        setReading(*entry, readings[i]);
        setLabel(*entry, readings[i], labels.find(addresses[i]));
        list->add(entry);
    }
    printJson(list);
}

void read(const Options& options) {
    const Labels names = deviceLabels();
    const Labels labels = options.raw ? Labels() : names;
    const std::vector<int> addresses = parseAddresses(options.registers, names);
    IoMapping io;
    const std::vector<Reading> readings = readEach(io, addresses);
    if (options.json) {
        printJsonReadings(addresses, readings, labels);
    }
    // Without all values none is printed: the reader of the lines could not tell which is which.
    for (std::size_t i = 0; i < readings.size(); ++i) {
        if (!readings[i].error.empty()) {
            throw Failure(nameOf(io, addresses[i]) + ": " + readings[i].error);
        }
    }
    if (!options.json) {
        for (std::size_t i = 0; i < readings.size(); ++i) {
            std::cout << shownText(readings[i], labels.find(addresses[i])) << '\n';
        }
    }
}

}  // namespace

void addReadCommand(CLI::App& app) {
    const auto options = std::make_shared<Options>();
    CLI::App* command =
        app.add_subcommand("read", "Print the values of registers, one a line, in the order asked");
    command->add_option("register", options->registers, "Names, addresses and ranges of addresses")
        ->type_name("NAME|ADDR|FIRST-LAST")
        ->required();
    command->add_flag("--raw", options->raw, "Print raw values, without scale, unit and states");
    command->add_flag("--json", options->json, "Print a JSON array of addresses and values");
    command->callback([options] { read(*options); });
}
