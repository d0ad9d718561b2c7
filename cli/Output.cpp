// SPDX-License-Identifier: MIT
#include "Output.h"

#include <Poco/JSON/Stringifier.h>
#include <Poco/String.h>

#include <iostream>
#include <sstream>

#include "client/Failure.h"
#include "program/Report.h"

std::string textOf(const Reading& reading) {
    if (!reading.error.empty()) {
        return reading.error;
    }
    return reading.missing ? "missing" : std::to_string(reading.value);
}

Poco::JSON::Object::Ptr newJsonObject() {
    return new Poco::JSON::Object(Poco::JSON_PRESERVE_KEY_ORDER);
}

Poco::JSON::Object::Ptr jsonOf(const RegisterInfo& info) {
    Poco::JSON::Object::Ptr object = newJsonObject();
    object->set("address", info.address);
    object->set("type", getTypeName(info.type));
    object->set("index", info.index);
    object->set("maximum", info.maximum);
    return object;
}

void setReading(Poco::JSON::Object& object, const Reading& reading, const std::string& valueKey,
                const std::string& errorKey) {
    if (reading.error.empty()) {
        object.set(valueKey, reading.value);
        if (reading.missing) {
            object.set("missing", true);
        }
    } else {
        object.set(errorKey, reading.error);
    }
}

Labels deviceLabels() {
    try {
        return Labels::read();
    } catch (const Failure& e) {
        std::cerr << "iomap: no names and units of registers are used: " << printable(e.what())
                  << std::endl;
        return {};
    }
}

std::string shownText(const Reading& reading, const Label* label) {
    const bool isPlain = label == nullptr || !reading.error.empty() || reading.missing;
    return isPlain ? textOf(reading) : label->shown(reading.value);
}

void setLabel(Poco::JSON::Object& object, const Reading& reading, const Label* label) {
    if (label == nullptr) {
        return;
    }
    if (!label->name.empty()) {
        object.set("name", label->name);
    }
    if (reading.error.empty() && !reading.missing) {
        object.set("shown", label->shown(reading.value));
        object.set("scaled", label->scaled(reading.value));
    }
    if (!label->unit.empty()) {
        object.set("unit", label->unit);
    }
}

std::string csvLine(const std::vector<std::string>& fields) {
    std::string line;
    for (const std::string& field : fields) {
        line += &field == &fields.front() ? "" : ",";
        line += field.find_first_of(",\"\r\n") == std::string::npos
                    ? field
                    : '"' + Poco::replace(field, "\"", "\"\"") + '"';
    }
    return line;
}

std::string lineOf(const Poco::Dynamic::Var& document) {
    std::ostringstream line;
    Poco::JSON::Stringifier::condense(document, line);
    return line.str();
}

void printJson(const Poco::Dynamic::Var& document) {
    Poco::JSON::Stringifier::condense(document, std::cout);
    std::cout << std::endl;
}
