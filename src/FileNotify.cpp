// SPDX-License-Identifier: MIT
#include "FileNotify.h"

#include <sys/eventfd.h>
#include <sys/inotify.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <utility>

#include "EndProcess.h"
#include "support/Log.h"
#include "support/PathBelow.h"
#include "tesk/Exceptions.h"

namespace {

constexpr Pattern<std::string> INOTIFY_FAILED("error initializing inotify: %s");
constexpr Pattern<> TOO_MANY_INSTANCES(
    "this user watches files with too many programs: raise fs.inotify.max_user_instances with "
    "sysctl");
constexpr Pattern<> TOO_MANY_WATCHES(
    "this user watches too many files: raise fs.inotify.max_user_watches with sysctl");
constexpr Pattern<std::string> PIPE_FAILED("error initializing pipe: %s");
constexpr Pattern<std::string, std::string> WATCH_FAILED(
    "error enabling notification for file '%s': %s");
constexpr Pattern<std::string, int> FILE_ADDED("file %s added to monitor list with fd %d");
constexpr Pattern<int> DESCRIPTOR_ADDED("file added to monitor list with fd %d");
constexpr Pattern<int> KEY_UNKNOWN("file reference '%d' not found");
constexpr Pattern<std::string, std::string> REMOVAL(
    "error removing file '%s' from monitor list: %s");
constexpr Pattern<std::string> FILE_REMOVED("monitoring stopped for file '%s'");
constexpr Pattern<int> DESCRIPTOR_REMOVED("monitoring stopped for file descriptor '%d'");
constexpr Pattern<> WORKER_RUNNING("worker function running");
constexpr Pattern<> POLL_CYCLE("new poll cycle...");
constexpr Pattern<> INOTIFY_EMPTY("inotify returned empty");
constexpr Pattern<> INOTIFY_ERROR("inotify returned error");
constexpr Pattern<int> EVENT_UNKNOWN("event received of unknown file %d");
constexpr Pattern<int> DESCRIPTOR_BROKEN(
    "file descriptor '%d' reports an error or hang-up and is not watched any longer");

constexpr std::size_t EVENT_BUFFER_SIZE = 32768;
constexpr timespec REMOVAL_PAUSE{0, 100'000'000};

std::string errnoText() {
    return std::strerror(errno);
}

/// Whether inotify_init1() has failed for the limit of the user, not for that of the process: a
/// descriptor of another sort can still be opened.
bool hasTooManyInstances(int initError) {
    return initError == EMFILE && FileDescriptor(::eventfd(0, EFD_CLOEXEC)).isOpen();
}

/// Null until getInstance() has made it.
std::atomic<FileNotify*> instance{nullptr};  // NOLINT(*-avoid-non-const-global-variables)

void sleepFor(timespec time) {
    while (::nanosleep(&time, &time) != 0 && errno == EINTR) {
    }
}

}  // namespace

FileNotify* FileNotify::getInstance() {
    static FileNotify* self = nullptr;  // NOLINT(*-avoid-non-const-global-variables)
    static std::atomic<bool> loaded{false};
    if (!loaded.exchange(true)) {
        self = new FileNotify();
        instance = self;
    }
    return self;
}

bool FileNotify::workerAnswers() {
    FileNotify* const notifier = instance;
    if (notifier == nullptr) {
        return true;
    }
    const bool answered = notifier->hasAnswered.exchange(false);
    // The pipe would fill up if the worker were woken time and again without an answer.
    if (answered) {
        notifier->wakeWorker();
    }
    return answered;
}

FileNotify::FileNotify() : ObjectBase("file-notify"), inotify(::inotify_init1(IN_NONBLOCK)) {
    if (!inotify.isOpen()) {
        const int reason = errno;
        log(logger, Poco::Message::PRIO_FATAL, INOTIFY_FAILED, errnoText());
        if (hasTooManyInstances(reason)) {
            log(logger, Poco::Message::PRIO_NOTICE, TOO_MANY_INSTANCES);
        }
        throw tesk::InputOutputException("error initializing inotify");
    }
    std::array<int, 2> ends{};
    if (::pipe(ends.data()) == -1) {
        log(logger, Poco::Message::PRIO_FATAL, PIPE_FAILED, errnoText());
        throw tesk::InputOutputException("error initializing pipe");
    }
    wakePipe = {FileDescriptor(ends[0]), FileDescriptor(ends[1])};
    workerThread = std::thread(&FileNotify::workerFunction, this);
}

FileNotify::~FileNotify() {
    stopRequested = true;
    // Else the worker would sleep on in poll and never be joined.
    wakeWorker();
    workerThread.join();
}

int FileNotify::enableNotifications(const std::string& path, std::function<void(int)> callback) {
    const std::lock_guard<std::mutex> guard(watchesMutex);
    const int wd = addInotifyWatch(path, false);
    if (wd == -1) {
        const int reason = errno;
        if (reason == ENOSPC) {
            log(logger, Poco::Message::PRIO_NOTICE, TOO_MANY_WATCHES);
        }
        throw tesk::InputOutputException(WATCH_FAILED(path, std::strerror(reason)));
    }
    watches[wd] = FileWatch{path, std::move(callback), true};
    log(logger, Poco::Message::PRIO_INFORMATION, FILE_ADDED, path, wd);
    return wd;
}

int FileNotify::enableNotifications(int fd, std::function<void(int)> callback) {
    const std::lock_guard<std::mutex> guard(watchesMutex);
    watches[fd] = FileWatch{{}, std::move(callback), false};
    log(logger, Poco::Message::PRIO_INFORMATION, DESCRIPTOR_ADDED, fd);
    ++fdWatchCount;
    wakeWorker();
    return fd;
}

void FileNotify::disableNotifications(int key) {
    std::unique_lock<std::mutex> guard(watchesMutex);
    const auto entry = watches.find(key);
    if (entry == watches.end()) {
        log(logger, Poco::Message::PRIO_WARNING, KEY_UNKNOWN, key);
        throw tesk::NotFoundException("file reference not found");
    }
    // Else the watch would go over to the same file again.
    entry->second.state = State::ENDING;
    // Copies: another thread that disables the same key may erase the entry while this one waits.
    const bool isFile = entry->second.isFile;
    const std::string fileName = entry->second.fileName;
    guard.unlock();
    if (isFile) {
        removeInotifyWatch(key, fileName);
        log(logger, Poco::Message::PRIO_INFORMATION, FILE_REMOVED, fileName);
    } else {
        log(logger, Poco::Message::PRIO_INFORMATION, DESCRIPTOR_REMOVED, key);
    }
    guard.lock();
    watches.erase(key);
}

void FileNotify::setGoneListener(std::function<void(const std::string& path)> listener) {
    const std::lock_guard<std::mutex> guard(watchesMutex);
    goneListener = std::move(listener);
}

bool FileNotify::watchDirectory(const std::string& path) {
    const std::lock_guard<std::mutex> guard(watchesMutex);
    const int wd = addInotifyWatch(path, true);
    if (wd == -1) {
        return false;
    }
    watches[wd] = FileWatch{path,
                            [this, path](int /*key*/) {
                                if (goneListener) {
                                    goneListener(path);
                                }
                            },
                            true, true};
    return true;
}

void FileNotify::forget(const std::string& path) {
    const std::lock_guard<std::mutex> guard(watchesMutex);
    for (auto& [key, watch] : watches) {
        if (watch.isFile && isAtOrBelow(watch.fileName, path)) {
            watch.state = State::FORGOTTEN;
            // Fails where the kernel has ended the watch by itself. Its last record comes anyway.
            ::inotify_rm_watch(inotify.get(), key);
        }
    }
}

void FileNotify::callBack(const std::string& path) {
    visitEveryWatch([&path](Watches::iterator entry) {
        const FileWatch& watch = entry->second;
        if (watch.isFile && !watch.isDirectory && watch.state == State::WATCHED &&
            isAtOrBelow(watch.fileName, path)) {
            watch.callback(entry->first);
        }
    });
}

int FileNotify::addInotifyWatch(const std::string& path, bool isDirectory) const {
    const std::uint32_t events = isDirectory ? IN_DELETE_SELF | IN_MOVE_SELF : IN_MODIFY;
    return ::inotify_add_watch(inotify.get(), path.c_str(), events);
}

void FileNotify::wakeWorker() const {
    [[maybe_unused]] const ssize_t written = ::write(wakePipe[1].get(), "1", 1);
}

void FileNotify::removeInotifyWatch(int key, const std::string& fileName) {
    while (::inotify_rm_watch(inotify.get(), key) != -1) {
        log(logger, Poco::Message::PRIO_ERROR, REMOVAL, fileName, errnoText());
        sleepFor(REMOVAL_PAUSE);
    }
}

void FileNotify::workerFunction() {
    log(logger, Poco::Message::PRIO_INFORMATION, WORKER_RUNNING);
    while (!stopRequested) {
        std::vector<pollfd> set = pollSet();
        log(logger, Poco::Message::PRIO_INFORMATION, POLL_CYCLE);
        if (::poll(set.data(), set.size(), -1) == -1) {
            if (errno == EINTR) {
                continue;
            }
            std::perror("poll");
            endProcess(EXIT_FAILURE);
        }
        for (const pollfd& entry : set) {
            if (!visit(entry)) {
                break;
            }
        }
    }
}

/// The wake pipe, inotify, and a slot for every descriptor watch ever added. Slots without a
/// watch hold -1, which poll passes over.
std::vector<pollfd> FileNotify::pollSet() {
    const std::lock_guard<std::mutex> guard(watchesMutex);
    std::vector<pollfd> set(fdWatchCount + 2, pollfd{-1, 0, 0});
    set[0] = {wakePipe[0].get(), POLLIN, 0};
    set[1] = {inotify.get(), POLLIN, 0};
    std::size_t slot = 2;
    for (auto& [key, watch] : watches) {
        if (slot == set.size()) {
            break;
        }
        if (!watch.isFile && !watch.isBroken) {
            set[slot++] = {key, POLLIN | POLLPRI, 0};
            watch.isPolled = true;
        }
    }
    return set;
}

/// @return whether the rest of the set is to be visited
bool FileNotify::visit(const pollfd& entry) {
    const bool isReadable = (entry.revents & POLLIN) != 0;
    if (entry.fd == inotify.get() && isReadable) {
        return readInotify();
    }
    if (entry.fd == wakePipe[0].get() && isReadable) {
        char discarded = 0;
        [[maybe_unused]] const ssize_t taken = ::read(wakePipe[0].get(), &discarded, 1);
        hasAnswered = true;
        return true;
    }
    visitDescriptor(entry);
    return true;
}

/// @return whether there was anything
bool FileNotify::readInotify() {
    alignas(inotify_event) std::array<char, EVENT_BUFFER_SIZE> buffer;  // NOLINT(*-member-init)
    const ssize_t size = ::read(inotify.get(), buffer.data(), buffer.size());
    if (size <= 0) {
        const bool isEmpty = size == 0 || errno == EAGAIN;
        log(logger, Poco::Message::PRIO_WARNING, isEmpty ? INOTIFY_EMPTY : INOTIFY_ERROR);
        return false;
    }
    const char* const end = buffer.data() + size;
    for (const char* record = buffer.data(); record < end;) {
        const auto* const event = reinterpret_cast<const inotify_event*>(record);
        serve(event->wd, event->mask);
        if ((event->mask & IN_Q_OVERFLOW) != 0) {
            callBackEveryFile();
        }
        record += sizeof(inotify_event) + event->len;
    }
    return true;
}

/// @param events the mask of the kernel's record
void FileNotify::serve(int key, std::uint32_t events) {
    const std::lock_guard<std::mutex> guard(watchesMutex);
    const auto entry = watches.find(key);
    if (entry == watches.end() || !entry->second.isFile) {
        log(logger, Poco::Message::PRIO_WARNING, EVENT_UNKNOWN, key);
        return;
    }
    const bool isLast = (events & IN_IGNORED) != 0;
    if (entry->second.state == State::FORGOTTEN) {
        if (isLast) {
            watches.erase(entry);
        }
        return;
    }
    entry->second.callback(key);
    if (isLast) {
        followFile(entry);
    }
}

/// Sees whether a watch is still the watch of the file of its path. If not, the watch goes over to
/// the file that is there now, or ends where there is none.
void FileNotify::followFile(Watches::iterator watch) {
    if (!goneListener || watch->second.state == State::ENDING) {
        return;
    }
    const int key = addInotifyWatch(watch->second.fileName, watch->second.isDirectory);
    if (key == watch->first) {
        return;
    }
    auto node = watches.extract(watch);
    const std::string path = node.mapped().fileName;
    if (key != -1) {
        node.key() = key;
        watches.insert(std::move(node));
    }
    goneListener(path);
}

/// The kernel does not tell which changes it dropped. Every file may be one that changed. The queue
/// can overflow again meanwhile: the kernel then queues a new overflow record, so the last changes
/// are always followed by a call of every file.
void FileNotify::callBackEveryFile() {
    visitEveryWatch([this](Watches::iterator entry) {
        if (entry->second.isFile) {
            visitAfterOverflow(entry);
        }
    });
}

/// A record that the kernel dropped may have been the last one of a file that has gone.
void FileNotify::visitAfterOverflow(Watches::iterator watch) {
    if (watch->second.state == State::FORGOTTEN) {
        watches.erase(watch);
        return;
    }
    if (!watch->second.isDirectory) {
        watch->second.callback(watch->first);
    }
    followFile(watch);
}

/// Visits each watch with the mutex held. A visit may erase its watch.
template <typename Visit>
void FileNotify::visitEveryWatch(const Visit& visitWatch) {
    std::unique_lock<std::mutex> guard(watchesMutex);
    for (auto entry = watches.begin(); entry != watches.end();) {
        const int key = entry->first;
        visitWatch(entry);
        // Other threads need not wait for all callbacks to add or end a watch.
        guard.unlock();
        guard.lock();
        entry = watches.upper_bound(key);
    }
}

void FileNotify::visitDescriptor(const pollfd& entry) {
    const std::lock_guard<std::mutex> guard(watchesMutex);
    const auto watch = watches.find(entry.fd);
    if (watch == watches.end() || watch->second.isFile) {
        return;
    }
    if (entry.revents == POLLIN) {
        watch->second.callback(entry.fd);
    } else if (watch->second.isPolled && (entry.revents & (POLLERR | POLLHUP | POLLNVAL)) != 0) {
        // The descriptor would be ready for ever, and the worker would never sleep again.
        watch->second.isBroken = true;
        log(logger, Poco::Message::PRIO_WARNING, DESCRIPTOR_BROKEN, entry.fd);
    }
}
