// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <string>

/// What the drivers of the boards in sysfs have in common.
namespace BoardIo {

/// Refuses an index that a board does not have. An index equal to the count passes: boards count
/// their IOs from 0 or from 1.
///
/// @throws tesk::InvalidArgumentsException "invalid IO index %d"
void requireIndex(int index, std::uint32_t count);

/// Selects the edges on which an input raises events. A board without the file is none of our
/// business: errors are ignored.
void writeEdge(const std::string& file, const std::string& edge);

/// The value without its fraction; beyond 32 bits the nearest end of the range.
int truncate(double value);

/// Whether a path is a directory.
bool directoryExists(const std::string& path);

}  // namespace BoardIo
