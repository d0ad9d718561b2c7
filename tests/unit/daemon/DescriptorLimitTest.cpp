// SPDX-License-Identifier: MIT
#include "daemon/DescriptorLimit.h"

#include <gtest/gtest.h>
#include <sched.h>
#include <sys/resource.h>

#include <stdexcept>
#include <string>

#include "ChildProcess.h"

namespace {

void setLimits(rlim_t soft, rlim_t hard) {
    const rlimit limits{soft, hard};
    if (setrlimit(RLIMIT_NOFILE, &limits) != 0) {
        throw std::runtime_error("cannot set the limits of open files");
    }
}

/// The limits after the call, "SOFT HARD", in a process that starts with these.
///
/// @param namespaces as for inChildProcess()
std::string raisedFrom(rlim_t soft, rlim_t hard, int namespaces = 0) {
    const auto raise = [soft, hard] {
        setLimits(soft, hard);
        raiseDescriptorLimit();
        rlimit after{};
        getrlimit(RLIMIT_NOFILE, &after);
        return std::to_string(after.rlim_cur) + " " + std::to_string(after.rlim_max);
    };
    return inChildProcess(raise, namespaces);
}

bool mayRaiseHardLimits() {
    const auto tryTo = [] {
        setLimits(100, 100);
        setLimits(100, 200);
        return std::string();
    };
    try {
        inChildProcess(tryTo);
    } catch (const std::runtime_error&) {
        return false;
    }
    return true;
}

TEST(DescriptorLimitTest, IsRaisedBelowTheHardLimit) {
    EXPECT_EQ(raisedFrom(1024, 9000), "8192 9000");
}

TEST(DescriptorLimitTest, IsLeftAloneWhereItSuffices) {
    EXPECT_EQ(raisedFrom(8192, 9000), "8192 9000");
    EXPECT_EQ(raisedFrom(8500, 9000), "8500 9000");
}

TEST(DescriptorLimitTest, ReachesTheHardLimitWhereThatMayNotBeRaised) {
    // In a user namespace of its own a process has no right to raise it. The kernel gives 4096.
    EXPECT_EQ(raisedFrom(1024, 3000, CLONE_NEWUSER), "3000 3000");
}

TEST(DescriptorLimitTest, GoesBeyondTheHardLimitForAPrivilegedProcess) {
    EXPECT_EQ(raisedFrom(1024, 3000), mayRaiseHardLimits() ? "8192 8192" : "3000 3000");
}

}  // namespace
