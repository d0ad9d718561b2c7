// SPDX-License-Identifier: MIT
#include "StandardErrorChannel.h"

#include <unistd.h>

#include <algorithm>
#include <cctype>

void StandardErrorChannel::log(const Poco::Message& message) {
    std::string line = message.getText();
    line.erase(line.find_last_not_of("\r\n") + 1);
    // A text may quote a file, and what is in it must neither start a line nor steer a terminal.
    std::replace_if(
        line.begin(), line.end(),
        [](char c) { return std::iscntrl(static_cast<unsigned char>(c)) != 0; }, ' ');
    line += '\n';
    // There is nowhere to report a failure to.
    [[maybe_unused]] const ssize_t written = ::write(STDERR_FILENO, line.data(), line.size());
}
