// SPDX-License-Identifier: MIT
#include "support/ErrorCause.h"

#include <gtest/gtest.h>

#include "support/GLibOwners.h"

namespace {

using Cause = ServiceError::Cause;

/// The error that GDBus makes of an error reply.
ErrorOwner reply(const std::string& name) {
    return ErrorOwner(g_dbus_error_new_for_dbus_error(name.c_str(), "some words"));
}

/// The same of one of the bus's own names.
Cause causeOfReply(const std::string& name) {
    return causeOf(*reply("org.freedesktop.DBus.Error." + name));
}

ErrorOwner localError(GIOErrorEnum code) {
    return ErrorOwner(g_error_new_literal(G_IO_ERROR, code, "some words"));
}

TEST(ErrorCauseTest, TheNameOfAnErrorReplyTellsTheCause) {
    EXPECT_EQ(causeOfReply("Failed"), Cause::REFUSED);
    EXPECT_EQ(causeOfReply("ServiceUnknown"), Cause::NO_SERVICE);
    EXPECT_EQ(causeOfReply("NameHasNoOwner"), Cause::NO_SERVICE);
    EXPECT_EQ(causeOfReply("NoReply"), Cause::NO_REPLY);
    EXPECT_EQ(causeOfReply("AccessDenied"), Cause::ACCESS_DENIED);
    EXPECT_EQ(causeOfReply("LimitsExceeded"), Cause::LIMITS_EXCEEDED);
}

TEST(ErrorCauseTest, AServiceThatTheBusCannotStartIsNone) {
    EXPECT_EQ(causeOfReply("Spawn.ChildExited"), Cause::NO_SERVICE);
    EXPECT_EQ(causeOfReply("Spawn.ExecFailed"), Cause::NO_SERVICE);
    EXPECT_EQ(causeOfReply("TimedOut"), Cause::NO_SERVICE);
}

TEST(ErrorCauseTest, ErrorsOfTheLibraryHaveACauseAndNoName) {
    const ErrorOwner timeOut = localError(G_IO_ERROR_TIMED_OUT);
    EXPECT_EQ(causeOf(*timeOut), Cause::TIMED_OUT);
    EXPECT_EQ(busNameOf(*timeOut), "");
    EXPECT_EQ(causeOf(*localError(G_IO_ERROR_CLOSED)), Cause::NO_BUS);
    EXPECT_EQ(causeOf(*localError(G_IO_ERROR_INVALID_DATA)), Cause::OTHER);
}

TEST(ErrorCauseTest, OtherNamesAreHandedOnWithoutACause) {
    EXPECT_EQ(causeOfReply("UnknownMethod"), Cause::OTHER);
    EXPECT_EQ(causeOfReply("FailedOtherwise"), Cause::OTHER);
    EXPECT_EQ(causeOf(*reply("org.example.Failed")), Cause::OTHER);
    EXPECT_EQ(busNameOf(*reply("org.example.Failed")), "org.example.Failed");
    EXPECT_EQ(busNameOf(*reply("org.freedesktop.DBus.Error.Failed")),
              "org.freedesktop.DBus.Error.Failed");
}

}  // namespace
