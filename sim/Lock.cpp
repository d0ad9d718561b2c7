// SPDX-License-Identifier: MIT
#include "Lock.h"

#include <fcntl.h>
#include <sys/file.h>

#include <cerrno>

#include "Error.h"

namespace sim {

Lock::Lock(const std::filesystem::path& directory)
    : descriptor(::open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC)) {
    if (!descriptor.isOpen()) {
        throw openError(directory);
    }
    while (::flock(descriptor.get(), LOCK_EX) != 0 && errno == EINTR) {
    }
}

}  // namespace sim
