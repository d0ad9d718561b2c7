// SPDX-License-Identifier: MIT
#pragma once

#include <sched.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <stdexcept>
#include <string>
#include <vector>

/// Keeps this process, and those that it starts from now on, on the core where it runs.
inline void stayOnOneCore() {
    cpu_set_t core;
    CPU_ZERO(&core);
    CPU_SET(static_cast<unsigned>(sched_getcpu()), &core);
    if (sched_setaffinity(0, sizeof core, &core) != 0) {
        throw std::runtime_error(std::string("cannot stay on one core: ") + std::strerror(errno));
    }
}

/// The command of the service that is measured: the one in the directory that the environment
/// variable IO_MAPPING_BENCH_SERVICE names, or else the one of this build.
inline std::vector<std::string> measuredService(const std::string& ofThisBuild,
                                                const std::string& mapFile) {
    const char* const directory = std::getenv("IO_MAPPING_BENCH_SERVICE");
    return {directory != nullptr ? std::string(directory) + "/iomappingd" : ofThisBuild, "--map",
            mapFile};
}

/// Runs a benchmark, which may put files below /sys, on one core.
/// @tparam Bench has a method run(); makes what it needs when it is constructed
/// @param name of the program
/// @return the exit status, which tells only whether everything ran
template <typename Bench>
int runBench(const std::string& name) {
    if (std::getenv("IO_MAPPING_SANDBOX") == nullptr) {
        std::cerr << name << ": writes to /sys; run it through tests/support/sandbox\n";
        return EXIT_FAILURE;
    }
    try {
        stayOnOneCore();
        Bench().run();
        return EXIT_SUCCESS;
    } catch (const std::exception& e) {
        std::cerr << name << ": " << e.what() << '\n';
        return EXIT_FAILURE;
    }
}
