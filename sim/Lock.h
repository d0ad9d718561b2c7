// SPDX-License-Identifier: MIT
#pragma once

#include <filesystem>

#include "support/FileDescriptor.h"

namespace sim {

/// The lock of a directory, for a value that is read, changed and written back. While a lock lives,
/// all others of the directory wait, those of other threads and processes included.
class Lock {
 public:
    /// Waits until the lock is free.
    ///
    /// @throws Error the directory cannot be opened
    explicit Lock(const std::filesystem::path& directory);

 private:
    FileDescriptor descriptor;
};

}  // namespace sim
