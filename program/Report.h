// SPDX-License-Identifier: MIT
/// @file
#pragma once

#include <string>
#include <string_view>

/// A text as a message may quote it on one line of a terminal: each line end is a blank, and each
/// byte of another control character, or of what is no UTF-8, is like "\x1b".
std::string printable(std::string_view text);

/// Writes "PROGRAM: TEXT" to standard error, as one printable() line. What was printed before is
/// flushed first.
///
/// @param status the exit status to which the text belongs
/// @param prefix is written in front, such as journalPrefix()
/// @return the status
int report(const std::string& program, const std::string& text, int status,
           const std::string& prefix = "");

/// Writes "PROGRAM: REASON; see PROGRAM --help", in the same way.
///
/// @return EXIT_USAGE
int reportUsageError(const std::string& program, const std::string& reason,
                     const std::string& prefix = "");
