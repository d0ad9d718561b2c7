// SPDX-License-Identifier: MIT
#include "Request.h"

#include <Poco/Dynamic/Var.h>
#include <Poco/JSON/Array.h>
#include <Poco/JSON/Object.h>
#include <glib.h>

#include <algorithm>
#include <sstream>
#include <stdexcept>

#include "tesk/Json.h"

namespace {

using Poco::Dynamic::Var;
using Object = Poco::JSON::Object::Ptr;

constexpr std::size_t LONGEST_PAYLOAD = 4096;
constexpr std::size_t LONGEST_WORD = 200;
constexpr std::ptrdiff_t MOST_BRACKETS = 8;

/// What is wrong with a request, in words for the asker.
class Fault : public std::runtime_error {
 public:
    using std::runtime_error::runtime_error;
};

bool isPrintable(std::string_view text) {
    return std::none_of(text.begin(), text.end(),
                        [](char c) { return static_cast<unsigned char>(c) < 0x20 || c == 0x7F; });
}

std::string wordOf(const std::string& text, const char* what) {
    if (text.empty() || text.size() > LONGEST_WORD || !isPrintable(text)) {
        throw Fault(std::string(what) +
                    " must have 1 to 200 bytes, none of them a control character");
    }
    return text;
}

/// The parser calls itself for each level.
void checkDepth(std::string_view payload) {
    if (std::count_if(payload.begin(), payload.end(), [](char c) { return c == '{' || c == '['; }) >
        MOST_BRACKETS) {
        throw Fault("the payload has too many brackets");
    }
}

Object objectOf(std::string_view payload) {
    checkDepth(payload);
    std::istringstream in{std::string(payload)};
    Object object;
    try {
        object = tesk::jsonParse(in);
    } catch (const std::exception&) {
        throw Fault("the payload is no JSON");
    }
    if (!object) {
        throw Fault("the payload is no JSON object");
    }
    return object;
}

void takeToken(Request& request, const Object& object) {
    if (!object->has("token")) {
        return;
    }
    const Var token = object->get("token");
    if (!token.isString()) {
        throw Fault("the token must be a text");
    }
    request.token = wordOf(token.convert<std::string>(), "the token");
}

void refuseOthers(const Object& object, const char* key) {
    for (const std::string& name : object->getNames()) {
        if (name != key && name != "token") {
            throw Fault("there is no key '" + name.substr(0, LONGEST_WORD) + "'");
        }
    }
}

/// A number or a text; both stand for a value or a register.
std::string scalarOf(const Var& value, const char* what) {
    if (value.isEmpty() || value.isBoolean() || !(value.isString() || value.isNumeric())) {
        throw Fault(std::string(what) + " must be a number or a text");
    }
    return wordOf(value.convert<std::string>(), what);
}

void takeRegisters(Request& request, const Object& object) {
    const Var list = object->get("registers");
    if (list.type() != typeid(Poco::JSON::Array::Ptr)) {
        throw Fault("\"registers\" must be a list");
    }
    for (const Var& item : *list.extract<Poco::JSON::Array::Ptr>()) {
        const std::string text = scalarOf(item, "a register");
        if (const auto range = AddressRanges::parse(text)) {
            request.ranges.add(*range);
        } else {
            request.names.push_back(text);
        }
    }
}

void parseGet(Request& request, std::string_view payload) {
    request.everything = true;
    if (payload.empty()) {
        return;
    }
    const Object object = objectOf(payload);
    takeToken(request, object);
    refuseOthers(object, "registers");
    if (object->has("registers")) {
        request.everything = false;
        takeRegisters(request, object);
    }
}

void parseSet(Request& request, std::string_view payload) {
    request.target = wordOf(request.target, "the register");
    if (payload.substr(0, 1) != "{") {
        request.value = wordOf(std::string(payload), "the value");
        return;
    }
    const Object object = objectOf(payload);
    takeToken(request, object);
    refuseOthers(object, "value");
    request.value = scalarOf(object->get("value"), "the value");
}

}  // namespace

Request parseRequest(const std::optional<std::string>& target, std::string_view payload) {
    Request request;
    request.action = target ? Request::Action::SET : Request::Action::GET;
    request.target = target.value_or("");
    try {
        if (payload.size() > LONGEST_PAYLOAD) {
            throw Fault("the payload is longer than 4096 bytes");
        }
        if (g_utf8_validate(payload.data(), static_cast<gssize>(payload.size()), nullptr) ==
            FALSE) {
            throw Fault("the payload is no UTF-8");
        }
        if (target) {
            parseSet(request, payload);
        } else {
            parseGet(request, payload);
        }
    } catch (const std::exception& e) {
        request.fault = e.what();
        if (request.target.size() > LONGEST_WORD || !isPrintable(request.target)) {
            request.target.clear();
        }
    }
    return request;
}
