// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <string>

/// Steps that every driver of a board in sysfs takes. All may be taken on any thread.
namespace BoardIo {

/// Refuses an index that a board does not have. An index equal to the count passes: boards count
/// their IOs from 0 or from 1.
///
/// @throws tesk::InvalidArgumentsException "invalid IO index %d"
void requireIndex(int index, std::uint32_t count);

/// Replaces the text of an edge file, which selects the edges that an input reports. A missing file
/// is not created. Errors are told to the log only (see FileTrouble): a board may have no edge
/// files, but an input whose edges are not selected may never announce a change.
///
/// @param file the path of the edge file
/// @param edge the text ("both"), written without a line end
void writeEdge(const std::string& file, const std::string& edge);

/// The value without its fraction; beyond 32 bits the nearest end of the range.
int truncate(double value);

/// Whether a path is a directory.
bool directoryExists(const std::string& path);

}  // namespace BoardIo
