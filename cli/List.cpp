// SPDX-License-Identifier: MIT
#include <Poco/JSON/Array.h>

#include <algorithm>
#include <chrono>
#include <iomanip>
#include <iostream>
#include <map>
#include <memory>

#include "Arguments.h"
#include "Commands.h"
#include "Output.h"
#include "client/ServiceProbe.h"

namespace {

struct Options {
    std::vector<std::string> types;
    bool brief{false};
    bool json{false};
    bool raw{false};
};

/// The last columns of a row.
std::string valueText(const Reading& reading, const Label* label) {
    std::string text = textOf(reading);
    if (label == nullptr) {
        return text;
    }
    constexpr std::size_t VALUE_WIDTH = 13;
    text.resize(std::max(text.size() + 1, VALUE_WIDTH), ' ');
    return text + (label->name.empty() ? "" : label->name + " = ") + shownText(reading, label);
}

/// With labels, behind each value stand name and shown value of the register.
void printTable(const std::vector<RegisterInfo>& infos, const std::vector<Reading>& readings,
                const Labels& labels) {
    std::cout << "ADDRESS  TYPE                        INDEX     MAXIMUM  VALUE"
              << (labels.all().empty() ? "" : "        NAME = SHOWN") << '\n';
    for (std::size_t i = 0; i < infos.size(); ++i) {
        const RegisterInfo& info = infos[i];
        std::cout << std::setw(7) << info.address << "  " << std::left << std::setw(26)
                  << getTypeName(info.type) << std::right << std::setw(7) << info.index
                  << std::setw(12) << info.maximum << "  "
                  << valueText(readings[i], labels.find(info.address)) << '\n';
    }
}

Poco::JSON::Array::Ptr jsonTable(const std::vector<RegisterInfo>& infos,
                                 const std::vector<Reading>& readings, const Labels& labels) {
    Poco::JSON::Array::Ptr table = new Poco::JSON::Array;
    for (std::size_t i = 0; i < infos.size(); ++i) {
        Poco::JSON::Object::Ptr row = jsonOf(infos[i]);
        setReading(*row, readings[i]);
        setLabel(*row, readings[i], labels.find(infos[i].address));
        table->add(row);
    }
    return table;
}

/// Prints what takes few and quick calls. Completion asks for it while somebody types, and must not
/// start a service by that.
void listBriefly(const std::vector<RegisterType>& types, const Labels& labels) {
    probeService(probeLimit(std::chrono::steady_clock::time_point::max()), ServiceStart::REFUSED);
    IoMapping io;
    std::map<int, RegisterType> registers;
    for (const RegisterType type : types.empty() ? getAllTypes() : types) {
        for (const int address : io.getAddrsPerType(type)) {
            registers[address] = type;
        }
    }
    for (const auto& [address, type] : registers) {
        const Label* const label = labels.find(address);
        std::cout << address << '\t' << getTypeName(type) << '\t'
                  << (label == nullptr ? "" : label->name) << '\n';
    }
}

void list(const Options& options) {
    const std::vector<RegisterType> types = parseTypes(options.types);
    const Labels labels = options.raw ? Labels() : deviceLabels();
    if (options.brief) {
        listBriefly(types, labels);
        return;
    }
    IoMapping io;
    const std::vector<int> addresses = addressesOf(io, types);
    const std::vector<RegisterInfo> infos = infosOf(io, addresses);
    const std::vector<Reading> readings = readKnown(io, infos);
    if (options.json) {
        printJson(jsonTable(infos, readings, labels));
    } else {
        printTable(infos, readings, labels);
    }
}

}  // namespace

void addListCommand(CLI::App& app) {
    const auto options = std::make_shared<Options>();
    CLI::App* command = app.add_subcommand("list", "Show every register and its value");
    command->add_option("--type", options->types, "Only registers of this type; may be repeated")
        ->type_name("TYPE")
        ->allow_extra_args(false);
    command->add_flag("--raw", options->raw, "Leave out names, scaled values and units");
    CLI::Option* const json = command->add_flag("--json", options->json, "Print a JSON array");
    command
        ->add_flag("--brief", options->brief,
                   "Print only address, type and name, between tabs; do not start the service")
        ->excludes(json);
    command->footer("Example:\n  iomap list --type input_digital");
    command->callback([options] { list(*options); });
}
