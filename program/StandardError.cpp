// SPDX-License-Identifier: MIT
#include "StandardError.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>

StandardError::StandardError() {
    struct stat status {};
    if (::fstat(STDERR_FILENO, &status) != 0) {
        return;
    }
    if (S_ISSOCK(status.st_mode)) {
        sort = Sort::SOCKET;
    } else if (S_ISFIFO(status.st_mode) || S_ISCHR(status.st_mode)) {
        sort = Sort::STREAM;
        reopened.reset(::open("/proc/self/fd/2", O_WRONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
    }
}

bool StandardError::write(std::string_view line) {
    if (!rest.empty()) {
        rest.erase(0, writeSome(rest));
        if (!rest.empty()) {
            return false;
        }
    }
    const std::size_t written = writeSome(line);
    rest = line.substr(written == 0 ? line.size() : written);
    return written > 0;
}

/// @return how much is written or will never be; 0 when there is no room
std::size_t StandardError::writeSome(std::string_view text) const {
    ssize_t written = 0;
    do {
        if (sort == Sort::SOCKET) {
            written = ::send(STDERR_FILENO, text.data(), text.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
        } else if (sort == Sort::STREAM && !reopened.isOpen()) {
            return writePieces(text);
        } else {
            written = ::write(reopened.isOpen() ? reopened.get() : STDERR_FILENO, text.data(),
                              text.size());
        }
    } while (written == -1 && errno == EINTR);
    if (written == -1) {
        // There is nowhere to report another failure to.
        return errno == EAGAIN ? 0 : text.size();
    }
    return static_cast<std::size_t>(written);
}

/// Writes as many pieces as are sure not to wait.
///
/// @return as writeSome()
std::size_t StandardError::writePieces(std::string_view text) {
    std::size_t done = 0;
    while (done < text.size() && standardErrorHasRoom()) {
        const std::string_view piece = text.substr(done, PIPE_BUF);
        const ssize_t written = ::write(STDERR_FILENO, piece.data(), piece.size());
        if (written == -1 && errno != EINTR) {
            return text.size();
        }
        done += written > 0 ? static_cast<std::size_t>(written) : 0;
    }
    return done;
}

bool standardErrorHasRoom() noexcept {
    pollfd entry{STDERR_FILENO, POLLOUT, 0};
    return ::poll(&entry, 1, 0) > 0;
}
