// SPDX-License-Identifier: MIT
#pragma once

#include <string>

/// Tells the log what is wrong with a value file or an edge file. Callers of the bus get the same
/// reply whatever the reason, or none at all.
namespace FileTrouble {

/// Writes a warning of the logger "value-file": "file '%s' cannot be %s: %s". There is at most one
/// line for each file and minute, because a register that fails is often read again and again. May
/// be called from any thread.
///
/// @param path the file
/// @param action what failed ("opened for reading")
/// @param reason why it failed
void report(const std::string& path, const std::string& action, const std::string& reason);

/// The same with the text of an error number as the reason.
void report(const std::string& path, const std::string& action, int error);

/// How often the calling thread has reported anything, whether or not there was a line.
unsigned reports();

}  // namespace FileTrouble
