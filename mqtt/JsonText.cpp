// SPDX-License-Identifier: MIT
#include "JsonText.h"

#include <Poco/JSONString.h>
#include <glib.h>

#include <array>
#include <charconv>

#include "support/GLibOwners.h"

std::string quoted(const std::string& text) {
    const StringOwner valid(g_utf8_make_valid(text.data(), static_cast<gssize>(text.size())));
    return Poco::toJSON(valid.get(), Poco::JSON_WRAP_STRINGS);
}

std::string numberText(double number) {
    std::array<char, 32> text{};
    const auto [end, error] = std::to_chars(text.data(), text.data() + text.size(), number);
    return {text.data(), end};
}
