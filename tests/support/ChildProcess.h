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

/// What a function returns when it runs in a copy of this process, which then goes: for tests that
/// change something that cannot be changed back.
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
    // Not unshare() after the fork: ThreadSanitizer starts a thread of its own in the child, and
    // with a second thread there is no way into another user namespace.
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
            write(ends[1], text.data(), text.size()) == static_cast<ssize_t>(text.size());
        _exit(written ? status : EXIT_FAILURE);
    }
    close(ends[1]);
    std::string text;
    std::array<char, 4096> piece{};
    for (ssize_t got = 0; (got = read(ends[0], piece.data(), piece.size())) > 0;) {
        text.append(piece.data(), static_cast<std::size_t>(got));
    }
    close(ends[0]);
    int status = 0;
    if (child < 0 || waitpid(static_cast<pid_t>(child), &status, 0) != child || status != 0) {
        throw std::runtime_error("the child process failed: " + text);
    }
    return text;
}
