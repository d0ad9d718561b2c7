// SPDX-License-Identifier: MIT
#include <Poco/JSON/Array.h>

#include <cstdint>
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

/// Leaves out what a range has gaps at, and tells of these on standard error.
///
/// @throws Failure a range has no register at all
void leaveOutGaps(const std::vector<Selection>& selections, std::vector<int>& addresses,
                  std::vector<Reading>& readings) {
    std::vector<int> present;
    std::vector<Reading> read;
    std::size_t next = 0;
    for (const auto& [range, isRange] : selections) {
        std::vector<int> gaps;
        const std::size_t end = next + static_cast<std::size_t>(range.last - range.first) + 1;
        for (; next != end; ++next) {
            if (isRange && readings[next].unknown) {
                gaps.push_back(addresses[next]);
            } else {
                present.push_back(addresses[next]);
                read.push_back(readings[next]);
            }
        }
        const auto count = static_cast<std::int64_t>(range.last) - range.first + 1;
        if (static_cast<std::int64_t>(gaps.size()) == count) {
            throw Failure(textOf(range) + ": there is no register in this range");
        }
        if (!gaps.empty()) {
            std::cerr << "iomap: " + textOf(range) + ": there is no register at " +
                             rangesText(gaps) + '\n';
        }
    }
    addresses = present;
    readings = read;
}

void read(const Options& options) {
    const Labels names = deviceLabels();
    const Labels labels = options.raw ? Labels() : names;
    const std::vector<Selection> selections = parseSelections(options.registers, names);
    std::vector<int> addresses = parseAddresses(options.registers, names);
    IoMapping io;
    std::vector<Reading> readings = readEach(io, addresses);
    leaveOutGaps(selections, addresses, readings);
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
    command->footer("Example:\n  iomap read door 20-25");
    command->callback([options] { read(*options); });
}
