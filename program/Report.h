// SPDX-License-Identifier: MIT
/// @file
#pragma once

#include <string>

/// Writes "PROGRAM: TEXT" to standard error, as one line even if the text quotes line ends. What
/// was printed before is flushed first.
///
/// @param status the exit status to which the text belongs
/// @return the status
int report(const std::string& program, std::string text, int status);

/// Writes "PROGRAM: REASON; see PROGRAM --help", in the same way.
///
/// @return EXIT_USAGE
int reportUsageError(const std::string& program, const std::string& reason);
