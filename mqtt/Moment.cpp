// SPDX-License-Identifier: MIT
#include "Moment.h"

#include <Poco/DateTimeFormatter.h>
#include <Poco/Timestamp.h>
#include <sys/timex.h>

#include <ctime>
#include <fstream>

namespace {

std::int64_t millisecondsOf(clockid_t clock) {
    timespec time{};
    ::clock_gettime(clock, &time);
    return static_cast<std::int64_t>(time.tv_sec) * 1000 + time.tv_nsec / 1'000'000;
}

bool isSynchronised() {
    timex state{};
    const int result = ::adjtimex(&state);
    return result >= 0 && result != TIME_ERROR && (state.status & STA_UNSYNC) == 0;
}

}  // namespace

Moment Moment::now() {
    return {millisecondsOf(CLOCK_REALTIME), millisecondsOf(CLOCK_BOOTTIME), isSynchronised()};
}

std::string bootId() {
    std::ifstream file("/proc/sys/kernel/random/boot_id");
    std::string id;
    std::getline(file, id);
    return id.empty() ? UNKNOWN_BOOT : id;
}

std::string timeText(std::int64_t wall) {
    return Poco::DateTimeFormatter::format(Poco::Timestamp(wall * 1000), "%Y-%m-%dT%H:%M:%S.%iZ");
}
