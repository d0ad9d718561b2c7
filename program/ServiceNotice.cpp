// SPDX-License-Identifier: MIT
#include "ServiceNotice.h"

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <charconv>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include "support/FileDescriptor.h"

namespace {

constexpr const char* SOCKET = "NOTIFY_SOCKET";

/// The number that is the whole value of a variable.
std::optional<std::int64_t> numberIn(const char* variable) {
    const char* const text = std::getenv(variable);
    if (text == nullptr) {
        return std::nullopt;
    }
    const char* const end = text + std::strlen(text);
    std::int64_t number = 0;
    const auto [rest, fault] = std::from_chars(text, end, number);
    return fault == std::errc() && rest == end ? std::optional(number) : std::nullopt;
}

}  // namespace

bool isSupervised() {
    return std::getenv(SOCKET) != nullptr;
}

bool notifySupervisor(const std::string& lines) {
    const char* const variable = std::getenv(SOCKET);
    const std::string_view path = variable == nullptr ? "" : variable;
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (path.empty() || path.size() >= sizeof address.sun_path) {
        return false;
    }
    path.copy(address.sun_path, path.size());
    // A name of the kernel's own in place of a file begins with a zero byte.
    if (path.front() == '@') {
        address.sun_path[0] = '\0';
    }
    const auto size = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + path.size());
    const FileDescriptor socket(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    return ::sendto(socket.get(), lines.data(), lines.size(), MSG_NOSIGNAL,
                    reinterpret_cast<const sockaddr*>(&address),
                    size) == static_cast<ssize_t>(lines.size());
}

std::optional<std::chrono::microseconds> watchdogLimit() {
    const std::optional<std::int64_t> limit = numberIn("WATCHDOG_USEC");
    const bool isForAnother =
        std::getenv("WATCHDOG_PID") != nullptr && numberIn("WATCHDOG_PID") != ::getpid();
    if (limit.value_or(0) <= 0 || isForAnother) {
        return std::nullopt;
    }
    return std::chrono::microseconds(*limit);
}
