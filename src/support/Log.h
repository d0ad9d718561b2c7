// SPDX-License-Identifier: MIT
#pragma once

#include <Poco/Logger.h>
#include <Poco/Message.h>

#include "Pattern.h"

/// Writes one log line whose text a function makes; otherwise like log().
template <typename MakeText>
void writeLine(Poco::Logger& logger, Poco::Message::Priority priority, const MakeText& makeText) {
    try {
        if (logger.is(priority)) {
            logger.log(Poco::Message(logger.name(), makeText(), priority));
        }
    } catch (...) {  // NOLINT(bugprone-empty-catch): there is nowhere to tell it
    }
}

/// Writes one log line. The line is formatted only when the logger takes lines of this priority.
///
/// Never throws: a line that cannot be made or written is lost, and what it tells of goes on. On a
/// processor of 32 bits, for instance, no line has a time after January 2038.
///
/// The arguments are always evaluated. Where an argument is costly, ask `logger.is(priority)`
/// first.
template <typename... Args>
void log(Poco::Logger& logger, Poco::Message::Priority priority, const Pattern<Args...>& pattern,
         const std::common_type_t<Args>&... args) {
    writeLine(logger, priority, [&] { return pattern(args...); });
}
