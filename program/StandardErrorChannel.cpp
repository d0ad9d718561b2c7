// SPDX-License-Identifier: MIT
#include "StandardErrorChannel.h"

#include <algorithm>
#include <cctype>
#include <utility>

#include "support/Pattern.h"

namespace {

constexpr Pattern<std::size_t> LOST("%z log lines before this one are lost: nobody read them");

}  // namespace

StandardErrorChannel::StandardErrorChannel(Poco::AutoPtr<Poco::Formatter> lineFormatter)
    : formatter(std::move(lineFormatter)) {}

void StandardErrorChannel::log(const Poco::Message& message) {
    const std::lock_guard<std::mutex> guard(mutex);
    if (!tellLosses() || !output.write(lineOf(message))) {
        ++lost;
    }
}

std::string StandardErrorChannel::lineOf(const Poco::Message& message) {
    std::string line;
    formatter->format(message, line);
    line.erase(line.find_last_not_of("\r\n") + 1);
    // A text may quote a file, and what is in it must neither start a line nor steer a terminal.
    std::replace_if(
        line.begin(), line.end(),
        [](char c) { return std::iscntrl(static_cast<unsigned char>(c)) != 0; }, ' ');
    line += '\n';
    return line;
}

/// @return whether there is nothing left to tell
bool StandardErrorChannel::tellLosses() {
    if (lost > 0 &&
        output.write(lineOf(Poco::Message("log", LOST(lost), Poco::Message::PRIO_WARNING)))) {
        lost = 0;
    }
    return lost == 0;
}
