// SPDX-License-Identifier: MIT
#include "client/Failure.h"

#include <gtest/gtest.h>

#include "ServiceError.h"
#include "tesk/Exceptions.h"

namespace {

const std::string CALL = "Error calling method: ";
const std::string REMOTE = CALL + "GDBus.Error:org.freedesktop.DBus.Error.";

std::string reason(const std::string& text) {
    return reasonOf(tesk::InputOutputException(text));
}

using Cause = ServiceError::Cause;

/// An error of the class IoMapping, in a language that the client does not know.
ServiceError failure(Cause cause) {
    return {"Fehler", cause, "org.example.Name"};
}

TEST(FailureTest, ARefusalIsToldInTheWordsOfTheService) {
    EXPECT_EQ(reason(REMOTE + "Failed: value 2 is higher than max value 1"),
              "value 2 is higher than max value 1");
    EXPECT_EQ(reason(REMOTE + "Failed: first: second"), "first: second");
    EXPECT_EQ(reason(REMOTE + "LimitsExceeded: too much"), "too much");
}

TEST(FailureTest, AServiceThatIsNotThereIsToldWithTheRemedy) {
    EXPECT_EQ(reason(REMOTE + "ServiceUnknown: The name was not provided by any .service files"),
              "the service is not running; start iomappingd");
    EXPECT_EQ(reason(REMOTE + "NoReply: Message recipient disconnected"),
              "the service has ended before it answered; start iomappingd");
    EXPECT_EQ(reason(CALL + "Timeout was reached"),
              "the service does not answer; restart iomappingd");
}

TEST(FailureTest, ABusThatIsNotThereIsToldWithTheRemedy) {
    EXPECT_EQ(reason("Error initializing DBus: Could not connect: No such file or directory"),
              "cannot reach the D-Bus system bus: Could not connect: No such file or directory; is "
              "dbus-daemon running?");
    EXPECT_EQ(reason(CALL + "The connection is closed"),
              "the D-Bus system bus has gone; start it and iomappingd");
}

TEST(FailureTest, AUserWhoMayNotIsToldWhoMay) {
    EXPECT_EQ(reason(REMOTE + "AccessDenied: Rejected send message, 1 matched rules"),
              "this user may not do that; become root or a member of the group io-mapping");
}

TEST(FailureTest, OtherWordsAreToldAsTheyAre) {
    EXPECT_EQ(reason("register 99: address '99' not found"), "register 99: address '99' not found");
    EXPECT_EQ(reason(CALL + "something else"), "something else");
    EXPECT_EQ(reason(CALL + "GDBus.Error:org.example.Odd"), "org.example.Odd");
    EXPECT_EQ(reason(""), "");
}

TEST(FailureTest, TheExitStatusTellsAServiceThatIsNotThereFromARefusal) {
    for (const Cause cause :
         {Cause::NO_SERVICE, Cause::NO_REPLY, Cause::TIMED_OUT, Cause::NO_BUS}) {
        EXPECT_EQ(exitStatusOf(failure(cause)), 3) << static_cast<int>(cause);
    }
    EXPECT_EQ(exitStatusOf(failure(Cause::ACCESS_DENIED)), 4);
    for (const Cause cause : {Cause::REFUSED, Cause::LIMITS_EXCEEDED, Cause::OTHER}) {
        EXPECT_EQ(exitStatusOf(failure(cause)), 1) << static_cast<int>(cause);
    }
    EXPECT_EQ(exitStatusOf(std::runtime_error("something else")), 1);
}

TEST(FailureTest, WhatSystemdDoesNotStartIsNotThere) {
    EXPECT_EQ(exitStatusOf(ServiceError("", Cause::OTHER, "org.freedesktop.systemd1.UnitMasked")),
              3);
}

TEST(FailureTest, AFailureHasAnExitStatusOfItsOwn) {
    EXPECT_EQ(exitStatusOf(Failure("refused")), 1);
    EXPECT_EQ(exitStatusOf(Failure("no bus", EXIT_NO_SERVICE)), 3);
}

TEST(FailureTest, OnlyTheAnswerOfTheServiceIsARefusal) {
    EXPECT_TRUE(isRefusal(failure(Cause::REFUSED)));
    for (const Cause cause : {Cause::NO_SERVICE, Cause::NO_REPLY, Cause::TIMED_OUT,
                              Cause::ACCESS_DENIED, Cause::LIMITS_EXCEEDED, Cause::NO_BUS}) {
        EXPECT_FALSE(isRefusal(failure(cause))) << static_cast<int>(cause);
    }
    EXPECT_FALSE(isRefusal(std::runtime_error(REMOTE + "Failed: of somebody else")));
}

TEST(FailureTest, OnlyAServiceThatDoesNotAnswerInTimeIsATimeout) {
    EXPECT_TRUE(isTimeout(failure(Cause::TIMED_OUT)));
    EXPECT_FALSE(isTimeout(failure(Cause::NO_REPLY)));
    EXPECT_FALSE(isTimeout(failure(Cause::REFUSED)));
    EXPECT_FALSE(isTimeout(std::runtime_error(CALL + "Timeout was reached")));
}

}  // namespace
