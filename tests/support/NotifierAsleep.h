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

/// Waits until the notifier of this process has served all that has happened so far and sleeps: a
/// captured log must not go while it writes there. Makes the notifier if there is none.
inline void untilNotifierSleeps(const CapturedLog& log) {
    const auto cycles = [&log] { return log.linesWithText("new poll cycle...").size(); };
    const auto lastCycle =
        std::make_shared<std::atomic<std::size_t>>(std::numeric_limits<std::size_t>::max());
    FileNotify& notifier = *FileNotify::getInstance();
    // Not a pipe: its closing would wake the worker once more.
    const int low = eventfd(1, 0);
    // Far from the keys of files, which count from 1.
    const int event = fcntl(low, F_DUPFD, 900);
    close(low);
    notifier.enableNotifications(event, [lastCycle, cycles](int fd) {
        std::uint64_t taken = 0;
        EXPECT_EQ(read(fd, &taken, sizeof(taken)), static_cast<ssize_t>(sizeof(taken)));
        *lastCycle = cycles();
    });
    EXPECT_TRUE(runUntil([&] { return cycles() > *lastCycle; }));
    notifier.disableNotifications(event);
    close(event);
}
