// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <optional>
#include <string>

/// Reads a whole regular file.
///
/// @param most the longest file that is read, in bytes
/// @return nothing if there is no such file
/// @throws Failure "cannot read '%s': %s" with the path and the reason
std::optional<std::string> readBoundedFile(const std::string& path, std::size_t most);
