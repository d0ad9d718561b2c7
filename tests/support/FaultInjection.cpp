// SPDX-License-Identifier: MIT
//
// A library to preload: lets some calls of the C library fail in the program under test. The
// variable IO_MAPPING_FAULT says which: "CALL FILE ERROR FIRST COUNT". CALL is the name of the
// function, FILE a part of the path of the file that it works on, or "-" for any. ERROR is the
// number for errno. The calls from number FIRST on fail, COUNT of them. Each that fails is told on
// standard error.

#include <dlfcn.h>
#include <fcntl.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/inotify.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <new>

namespace {

/// Which calls fail. It allocates nothing: operator new itself asks.
struct Fault {
    std::array<char, 32> call{};
    std::array<char, 256> file{};
    int error{0};
    long first{0};
    long count{0};

    Fault() {
        const char* const text = std::getenv("IO_MAPPING_FAULT");
        if (text == nullptr || std::sscanf(text, "%31s %255s %d %ld %ld", call.data(), file.data(),
                                           &error, &first, &count) != 5) {
            call.fill('\0');
        }
    }

    bool isOn(const char* path) const {
        return std::strcmp(file.data(), "-") == 0 || std::strstr(path, file.data()) != nullptr;
    }

    bool isOn(int fd) const {
        std::array<char, 32> link{};
        std::array<char, 4096> path{};
        std::snprintf(link.data(), link.size(), "/proc/self/fd/%d", fd);
        return ::readlink(link.data(), path.data(), path.size() - 1) > 0 && isOn(path.data());
    }
};

const Fault& fault() {
    static const Fault result;
    return result;
}

template <typename Function>
Function next(const char* name) {
    return reinterpret_cast<Function>(::dlsym(RTLD_NEXT, name));
}

/// Counts a call that the fault concerns.
///
/// @return whether the call is to fail; errno is set then
bool isDue() {
    static std::atomic<long> calls{0};
    const long number = ++calls;
    if (number < fault().first || number >= fault().first + fault().count) {
        return false;
    }
    constexpr char TEXT[] = "fault injected\n";
    static const auto tell = next<decltype(&::write)>("write");
    [[maybe_unused]] const ssize_t told = tell(STDERR_FILENO, TEXT, sizeof(TEXT) - 1);
    errno = fault().error;
    return true;
}

bool isCalled(const char* call) {
    return std::strcmp(fault().call.data(), call) == 0;
}

/// Whether a call is to fail.
///
/// @param file a path or a descriptor
template <typename File>
bool fails(const char* call, File file) {
    if (!isCalled(call)) {
        return false;
    }
    const int saved = errno;
    if (fault().isOn(file) && isDue()) {
        return true;
    }
    errno = saved;
    return false;
}

}  // namespace

/// malloc() never fails here: GLib cannot go on without memory, and what it does then is its own.
void* operator new(std::size_t size) {
    void* const block = fails("new", "") ? nullptr : std::malloc(size);
    if (block == nullptr) {
        throw std::bad_alloc();
    }
    return block;
}

// The product asks for 64-bit file offsets, and so does the build of this file: open() here is
// open64() to the linker.
extern "C" {

int open(const char* path, int flags, ...) {
    std::va_list more;
    va_start(more, flags);
    const mode_t mode = (flags & O_CREAT) != 0 ? va_arg(more, mode_t) : 0;
    va_end(more);
    const bool forWriting = (flags & O_ACCMODE) != O_RDONLY;
    static const auto real = next<int (*)(const char*, int, ...)>("open64");
    return fails(forWriting ? "open-to-write" : "open", path) ? -1 : real(path, flags, mode);
}

FILE* fopen(const char* path, const char* mode) {
    static const auto real = next<decltype(&::fopen)>("fopen64");
    return fails("fopen", path) ? nullptr : real(path, mode);
}

ssize_t pread(int fd, void* buffer, std::size_t size, off_t offset) {
    static const auto real = next<decltype(&::pread)>("pread64");
    return fails("pread", fd) ? -1 : real(fd, buffer, size, offset);
}

ssize_t read(int fd, void* buffer, std::size_t size) {
    static const auto real = next<decltype(&::read)>("read");
    return fails("read", fd) ? -1 : real(fd, buffer, size);
}

ssize_t write(int fd, const void* buffer, std::size_t size) {
    static const auto real = next<decltype(&::write)>("write");
    return fails("write", fd) ? -1 : real(fd, buffer, size);
}

int inotify_init1(int flags) noexcept {
    static const auto real = next<int (*)(int)>("inotify_init1");
    return fails("inotify_init1", "") ? -1 : real(flags);
}

int inotify_add_watch(int fd, const char* path, std::uint32_t mask) noexcept {
    static const auto real = next<int (*)(int, const char*, std::uint32_t)>("inotify_add_watch");
    return fails("inotify_add_watch", path) ? -1 : real(fd, path, mask);
}

/// The files are those of the whole set: "inotify" stands for the notifier's poll().
int poll(pollfd* set, nfds_t count, int timeout) {
    static const auto real = next<int (*)(pollfd*, nfds_t, int)>("poll");
    const bool isDueHere = isCalled("poll") && std::any_of(set, set + count, [](const pollfd& p) {
                               return fault().isOn(p.fd);
                           });
    return isDueHere && isDue() ? -1 : real(set, count, timeout);
}

/// The fault "clock" is a clock of the day beyond what 32 bits hold, as a processor of 32 bits
/// gives it.
int clock_gettime(clockid_t clock, timespec* time) noexcept {
    static const auto real = next<int (*)(clockid_t, timespec*)>("clock_gettime");
    const int result = real(clock, time);
    if (result == 0 && clock == CLOCK_REALTIME && fails("clock", "")) {
        time->tv_sec = static_cast<time_t>(static_cast<std::int32_t>(0x80000000));
    }
    return result;
}

int pipe(int* ends) noexcept {
    static const auto real = next<int (*)(int*)>("pipe");
    return fails("pipe", "") ? -1 : real(ends);
}

int eventfd(unsigned int value, int flags) noexcept {
    static const auto real = next<int (*)(unsigned int, int)>("eventfd");
    return fails("eventfd", "") ? -1 : real(value, flags);
}

ssize_t sendmsg(int fd, const msghdr* message, int flags) {
    static const auto real = next<decltype(&::sendmsg)>("sendmsg");
    return fails("sendmsg", fd) ? -1 : real(fd, message, flags);
}

ssize_t recvmsg(int fd, msghdr* message, int flags) {
    static const auto real = next<decltype(&::recvmsg)>("recvmsg");
    return fails("recvmsg", fd) ? -1 : real(fd, message, flags);
}

}  // extern "C"
