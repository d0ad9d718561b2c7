// SPDX-License-Identifier: MIT
#include "Finding.h"

#include <Poco/JSON/Array.h>
#include <Poco/JSON/Object.h>
#include <Poco/JSON/Stringifier.h>

#include <glib.h>

#include <algorithm>

#include "support/GLibOwners.h"

namespace {

const char* severity(const Finding& finding) {
    return finding.isFault ? "error" : "warning";
}

/// The text in UTF-8. The parser quotes single bytes.
std::string valid(const std::string& text) {
    const StringOwner owner(g_utf8_make_valid(text.data(), static_cast<gssize>(text.size())));
    return owner.get();
}

/// The text without line ends and other control characters, which a file may have in its names.
std::string oneLine(const std::string& original) {
    std::string text = valid(original);
    std::replace_if(
        text.begin(), text.end(),
        [](char c) { return static_cast<unsigned char>(c) < 0x20 || c == 0x7F; }, ' ');
    return text;
}

/// The value, or null.
template <typename T>
Poco::Dynamic::Var orNull(const std::optional<T>& value) {
    return value ? Poco::Dynamic::Var(*value) : Poco::Dynamic::Var();
}

/// The address as a number, where it is one.
Poco::Dynamic::Var addressOf(const Finding& finding) {
    const std::string& text = finding.address;
    const bool isNumber =
        !text.empty() && text.size() < 10 &&
        text.find_first_not_of("0123456789", text[0] == '-' ? 1 : 0) == std::string::npos &&
        text != "-";
    if (isNumber) {
        return std::stoi(text);
    }
    return text.empty() || text == "none" ? Poco::Dynamic::Var() : Poco::Dynamic::Var(text);
}

Poco::JSON::Object::Ptr jsonOf(const Finding& finding) {
    Poco::JSON::Object::Ptr object(new Poco::JSON::Object(Poco::JSON_PRESERVE_KEY_ORDER));
    std::optional<std::size_t> line;
    std::optional<std::size_t> column;
    if (finding.place) {
        line = finding.place->line;
        column = finding.place->column;
    }
    object->set("severity", severity(finding));
    object->set("line", orNull(line));
    object->set("column", orNull(column));
    object->set("field", orNull(finding.field));
    object->set("address", addressOf(finding));
    object->set("message", valid(finding.message));
    object->set("remedy", valid(finding.remedy));
    if (!finding.labelsFile.empty()) {
        object->set("file", valid(finding.labelsFile));
    }
    return object;
}

}  // namespace

void printLines(std::ostream& out, const std::string& file, const std::vector<Finding>& findings) {
    for (const Finding& finding : findings) {
        out << (finding.labelsFile.empty() ? file : finding.labelsFile) << ':';
        if (finding.place) {
            out << finding.place->line << ':' << finding.place->column << ':';
        }
        out << ' ' << severity(finding) << ": ";
        if (finding.field) {
            out << "field io_mapping[" << *finding.field << "], address "
                << oneLine(finding.address) << ": ";
        }
        out << oneLine(finding.message) << "; " << oneLine(finding.remedy) << '\n';
    }
    out.flush();
}

void printJson(std::ostream& out, const std::vector<Finding>& findings) {
    Poco::JSON::Array array;
    for (const Finding& finding : findings) {
        array.add(jsonOf(finding));
    }
    Poco::JSON::Stringifier::condense(Poco::Dynamic::Var(array), out);
    out << std::endl;
}
