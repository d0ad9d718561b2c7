// SPDX-License-Identifier: MIT
#include "ConfigSection.h"

#include <Poco/Dynamic/Var.h>
#include <Poco/JSON/Array.h>

#include <algorithm>
#include <cmath>
#include <sstream>
#include <utility>

#include "BoundedFile.h"
#include "Failure.h"
#include "tesk/Exceptions.h"
#include "tesk/Json.h"

using Poco::Dynamic::Var;
using Object = Poco::JSON::Object::Ptr;

namespace {

constexpr std::size_t MOST_TEXT = 1024UL * 1024;

bool isNumber(const Var& value) {
    return value.isNumeric() && !value.isBoolean() && !value.isString();
}

/// A number in words, without decimals that say nothing.
std::string textOf(double number) {
    std::ostringstream out;
    out << number;
    return out.str();
}

}  // namespace

ConfigSection::ConfigSection(Object content, std::string where, std::vector<std::string>& noted)
    : object(std::move(content)), place(std::move(where)), faults(noted) {}

ConfigSection ConfigSection::read(const std::string& path, std::vector<std::string>& faults) {
    const std::optional<std::string> text = readBoundedFile(path, MOST_TEXT);
    if (!text) {
        throw Failure("cannot read '" + path + "': there is no such file");
    }
    Object root;
    try {
        std::istringstream in(*text);
        root = tesk::jsonParse(in);
        if (root.isNull()) {
            faults.emplace_back("the file must hold one JSON object");
        }
    } catch (const tesk::ParseException& e) {
        faults.emplace_back(e.what());
    }
    return {root.isNull() ? Object(new Poco::JSON::Object) : root, "", faults};
}

bool ConfigSection::has(const std::string& key) const {
    return object->has(key);
}

Var ConfigSection::take(const std::string& key) {
    known.insert(key);
    return object->get(key);
}

std::string ConfigSection::text(const std::string& key, const std::string& otherwise,
                                std::size_t most) {
    const Var value = take(key);
    if (!has(key)) {
        return otherwise;
    }
    if (!value.isString()) {
        refuse(key, "must be a text");
        return otherwise;
    }
    auto text = value.convert<std::string>();
    const auto isControl = [](unsigned char c) { return c < 0x20 || c == 0x7F; };
    if (text.empty() || text.size() > most || std::any_of(text.begin(), text.end(), isControl)) {
        refuse(key, "must have 1 to " + std::to_string(most) +
                        " bytes, none of them a control character");
        return otherwise;
    }
    return text;
}

int ConfigSection::whole(const std::string& key, int otherwise, int lowest, int highest) {
    const double value = number(key, otherwise, lowest, highest);
    if (value != std::floor(value)) {
        refuse(key, "must be a whole number");
        return otherwise;
    }
    return static_cast<int>(value);
}

double ConfigSection::number(const std::string& key, double otherwise, double lowest,
                             double highest) {
    const Var value = take(key);
    if (!has(key)) {
        return otherwise;
    }
    const double number = isNumber(value) ? value.convert<double>() : std::nan("");
    // Written so that what is not a number is refused, too.
    if (!(number >= lowest && number <= highest)) {
        refuse(key, "must be a number from " + textOf(lowest) + " to " + textOf(highest));
        return otherwise;
    }
    return number;
}

bool ConfigSection::flag(const std::string& key, bool otherwise) {
    const Var value = take(key);
    if (!has(key)) {
        return otherwise;
    }
    if (!value.isBoolean()) {
        refuse(key, "must be true or false");
        return otherwise;
    }
    return value.convert<bool>();
}

AddressRanges ConfigSection::ranges(const std::string& key) {
    const Var value = take(key);
    AddressRanges found;
    if (!has(key)) {
        return found;
    }
    if (value.type() != typeid(Poco::JSON::Array::Ptr)) {
        refuse(key, "must be a list");
        return found;
    }
    for (const Var& item : *value.extract<Poco::JSON::Array::Ptr>()) {
        addRange(key, item, found);
    }
    return found;
}

void ConfigSection::addRange(const std::string& key, const Var& item, AddressRanges& ranges) {
    const bool readable = item.isString() || (isNumber(item) && item.isInteger());
    const std::string text = readable ? item.convert<std::string>() : "";
    if (const auto range = AddressRanges::parse(text)) {
        ranges.add(*range);
    } else {
        refuse(key, "has '" + text + "', which is neither an address nor a range \"FIRST-LAST\"");
    }
}

ConfigSection ConfigSection::section(const std::string& key) {
    const Var value = take(key);
    Object inner(new Poco::JSON::Object);
    if (value.type() == typeid(Object)) {
        inner = value.extract<Object>();
    } else if (has(key)) {
        refuse(key, "must be an object");
    }
    return {inner, place + key + ".", faults};
}

std::vector<std::string> ConfigSection::keys() const {
    return object->getNames();
}

void ConfigSection::refuse(const std::string& key, const std::string& text) {
    faults.push_back(place + key + " " + text);
}

void ConfigSection::refuseOthers() {
    for (const std::string& key : keys()) {
        if (known.count(key) == 0) {
            refuse(key, "is no key of this object");
        }
    }
}
