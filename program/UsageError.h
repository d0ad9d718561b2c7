// SPDX-License-Identifier: MIT
#pragma once

#include <stdexcept>

/// The command line cannot be understood; ends the program with status 2.
class UsageError : public std::runtime_error {
 public:
    using std::runtime_error::runtime_error;
};
