// SPDX-License-Identifier: MIT
#pragma once

#include <cstdlib>
#include <stdexcept>
#include <string>

/// The exit status of a program that finds no service: it is not running, cannot be started, or
/// does not answer, or there is no bus.
constexpr int EXIT_NO_SERVICE = 3;

/// The exit status of a program whose user has not the right to do what was asked for.
constexpr int EXIT_NO_RIGHTS = 4;

/// What went wrong, in words for the user.
class Failure : public std::runtime_error {
 public:
    /// @param exitStatus with which the program is to end; not EXIT_SUCCESS
    explicit Failure(const std::string& text, int exitStatus = EXIT_FAILURE)
        : std::runtime_error(text), status(exitStatus) {}

    /// The exit status for the program.
    int getStatus() const noexcept { return status; }

 private:
    int status;
};

/// That the bus has gone, with the remedy.
Failure busFailure();

/// The exit status for a program that an exception ends: that of a Failure; EXIT_NO_SERVICE or
/// EXIT_NO_RIGHTS for an error of the class IoMapping that means so; else EXIT_FAILURE.
int exitStatusOf(const std::exception& error);

/// Whether an error of the class IoMapping is the service's answer to a request. Otherwise the
/// service has not answered, and asking for something else would not help.
bool isRefusal(const std::exception& error);

/// The reason in an error of the class IoMapping, in words for the user: without the prefixes of
/// the library and of GDBus, and with the remedy where there is one.
std::string reasonOf(const std::exception& error);

/// Whether an error of the class IoMapping is that the service has not answered in time. It may
/// still carry out the request.
bool isTimeout(const std::exception& error);
