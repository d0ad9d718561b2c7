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

/// What a label says of a register, to stand behind its properties.
std::string textOf(const Label* label) {
    std::string text;
    if (label == nullptr) {
        return text;
    }
    const auto add = [&text](const char* key, const std::string& value) {
        text += value.empty() ? "" : std::string(", ") + key + " " + value;
    };
    std::string states;
    for (const auto& [raw, state] : label->states) {
        states += (states.empty() ? "" : "/") + state;
    }
    add("name", label->name);
    add("unit", label->unit);
    add("states", states);
    add("group", label->group);
    return text + (label->description.empty() ? "" : ": " + label->description);
}

void setLabel(Poco::JSON::Object& object, const Label* label) {
    if (label == nullptr) {
        return;
    }
    const auto set = [&object](const char* key, const std::string& value) {
        if (!value.empty()) {
            object.set(key, value);
        }
    };
    set("name", label->name);
    set("description", label->description);
    set("unit", label->unit);
    set("group", label->group);
    object.set("scale", label->scale);
    object.set("offset", label->offset);
    if (!label->states.empty()) {
        Poco::JSON::Object::Ptr states = newJsonObject();
        for (const auto& [raw, state] : label->states) {
            states->set(std::to_string(raw), state);
        }
        object.set("states", states);
    }
}

void info(const Options& options) {
    const Labels labels = deviceLabels();
    const std::vector<int> addresses = parseAddresses(options.registers, labels);
    IoMapping io;
    const std::vector<RegisterInfo> infos = infosOf(io, addresses);
    if (options.json) {
        Poco::JSON::Array::Ptr list = new Poco::JSON::Array;
        for (const RegisterInfo& entry : infos) {
            Poco::JSON::Object::Ptr object = jsonOf(entry);
            setLabel(*object, labels.find(entry.address));
            list->add(object);
        }
        printJson(list);
        return;
    }
    for (const RegisterInfo& entry : infos) {
        std::cout << "register " << entry.address << ": type " << getTypeName(entry.type)
                  << ", index " << entry.index << ", maximum " << entry.maximum
                  << textOf(labels.find(entry.address)) << '\n';
    }
}

}  // namespace

void addInfoCommand(CLI::App& app) {
    const auto options = std::make_shared<Options>();
    CLI::App* command = app.add_subcommand("info", "Show the type, index and maximum of registers");
    command->add_option("register", options->registers, "Names, addresses and ranges of addresses")
        ->type_name("NAME|ADDR|FIRST-LAST")
        ->required();
    command->add_flag("--json", options->json, "Print a JSON array");
    command->footer("Example:\n  iomap info door 20-25");
    command->callback([options] { info(*options); });
}
