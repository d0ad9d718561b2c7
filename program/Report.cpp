// SPDX-License-Identifier: MIT
#include "Report.h"

#include <Poco/UTF8Encoding.h>

#include <algorithm>
#include <iostream>

#include "ExitStatus.h"

namespace {

/// How many bytes at the beginning of a text are one character that a terminal only shows; 0 when
/// they are a control character or no UTF-8.
std::size_t lengthOfPrintable(std::string_view text) {
    const auto first = static_cast<unsigned char>(text.front());
    if (first < 0x80) {
        return first < 0x20 || first == 0x7F ? 0 : 1;
    }
    const int length =
        Poco::UTF8Encoding().sequenceLength(reinterpret_cast<const unsigned char*>(text.data()), 1);
    if (length < 2 || static_cast<std::size_t>(length) > text.size() ||
        !Poco::UTF8Encoding::isLegal(reinterpret_cast<const unsigned char*>(text.data()), length)) {
        return 0;
    }
    const bool isControl = first == 0xC2 && static_cast<unsigned char>(text[1]) < 0xA0;
    return isControl ? 0 : static_cast<std::size_t>(length);
}

}  // namespace

std::string printable(std::string_view text) {
    constexpr std::string_view DIGITS = "0123456789abcdef";
    std::string result;
    while (!text.empty()) {
        const std::size_t length = lengthOfPrintable(text);
        const auto first = static_cast<unsigned char>(text.front());
        if (length > 0) {
            result += text.substr(0, length);
        } else if (first == '\n') {
            result += ' ';
        } else {
            result += {'\\', 'x', DIGITS[first / 16], DIGITS[first % 16]};
        }
        text.remove_prefix(std::max<std::size_t>(length, 1));
    }
    return result;
}

int report(const std::string& program, const std::string& text, int status,
           const std::string& prefix) {
    std::cout.flush();
    std::cerr << prefix + program + ": " + printable(text) + '\n';
    return status;
}

int reportUsageError(const std::string& program, const std::string& reason,
                     const std::string& prefix) {
    return report(program, reason + "; see " + program + " --help", EXIT_USAGE, prefix);
}
