// SPDX-License-Identifier: MIT
#include "JsonText.h"

#include <Poco/JSONString.h>
#include <glib.h>

#include <algorithm>
#include <array>
#include <charconv>

#include "support/GLibOwners.h"

std::string quoted(const std::string& text) {
    const StringOwner valid(g_utf8_make_valid(text.data(), static_cast<gssize>(text.size())));
    return Poco::toJSON(valid.get(), Poco::JSON_WRAP_STRINGS);
}

std::size_t depthOf(std::string_view json) {
    std::size_t depth = 0;
    std::size_t deepest = 0;
    bool inText = false;
    for (std::size_t i = 0; i < json.size(); ++i) {
        const char c = json[i];
        if (inText) {
            i += c == '\\' ? 1 : 0;
            inText = c != '"';
        } else if (c == '"') {
            inText = true;
        } else if (c == '{' || c == '[') {
            deepest = std::max(deepest, ++depth);
        } else if ((c == '}' || c == ']') && depth > 0) {
            --depth;
        }
    }
    return deepest;
}

std::string numberText(double number) {
    std::array<char, 32> text{};
    const auto [end, error] = std::to_chars(text.data(), text.data() + text.size(), number);
    return {text.data(), end};
}
