// SPDX-License-Identifier: MIT
#pragma once

#include <unistd.h>

#include <utility>

/// Owns a file descriptor: closes it when it goes.
class FileDescriptor {
 public:
    /// Owns nothing.
    FileDescriptor() = default;
    /// @param opened what open() and its like have returned; a negative number is nothing
    explicit FileDescriptor(int opened) : fd(opened) {}
    ~FileDescriptor() { reset(); }

    FileDescriptor(FileDescriptor&& other) noexcept : fd(other.release()) {}
    FileDescriptor& operator=(FileDescriptor&& other) noexcept {
        if (this != &other) {
            reset(other.release());
        }
        return *this;
    }
    FileDescriptor(const FileDescriptor&) = delete;
    FileDescriptor& operator=(const FileDescriptor&) = delete;

    bool isOpen() const { return fd >= 0; }
    /// The descriptor, borrowed; negative when nothing is owned.
    int get() const { return fd; }
    /// Gives the descriptor away: the caller closes it.
    int release() { return std::exchange(fd, -1); }
    /// Closes the descriptor and owns another one in its place.
    void reset(int opened = -1) {
        if (fd >= 0) {
            ::close(fd);
        }
        fd = opened;
    }

 private:
    int fd{-1};
};
