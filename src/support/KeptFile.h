// SPDX-License-Identifier: MIT
#pragma once

#include <atomic>
#include <cstdint>
#include <string>
#include <utility>

#include "FileDescriptor.h"

/// A file that is read again and again, and that stays open in between where that changes nothing
/// but the time it takes.
///
/// That is so for an attribute of sysfs whose path has no symbolic link: the kernel makes its text
/// anew for each read at offset 0, and refuses every read once the attribute is gone. Any other
/// file may be replaced under its path, and is not kept open.
///
/// All files together keep at most half as many descriptors as the process may have. The one that
/// was not used for the longest time is closed first.
///
/// All functions may be called from any thread. Only the destructor must be the last call.
class KeptFile {
 public:
    KeptFile() = default;
    ~KeptFile();
    KeptFile(const KeptFile&) = delete;
    KeptFile& operator=(const KeptFile&) = delete;

    /// Reads the kept descriptor, if there is one. Of two threads that read at once, one finds
    /// none.
    ///
    /// @param reader takes a descriptor and returns whether the descriptor is still good; if not,
    ///        it is closed
    /// @return false if there was no descriptor, or if it was no longer good: the file is to be
    ///         opened anew
    template <typename Reader>
    bool read(const Reader& reader) {
        if (descriptor.load(std::memory_order_relaxed) == NONE) {
            return false;
        }
        FileDescriptor file(descriptor.exchange(NONE));
        if (!file.isOpen()) {
            return false;
        }
        if (!reader(file)) {
            drop(std::move(file));
            return false;
        }
        putBack(std::move(file));
        return true;
    }

    /// Keeps a descriptor for the next read if it may be kept, and closes it otherwise.
    ///
    /// @param file what has just been opened for reading
    /// @param path the absolute path of the file, always the same one
    void keep(FileDescriptor file, const std::string& path) {
        if (kind.load(std::memory_order_relaxed) != Kind::REOPENED) {
            tryToKeep(std::move(file), path);
        }
    }

 private:
    friend class KeptFiles;

    static constexpr int NONE = -1;

    enum class Kind : std::uint8_t {
        UNKNOWN,
        ATTRIBUTE,  ///< In sysfs, without a symbolic link on the way.
        REOPENED,   ///< Any other file.
    };

    void tryToKeep(FileDescriptor file, const std::string& path);
    void putBack(FileDescriptor file);
    void drop(FileDescriptor file);

    std::atomic<int> descriptor{NONE};
    /// When the descriptor was used last, counted in reads of all files.
    std::atomic<std::uint32_t> lastUse{0};
    std::atomic<Kind> kind{Kind::UNKNOWN};
    /// Belongs to KeptFiles.
    bool isListed{false};
};
