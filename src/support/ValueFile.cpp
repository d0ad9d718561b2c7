// SPDX-License-Identifier: MIT
#include "ValueFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <cstdint>
#include <limits>
#include <utility>

#include "FileDescriptor.h"
#include "FileTrouble.h"
#include "KeptFile.h"
#include "Pattern.h"
#include "tesk/Exceptions.h"

namespace {

constexpr Pattern<std::string> READ_OPEN_FAILED("error opening file '%s' for reading");
constexpr Pattern<std::string> WRITE_OPEN_FAILED("error opening file '%s' for writing");

constexpr const char* OPENED_FOR_READING = "opened for reading";
constexpr const char* OPENED_FOR_WRITING = "opened for writing";
constexpr const char* NOT_REGULAR = "not a regular file";

/// A pipe without a writer, or a terminal, would hold up the whole service.
constexpr int NEVER_WAIT = O_NONBLOCK | O_NOCTTY | O_CLOEXEC;

/// Attributes in sysfs are regular files, too.
bool isRegular(const FileDescriptor& file) {
    struct stat status {};
    return ::fstat(file.get(), &status) == 0 && S_ISREG(status.st_mode);
}

/// Reads at an offset, which pipes, sockets and terminals refuse.
ssize_t readSome(const FileDescriptor& file, char* buffer, std::size_t size, std::size_t offset) {
    ssize_t got = 0;
    do {
        got = ::pread(file.get(), buffer, size, static_cast<off_t>(offset));
    } while (got < 0 && errno == EINTR);
    return got;
}

ssize_t writeOnce(const FileDescriptor& file, std::string_view text) {
    ssize_t written = 0;
    do {
        written = ::write(file.get(), text.data(), text.size());
    } while (written < 0 && errno == EINTR);
    return written;
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
                digits = true;
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

    /// Whether there is a number.
    bool hasDigits() const { return digits; }

    int value() const { return static_cast<int>(negative ? -magnitude : magnitude); }

 private:
    void addDigit(int digit) {
        constexpr std::int64_t MAX = std::numeric_limits<int>::max();
        const std::int64_t limit = negative ? MAX + 1 : MAX;
        magnitude = std::min(magnitude * 10 + digit, limit);
    }

    bool started{false};
    bool digits{false};
    bool negative{false};
    std::int64_t magnitude{0};
};

/// What reading a file has given.
struct FileText {
    NumberReader number;
    std::size_t length{0};
    /// Of the read that failed, or 0.
    int error{0};

    bool isGood() const { return error == 0 && number.hasDigits(); }
};

FileText readNumber(const FileDescriptor& file) {
    using ValueFile::MOST_TEXT;
    FileText text;
    std::array<char, 64> buffer;  // NOLINT(cppcoreguidelines-pro-type-member-init): read fills it
    ssize_t got = 0;
    do {
        got = readSome(file, buffer.data(), std::min(buffer.size(), MOST_TEXT - text.length),
                       text.length);
        text.length += got > 0 ? static_cast<std::size_t>(got) : 0;
    } while (got > 0 && text.number.take(buffer.data(), buffer.data() + got) &&
             text.length < MOST_TEXT);
    text.error = got < 0 ? errno : 0;
    return text;
}

/// @throws tesk::InputOutputException see ValueFile::read()
FileDescriptor openForReading(const std::string& path) {
    FileDescriptor file(::open(path.c_str(), O_RDONLY | NEVER_WAIT));
    if (!file.isOpen()) {
        FileTrouble::report(path, OPENED_FOR_READING, errno);
        throw tesk::InputOutputException(READ_OPEN_FAILED(path));
    }
    return file;
}

/// @return see ValueFile::readUnlessEmpty()
/// @throws tesk::InputOutputException see ValueFile::read()
std::optional<int> valueOf(const FileText& text, const FileDescriptor& file,
                           const std::string& path) {
    // A file that gives a number needs no look at what it is.
    if (!text.number.hasDigits() && !isRegular(file)) {
        FileTrouble::report(path, OPENED_FOR_READING, NOT_REGULAR);
        throw tesk::InputOutputException(READ_OPEN_FAILED(path));
    }
    if (text.error != 0) {
        FileTrouble::report(path, "read", text.error);
    }
    return text.length > 0 ? std::optional<int>(text.number.value()) : std::nullopt;
}

}  // namespace

namespace ValueFile {

std::optional<int> readUnlessEmpty(const std::string& path) {
    const FileDescriptor file = openForReading(path);
    return valueOf(readNumber(file), file, path);
}

std::optional<std::string> readText(const std::string& path) {
    const FileDescriptor file(::open(path.c_str(), O_RDONLY | NEVER_WAIT));
    if (!file.isOpen() || !isRegular(file)) {
        return std::nullopt;
    }
    std::string text;
    std::array<char, 4096> buffer;  // NOLINT(cppcoreguidelines-pro-type-member-init): read fills it
    for (ssize_t got = 0; (got = readSome(file, buffer.data(), buffer.size(), text.size())) > 0;) {
        text.append(buffer.data(), static_cast<std::size_t>(got));
    }
    return text;
}

int read(const std::string& path) {
    return readUnlessEmpty(path).value_or(0);
}

int read(const std::string& path, KeptFile& kept) {
    int value = 0;
    const auto takeValue = [&value](const FileDescriptor& file) {
        const FileText text = readNumber(file);
        value = text.number.value();
        return text.isGood();
    };
    if (kept.read(takeValue)) {
        return value;
    }
    FileDescriptor file = openForReading(path);
    const FileText text = readNumber(file);
    value = valueOf(text, file, path).value_or(0);
    if (text.isGood()) {
        kept.keep(std::move(file), path);
    }
    return value;
}

bool replaceText(const std::string& path, std::string_view text) {
    const FileDescriptor file(::open(path.c_str(), O_WRONLY | O_TRUNC | NEVER_WAIT));
    if (!file.isOpen()) {
        FileTrouble::report(path, OPENED_FOR_WRITING, errno);
        return false;
    }
    if (!isRegular(file)) {
        FileTrouble::report(path, OPENED_FOR_WRITING, NOT_REGULAR);
        return false;
    }
    if (writeOnce(file, text) < 0) {
        FileTrouble::report(path, "written", errno);
    }
    return true;
}

void write(const std::string& path, int value) {
    std::array<char, 12> text{};
    const char* const end = std::to_chars(text.data(), text.data() + text.size(), value).ptr;
    const auto length = static_cast<std::size_t>(end - text.data());
    if (!replaceText(path, {text.data(), length})) {
        throw tesk::InputOutputException(WRITE_OPEN_FAILED(path));
    }
}

}  // namespace ValueFile
