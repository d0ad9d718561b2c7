// SPDX-License-Identifier: MIT
#include "IoNumber.h"

namespace sim {

std::optional<int> ioNumber(const std::string& text) {
    constexpr std::size_t MOST_DIGITS = 9;
    if (text.empty() || text.size() > MOST_DIGITS || (text.size() > 1 && text[0] == '0') ||
        text.find_first_not_of("0123456789") != std::string::npos) {
        return std::nullopt;
    }
    return std::stoi(text);
}

}  // namespace sim
