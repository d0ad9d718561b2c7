// SPDX-License-Identifier: MIT
#include "Label.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <limits>
#include <optional>
#include <string_view>

#include "Failure.h"

namespace {

constexpr int MOST_DECIMALS = 9;

/// A value within this part of a step is taken as the step: decimal fractions have no exact binary
/// form, and 32-bit values leave a double no more room.
constexpr double STEP_TOLERANCE = 1e-4;

/// How many decimals a number needs in its shortest form, at most MOST_DECIMALS.
int decimalsOf(double number) {
    std::array<char, 400> text{};
    const auto [end, error] =
        std::to_chars(text.data(), text.data() + text.size(), number, std::chars_format::fixed);
    const std::string_view digits(text.data(), static_cast<std::size_t>(end - text.data()));
    const auto point = digits.find('.');
    return point == std::string_view::npos
               ? 0
               : std::min(static_cast<int>(digits.size() - point - 1), MOST_DECIMALS);
}

std::optional<double> parseDecimal(const std::string& text) {
    double value = 0;
    const char* const last = text.data() + text.size();
    const auto [end, error] = std::from_chars(text.data(), last, value);
    if (error != std::errc() || end != last || !std::isfinite(value)) {
        return std::nullopt;
    }
    return value;
}

}  // namespace

double Label::scaled(int raw) const {
    return raw * scale + offset;
}

std::string Label::scaledText(int raw) const {
    return decimal(scaled(raw));
}

std::string Label::shown(int raw) const {
    const auto state = states.find(raw);
    if (state != states.end()) {
        return state->second;
    }
    return scaledText(raw) + (unit.empty() ? "" : " " + unit);
}

int Label::rawOf(const std::string& text, unsigned int maximum) const {
    const auto state = std::find_if(states.begin(), states.end(),
                                    [&text](const auto& s) { return s.second == text; });
    if (state != states.end()) {
        return state->first;
    }
    const std::optional<double> value = parseDecimal(text);
    if (!value) {
        throw Failure("'" + text + "' is " +
                      (states.empty() ? "not a number"
                                      : "neither a number nor one of the states " + statesText()));
    }
    return rawOfScaled(text, *value, maximum);
}

int Label::rawOfScaled(const std::string& text, double value, unsigned int maximum) const {
    const bool isWhole = maximum == std::numeric_limits<std::uint32_t>::max();
    const double lowest = isWhole ? std::numeric_limits<std::int32_t>::min() : 0;
    const double highest = std::min<double>(maximum, std::numeric_limits<std::int32_t>::max());
    const double raw = (value - offset) / scale;
    const double nearest = std::round(raw);
    if (!(raw >= lowest - STEP_TOLERANCE && raw <= highest + STEP_TOLERANCE)) {
        const auto [low, high] = std::minmax({lowest * scale + offset, highest * scale + offset});
        throw Failure("'" + text + "' is out of range " + decimal(low) + " to " + decimal(high));
    }
    if (std::abs(raw - nearest) > STEP_TOLERANCE) {
        const auto [low, high] =
            std::minmax({std::floor(raw) * scale + offset, std::ceil(raw) * scale + offset});
        throw Failure("'" + text + "' lies between the possible values " + decimal(low) + " and " +
                      decimal(high));
    }
    return static_cast<int>(nearest);
}

std::string Label::decimal(double value) const {
    const int decimals = std::max(decimalsOf(scale), decimalsOf(offset));
    std::array<char, 400> text{};
    const auto [end, error] = std::to_chars(text.data(), text.data() + text.size(), value,
                                            std::chars_format::fixed, decimals);
    std::string digits(text.data(), end);
    // What rounds to zero has no sign.
    if (digits.front() == '-' && digits.find_first_not_of("-0.") == std::string::npos) {
        digits.erase(0, 1);
    }
    return digits;
}

std::string Label::statesText() const {
    std::string text;
    for (const auto& [raw, state] : states) {
        text += (text.empty() ? "" : ", ") + state;
    }
    return text;
}
