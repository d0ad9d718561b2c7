// SPDX-License-Identifier: MIT
#include "daemon/UncaughtException.h"

#include <Poco/Exception.h>
#include <Poco/Logger.h>
#include <gmock/gmock.h>

#include <cstdlib>
#include <functional>
#include <stdexcept>
#include <thread>

#include "program/LogOutput.h"
#include "tesk/Exceptions.h"

namespace {

using testing::ExitedWithCode;

/// In a child process: throws on a thread of its own, where nobody catches.
void throwOnThread(const std::function<void()>& thrower) {
    setenv("JOURNAL_STREAM", "9:12345", 1);
    // A logger that another test has made would keep the channel that it had then.
    Poco::Logger::destroy("iomappingd");
    openLog(parseLogLevel("fatal"));
    endOnUncaughtException();
    std::thread(thrower).join();
}

std::string lineWith(const std::string& text) {
    return "^<1>iomappingd: ended by an exception that nobody has caught: " + text + "\n$";
}

TEST(UncaughtExceptionTest, TypeAndTextAreToldAndTheStatusIs1) {
    EXPECT_EXIT(throwOnThread([] { throw tesk::NotFoundException("no such thing"); }),
                ExitedWithCode(1), lineWith("tesk::NotFoundException: no such thing"));
}

TEST(UncaughtExceptionTest, APocoExceptionIsToldWithItsMessage) {
    EXPECT_EXIT(throwOnThread([] { throw Poco::SystemException("cannot get time of day"); }),
                ExitedWithCode(1),
                lineWith("Poco::SystemException: System exception: cannot get time of day"));
}

TEST(UncaughtExceptionTest, WhatIsNoExceptionClassIsToldByItsType) {
    EXPECT_EXIT(throwOnThread([] { throw 5; }), ExitedWithCode(1), lineWith("int"));
}

TEST(UncaughtExceptionTest, ATerminationWithoutAnExceptionEndsTheProcessInTheSameWay) {
    EXPECT_EXIT(throwOnThread([] { std::terminate(); }), ExitedWithCode(1),
                lineWith("none, std::terminate\\(\\) was called"));
}

}  // namespace
