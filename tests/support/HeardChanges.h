// SPDX-License-Identifier: MIT
#pragma once

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <cstdint>
#include <memory>
#include <string>
#include <system_error>

#include "support/FileDescriptor.h"

/// What a listener has heard of the registers, in memory that it shares with other processes.
struct HeardChanges {
    static constexpr std::size_t ADDRESSES = 1301;

    /// By address, the value of the last change.
    std::array<std::atomic<std::int32_t>, ADDRESSES> last;
    /// How many changes there were.
    std::atomic<std::uint32_t> count;

    struct Unmap {
        void operator()(HeardChanges* heard) const { ::munmap(heard, sizeof(HeardChanges)); }
    };
    using Owner = std::unique_ptr<HeardChanges, Unmap>;

    /// Maps a file. A file that does not exist is created with all values at 0.
    ///
    /// @throws std::system_error the file cannot be created or mapped
    static Owner in(const std::string& path) {
        const FileDescriptor file(::open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600));
        void* place = MAP_FAILED;
        if (file.isOpen() && ::ftruncate(file.get(), sizeof(HeardChanges)) == 0) {
            place = ::mmap(nullptr, sizeof(HeardChanges), PROT_READ | PROT_WRITE, MAP_SHARED,
                           file.get(), 0);
        }
        if (place == MAP_FAILED) {
            throw std::system_error(errno, std::generic_category(), path);
        }
        return Owner(static_cast<HeardChanges*>(place));
    }
};
