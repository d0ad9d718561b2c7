// SPDX-License-Identifier: MIT
#pragma once

#include <filesystem>
#include <string>

namespace sim {

/// Puts a file with a text in the place of the one that is there, if any: a reader finds the old
/// text or the new one. For texts of any length that nobody watches.
///
/// @throws Error the file cannot be written
void replaceFile(const std::filesystem::path& path, const std::string& text);

}  // namespace sim
