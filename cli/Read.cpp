// SPDX-License-Identifier: MIT
#include <Poco/JSON/Array.h>

#include <chrono>
#include <cstdint>
#include <iostream>
#include <memory>
#include <optional>

#include "Arguments.h"
#include "Awaited.h"
#include "Commands.h"
#include "Output.h"
#include "Writes.h"
#include "client/Failure.h"
#include "client/ServiceProbe.h"
#include "program/UsageError.h"

namespace {

using Clock = std::chrono::steady_clock;

struct Options {
    std::vector<std::string> registers;
    std::vector<std::string> waits;
    std::optional<std::string> timeout;
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

/// What the user waits for, as far as the words tell.
struct Wait {
    NamedAssignment named;
    int value;      ///< The raw value; 0 until it is known.
    bool isScaled;  ///< Whether the raw value depends on the register's label and maximum.
};

/// @throws UsageError a word has another form; that needs no bus
std::vector<Wait> waitsOf(const Options& options, const Labels& labels) {
    std::vector<Wait> waits;
    for (const std::string& text : options.waits) {
        const NamedAssignment named = splitAssignment(text, labels);
        const bool isScaled = named.isByName && !options.raw;
        waits.push_back({named, isScaled ? 0 : rawValueOf(named, text), isScaled});
    }
    return waits;
}

/// Waits for all values.
///
/// @return what was waited for, in the order given
std::vector<Awaited> awaitAll(const std::vector<Wait>& waits, const Labels& names,
                              const Labels& labels,
                              const std::optional<std::chrono::duration<double>>& timeout) {
    const auto end = timeout ? Clock::now() + std::chrono::duration_cast<Clock::duration>(*timeout)
                             : Clock::time_point::max();
    // What follows has no time limit of the user's.
    probeService(probeLimit(end), ServiceStart::ALLOWED);
    std::vector<Awaited> awaited;
    std::optional<IoMapping> io;
    for (const auto& [named, value, isScaled] : waits) {
        const int raw = isScaled ? rawOfScaled(io ? *io : io.emplace(), named, names) : value;
        for (std::int64_t address = named.target.first; address <= named.target.last; ++address) {
            awaited.push_back({static_cast<int>(address), raw});
        }
    }
    await(awaited, labels, end);
    return awaited;
}

/// Prints the values that have been waited for. The registers may have other ones by now.
void print(const std::vector<Awaited>& awaited, const Labels& labels, bool json) {
    std::vector<int> addresses;
    std::vector<Reading> readings;
    for (const auto& [address, value] : awaited) {
        addresses.push_back(address);
        readings.push_back({value, {}});
        if (!json) {
            std::cout << shownText(readings.back(), labels.find(address)) << '\n';
        }
    }
    if (json) {
        printJsonReadings(addresses, readings, labels);
    }
}

void read(const Options& options) {
    const Labels names = deviceLabels();
    const Labels labels = options.raw ? Labels() : names;
    const std::vector<Selection> selections = parseSelections(options.registers, names);
    std::vector<int> addresses = parseAddresses(options.registers, names);
    const std::vector<Wait> waits = waitsOf(options, names);
    std::optional<std::chrono::duration<double>> timeout;
    if (options.timeout) {
        timeout = parseSeconds(*options.timeout);
    }
    if (!waits.empty()) {
        const std::vector<Awaited> awaited = awaitAll(waits, names, labels, timeout);
        if (addresses.empty()) {
            print(awaited, labels, options.json);
            return;
        }
    } else if (addresses.empty()) {
        throw UsageError("register is required");
    }
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
        ->type_name("NAME|ADDR|FIRST-LAST");
    CLI::Option* const wait =
        command
            ->add_option("--wait", options->waits,
                         "Wait until the register has this value; may be repeated")
            ->type_name("NAME=VALUE|ADDR=VALUE")
            ->allow_extra_args(false);
    command->add_option("--timeout", options->timeout, "Wait at most this long")
        ->type_name("SECONDS")
        ->needs(wait);
    command->add_flag("--raw", options->raw, "Print raw values, without scale, unit and states");
    command->add_flag("--json", options->json, "Print a JSON array of addresses and values");
    command->footer(
        "Examples:\n"
        "  iomap read door 20-25\n"
        "  iomap read --wait door=open --timeout 5");
    command->callback([options] { read(*options); });
}
