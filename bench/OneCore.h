// SPDX-License-Identifier: MIT
#pragma once

#include <sched.h>

#include <cerrno>
#include <cstring>
#include <stdexcept>
#include <string>

/// Keeps this process, and those that it starts from now on, on the core where it runs.
inline void stayOnOneCore() {
    cpu_set_t core;
    CPU_ZERO(&core);
    CPU_SET(static_cast<unsigned>(sched_getcpu()), &core);
    if (sched_setaffinity(0, sizeof core, &core) != 0) {
        throw std::runtime_error(std::string("cannot stay on one core: ") + std::strerror(errno));
    }
}
