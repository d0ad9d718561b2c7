// SPDX-License-Identifier: MIT
#pragma once

#include <Poco/AutoPtr.h>
#include <Poco/Channel.h>
#include <Poco/Formatter.h>
#include <Poco/Message.h>
#include <Poco/Timestamp.h>

#include <array>
#include <atomic>
#include <cstddef>
#include <mutex>
#include <optional>
#include <string>

#include "StandardError.h"

/// Writes each message to standard error as one line with one system call, so that lines of several
/// processes and threads never mix and none is cut when the process ends.
///
/// Never waits: while nobody reads standard error and it is full, lines are lost. The next line
/// that fits comes after one that tells how many were lost.
///
/// Of a line that comes again and again without another one in between, the first three are
/// written. Then one line tells how often it came after that: when another line comes, at flush(),
/// and every minute. Two lines are the same if priority, text, and the logger's name up to the
/// first dot are.
///
/// May be used by several threads at once.
class StandardErrorChannel : public Poco::Channel {
 public:
    /// @param lineFormatter makes the line of a message
    explicit StandardErrorChannel(Poco::AutoPtr<Poco::Formatter> lineFormatter);

    /// Line ends at the end of the text are dropped; other control characters become blanks.
    void log(const Poco::Message& message) override;

    /// Writes how often the last line has come again, for a process that ends at once: nothing is
    /// written afterwards. Callable from a signal handler.
    void flush() noexcept;

 private:
    /// The line that flush() writes, ready to be written: a signal handler must not allocate.
    struct Prepared {
        std::array<char, 512> text;
        std::size_t size;
    };

    bool isLastAgain(const Poco::Message& message) const;
    void holdBack(const Poco::Message& message);
    void prepareFlush();
    void tellHeldBack();
    Poco::Message heldBackMessage() const;
    void print(const Poco::Message& message);
    std::string lineOf(const Poco::Message& message);
    bool tellLosses();

    std::mutex mutex;
    Poco::AutoPtr<Poco::Formatter> formatter;
    StandardError output;
    std::size_t lost{0};

    /// Made when it is needed: a message takes the time.
    std::optional<Poco::Message> last;
    std::size_t timesWritten{0};
    std::size_t heldBack{0};
    Poco::Timestamp::TimeVal heldBackSince{0};
    /// One is `prepared` while the next one is made.
    std::array<Prepared, 2> prepareds{};
    std::size_t nextPrepared{0};
    std::atomic<const Prepared*> prepared{nullptr};
    std::atomic<bool> isFlushed{false};
};
