// SPDX-License-Identifier: MIT
#pragma once

#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <cstdlib>
#include <exception>
#include <functional>
#include <stdexcept>
#include <string>

#include "support/FileDescriptor.h"

/// What a function returns when it runs in a copy of this process, which then ends. This serves
/// tests that change something that cannot be changed back.
///
/// @param namespaces the CLONE_NEW... flags of those that the copy gets for itself, where the
///        system allows it
/// @throws std::runtime_error there is no child; with the words of what the function threw, or
///         without when the child died
inline std::string inChildProcess(const std::function<std::string()>& function,
                                  int namespaces = 0) {
    std::array<int, 2> ends{};
    if (pipe(ends.data()) != 0) {
        throw std::runtime_error("no pipe to a child process");
    }
    const FileDescriptor readEnd(ends[0]);
    FileDescriptor writeEnd(ends[1]);
    // unshare() after the fork would fail: ThreadSanitizer starts a thread of its own in the child,
    // and a process with two threads cannot enter another user namespace.
    long child = namespaces == 0
                     ? -1
                     : syscall(SYS_clone, namespaces | SIGCHLD, nullptr, nullptr, nullptr, nullptr);
    child = child < 0 ? fork() : child;
    if (child == 0) {
        std::string text;
        int status = EXIT_SUCCESS;
        try {
            text = function();
        } catch (const std::exception& e) {
            text = e.what();
            status = EXIT_FAILURE;
        }
        const bool written =
            write(writeEnd.get(), text.data(), text.size()) == static_cast<ssize_t>(text.size());
        _exit(written ? status : EXIT_FAILURE);
    }
    writeEnd.reset();
    std::string text;
    std::array<char, 4096> piece{};
    for (ssize_t got = 0; (got = read(readEnd.get(), piece.data(), piece.size())) > 0;) {
        text.append(piece.data(), static_cast<std::size_t>(got));
    }
    int status = 0;
    if (child < 0 || waitpid(static_cast<pid_t>(child), &status, 0) != child || status != 0) {
        throw std::runtime_error("the child process failed: " + text);
    }
    return text;
}
