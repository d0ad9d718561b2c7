// SPDX-License-Identifier: MIT
#pragma once

#include <sched.h>
#include <unistd.h>

#include <filesystem>
#include <functional>
#include <stdexcept>
#include <string>

#include "ChildProcess.h"

/// What a function returns in a process for which a directory is the root of the file system.
///
/// @throws std::runtime_error see inChildProcess()
inline std::string inRoot(const std::filesystem::path& root,
                          const std::function<std::string()>& function) {
    const auto change = [&root, &function] {
        if (chroot(root.c_str()) != 0 || chdir("/") != 0) {
            throw std::runtime_error("cannot make " + root.string() + " the root");
        }
        return function();
    };
    // The right to change the root comes with a user namespace of one's own. Where there can be
    // none, the process may have the right anyway.
    return inChildProcess(change, CLONE_NEWUSER);
}
