// SPDX-License-Identifier: MIT
#pragma once

#include <stdexcept>
#include <string>

/// What went wrong, in words for the user; ends the program with status 1.
class Failure : public std::runtime_error {
 public:
    using std::runtime_error::runtime_error;
};

/// Whether an error of the client class is the service's answer to a request. Otherwise it has not
/// answered, and asking for something else would not help.
bool isRefusal(const std::exception& error);

/// The reason in an error of the client class, without the prefixes of the library and of GDBus.
std::string reasonOf(const std::exception& error);
