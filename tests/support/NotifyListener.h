// SPDX-License-Identifier: MIT
#pragma once

#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <string>

#include "Deadline.h"
#include "support/FileDescriptor.h"

/// The service manager's end of what a service tells.
class NotifyListener {
 public:
    explicit NotifyListener(const std::string& path) {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        path.copy(address.sun_path, sizeof(address.sun_path) - 1);
        EXPECT_EQ(bind(socket.get(), reinterpret_cast<sockaddr*>(&address), sizeof(address)), 0);
    }

    /// The next message; empty when none comes in time.
    std::string next(std::chrono::milliseconds patience = PATIENCE) const {
        pollfd entry{socket.get(), POLLIN, 0};
        std::array<char, 4096> text{};
        const bool isThere = poll(&entry, 1, static_cast<int>(patience.count())) > 0;
        const ssize_t size = isThere ? recv(socket.get(), text.data(), text.size(), 0) : 0;
        return {text.data(), static_cast<std::size_t>(std::max<ssize_t>(size, 0))};
    }

    /// Waits until nothing has come for some time.
    bool untilSilent(std::chrono::milliseconds silence) const {
        const Deadline deadline;
        while (!deadline.passed()) {
            if (next(silence).empty()) {
                return true;
            }
        }
        return false;
    }

 private:
    FileDescriptor socket{::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0)};
};
