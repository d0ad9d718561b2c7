// SPDX-License-Identifier: MIT
#include <Poco/JSON/Array.h>

#include <iomanip>
#include <iostream>
#include <memory>

#include "Arguments.h"
#include "Commands.h"
#include "Output.h"

namespace {

struct Options {
    std::vector<std::string> types;
    bool json{false};
};

void printTable(const std::vector<RegisterInfo>& infos, const std::vector<Reading>& readings) {
    std::cout << "ADDRESS  TYPE                        INDEX     MAXIMUM  VALUE\n";
    for (std::size_t i = 0; i < infos.size(); ++i) {
        const RegisterInfo& info = infos[i];
        std::cout << std::setw(7) << info.address << "  " << std::left << std::setw(26)
                  << getTypeName(info.type) << std::right << std::setw(7) << info.index
                  << std::setw(12) << info.maximum << "  " << textOf(readings[i]) << '\n';
    }
}

Poco::JSON::Array::Ptr jsonTable(const std::vector<RegisterInfo>& infos,
                                 const std::vector<Reading>& readings) {
    Poco::JSON::Array::Ptr table = new Poco::JSON::Array;
    for (std::size_t i = 0; i < infos.size(); ++i) {
        Poco::JSON::Object::Ptr row = jsonOf(infos[i]);
        setReading(*row, readings[i]);
        table->add(row);
    }
    return table;
}

void list(const Options& options) {
    const std::vector<RegisterType> types = parseTypes(options.types);
    IoMapping io;
    const std::vector<int> addresses = addressesOf(io, types);
    const std::vector<RegisterInfo> infos = infosOf(io, addresses);
    const std::vector<Reading> readings = readKnown(io, infos);
    if (options.json) {
        printJson(jsonTable(infos, readings));
    } else {
        printTable(infos, readings);
    }
}

}  // namespace

void addListCommand(CLI::App& app) {
    const auto options = std::make_shared<Options>();
    CLI::App* command = app.add_subcommand("list", "Show every register and its value");
    command->add_option("--type", options->types, "Only registers of this type; may be repeated")
        ->type_name("TYPE")
        ->allow_extra_args(false);
    command->add_flag("--json", options->json, "Print a JSON array");
    command->callback([options] { list(*options); });
}
