// SPDX-License-Identifier: MIT
#pragma once

#include <sys/types.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>
#include <stdexcept>
#include <string>

/// A line of a file in a process's directory in /proc ("status", "VmRSS:"), in kB.
inline double kilobytes(pid_t pid, const std::string& file, const std::string& key) {
    const std::string path = "/proc/" + std::to_string(pid) + "/" + file;
    std::ifstream lines(path);
    for (std::string line; std::getline(lines, line);) {
        if (line.rfind(key, 0) == 0) {
            return std::stod(line.substr(key.size()));
        }
    }
    throw std::runtime_error(path + " has no line " + key);
}

/// How many descriptors a process has open.
inline auto openDescriptors(pid_t pid) {
    const std::filesystem::directory_iterator all("/proc/" + std::to_string(pid) + "/fd");
    return std::distance(begin(all), end(all));
}

/// How much time of the processor a process has used, in seconds.
inline double processorTime(pid_t pid) {
    std::ifstream file("/proc/" + std::to_string(pid) + "/stat");
    std::string text;
    std::getline(file, text);
    std::istringstream fields(text.substr(text.rfind(')') + 2));
    std::string skipped;
    for (int field = 0; field < 11; ++field) {
        fields >> skipped;
    }
    double user = 0;
    double system = 0;
    fields >> user >> system;
    return (user + system) / static_cast<double>(sysconf(_SC_CLK_TCK));
}
