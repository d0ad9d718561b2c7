// SPDX-License-Identifier: MIT
#include "Labels.h"

#include <Poco/Dynamic/Var.h>
#include <Poco/Exception.h>
#include <Poco/JSON/Object.h>

#include <sys/stat.h>
#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <cstdlib>
#include <iterator>
#include <set>
#include <sstream>
#include <string_view>

#include "BoundedFile.h"
#include "Failure.h"
#include "tesk/Exceptions.h"
#include "tesk/Json.h"

namespace {

using Poco::Dynamic::Var;
using Object = Poco::JSON::Object::Ptr;

/// A label for each register of the longest map, with long texts, fits several times.
constexpr std::size_t MOST_TEXT = 4UL * 1024 * 1024;

constexpr std::size_t MOST_CHARACTERS = 200;
constexpr double SMALLEST_SCALE = 1e-9;
constexpr double LARGEST_NUMBER = 1e9;

/// What is wrong with a value; the place is added by whoever knows the place.
class Fault : public std::runtime_error {
 public:
    using std::runtime_error::runtime_error;
};

std::string textOf(const Var& value) {
    if (!value.isString()) {
        throw Fault("must be a text");
    }
    auto text = value.convert<std::string>();
    if (text.size() > MOST_CHARACTERS) {
        throw Fault("must have at most " + std::to_string(MOST_CHARACTERS) + " bytes");
    }
    if (std::any_of(text.begin(), text.end(),
                    [](unsigned char c) { return c < 0x20 || c == 0x7F; })) {
        throw Fault("must not hold control characters");
    }
    return text;
}

bool isLetter(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}

/// A word can stand wherever a program takes an address or a value: it is no number, no range, no
/// option, and needs no quotes in a shell.
std::string wordOf(const Var& value) {
    std::string text = textOf(value);
    const auto isWordCharacter = [](char c) {
        return isLetter(c) || (c >= '0' && c <= '9') || c == '_' || c == '.' || c == '-';
    };
    if (text.empty() || !isLetter(text.front()) ||
        !std::all_of(text.begin(), text.end(), isWordCharacter)) {
        throw Fault("must be a word: a letter, then letters, digits, '_', '.' or '-'");
    }
    return text;
}

double numberOf(const Var& value) {
    if (!value.isNumeric() || value.isBoolean() || value.isString()) {
        throw Fault("must be a number");
    }
    const auto number = value.convert<double>();
    if (!(std::abs(number) <= LARGEST_NUMBER)) {
        throw Fault("must be a number from -1000000000 to 1000000000");
    }
    return number;
}

double scaleOf(const Var& value) {
    const double scale = numberOf(value);
    if (std::abs(scale) < SMALLEST_SCALE) {
        throw Fault("must not be nearer to 0 than 0.000000001");
    }
    return scale;
}

double deadbandOf(const Var& value) {
    const double deadband = numberOf(value);
    if (deadband < 0) {
        throw Fault("must not be negative");
    }
    return deadband;
}

std::optional<int> parseInt(std::string_view text) {
    int number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    return error == std::errc() && end == text.data() + text.size() ? std::optional(number)
                                                                    : std::nullopt;
}

Object objectOf(const Var& value) {
    if (value.type() != typeid(Object)) {
        throw Fault("must be an object");
    }
    return value.extract<Object>();
}

std::map<int, std::string> statesOf(const Var& value) {
    std::map<int, std::string> states;
    std::set<std::string> names;
    for (const auto& [key, name] : *objectOf(value)) {
        const std::optional<int> raw = parseInt(key);
        if (!raw) {
            throw Fault("has the key '" + key + "', which is not a raw value in decimal");
        }
        const std::string text = wordOf(name);
        if (!names.insert(text).second) {
            throw Fault("has two states of the name '" + text + "'");
        }
        states[*raw] = text;
    }
    return states;
}

/// One key of a label: what its value is taken for.
struct Key {
    std::string_view name;
    void (*take)(Label& label, const Var& value);
};
constexpr std::array<Key, 8> KEYS{{
    {"name", [](Label& label, const Var& value) { label.name = wordOf(value); }},
    {"description", [](Label& label, const Var& value) { label.description = textOf(value); }},
    {"unit", [](Label& label, const Var& value) { label.unit = textOf(value); }},
    {"group", [](Label& label, const Var& value) { label.group = wordOf(value); }},
    {"scale", [](Label& label, const Var& value) { label.scale = scaleOf(value); }},
    {"offset", [](Label& label, const Var& value) { label.offset = numberOf(value); }},
    {"deadband", [](Label& label, const Var& value) { label.deadband = deadbandOf(value); }},
    {"states", [](Label& label, const Var& value) { label.states = statesOf(value); }},
}};

/// Takes labels out of a document, and notes what is wrong with it.
class Reader {
 public:
    std::map<int, Label> labels;
    std::map<std::string, int> addresses;
    std::vector<Labels::Fault> faults;

    void readDocument(const std::string& text) {
        std::istringstream in(text);
        Object root;
        std::size_t gaveUpAt = text.size();
        try {
            root = tesk::jsonParse(in, &gaveUpAt);
        } catch (const tesk::ParseException& e) {
            faults.push_back({e.what(), "", "", gaveUpAt});
            return;
        }
        if (!root || root->get("labels").type() != typeid(Object)) {
            tell("", "", "there is no object \"labels\"");
            return;
        }
        for (const auto& [address, label] : *root->getObject("labels")) {
            readLabel(address, label);
        }
    }

 private:
    void tell(const std::string& label, const std::string& key, const std::string& message) {
        faults.push_back({message, label, key, std::nullopt});
    }

    void readLabel(const std::string& addressText, const Var& value) {
        const std::optional<int> address = Labels::parseAddress(addressText);
        if (!address) {
            tell(addressText, "",
                 "'" + addressText + "' is not the address of a register in decimal");
            return;
        }
        const std::string place = "register " + addressText + ": ";
        if (value.type() != typeid(Object)) {
            tell(addressText, "", place + "the label must be an object");
            return;
        }
        Label& label = labels[*address];
        for (const auto& [name, item] : *value.extract<Object>()) {
            const std::string fault = faultOfKey(label, name, item);
            if (!fault.empty()) {
                tell(addressText, name, place + fault);
            }
        }
        if (label.name.empty()) {
            return;
        }
        const auto [known, isNew] = addresses.emplace(label.name, *address);
        if (!isNew) {
            tell(addressText, "name",
                 place + "register " + std::to_string(known->second) + " has the name '" +
                     label.name + "' already");
        }
    }

    /// Takes the value of a key. Returns what is wrong with it, or nothing.
    static std::string faultOfKey(Label& label, const std::string& name, const Var& value) {
        const auto* const key = std::find_if(KEYS.begin(), KEYS.end(),
                                             [&name](const Key& k) { return k.name == name; });
        if (key == KEYS.end()) {
            return "there is no key '" + name + "'";
        }
        try {
            key->take(label, value);
            return "";
        } catch (const Fault& e) {
            return name + " " + e.what();
        }
    }
};

}  // namespace

std::string Labels::file() {
    const char* const other = std::getenv(FILE_VARIABLE);
    return other == nullptr ? DEFAULT_FILE : other;
}

Labels Labels::read(const std::string& path) {
    Reader reader;
    if (const auto text = textOf(path)) {
        reader.readDocument(*text);
    }
    if (!reader.faults.empty()) {
        throw Failure("fault in '" + path + "': " + reader.faults.front().message);
    }
    Labels labels;
    labels.labels = std::move(reader.labels);
    labels.addresses = std::move(reader.addresses);
    return labels;
}

std::optional<std::string> Labels::textOf(const std::string& path) {
    return readBoundedFile(path, MOST_TEXT);
}

std::vector<Labels::Fault> Labels::faultsIn(const std::string& text) {
    Reader reader;
    reader.readDocument(text);
    return reader.faults;
}

std::vector<std::string> Labels::keys() {
    std::vector<std::string> names;
    std::transform(KEYS.begin(), KEYS.end(), std::back_inserter(names),
                   [](const Key& key) { return std::string(key.name); });
    return names;
}

std::optional<int> Labels::parseAddress(std::string_view key) {
    const std::optional<int> address = parseInt(key);
    return address >= 0 ? address : std::nullopt;
}

const Label* Labels::find(int address) const {
    const auto label = labels.find(address);
    return label == labels.end() ? nullptr : &label->second;
}

std::optional<int> Labels::addressOf(const std::string& name) const {
    const auto address = addresses.find(name);
    return address == addresses.end() ? std::nullopt : std::optional(address->second);
}

const std::map<int, Label>& Labels::all() const {
    return labels;
}
