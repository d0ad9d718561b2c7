// SPDX-License-Identifier: MIT
#include "Watchdog.h"

#include <sys/socket.h>
#include <sys/un.h>

#include <cstddef>
#include <cstdlib>
#include <cstring>

#include "support/FileDescriptor.h"

// One datagram to a socket whose name systemd gives: less than a library for it.
void notifySystemd(const std::string& state) {
    const char* const path = std::getenv("NOTIFY_SOCKET");
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (path == nullptr || std::strlen(path) >= sizeof(address.sun_path) ||
        (path[0] != '/' && path[0] != '@')) {
        return;
    }
    std::strncpy(address.sun_path, path, sizeof(address.sun_path) - 1);
    if (path[0] == '@') {
        address.sun_path[0] = '\0';
    }
    const FileDescriptor socket(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    ::sendto(socket.get(), state.data(), state.size(), MSG_NOSIGNAL,
             reinterpret_cast<const sockaddr*>(&address),
             static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + std::strlen(path)));
}
