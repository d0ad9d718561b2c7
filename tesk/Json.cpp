// SPDX-License-Identifier: MIT
#include "tesk/Json.h"

#include <Poco/Format.h>
#include <Poco/JSON/Parser.h>

#include <algorithm>
#include <iterator>
#include <sstream>
#include <string>

#include "tesk/Exceptions.h"

namespace tesk {

namespace {

/// The line, counted from 1, that holds the last character the parser took from `in`.
std::size_t lineReached(std::istringstream& in, const std::string& text) {
    in.clear();
    const auto taken = static_cast<std::ptrdiff_t>(in.tellg());
    return static_cast<std::size_t>(std::count(text.begin(), text.begin() + taken, '\n')) + 1;
}

Poco::Dynamic::Var parseText(const std::string& text) {
    std::istringstream in(text);
    try {
        return Poco::JSON::Parser().parse(in);
    } catch (const Poco::Exception& e) {
        throw ParseException(Poco::format("%s, line %z", e.displayText(), lineReached(in, text)));
    }
}

}  // namespace

Poco::JSON::Object::Ptr jsonParse(std::istream& in) {
    const std::string text{std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
    const auto first = text.find_first_not_of(" \t\r\n");
    if (first != std::string::npos && text[first] != '{' && text[first] != '[') {
        // The parser refuses a lone value at the root as if it were a syntax error. Inside an
        // array the parser takes the value; only a real syntax error still fails.
        const auto values = parseText("[" + text + "]").extract<Poco::JSON::Array::Ptr>();
        if (values->size() != 1) {
            throw ParseException("JSON Exception: more than one value at the root");
        }
        return {};
    }
    const Poco::Dynamic::Var root = parseText(text);
    return root.type() == typeid(Poco::JSON::Object::Ptr) ? root.extract<Poco::JSON::Object::Ptr>()
                                                          : nullptr;
}

}  // namespace tesk
