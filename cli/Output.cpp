// SPDX-License-Identifier: MIT
#include "Output.h"

#include <Poco/JSON/Stringifier.h>

#include <iostream>
#include <sstream>

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

std::string lineOf(const Poco::Dynamic::Var& document) {
    std::ostringstream line;
    Poco::JSON::Stringifier::condense(document, line);
    return line.str();
}

void printJson(const Poco::Dynamic::Var& document) {
    Poco::JSON::Stringifier::condense(document, std::cout);
    std::cout << std::endl;
}
