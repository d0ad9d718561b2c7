// SPDX-License-Identifier: MIT
#include "Attribute.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <cmath>
#include <cstring>
#include <utility>

#include "Error.h"
#include "support/FileDescriptor.h"

namespace sim {

namespace {

constexpr const char* BLANKS = " \t\r\n";

/// @param fd what opening the file has returned
/// @throws Error it is no descriptor
FileDescriptor opened(int fd, const std::filesystem::path& file) {
    if (fd < 0) {
        throw openError(file);
    }
    return FileDescriptor(fd);
}

/// The whole text of a file with this value.
std::string padded(const std::string& value) {
    if (value.size() > Attribute::LONGEST) {
        throw Error("the value '" + value + "' is longer than " +
                    std::to_string(Attribute::LONGEST) + " characters");
    }
    std::string text(Attribute::LONGEST + 1, ' ');
    value.copy(text.data(), value.size());
    text.back() = '\n';
    return text;
}

void write(const FileDescriptor& file, const std::string& text, std::size_t offset,
           const std::filesystem::path& path) {
    if (::pwrite(file.get(), text.data(), text.size(), static_cast<off_t>(offset)) !=
        static_cast<ssize_t>(text.size())) {
        throw Error("cannot write " + path.string() + ": " + std::strerror(errno));
    }
}

/// What is left until a point in time, for poll(): rounded up, so that it does not spin at the end.
int millisecondsUntil(std::chrono::steady_clock::time_point end) {
    constexpr double LONGEST_WAIT = 1e6;
    const std::chrono::duration<double, std::milli> left = end - std::chrono::steady_clock::now();
    return static_cast<int>(std::ceil(std::clamp(left.count(), 0.0, LONGEST_WAIT)));
}

}  // namespace

Attribute::Attribute(std::filesystem::path file) : place(std::move(file)) {}

void Attribute::create(const std::string& value) const {
    std::filesystem::create_directories(place.parent_path());
    const FileDescriptor file =
        opened(::open(place.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0644), place);
    write(file, padded(value), 0, place);
}

void Attribute::create(int value) const {
    create(std::to_string(value));
}

void Attribute::set(const std::string& value) const {
    const std::string text = padded(value);
    const FileDescriptor file = opened(::open(place.c_str(), O_WRONLY | O_CLOEXEC), place);
    struct stat status {};
    ::fstat(file.get(), &status);
    const auto length = static_cast<std::size_t>(status.st_size);
    if (length < value.size()) {
        write(file, std::string(text.size() - length, ' '), length, place);
    }
    write(file, text, 0, place);
}

void Attribute::set(int value) const {
    set(std::to_string(value));
}

std::string Attribute::text() const {
    const FileDescriptor file = opened(::open(place.c_str(), O_RDONLY | O_CLOEXEC), place);
    std::array<char, 256> buffer{};
    const ssize_t size = ::read(file.get(), buffer.data(), buffer.size());
    if (size < 0) {
        throw Error("cannot read " + place.string() + ": " + std::strerror(errno));
    }
    const std::string text(buffer.data(), static_cast<std::size_t>(size));
    const auto first = text.find_first_not_of(BLANKS);
    return first == std::string::npos
               ? std::string()
               : text.substr(first, text.find_last_not_of(BLANKS) - first + 1);
}

int Attribute::number() const {
    const std::string digits = text();
    int number = 0;
    std::from_chars(digits.data(), digits.data() + digits.size(), number);
    return number;
}

bool Attribute::waitFor(const std::string& value, std::chrono::duration<double> time) const {
    using Clock = std::chrono::steady_clock;
    const auto end = Clock::now() + std::chrono::duration_cast<Clock::duration>(time);
    const FileDescriptor changes = opened(::inotify_init1(IN_NONBLOCK | IN_CLOEXEC), place);
    if (::inotify_add_watch(changes.get(), place.c_str(), IN_MODIFY) < 0) {
        throw openError(place);
    }
    while (text() != value) {
        pollfd change{changes.get(), POLLIN, 0};
        if (::poll(&change, 1, millisecondsUntil(end)) == 0 && Clock::now() >= end) {
            return text() == value;
        }
        std::array<char, 4096> records{};
        [[maybe_unused]] const ssize_t discarded =
            ::read(changes.get(), records.data(), records.size());
    }
    return true;
}

}  // namespace sim
