// SPDX-License-Identifier: MIT
#pragma once

#include <string>

/// The text files in which the kernel keeps the values of the boards, one integer each.
///
/// Both operations use system calls directly: a read of a register is little more than this, and a
/// stream costs an allocation and several calls more.
class ValueFile {
 public:
    /// Reads one decimal integer just as formatted stream extraction into an `int` that holds 0
    /// would: leading blanks are skipped, the number may have a sign and ends at the first
    /// character that cannot continue it, a text that starts with no number gives 0, and a number
    /// beyond 32 bits gives the nearest end of the range.
    ///
    /// @throws tesk::InputOutputException "error opening file '%s' for reading": the file is
    ///         missing, not accessible, or a directory
    static int read(const std::string& path);

    /// Replaces the text of an existing file by a decimal integer without a line end. A missing
    /// file is not created. Errors after the opening are not reported.
    ///
    /// @throws tesk::InputOutputException "error opening file '%s' for writing"
    static void write(const std::string& path, int value);
};
