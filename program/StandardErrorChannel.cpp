// SPDX-License-Identifier: MIT
#include "StandardErrorChannel.h"

#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <string_view>
#include <utility>

#include "support/Pattern.h"

namespace {

constexpr Pattern<std::size_t> LOST("%z log lines before this one are lost: nobody read them");
constexpr Pattern<> AGAIN_ONCE("the last line came once more");
constexpr Pattern<std::size_t> AGAIN("the last line came %z more times");

/// How often the same line is written in succession.
constexpr std::size_t MOST_TIMES = 3;
constexpr Poco::Timestamp::TimeDiff MINUTE = 60'000'000;  // microseconds

/// The name of a logger without the address of its object.
std::string_view kindOf(const std::string& source) {
    return std::string_view(source).substr(0, source.find('.'));
}

}  // namespace

StandardErrorChannel::StandardErrorChannel(Poco::AutoPtr<Poco::Formatter> lineFormatter)
    : formatter(std::move(lineFormatter)) {}

void StandardErrorChannel::log(const Poco::Message& message) {
    const std::lock_guard<std::mutex> guard(mutex);
    const bool isAgain = isLastAgain(message);
    if (isAgain && timesWritten == MOST_TIMES) {
        holdBack(message);
        return;
    }
    tellHeldBack();
    if (!isAgain) {
        last = message;
        timesWritten = 0;
    }
    ++timesWritten;
    print(message);
}

void StandardErrorChannel::flush() noexcept {
    isFlushed = true;
    const Prepared* const line = prepared.exchange(nullptr);
    if (line != nullptr && standardErrorHasRoom()) {
        [[maybe_unused]] const ssize_t written =
            ::write(STDERR_FILENO, line->text.data(), line->size);
    }
}

bool StandardErrorChannel::isLastAgain(const Poco::Message& message) const {
    return last && message.getPriority() == last->getPriority() &&
           message.getText() == last->getText() &&
           kindOf(message.getSource()) == kindOf(last->getSource());
}

void StandardErrorChannel::holdBack(const Poco::Message& message) {
    const Poco::Timestamp::TimeVal now = message.getTime().epochMicroseconds();
    if (heldBack == 0) {
        heldBackSince = now;
    }
    ++heldBack;
    last->setTime(message.getTime());
    if (!isFlushed) {
        prepareFlush();
    }
    // A clock that is set back begins a new minute.
    if (now - heldBackSince >= MINUTE || now < heldBackSince) {
        tellHeldBack();
    }
}

void StandardErrorChannel::prepareFlush() {
    Prepared& next = prepareds.at(nextPrepared);
    const std::string line = lineOf(heldBackMessage());
    next.size = line.copy(next.text.data(), next.text.size());
    next.text.at(next.size - 1) = '\n';
    prepared = &next;
    nextPrepared = 1 - nextPrepared;
}

void StandardErrorChannel::tellHeldBack() {
    // Nothing is prepared when nothing is held back, or when flush() has told it.
    if (prepared.exchange(nullptr) != nullptr) {
        print(heldBackMessage());
    }
    heldBack = 0;
}

Poco::Message StandardErrorChannel::heldBackMessage() const {
    return {*last, heldBack == 1 ? AGAIN_ONCE() : AGAIN(heldBack)};
}

void StandardErrorChannel::print(const Poco::Message& message) {
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
