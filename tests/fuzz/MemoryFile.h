// SPDX-License-Identifier: MIT
#pragma once

#include <sys/mman.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <stdexcept>
#include <string>

/// A file without a name, in memory.
class MemoryFile {
 public:
    MemoryFile() : fd(memfd_create("input", MFD_CLOEXEC)) {
        if (fd < 0) {
            throw std::runtime_error("no file in memory");
        }
    }
    ~MemoryFile() { close(fd); }
    MemoryFile(const MemoryFile&) = delete;
    MemoryFile& operator=(const MemoryFile&) = delete;

    std::string path() const { return "/proc/self/fd/" + std::to_string(fd); }

    void replace(const std::uint8_t* data, std::size_t size) const {
        if (ftruncate(fd, 0) != 0 || pwrite(fd, data, size, 0) != static_cast<ssize_t>(size)) {
            throw std::runtime_error("cannot write to the file in memory");
        }
    }

 private:
    int fd;
};
