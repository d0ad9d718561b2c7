// SPDX-License-Identifier: MIT
#pragma once

#include <sys/types.h>

#include <filesystem>
#include <fstream>
#include <iterator>
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
