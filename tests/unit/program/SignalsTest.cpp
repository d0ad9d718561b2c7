// SPDX-License-Identifier: MIT
#include "program/Signals.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>

namespace {

using testing::ExitedWithCode;
using testing::KilledBySignal;

TEST(SignalsTest, SigtermAndSigintEndTheProcessWithSuccess) {
    for (const int signal : {SIGTERM, SIGINT}) {
        EXPECT_EXIT(
            {
                endOnSignals();
                std::raise(signal);
            },
            ExitedWithCode(0), "");
    }
}

TEST(SignalsTest, TheLastWorkIsDoneBefore) {
    EXPECT_EXIT(
        {
            endOnSignals([]() noexcept {
                [[maybe_unused]] const ssize_t written = write(STDERR_FILENO, "last", 4);
            });
            std::raise(SIGTERM);
        },
        ExitedWithCode(0), "^last$");
}

TEST(SignalsTest, NoExitHandlerRuns) {
    EXPECT_EXIT(
        {
            std::atexit([] { std::_Exit(EXIT_FAILURE); });
            endOnSignals();
            std::raise(SIGTERM);
        },
        ExitedWithCode(0), "");
}

TEST(SignalsTest, OtherSignalsKeepTheirEffect) {
    EXPECT_EXIT(
        {
            // Whoever runs the test may ignore the signal.
            std::signal(SIGHUP, SIG_DFL);
            endOnSignals();
            std::raise(SIGHUP);
        },
        KilledBySignal(SIGHUP), "");
}

}  // namespace
