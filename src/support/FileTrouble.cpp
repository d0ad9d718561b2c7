// SPDX-License-Identifier: MIT
#include "FileTrouble.h"

#include <system_error>

#include "Log.h"
#include "OncePerMinute.h"

namespace {

constexpr const char* LOGGER_NAME = "value-file";
constexpr Pattern<std::string, std::string, std::string> TROUBLE("file '%s' cannot be %s: %s");

thread_local unsigned reportCount = 0;  // NOLINT(*-avoid-non-const-global-variables)

}  // namespace

namespace FileTrouble {

void report(const std::string& path, const std::string& action, const std::string& reason) {
    ++reportCount;
    // Never destroyed: the notifier's thread reads files until the process is gone.
    static auto& limit = *new OncePerMinute;  // NOLINT(*-avoid-non-const-global-variables)
    if (limit.allows(path, OncePerMinute::Clock::now())) {
        log(Poco::Logger::get(LOGGER_NAME), Poco::Message::PRIO_WARNING, TROUBLE, path, action,
            reason);
    }
}

void report(const std::string& path, const std::string& action, int error) {
    report(path, action, std::generic_category().message(error));
}

unsigned reports() {
    return reportCount;
}

}  // namespace FileTrouble
