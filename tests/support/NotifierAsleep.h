// SPDX-License-Identifier: MIT
#pragma once

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <atomic>
#include <cstdint>
#include <limits>
#include <memory>

#include "CapturedLog.h"
#include "Deadline.h"
#include "FileNotify.h"
#include "support/FileDescriptor.h"

/// Waits until the notifier of this process has served all that has happened so far and sleeps. A
/// captured log must not go while the notifier writes to it. Makes the notifier if there is none.
inline void untilNotifierSleeps(const CapturedLog& log) {
    const auto cycles = [&log] { return log.linesWithText("new poll cycle...").size(); };
    const auto lastCycle =
        std::make_shared<std::atomic<std::size_t>>(std::numeric_limits<std::size_t>::max());
    FileNotify& notifier = *FileNotify::getInstance();
    // A pipe would wake the worker once more when it closes.
    const FileDescriptor low(eventfd(1, 0));
    // Far from the keys of files, which count from 1.
    const FileDescriptor event(fcntl(low.get(), F_DUPFD, 900));
    notifier.enableNotifications(event.get(), [lastCycle, cycles](int fd) {
        std::uint64_t taken = 0;
        EXPECT_EQ(read(fd, &taken, sizeof(taken)), static_cast<ssize_t>(sizeof(taken)));
        *lastCycle = cycles();
    });
    EXPECT_TRUE(runUntil([&] { return cycles() > *lastCycle; }));
    notifier.disableNotifications(event.get());
}
