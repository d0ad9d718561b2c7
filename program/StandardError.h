// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include "support/FileDescriptor.h"

/// Standard error, written to without ever waiting for its reader. Other processes may share it.
/// For one thread at a time.
class StandardError {
 public:
    /// Finds out what standard error is, which must not change afterwards.
    StandardError();

    /// Writes a line with one system call. What does not fit at once of a line that is longer than
    /// a pipe's PIPE_BUF follows before the next line.
    ///
    /// @return false when there is no room: nothing of the line was or will be written. A standard
    ///         error that takes nothing at all, such as a closed one, counts as written.
    bool write(std::string_view line);

 private:
    enum class Sort { REGULAR, SOCKET, STREAM };

    std::size_t writeSome(std::string_view text) const;
    static std::size_t writePieces(std::string_view text);

    Sort sort{Sort::REGULAR};
    /// A pipe or terminal, opened once more: the flag for not waiting belongs to all who share one
    /// opening. Closed where that is not allowed.
    FileDescriptor reopened;
    /// What is left of a line that has begun.
    std::string rest;
};

/// Whether standard error takes up to PIPE_BUF bytes at this moment. Callable from a signal
/// handler.
bool standardErrorHasRoom() noexcept;
