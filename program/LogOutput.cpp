// SPDX-License-Identifier: MIT
#include "LogOutput.h"

#include <Poco/AutoPtr.h>
#include <Poco/Exception.h>
#include <Poco/Logger.h>
#include <Poco/PatternFormatter.h>

#include <atomic>
#include <cstdlib>

#include "StandardErrorChannel.h"
#include "UsageError.h"

namespace {

/// The journal keeps time and source itself and takes the priority from a prefix.
constexpr const char* JOURNAL_LINE = "<%l>%s: %t";
constexpr const char* TERMINAL_LINE = "%Y-%m-%d %H:%M:%S.%i %p %s: %t";

bool isForJournal() {
    return std::getenv("JOURNAL_STREAM") != nullptr;
}

/// Never released: a signal may come while the process ends.
std::atomic<StandardErrorChannel*> channel{nullptr};  // NOLINT(*-avoid-non-const-global-variables)

}  // namespace

int parseLogLevel(const std::string& level) {
    try {
        return Poco::Logger::parseLevel(level);
    } catch (const Poco::Exception&) {
        throw UsageError("unknown log level '" + level + "'");
    }
}

std::string journalPrefix() {
    return isForJournal() ? "<3>" : "";
}

void openLog(int level) {
    const Poco::AutoPtr<Poco::PatternFormatter> formatter(
        new Poco::PatternFormatter(isForJournal() ? JOURNAL_LINE : TERMINAL_LINE));
    channel = new StandardErrorChannel(formatter);
    Poco::Logger::root().setChannel(Poco::AutoPtr<Poco::Channel>(channel, true));
    Poco::Logger::root().setLevel(level);
}

void flushLog() noexcept {
    if (StandardErrorChannel* const opened = channel) {
        opened->flush();
    }
}
