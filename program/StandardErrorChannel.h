// SPDX-License-Identifier: MIT
#pragma once

#include <Poco/AutoPtr.h>
#include <Poco/Channel.h>
#include <Poco/Formatter.h>
#include <Poco/Message.h>

#include <cstddef>
#include <mutex>
#include <string>

#include "StandardError.h"

/// Writes each message to standard error as one line with one system call, so that lines of several
/// processes and threads never mix and none is cut when the process ends.
///
/// Never waits: while nobody reads standard error and it is full, lines are lost. The next line
/// that fits comes after one that tells how many were lost. May be used by several threads at once.
class StandardErrorChannel : public Poco::Channel {
 public:
    /// @param lineFormatter makes the line of a message
    explicit StandardErrorChannel(Poco::AutoPtr<Poco::Formatter> lineFormatter);

    /// Line ends at the end of the text are dropped; other control characters become blanks.
    void log(const Poco::Message& message) override;

 private:
    std::string lineOf(const Poco::Message& message);
    bool tellLosses();

    std::mutex mutex;
    Poco::AutoPtr<Poco::Formatter> formatter;
    StandardError output;
    std::size_t lost{0};
};
