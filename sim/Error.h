// SPDX-License-Identifier: MIT
#pragma once

#include <filesystem>
#include <stdexcept>

namespace sim {

/// What cannot be done with a simulated device, in words for the user.
class Error : public std::runtime_error {
 public:
    using std::runtime_error::runtime_error;
};

/// Why a file could not be opened, as errno says, and what to do when it is missing.
Error openError(const std::filesystem::path& file);

}  // namespace sim
