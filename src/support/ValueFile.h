// SPDX-License-Identifier: MIT
#pragma once

#include <string>

/// The text files in which the kernel keeps the values of the boards, one integer each.
///
/// Both functions use system calls directly. A read of a register is little more than this, and a
/// stream would cost an allocation and several calls more.
namespace ValueFile {

/// Reads one decimal integer, as formatted extraction from a stream into an `int` that holds 0
/// would: leading blanks are skipped. The number may have a sign and ends at the first character
/// that cannot continue it. A text that starts with no number gives 0. A number beyond 32 bits
/// gives the nearest end of the range.
///
/// @throws tesk::InputOutputException "error opening file '%s' for reading": the file is missing,
///         not accessible, or a directory
int read(const std::string& path);

/// Replaces the text of an existing file by a decimal integer without a line end. A missing file
/// is not created. Errors after the opening are not reported.
///
/// @throws tesk::InputOutputException "error opening file '%s' for writing"
void write(const std::string& path, int value);

}  // namespace ValueFile
