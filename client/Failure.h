// SPDX-License-Identifier: MIT
#pragma once

#include <stdexcept>
#include <string>

/// What went wrong, in words for the user; ends the program with EXIT_FAILURE.
class Failure : public std::runtime_error {
 public:
    using std::runtime_error::runtime_error;
};

/// Whether an error of the class IoMapping is the service's answer to a request. Otherwise the
/// service has not answered, and asking for something else would not help.
bool isRefusal(const std::exception& error);

/// The reason in an error of the class IoMapping, in words for the user: without the prefixes of
/// the library and of GDBus, and with the remedy where there is one.
std::string reasonOf(const std::exception& error);

/// Whether an error of the class IoMapping is that the service has not answered in time. It may
/// still carry out the request.
bool isTimeout(const std::exception& error);
