// SPDX-License-Identifier: MIT
#include "CapturedLog.h"

#include <Poco/Logger.h>

#include <algorithm>
#include <iterator>

class CapturedLog::Collector : public Poco::Channel {
 public:
    void log(const Poco::Message& message) override {
        const std::lock_guard<std::mutex> lock(mutex);
        lines.push_back({message.getPriority(), message.getSource(), message.getText()});
    }

    mutable std::mutex mutex;
    std::vector<Line> lines;
};

CapturedLog::CapturedLog(int level) : collector(new Collector) {
    // The settings below reach only loggers that exist.
    Poco::Logger::root();
    Poco::Logger::setChannel("", collector);
    Poco::Logger::setLevel("", level);
}

CapturedLog::~CapturedLog() {
    Poco::Logger::setLevel("", Poco::Message::PRIO_INFORMATION);
    Poco::Logger::setChannel("", nullptr);
}

std::vector<CapturedLog::Line> CapturedLog::lines() const {
    const std::lock_guard<std::mutex> lock(collector->mutex);
    return collector->lines;
}

std::vector<std::string> CapturedLog::texts(Poco::Message::Priority priority) const {
    std::vector<std::string> result;
    for (const Line& line : lines()) {
        if (line.priority == priority) {
            result.push_back(line.text);
        }
    }
    return result;
}

std::vector<CapturedLog::Line> CapturedLog::linesWithText(const std::string& text) const {
    std::vector<Line> result;
    const std::vector<Line> all = lines();
    std::copy_if(all.begin(), all.end(), std::back_inserter(result),
                 [&text](const Line& line) { return line.text == text; });
    return result;
}

void CapturedLog::clear() {
    const std::lock_guard<std::mutex> lock(collector->mutex);
    collector->lines.clear();
}
