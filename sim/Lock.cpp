// SPDX-License-Identifier: MIT
#include "Lock.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>

#include "Error.h"

namespace sim {

Lock::Lock(const std::filesystem::path& directory)
    : fd(::open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC)) {
    if (fd < 0) {
        throw openError(directory);
    }
    while (::flock(fd, LOCK_EX) != 0 && errno == EINTR) {
    }
}

Lock::~Lock() {
    ::close(fd);
}

}  // namespace sim
