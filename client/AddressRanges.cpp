// SPDX-License-Identifier: MIT
#include "AddressRanges.h"

#include <algorithm>
#include <charconv>
#include <string_view>

namespace {

std::optional<int> parseAddress(std::string_view text) {
    int number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    const bool whole = error == std::errc() && end == text.data() + text.size();
    return whole && number >= 0 && text.front() != '-' ? std::optional(number) : std::nullopt;
}

}  // namespace

std::optional<AddressRanges::Range> AddressRanges::parse(const std::string& text) {
    const std::string_view whole(text);
    const auto dash = whole.find('-');
    const auto first = parseAddress(whole.substr(0, dash));
    const auto last = dash == std::string_view::npos ? first : parseAddress(whole.substr(dash + 1));
    if (!first || !last || *last < *first) {
        return std::nullopt;
    }
    return Range{*first, *last};
}

void AddressRanges::add(const Range& range) {
    ranges.push_back(range);
}

bool AddressRanges::contains(int address) const {
    return std::any_of(ranges.begin(), ranges.end(), [address](const Range& range) {
        return range.first <= address && address <= range.last;
    });
}

std::string textOf(const AddressRanges::Range& range) {
    const std::string first = std::to_string(range.first);
    return range.first == range.last ? first : first + "-" + std::to_string(range.last);
}

std::string rangesText(std::vector<int> addresses) {
    std::sort(addresses.begin(), addresses.end());
    addresses.erase(std::unique(addresses.begin(), addresses.end()), addresses.end());
    std::string text;
    for (auto first = addresses.cbegin(); first != addresses.cend();) {
        auto last = first;
        while (last + 1 != addresses.cend() && *(last + 1) - *last == 1) {
            ++last;
        }
        text += (text.empty() ? "" : ", ") + textOf(AddressRanges::Range{*first, *last});
        first = last + 1;
    }
    return text;
}
