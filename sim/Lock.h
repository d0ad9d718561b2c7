// SPDX-License-Identifier: MIT
#pragma once

#include <filesystem>

namespace sim {

/// Keeps all other locks of a directory out, those of other threads and processes included, while
/// it lives: for what is read, changed and written back.
class Lock {
 public:
    /// Waits until the lock is free.
    ///
    /// @throws Error the directory cannot be opened
    explicit Lock(const std::filesystem::path& directory);
    ~Lock();
    Lock(const Lock&) = delete;
    Lock& operator=(const Lock&) = delete;

 private:
    int fd;
};

}  // namespace sim
