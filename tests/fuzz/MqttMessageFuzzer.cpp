// SPDX-License-Identifier: MIT
//
// Takes any bytes for a message of the broker: a request of values, a request to write, or a
// message of discovery that the broker has kept. What is understood must be within its bounds, and
// every answer must be a JSON object.

#include <Poco/JSON/Object.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <sstream>
#include <string>

#include "FuzzInput.h"
#include "mqtt/HomeAssistant.h"
#include "mqtt/Payloads.h"
#include "mqtt/Request.h"
#include "tesk/Json.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace {

constexpr std::size_t LONGEST_WORD = 200;
constexpr std::size_t LONGEST_ANSWER = 8192;

void requireWord(const std::string& text, const char* what) {
    const bool printable = std::none_of(text.begin(), text.end(), [](char c) {
        return static_cast<unsigned char>(c) < 0x20 || c == 0x7F;
    });
    if (text.size() > LONGEST_WORD || !printable) {
        fail(std::string(what) + " is no word: '" + text + "'");
    }
}

void requireAnswer(const Request& request) {
    const std::string text = ackOf(request, request.fault);
    if (text.size() > LONGEST_ANSWER) {
        fail("the answer has " + std::to_string(text.size()) + " bytes");
    }
    std::istringstream in(text);
    const Poco::JSON::Object::Ptr answer = tesk::jsonParse(in);
    if (answer.isNull() || answer->getValue<bool>("ok") != request.fault.empty()) {
        fail("the answer does not say what became of the request: " + text);
    }
}

void requireGood(const Request& request, bool isSet) {
    requireWord(request.token, "the token");
    requireWord(request.target, "the register");
    requireWord(request.value, "the value");
    if (request.fault.empty() && isSet && request.value.empty()) {
        fail("nothing would be written");
    }
    if (request.fault.empty() && !isSet && request.everything &&
        !(request.ranges.empty() && request.names.empty())) {
        fail("all registers are asked for, and some of them");
    }
    requireAnswer(request);
}

void requireEntities(const std::string& payload) {
    for (const auto& [key, platform] : entitiesIn(payload)) {
        const std::string name = nameOfEntity(key);
        requireWord(name, "the name of an entity");
        // It becomes part of a topic.
        if (name.empty() || name.find_first_of("/+#") != std::string::npos) {
            fail("'" + name + "' is no name of a register");
        }
    }
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    FuzzInput input(data, size);
    const std::uint8_t choice = input.byte();
    const bool isSet = choice % 3 == 1;
    const std::string target = isSet ? input.text() : "";
    std::string payload;
    while (!input.isEmpty()) {
        payload += static_cast<char>(input.byte());
    }
    if (choice % 3 == 2) {
        requireEntities(payload);
        return 0;
    }
    requireGood(parseRequest(isSet ? std::optional(target) : std::nullopt, payload), isSet);
    return 0;
}
