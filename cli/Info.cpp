// SPDX-License-Identifier: MIT
#include <Poco/JSON/Array.h>

#include <algorithm>
#include <iostream>
#include <iterator>
#include <map>
#include <memory>

#include "Arguments.h"
#include "Commands.h"
#include "Output.h"

namespace {

struct Options {
    std::vector<std::string> registers;
    bool json{false};
};

/// Those with a label are read, since a label tells what a value means.
std::map<int, Reading> readLabelled(IoMapping& io, const std::vector<RegisterInfo>& infos,
                                    const Labels& labels) {
    std::vector<RegisterInfo> labelled;
    std::copy_if(infos.begin(), infos.end(), std::back_inserter(labelled),
                 [&labels](const RegisterInfo& info) { return labels.find(info.address); });
    const std::vector<Reading> found = readKnown(io, labelled);
    std::map<int, Reading> readings;
    for (std::size_t i = 0; i < labelled.size(); ++i) {
        readings[labelled[i].address] = found[i];
    }
    return readings;
}

/// "open (raw 1)"; the raw value alone if the label shows nothing else.
std::string valueText(const Reading& reading, const Label& label) {
    const std::string shown = shownText(reading, &label);
    const std::string raw = std::to_string(reading.value);
    return !reading.error.empty() || shown == raw ? shown : shown + " (raw " + raw + ")";
}

/// What a label says of a register and its value, to stand behind the properties.
std::string textOf(const Label* label, const Reading& reading) {
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
    add(reading.error.empty() ? "value" : "no value:", valueText(reading, *label));
    add("unit", label->unit);
    add("states", states);
    add("group", label->group);
    return text + (label->description.empty() ? "" : ": " + label->description);
}

void setProperties(Poco::JSON::Object& object, const Label& label) {
    const auto set = [&object](const char* key, const std::string& value) {
        if (!value.empty()) {
            object.set(key, value);
        }
    };
    set("description", label.description);
    set("group", label.group);
    object.set("scale", label.scale);
    object.set("offset", label.offset);
    object.set("deadband", label.deadband);
    if (!label.states.empty()) {
        Poco::JSON::Object::Ptr states = newJsonObject();
        for (const auto& [raw, state] : label.states) {
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
    std::map<int, Reading> readings = readLabelled(io, infos, labels);
    if (options.json) {
        Poco::JSON::Array::Ptr list = new Poco::JSON::Array;
        for (const RegisterInfo& entry : infos) {
            Poco::JSON::Object::Ptr object = jsonOf(entry);
            if (const Label* const label = labels.find(entry.address)) {
                setReading(*object, readings[entry.address]);
                setLabel(*object, readings[entry.address], label);
                setProperties(*object, *label);
            }
            list->add(object);
        }
        printJson(list);
        return;
    }
    for (const RegisterInfo& entry : infos) {
        std::cout << "register " << entry.address << ": type " << getTypeName(entry.type)
                  << ", index " << entry.index << ", maximum " << entry.maximum
                  << textOf(labels.find(entry.address), readings[entry.address]) << '\n';
    }
}

}  // namespace

void addInfoCommand(CLI::App& app) {
    const auto options = std::make_shared<Options>();
    CLI::App* command = app.add_subcommand(
        "info", "Show the type, index and maximum of registers, and what their labels say");
    command->add_option("register", options->registers, "Names, addresses and ranges of addresses")
        ->type_name("NAME|ADDR|FIRST-LAST")
        ->required();
    command->add_flag("--json", options->json, "Print a JSON array");
    command->footer("Example:\n  iomap info door 20-25");
    command->callback([options] { info(*options); });
}
