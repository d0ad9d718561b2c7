// SPDX-License-Identifier: MIT
#pragma once

#include <Poco/Logger.h>
#include <Poco/Message.h>

#include "Pattern.h"

/// Writes one log line. The line is formatted only when the logger takes lines of this priority.
///
/// The arguments are always evaluated. Where an argument is costly, ask `logger.is(priority)`
/// first.
template <typename... Args>
void log(Poco::Logger& logger, Poco::Message::Priority priority, const Pattern<Args...>& pattern,
         const std::common_type_t<Args>&... args) {
    if (logger.is(priority)) {
        logger.log(Poco::Message(logger.name(), pattern(args...), priority));
    }
}
