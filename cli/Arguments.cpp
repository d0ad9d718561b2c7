// SPDX-License-Identifier: MIT
#include "Arguments.h"

#include <algorithm>
#include <charconv>
#include <cstdint>
#include <iterator>
#include <limits>
#include <optional>

#include "program/UsageError.h"
#include "tesk/Exceptions.h"

namespace {

constexpr std::int64_t INT_LIMIT = std::numeric_limits<std::int32_t>::max();
constexpr std::int64_t VALUE_LIMIT = std::numeric_limits<std::uint32_t>::max();
constexpr double SECONDS_LIMIT = 1e9;

std::optional<std::int64_t> parseNumber(const std::string& text, std::int64_t lowest,
                                        std::int64_t highest) {
    const bool hexadecimal = text.rfind("0x", 0) == 0 || text.rfind("0X", 0) == 0;
    const char* const first = text.data() + (hexadecimal ? 2 : 0);
    const char* const last = text.data() + text.size();
    std::int64_t number = 0;
    const auto [end, error] = std::from_chars(first, last, number, hexadecimal ? 16 : 10);
    if (error != std::errc() || end != last || number < lowest || number > highest ||
        (hexadecimal && *first == '-')) {
        return std::nullopt;
    }
    return number;
}

std::optional<std::int64_t> parseAddress(const std::string& text) {
    return parseNumber(text, 0, INT_LIMIT);
}

RegisterType parseType(const std::string& name) {
    try {
        return getTypeFromName(name);
    } catch (const tesk::NotFoundException&) {
        std::string known;
        for (const std::string& type : typeNames()) {
            known += (known.empty() ? "" : ", ") + type;
        }
        throw UsageError("no register type '" + name + "'; the types are " + known);
    }
}

/// What one word means; nothing if it is neither a name nor an address nor a range.
std::optional<Selection> parseSelection(const std::string& text, const Labels& labels) {
    if (const auto named = labels.addressOf(text)) {
        return Selection{{*named, *named}, false};
    }
    const auto dash = text.find('-');
    const bool isRange = dash != std::string::npos;
    const auto first = parseAddress(text.substr(0, dash));
    const auto last = isRange ? parseAddress(text.substr(dash + 1)) : first;
    // The map has no more addresses than this.
    if (!first || !last || *last < *first || *last - *first > 0xFFFF) {
        return std::nullopt;
    }
    return Selection{{static_cast<int>(*first), static_cast<int>(*last)}, isRange};
}

/// The end of a message about a text that is no address.
std::string orAName(const Labels& labels) {
    return labels.all().empty() ? "" : ", nor the name of a register in '" + Labels::file() + "'";
}

}  // namespace

std::vector<Selection> parseSelections(const std::vector<std::string>& texts,
                                       const Labels& labels) {
    std::vector<Selection> selections;
    for (const std::string& text : texts) {
        const std::optional<Selection> selection = parseSelection(text, labels);
        if (!selection) {
            throw UsageError("'" + text + "' is neither an address nor a range FIRST-LAST" +
                             orAName(labels));
        }
        selections.push_back(*selection);
    }
    return selections;
}

std::vector<int> parseAddresses(const std::vector<std::string>& texts, const Labels& labels) {
    std::vector<int> addresses;
    for (const Selection& selection : parseSelections(texts, labels)) {
        for (std::int64_t address = selection.range.first; address <= selection.range.last;
             ++address) {
            addresses.push_back(static_cast<int>(address));
        }
    }
    return addresses;
}

NamedAssignment splitAssignment(const std::string& text, const Labels& labels) {
    const auto equals = text.find('=');
    if (equals == std::string::npos) {
        throw UsageError("'" + text + "' is not of the form ADDR=VALUE");
    }
    const std::string target = text.substr(0, equals);
    const std::optional<Selection> selection = parseSelection(target, labels);
    if (!selection) {
        throw UsageError("'" + text + "' does not start with an address" + orAName(labels));
    }
    return {selection->range, text.substr(equals + 1), labels.addressOf(target).has_value()};
}

int rawValueOf(const NamedAssignment& assignment, const std::string& text) {
    const auto value = parseNumber(assignment.value, -INT_LIMIT - 1, VALUE_LIMIT);
    if (!value) {
        throw UsageError("'" + text + "' has no value from -2147483648 to 4294967295");
    }
    return static_cast<int>(*value);
}

std::vector<Assignment> parseAssignment(const std::string& text) {
    const NamedAssignment named = splitAssignment(text, {});
    const int value = rawValueOf(named, text);
    std::vector<Assignment> assignments;
    for (std::int64_t address = named.target.first; address <= named.target.last; ++address) {
        assignments.push_back({static_cast<int>(address), value});
    }
    return assignments;
}

std::vector<RegisterType> parseTypes(const std::vector<std::string>& names) {
    std::vector<RegisterType> types;
    std::transform(names.begin(), names.end(), std::back_inserter(types), parseType);
    return types;
}

std::vector<std::string> typeNames() {
    std::vector<std::string> names;
    for (const RegisterType type : getAllTypes()) {
        names.push_back(getTypeName(type));
    }
    return names;
}

std::chrono::duration<double> parseSeconds(const std::string& text) {
    double seconds = 0;
    const bool hasUnit = !text.empty() && text.back() == 's';
    const char* const last = text.data() + text.size() - (hasUnit ? 1 : 0);
    const auto [end, error] = std::from_chars(text.data(), last, seconds);
    // Written so that what is not a number is refused, too.
    if (error != std::errc() || end != last || !(seconds >= 0 && seconds <= SECONDS_LIMIT)) {
        throw UsageError("'" + text + "' is not a number of seconds from 0 to 1000000000");
    }
    return std::chrono::duration<double>(seconds);
}
