// SPDX-License-Identifier: MIT
#include "ValueFile.h"

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <charconv>
#include <cstdint>
#include <limits>

#include "Pattern.h"
#include "tesk/Exceptions.h"

namespace {

constexpr Pattern<std::string> READ_OPEN_FAILED("error opening file '%s' for reading");
constexpr Pattern<std::string> WRITE_OPEN_FAILED("error opening file '%s' for writing");

/// Owns a file descriptor.
class Descriptor {
 public:
    explicit Descriptor(int openedFd) : fd(openedFd) {}
    ~Descriptor() {
        if (fd >= 0) {
            ::close(fd);
        }
    }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;

    bool isOpen() const { return fd >= 0; }

    ssize_t read(char* buffer, std::size_t size) const {
        ssize_t got = 0;
        do {
            got = ::read(fd, buffer, size);
        } while (got < 0 && errno == EINTR);
        return got;
    }

    void write(const char* text, std::size_t size) const {
        while (::write(fd, text, size) < 0 && errno == EINTR) {
        }
    }

 private:
    int fd;
};

bool isBlank(char c) {
    return c == ' ' || (c >= '\t' && c <= '\r');
}

/// Takes a text piece by piece and collects the number at its start.
class NumberReader {
 public:
    /// @return whether the number can still go on behind this piece
    bool take(const char* text, const char* end) {
        for (; text != end; ++text) {
            if (*text >= '0' && *text <= '9') {
                addDigit(*text - '0');
            } else if (!started && (*text == '-' || *text == '+')) {
                negative = *text == '-';
            } else if (started || !isBlank(*text)) {
                return false;
            } else {
                continue;
            }
            started = true;
        }
        return true;
    }

    int value() const { return static_cast<int>(negative ? -magnitude : magnitude); }

 private:
    void addDigit(int digit) {
        constexpr std::int64_t MAX = std::numeric_limits<int>::max();
        const std::int64_t limit = negative ? MAX + 1 : MAX;
        magnitude = magnitude * 10 + digit;
        magnitude = magnitude < limit ? magnitude : limit;
    }

    bool started{false};
    bool negative{false};
    std::int64_t magnitude{0};
};

}  // namespace

int ValueFile::read(const std::string& path) {
    const Descriptor file(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
    if (!file.isOpen()) {
        throw tesk::InputOutputException(READ_OPEN_FAILED(path));
    }
    NumberReader number;
    std::array<char, 64> buffer;  // NOLINT(cppcoreguidelines-pro-type-member-init): read fills it
    ssize_t got = 0;
    do {
        got = file.read(buffer.data(), buffer.size());
    } while (got > 0 && number.take(buffer.data(), buffer.data() + got));
    if (got < 0 && errno == EISDIR) {
        throw tesk::InputOutputException(READ_OPEN_FAILED(path));
    }
    return number.value();
}

void ValueFile::write(const std::string& path, int value) {
    const Descriptor file(::open(path.c_str(), O_WRONLY | O_TRUNC | O_CLOEXEC));
    if (!file.isOpen()) {
        throw tesk::InputOutputException(WRITE_OPEN_FAILED(path));
    }
    std::array<char, 12> text{};
    const char* const end = std::to_chars(text.data(), text.data() + text.size(), value).ptr;
    file.write(text.data(), static_cast<std::size_t>(end - text.data()));
}
