// SPDX-License-Identifier: MIT
#pragma once

#include <sys/mman.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <stdexcept>
#include <string>

#include "support/FileDescriptor.h"

/// A file without a name, in memory.
class MemoryFile {
 public:
    MemoryFile() {
        if (!file.isOpen()) {
            throw std::runtime_error("no file in memory");
        }
    }

    std::string path() const { return "/proc/self/fd/" + std::to_string(file.get()); }

    void replace(const std::uint8_t* data, std::size_t size) const {
        if (ftruncate(file.get(), 0) != 0 ||
            pwrite(file.get(), data, size, 0) != static_cast<ssize_t>(size)) {
            throw std::runtime_error("cannot write to the file in memory");
        }
    }

 private:
    FileDescriptor file{memfd_create("input", MFD_CLOEXEC)};
};
