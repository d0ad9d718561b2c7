// SPDX-License-Identifier: MIT
#pragma once

#include <sys/types.h>

#include <chrono>
#include <cstdint>

/// What a process has used so far.
struct Usage {
    std::chrono::microseconds processor{0};  ///< In the program and in the kernel for it.
    std::uint64_t residentKilobytes{0};

    /// @throws std::runtime_error there is no such process
    static Usage of(pid_t pid);
};
