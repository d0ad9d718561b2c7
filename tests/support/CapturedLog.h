// SPDX-License-Identifier: MIT
#pragma once

#include <Poco/AutoPtr.h>
#include <Poco/Channel.h>
#include <Poco/Message.h>

#include <mutex>
#include <string>
#include <vector>

/// Collects, while it lives, every line that the loggers of this process write.
///
/// Only loggers made after it write to it: make it before the objects under test.
class CapturedLog {
 public:
    /// One line: its priority, the name of its logger and its text.
    struct Line {
        Poco::Message::Priority priority;
        std::string source;
        std::string text;
    };

    /// @param level the least urgent priority that the loggers take
    explicit CapturedLog(int level = Poco::Message::PRIO_TRACE);
    ~CapturedLog();
    CapturedLog(const CapturedLog&) = delete;
    CapturedLog& operator=(const CapturedLog&) = delete;

    std::vector<Line> lines() const;

    /// The texts of the lines with a priority, in order.
    std::vector<std::string> texts(Poco::Message::Priority priority) const;

    /// The lines whose text is exactly this.
    std::vector<Line> linesWithText(const std::string& text) const;

    /// Forgets what was collected.
    void clear();

 private:
    class Collector;
    Poco::AutoPtr<Collector> collector;
};
