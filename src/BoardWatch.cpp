// SPDX-License-Identifier: MIT
#include "BoardWatch.h"

#include <linux/netlink.h>
#include <sys/socket.h>
#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>

#include "FileNotify.h"
#include "KR62Driver.h"
#include "PD5Driver.h"
#include "support/ExceptionText.h"
#include "support/FileTrouble.h"
#include "support/Log.h"
#include "support/PathBelow.h"
#include "support/ValueFile.h"

namespace {

constexpr Pattern<std::string> BOARD_GONE(
    "the board at %s has gone; its registers fail until it is back");
constexpr Pattern<std::string> BOARD_BACK(
    "the board at %s is back; its changes are announced again");
constexpr Pattern<std::string> INFO_DIFFERS(
    "the board at %s has come back with another info_io; the service keeps the numbers of IOs that "
    "it read when it started");
constexpr Pattern<std::string, std::string> BOARD_NOT_READY(
    "the board at %s cannot be taken back yet: %s");
constexpr Pattern<std::string> FILE_BACK("file '%s' was replaced; its changes are announced again");
constexpr Pattern<std::string> NO_KERNEL_EVENTS("no events of the kernel: %s");

/// Time for the other files of a board to go, too, and the shortest time between two looks.
constexpr gint64 SETTLING_TIME = 100'000;
constexpr gint64 RETRY_TIME = 500'000;
/// Ten seconds for udev, which may be busy.
constexpr int MOST_TRIES = 20;

/// The group of the kernel's own events; group 2 is what udev makes of them.
constexpr unsigned KERNEL_GROUP = 1;

constexpr auto NO_CONDITION = static_cast<GIOCondition>(0);

gboolean dispatch(GSource* /*source*/, GSourceFunc callback, gpointer data) {
    return callback(data);
}

// GLib takes no constant.
GSourceFuncs SOURCE_FUNCTIONS{nullptr, nullptr, dispatch,  // NOLINT(*-avoid-non-const-global-*)
                              nullptr, nullptr, nullptr};

/// Takes all events off a socket. What they say does not matter.
void discardEvents(const FileDescriptor& socket) {
    // Emulators take a message without room for it as received before it has come.
    char room = 0;
    iovec place{&room, sizeof(room)};
    std::array<mmsghdr, 64> batch{};
    for (mmsghdr& message : batch) {
        message.msg_hdr.msg_iov = &place;
        message.msg_hdr.msg_iovlen = 1;
    }
    int taken = 0;
    do {
        taken = ::recvmmsg(socket.get(), batch.data(), batch.size(), MSG_DONTWAIT, nullptr);
    } while (taken == static_cast<int>(batch.size()) || (taken == -1 && errno == EINTR));
}

bool isFile(const std::string& path) {
    struct stat status {};
    return ::stat(path.c_str(), &status) == 0 && S_ISREG(status.st_mode);
}

std::optional<std::string> readInfo(const std::string& board) {
    return ValueFile::readText(board + "/info_io");
}

}  // namespace

BoardWatch::BoardWatch(Configure configureFiles)
    : ObjectBase(SharedLogger{}, "board-watch"), configure(std::move(configureFiles)) {}

BoardWatch::~BoardWatch() {
    if (source) {
        FileNotify::getInstance()->setGoneListener({});
        g_source_destroy(source.get());
    }
}

void BoardWatch::add(DriverInterface& driver) {
    std::string path;
    if (const auto* const kr62 = dynamic_cast<const KR62Driver*>(&driver)) {
        path = kr62->basePath;
    } else if (const auto* const pd5 = dynamic_cast<const PD5Driver*>(&driver)) {
        path = pd5->basePath;
    }
    const bool isKnown = std::any_of(boards.begin(), boards.end(), [&driver](const Board& board) {
        return board.driver == &driver;
    });
    const auto identity = identityOf(path);
    if (!isKnown && identity) {
        boards.push_back({&driver, path, identity, readInfo(path)});
    }
}

void BoardWatch::start() {
    if (boards.empty()) {
        return;
    }
    attachSource();
    FileNotify& notifier = *FileNotify::getInstance();
    notifier.setGoneListener([this](const std::string& path) {
        const std::lock_guard<std::mutex> guard(mutex);
        gonePaths.insert(path);
        lookWithin(SETTLING_TIME);
    });
    for (const Board& board : boards) {
        notifier.watchDirectory(board.path);
    }
    // A board may have gone since its IOs were configured.
    look();
}

void BoardWatch::attachSource() {
    const std::lock_guard<std::mutex> guard(mutex);
    source.reset(g_source_new(&SOURCE_FUNCTIONS, sizeof(GSource)));
    g_source_set_name(source.get(), "boards");
    g_source_set_callback(
        source.get(),
        [](gpointer self) -> gboolean {
            static_cast<BoardWatch*>(self)->wake();
            return G_SOURCE_CONTINUE;
        },
        this, nullptr);
    listenToKernel();
    g_source_attach(source.get(), g_main_context_get_thread_default());
}

/// The kernel tells every process of modules and devices that come and go.
void BoardWatch::listenToKernel() {
    kernelEvents.reset(
        ::socket(AF_NETLINK, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, NETLINK_KOBJECT_UEVENT));
    sockaddr_nl address{};
    address.nl_family = AF_NETLINK;
    address.nl_groups = KERNEL_GROUP;
    if (!kernelEvents.isOpen() ||
        ::bind(kernelEvents.get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)) ==
            -1) {
        log(logger, Poco::Message::PRIO_DEBUG, NO_KERNEL_EVENTS, std::strerror(errno));
        return;
    }
    // Events that the kernel drops make no difference. As errors they would wake the main loop.
    const int yes = 1;
    ::setsockopt(kernelEvents.get(), SOL_NETLINK, NETLINK_NO_ENOBUFS, &yes, sizeof(yes));
    kernelTag = g_source_add_unix_fd(source.get(), kernelEvents.get(), G_IO_IN);
}

void BoardWatch::hint() {
    const std::lock_guard<std::mutex> guard(mutex);
    if (source) {
        lookWithin(SETTLING_TIME);
    }
}

/// With the mutex held.
void BoardWatch::lookWithin(gint64 microseconds) {
    const gint64 due = g_source_get_ready_time(source.get());
    const gint64 time = g_get_monotonic_time() + microseconds;
    if (due == -1 || time < due) {
        g_source_set_ready_time(source.get(), time);
    }
}

void BoardWatch::wake() {
    if (kernelTag != nullptr && g_source_query_unix_fd(source.get(), kernelTag) != 0) {
        // Not looked at until the next look: a storm of events costs two wake-ups a look.
        g_source_modify_unix_fd(source.get(), kernelTag, NO_CONDITION);
        hint();
    }
    std::unique_lock<std::mutex> guard(mutex);
    const gint64 due = g_source_get_ready_time(source.get());
    guard.unlock();
    if (due != -1 && due <= g_get_monotonic_time()) {
        look();
    }
}

void BoardWatch::look() {
    if (kernelTag != nullptr) {
        discardEvents(kernelEvents);
        g_source_modify_unix_fd(source.get(), kernelTag, G_IO_IN);
    }
    const std::set<std::string> gone = takeGonePaths();
    bool isComplete = true;
    for (Board& board : boards) {
        lookAt(board, gone);
        isComplete = isComplete && !board.isLost && board.goneFiles.empty() && board.triesLeft == 0;
    }
    if (!isComplete) {
        const std::lock_guard<std::mutex> guard(mutex);
        lookWithin(RETRY_TIME);
    }
}

std::set<std::string> BoardWatch::takeGonePaths() {
    const std::lock_guard<std::mutex> guard(mutex);
    g_source_set_ready_time(source.get(), -1);
    return std::exchange(gonePaths, {});
}

void BoardWatch::lookAt(Board& board, const std::set<std::string>& gone) {
    const auto found = identityOf(board.path);
    if (board.isLost) {
        // A board may appear file by file, so it is taken back at the second sight.
        if (found && board.isSeen) {
            restore(board, *found);
        }
        board.isSeen = found.has_value();
        return;
    }
    std::copy_if(gone.begin(), gone.end(), std::inserter(board.goneFiles, board.goneFiles.end()),
                 [&board](const std::string& path) { return isAtOrBelow(path, board.path); });
    if (found != board.identity || board.goneFiles.count(board.path) != 0) {
        lose(board);
        return;
    }
    restoreFiles(board);
    if (board.triesLeft > 0) {
        retry(board);
    }
}

void BoardWatch::lose(Board& board) {
    board.isLost = true;
    board.isSeen = false;
    board.triesLeft = 0;
    board.goneFiles.clear();
    log(logger, Poco::Message::PRIO_NOTICE, BOARD_GONE, board.path);
}

void BoardWatch::restore(Board& board, const Identity& found) {
    const auto info = readInfo(board.path);
    if (board.info && !info) {
        return;
    }
    forgetOldFiles(board);
    FileNotify::getInstance()->watchDirectory(board.path);
    try {
        board.triesLeft = configureCleanly(board) ? 0 : MOST_TRIES;
    } catch (const std::exception& e) {
        if (limit.allows(board.path, OncePerMinute::Clock::now())) {
            log(logger, Poco::Message::PRIO_WARNING, BOARD_NOT_READY, board.path, exceptionText(e));
        }
        return;
    }
    board.isLost = false;
    board.identity = found;
    log(logger, Poco::Message::PRIO_NOTICE, BOARD_BACK, board.path);
    if (info != board.info) {
        log(logger, Poco::Message::PRIO_WARNING, INFO_DIFFERS, board.path);
    }
    FileNotify::getInstance()->callBack(board.path);
}

/// Ends the watches of a board's old files, which sysfs would keep for ever.
void BoardWatch::forgetOldFiles(const Board& board) {
    FileNotify::getInstance()->forget(board.path);
    // The notifier's last word on the old files must not count for the new ones.
    const std::lock_guard<std::mutex> guard(mutex);
    for (auto path = gonePaths.begin(); path != gonePaths.end();) {
        path = isAtOrBelow(*path, board.path) ? gonePaths.erase(path) : std::next(path);
    }
}

/// @return whether every edge file could be written
bool BoardWatch::configureCleanly(const Board& board) {
    const unsigned before = FileTrouble::reports();
    configure(*board.driver, board.path);
    return FileTrouble::reports() == before;
}

void BoardWatch::retry(Board& board) {
    --board.triesLeft;
    try {
        if (configureCleanly(board)) {
            board.triesLeft = 0;
            // An input may have changed while its edges were not selected.
            FileNotify::getInstance()->callBack(board.path);
        }
    } catch (const std::exception&) {  // NOLINT(bugprone-empty-catch): the next look finds out
    }
}

void BoardWatch::restoreFiles(Board& board) {
    for (auto file = board.goneFiles.begin(); file != board.goneFiles.end();) {
        file = restoreFile(board, *file) ? board.goneFiles.erase(file) : std::next(file);
    }
}

/// @return false while the file is missing
bool BoardWatch::restoreFile(const Board& board, const std::string& file) {
    if (!isFile(file)) {
        return false;
    }
    try {
        configure(*board.driver, file);
    } catch (const std::exception&) {
        return false;
    }
    if (limit.allows(file, OncePerMinute::Clock::now())) {
        log(logger, Poco::Message::PRIO_NOTICE, FILE_BACK, file);
    }
    FileNotify::getInstance()->callBack(file);
    return true;
}

std::optional<BoardWatch::Identity> BoardWatch::identityOf(const std::string& path) {
    struct stat status {};
    if (::stat(path.c_str(), &status) != 0 || !S_ISDIR(status.st_mode)) {
        return std::nullopt;
    }
    return Identity{status.st_dev, status.st_ino};
}
