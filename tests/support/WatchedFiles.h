// SPDX-License-Identifier: MIT
#pragma once

#include <fcntl.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <stdexcept>
#include <string>
#include <vector>

#include "TemporaryDirectory.h"
#include "support/FileDescriptor.h"

/// The value files of an IO board that has only relays. A value is written whole, as the kernel
/// does it, so that each write is one change.
class WatchedFiles {
 public:
    /// Makes the files, each with the value 0.
    ///
    /// @param count the number of relays
    /// @param directory the directory of the board
    explicit WatchedFiles(int count, const std::string& directory = "/sys/kernel/kr62")
        : board(directory), fds(static_cast<std::size_t>(count)) {
        allowDescriptors();
        writeFile(board + "/info_io", "relays " + std::to_string(count) + "\n");
        for (int relay = 1; relay <= count; ++relay) {
            writeFile(path(relay), "0000000000\n");
            fds.at(place(relay)).reset(::open(path(relay).c_str(), O_WRONLY | O_CLOEXEC));
        }
    }

    std::string path(int relay) const {
        return board + "/relays/" + std::to_string(relay) + "/value";
    }

    /// @param relay from 1
    /// @param value from 0
    void set(int relay, int value) const {
        std::array<char, 12> text{};
        const int length = std::snprintf(text.data(), text.size(), "%010d\n", value);
        if (::pwrite(fds.at(place(relay)).get(), text.data(), static_cast<std::size_t>(length),
                     0) != length) {
            throw std::runtime_error("cannot write the file of relay " + std::to_string(relay));
        }
    }

    /// The field of a map with a register for each file, from address 1 on.
    std::string field() const {
        return R"({"address": 1, "size": 32, "type": "relay", "driver": "kr62", "count": )" +
               std::to_string(fds.size()) + "}";
    }

 private:
    /// Raises the limit of open files. A shell sets it to 1,024, and all files of a board are open.
    static void allowDescriptors() {
        constexpr rlim_t ENOUGH = 4096;
        rlimit limit{};
        ::getrlimit(RLIMIT_NOFILE, &limit);
        limit.rlim_cur = std::max(limit.rlim_cur, std::min(limit.rlim_max, ENOUGH));
        ::setrlimit(RLIMIT_NOFILE, &limit);
    }

    static std::size_t place(int relay) { return static_cast<std::size_t>(relay) - 1; }

    std::string board;
    std::vector<FileDescriptor> fds;
};
