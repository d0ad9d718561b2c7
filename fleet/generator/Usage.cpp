// SPDX-License-Identifier: MIT
#include "Usage.h"

#include <unistd.h>

#include <fstream>
#include <sstream>
#include <stdexcept>
#include <string>

namespace {

/// Fields of /proc/PID/stat, counted from 1.
constexpr int FIRST_BEHIND_NAME = 3;
constexpr int USER_TIME = 14;

}  // namespace

Usage Usage::of(pid_t pid) {
    const std::string directory = "/proc/" + std::to_string(pid);
    std::ifstream file(directory + "/stat");
    std::string line;
    std::getline(file, line);
    // The name of the program, in parentheses, may have blanks and parentheses in it.
    std::istringstream fields(line.substr(line.rfind(')') + 1));
    std::string skipped;
    for (int field = FIRST_BEHIND_NAME; field < USER_TIME; ++field) {
        fields >> skipped;
    }
    std::int64_t user = 0;
    std::int64_t system = 0;
    fields >> user >> system;
    std::ifstream sizes(directory + "/statm");
    std::uint64_t resident = 0;
    sizes >> skipped >> resident;
    if (!fields || !sizes) {
        throw std::runtime_error("there is no process " + std::to_string(pid));
    }
    const std::int64_t tick = std::chrono::microseconds(std::chrono::seconds(1)).count() /
                              static_cast<std::int64_t>(::sysconf(_SC_CLK_TCK));
    return {std::chrono::microseconds((user + system) * tick),
            resident * static_cast<std::uint64_t>(::sysconf(_SC_PAGESIZE)) / 1024};
}
