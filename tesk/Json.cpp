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

/// The number of the last byte that the parser took from `in`, counted from 0.
std::size_t lastTaken(std::istringstream& in) {
    in.clear();
    return static_cast<std::size_t>(std::max<std::streamoff>(in.tellg(), 1)) - 1;
}

/// The line, counted from 1, that holds a byte.
std::size_t lineOf(const std::string& text, std::size_t byte) {
    const auto end = text.begin() + static_cast<std::ptrdiff_t>(std::min(byte + 1, text.size()));
    return static_cast<std::size_t>(std::count(text.begin(), end, '\n')) + 1;
}

/// @param before how many bytes stand before the document
Poco::Dynamic::Var parseText(const std::string& text, std::size_t before, std::size_t* gaveUpAt) {
    std::istringstream in(text);
    try {
        return Poco::JSON::Parser().parse(in);
    } catch (const Poco::Exception& e) {
        const std::size_t last = lastTaken(in);
        if (gaveUpAt != nullptr) {
            *gaveUpAt = std::max(last, before) - before;
        }
        throw ParseException(Poco::format("%s, line %z", e.displayText(), lineOf(text, last)));
    }
}

}  // namespace

Poco::JSON::Object::Ptr jsonParse(std::istream& in, std::size_t* gaveUpAt) {
    const std::string text{std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
    const auto first = text.find_first_not_of(" \t\r\n");
    if (first != std::string::npos && text[first] != '{' && text[first] != '[') {
        // The parser refuses a lone value at the root as if it were a syntax error. Inside an
        // array the parser takes the value; only a real syntax error still fails.
        const auto values =
            parseText("[" + text + "]", 1, gaveUpAt).extract<Poco::JSON::Array::Ptr>();
        if (values->size() != 1) {
            throw ParseException("JSON Exception: more than one value at the root");
        }
        return {};
    }
    const Poco::Dynamic::Var root = parseText(text, 0, gaveUpAt);
    return root.type() == typeid(Poco::JSON::Object::Ptr) ? root.extract<Poco::JSON::Object::Ptr>()
                                                          : nullptr;
}

}  // namespace tesk
