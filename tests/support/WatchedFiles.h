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

/// The value files of an IO board with nothing but relays, below the real path. They are written as
/// fast as can be and as the kernel does it: whole, so that each write is one change.
class WatchedFiles {
 public:
    /// All at 0.
    ///
    /// @param count how many
    /// @param directory the board
    explicit WatchedFiles(int count, const std::string& directory = "/sys/kernel/kr62")
        : board(directory), fds(static_cast<std::size_t>(count)) {
        allowDescriptors();
        writeFile(board + "/info_io", "relays " + std::to_string(count) + "\n");
        for (int relay = 1; relay <= count; ++relay) {
            writeFile(path(relay), "0000000000\n");
            fds.at(place(relay)) = ::open(path(relay).c_str(), O_WRONLY | O_CLOEXEC);
        }
    }
    ~WatchedFiles() {
        for (const int fd : fds) {
            ::close(fd);
        }
    }
    WatchedFiles(const WatchedFiles&) = delete;
    WatchedFiles& operator=(const WatchedFiles&) = delete;

    std::string path(int relay) const {
        return board + "/relays/" + std::to_string(relay) + "/value";
    }

    /// @param relay from 1
    /// @param value from 0
    void set(int relay, int value) const {
        std::array<char, 12> text{};
        const int length = std::snprintf(text.data(), text.size(), "%010d\n", value);
        if (::pwrite(fds.at(place(relay)), text.data(), static_cast<std::size_t>(length), 0) !=
            length) {
            throw std::runtime_error("cannot write the file of relay " + std::to_string(relay));
        }
    }

    /// The field of a map with a register for each file, from address 1 on.
    std::string field() const {
        return R"({"address": 1, "size": 32, "type": "relay", "driver": "kr62", "count": )" +
               std::to_string(fds.size()) + "}";
    }

 private:
    /// A shell allows 1,024, and of those all the files may be open at a time.
    static void allowDescriptors() {
        constexpr rlim_t ENOUGH = 4096;
        rlimit limit{};
        ::getrlimit(RLIMIT_NOFILE, &limit);
        limit.rlim_cur = std::max(limit.rlim_cur, std::min(limit.rlim_max, ENOUGH));
        ::setrlimit(RLIMIT_NOFILE, &limit);
    }

    static std::size_t place(int relay) { return static_cast<std::size_t>(relay) - 1; }

    std::string board;
    std::vector<int> fds;
};
