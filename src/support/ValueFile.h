// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

class KeptFile;

/// The text files in which the kernel keeps the values of the boards, one integer each.
///
/// All functions use system calls directly. A read of a register is little more than this, and a
/// stream would cost an allocation and several calls more. None of the functions waits: a pipe, a
/// socket, a terminal or a directory counts as a file that cannot be opened. The same holds for
/// every other device that is written or that gives no number.
///
/// What fails is told to the log unless a function says otherwise, at most once a minute for each
/// file; see FileTrouble. All functions may be called from any thread.
namespace ValueFile {

/// How many bytes of a file are read at most. A file in sysfs has no more than 4096.
inline constexpr std::size_t MOST_TEXT = 65536;

/// Reads one decimal integer, as formatted extraction from a stream into an `int` that holds 0
/// would: leading blanks are skipped. The number may have a sign and ends at the first character
/// that cannot continue it, or at the end of the first MOST_TEXT bytes. A text that starts with no
/// number gives 0, and so does a file that cannot be read. A number beyond 32 bits gives the
/// nearest end of the range.
///
/// @throws tesk::InputOutputException "error opening file '%s' for reading": the file is missing,
///         not accessible, or neither a regular file nor in sysfs
int read(const std::string& path);

/// The same for a file that is read again and again. Where `kept` still has the file open from the
/// last time, it is not opened again, whatever its permissions are by now. Where such a read fails
/// or gives no number, the file is opened anew, as if it had not been kept.
///
/// @param path always the same one for one `kept`
int read(const std::string& path, KeptFile& kept);

/// The same as read(), but tells a file without any text from a 0.
///
/// @return nothing if the file is empty or cannot be read
/// @throws tesk::InputOutputException see read()
std::optional<int> readUnlessEmpty(const std::string& path);

/// The whole text of a file, or what can be read of it. Tells the log nothing.
///
/// @return nothing if the file is missing, not accessible, or neither a regular file nor in sysfs
std::optional<std::string> readText(const std::string& path);

/// Replaces the text of an existing file by a decimal integer without a line end. A missing file
/// is not created. Errors after the opening are told to the log only.
///
/// @throws tesk::InputOutputException "error opening file '%s' for writing": the file is missing,
///         not accessible, or neither a regular file nor in sysfs
void write(const std::string& path, int value);

/// Replaces the text of an existing file. A missing file is not created. Errors after the opening
/// are told to the log only.
///
/// @return false if the file could not be opened
bool replaceText(const std::string& path, std::string_view text);

}  // namespace ValueFile
