// SPDX-License-Identifier: MIT
//
// Preloaded into a program, gives it the clock of a device that was just started and never set:
// 1970. As soon as the file that CLOCK_IS_SET names is there, the clock is right.

#include <unistd.h>

#include <cstdlib>
#include <ctime>

extern "C" std::time_t time(std::time_t* result) noexcept {
    const char* const file = std::getenv("CLOCK_IS_SET");
    const bool isSet = file == nullptr || ::access(file, F_OK) == 0;
    timespec now{};
    ::clock_gettime(isSet ? CLOCK_REALTIME : CLOCK_MONOTONIC, &now);
    if (result != nullptr) {
        *result = now.tv_sec;
    }
    return now.tv_sec;
}
