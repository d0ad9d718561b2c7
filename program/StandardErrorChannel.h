// SPDX-License-Identifier: MIT
#pragma once

#include <Poco/Channel.h>
#include <Poco/Message.h>

/// Writes each message to standard error as one line with one system call, so that lines of several
/// processes and threads never mix and none is cut when the process ends.
class StandardErrorChannel : public Poco::Channel {
 public:
    /// Line ends at the end of the text are dropped; other control characters become blanks.
    void log(const Poco::Message& message) override;
};
