// SPDX-License-Identifier: MIT
#include "ValueFile.h"

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <charconv>
#include <cstdint>
#include <limits>

#include "FileDescriptor.h"
#include "Pattern.h"
#include "tesk/Exceptions.h"

namespace {

constexpr Pattern<std::string> READ_OPEN_FAILED("error opening file '%s' for reading");
constexpr Pattern<std::string> WRITE_OPEN_FAILED("error opening file '%s' for writing");

ssize_t readSome(const FileDescriptor& file, char* buffer, std::size_t size) {
    ssize_t got = 0;
    do {
        got = ::read(file.get(), buffer, size);
    } while (got < 0 && errno == EINTR);
    return got;
}

void writeOnce(const FileDescriptor& file, const char* text, std::size_t size) {
    while (::write(file.get(), text, size) < 0 && errno == EINTR) {
    }
}

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

namespace ValueFile {

int read(const std::string& path) {
    const FileDescriptor file(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
    if (!file.isOpen()) {
        throw tesk::InputOutputException(READ_OPEN_FAILED(path));
    }
    NumberReader number;
    std::array<char, 64> buffer;  // NOLINT(cppcoreguidelines-pro-type-member-init): read fills it
    ssize_t got = 0;
    do {
        got = readSome(file, buffer.data(), buffer.size());
    } while (got > 0 && number.take(buffer.data(), buffer.data() + got));
    if (got < 0 && errno == EISDIR) {
        throw tesk::InputOutputException(READ_OPEN_FAILED(path));
    }
    return number.value();
}

void write(const std::string& path, int value) {
    const FileDescriptor file(::open(path.c_str(), O_WRONLY | O_TRUNC | O_CLOEXEC));
    if (!file.isOpen()) {
        throw tesk::InputOutputException(WRITE_OPEN_FAILED(path));
    }
    std::array<char, 12> text{};
    const char* const end = std::to_chars(text.data(), text.data() + text.size(), value).ptr;
    writeOnce(file, text.data(), static_cast<std::size_t>(end - text.data()));
}

}  // namespace ValueFile
