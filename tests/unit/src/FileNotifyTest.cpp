// SPDX-License-Identifier: MIT
#include "FileNotify.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <sched.h>
#include <sys/inotify.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <functional>
#include <future>
#include <limits>
#include <map>
#include <set>
#include <stdexcept>
#include <thread>
#include <vector>

#include "CallbackRecord.h"
#include "CapturedLog.h"
#include "ChildProcess.h"
#include "Deadline.h"
#include "LoggerNames.h"
#include "NotifierAsleep.h"
#include "TemporaryDirectory.h"
#include "support/FileDescriptor.h"
#include "tesk/Exceptions.h"

namespace {

using testing::Each;
using testing::ElementsAre;
using testing::ExitedWithCode;
using testing::IsEmpty;
using testing::KilledBySignal;
using testing::StartsWith;
using testing::ThrowsMessage;

constexpr const char* CYCLE = "new poll cycle...";
constexpr auto INFORMATION = Poco::Message::PRIO_INFORMATION;
constexpr auto WARNING = Poco::Message::PRIO_WARNING;
constexpr auto ERROR = Poco::Message::PRIO_ERROR;
constexpr auto FATAL = Poco::Message::PRIO_FATAL;

/// What the process has open, each with what it is.
std::map<int, std::string> descriptors() {
    std::map<int, std::string> open;
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
        std::error_code gone;
        const auto target = std::filesystem::read_symlink(entry.path(), gone);
        if (!gone) {
            open[std::stoi(entry.path().filename())] = target;
        }
    }
    return open;
}

std::set<int> inotifyInstances() {
    std::set<int> instances;
    for (const auto& [fd, target] : descriptors()) {
        if (target == "anon_inode:inotify") {
            instances.insert(fd);
        }
    }
    return instances;
}

/// Modifies a file once.
void modify(const std::string& path) {
    const int fd = open(path.c_str(), O_WRONLY);
    EXPECT_EQ(write(fd, "1", 1), 1) << path;
    close(fd);
}

/// A pipe that closes with its owner. Its numbers are far from the keys of files, which count from
/// 1: one key can stand for one watch only.
class Pipe {
 public:
    Pipe() {
        EXPECT_EQ(pipe(ends.data()), 0);
        for (int& end : ends) {
            const int low = end;
            end = fcntl(low, F_DUPFD, 900);
            close(low);
        }
    }
    ~Pipe() {
        close(ends[0]);
        closeWriteEnd();
    }
    Pipe(const Pipe&) = delete;
    Pipe& operator=(const Pipe&) = delete;

    int readEnd() const { return ends[0]; }
    int writeEnd() const { return ends[1]; }
    void put() const { EXPECT_EQ(write(ends[1], "x", 1), 1); }
    void closeWriteEnd() {
        if (ends[1] >= 0) {
            close(ends[1]);
            ends[1] = -1;
        }
    }

 private:
    std::array<int, 2> ends{};
};

/// Leaves this process without descriptors from this number on.
void limitDescriptors(rlim_t count) {
    const rlimit limit{count, count};
    setrlimit(RLIMIT_NOFILE, &limit);
}

/// Takes one byte, so that the descriptor is no longer readable.
void take(int fd) {
    char byte = 0;
    EXPECT_EQ(read(fd, &byte, 1), 1);
}

/// Both ends of a connection over TCP.
std::array<int, 2> connection() {
    const int listener = socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof(address);
    auto* const place = reinterpret_cast<sockaddr*>(&address);
    EXPECT_EQ(bind(listener, place, size), 0);
    EXPECT_EQ(listen(listener, 1), 0);
    EXPECT_EQ(getsockname(listener, place, &size), 0);
    const int sender = socket(AF_INET, SOCK_STREAM, 0);
    EXPECT_EQ(connect(sender, place, size), 0);
    const int receiver = accept(listener, nullptr, nullptr);
    close(listener);
    return {sender, receiver};
}

/// Holds the worker inside the first call of a callback until it is let go.
class Gate {
 public:
    std::function<void(int)> callback() {
        return [this](int) {
            if (!wasEntered) {
                wasEntered = true;
                entered.set_value();
                opened.get_future().wait();
            }
        };
    }
    bool isEntered() {
        return entered.get_future().wait_for(PATIENCE) == std::future_status::ready;
    }
    void open() { opened.set_value(); }

 private:
    bool wasEntered{false};
    std::promise<void> entered;
    std::promise<void> opened;
};

class FileNotifyTest : public testing::Test {
 protected:
    FileNotifyTest() {
        testing::GTEST_FLAG(death_test_style) = "threadsafe";
        EXPECT_TRUE(cyclesReach(1));
    }

    std::size_t cycles() const { return log.linesWithText(CYCLE).size(); }

    bool cyclesReach(std::size_t count) const {
        return runUntil([this, count] { return cycles() >= count; });
    }

    std::string file(const std::string& name) const { return directory.file(name, "00"); }

    bool isLogged(const std::string& text) const {
        return runUntil([this, &text] { return !log.linesWithText(text).empty(); });
    }

    /// Waits until the worker has served all that has happened so far.
    bool allIsServed() {
        const CallbackRecord calls;
        const std::string path = file("over" + std::to_string(++eventFiles));
        notify.enableNotifications(path, calls.callback());
        modify(path);
        return calls.reach(1);
    }

    /// Watches a file without interest in its changes.
    int watch(const std::string& path) {
        return notify.enableNotifications(path, [](int) {});
    }

    /// Whether each of some events costs one poll cycle, so that nothing else wakes the worker. It
    /// must sleep already, or the end of its present cycle counts as one.
    testing::AssertionResult sleepsBetweenEvents() {
        const CallbackRecord calls;
        // The file is a new one every time: writing to one that is watched would wake the worker.
        const std::string path = file("event" + std::to_string(++eventFiles));
        notify.enableNotifications(path, calls.callback());
        const std::size_t before = cycles();
        constexpr std::size_t EVENTS = 5;
        for (std::size_t event = 1; event <= EVENTS; ++event) {
            modify(path);
            if (!calls.reach(event) || !cyclesReach(before + event)) {
                return testing::AssertionFailure() << "event " << event << " was not served";
            }
        }
        if (cycles() != before + EVENTS) {
            return testing::AssertionFailure()
                   << cycles() - before << " poll cycles for " << EVENTS << " events";
        }
        return testing::AssertionSuccess();
    }

    /// The notifier's own inotify instance.
    int inotifyFd() const {
        for (const int fd : inotifyInstances()) {
            if (instancesBefore.count(fd) == 0) {
                return fd;
            }
        }
        return -1;
    }

    /// Puts something that is always readable in the place of inotify for a while, and checks that
    /// the descriptors behind it are not served.
    void endsTheCycleAtOnce(const char* inPlaceOfInotify, const std::string& warning) {
        const CallbackRecord calls;
        const Pipe pipe;
        const int inotify = inotifyFd();
        const int kept = dup(inotify);
        const int other = open(inPlaceOfInotify, O_RDONLY);
        // Not dup2(): ThreadSanitizer takes the exchange for a close behind the worker's back.
        ASSERT_EQ(syscall(SYS_dup3, other, inotify, 0), inotify);
        pipe.put();
        notify.enableNotifications(pipe.readEnd(), calls.callback());
        ASSERT_TRUE(runUntil([&] { return log.linesWithText(warning).size() >= 10; }));
        EXPECT_THAT(calls.keys(), IsEmpty());
        EXPECT_THAT(log.texts(WARNING), Each(warning));
        ASSERT_EQ(syscall(SYS_dup3, kept, inotify, 0), inotify);
        EXPECT_TRUE(calls.reach(1));
        notify.disableNotifications(pipe.readEnd());
        close(other);
        close(kept);
    }

    TemporaryDirectory directory;
    CapturedLog log;
    const std::set<int> instancesBefore = inotifyInstances();
    int eventFiles{0};
    FileNotify notify;
};

TEST_F(FileNotifyTest, StartsAWorkerThatSleeps) {
    const auto lines = log.lines();
    ASSERT_EQ(lines.size(), 2U);
    EXPECT_EQ(lines[0].text, "worker function running");
    EXPECT_EQ(lines[1].text, CYCLE);
    for (const auto& line : lines) {
        EXPECT_EQ(line.priority, INFORMATION);
        EXPECT_EQ(line.source, loggerNameOf("file-notify", &notify));
    }
    EXPECT_TRUE(sleepsBetweenEvents());
}

TEST_F(FileNotifyTest, CallsBackWithTheKeyAtEveryModification) {
    const CallbackRecord calls;
    const std::string path = file("value");
    const int key = notify.enableNotifications(path, calls.callback());
    for (std::size_t count = 1; count <= 5; ++count) {
        modify(path);
        ASSERT_TRUE(calls.reach(count));
        ASSERT_TRUE(cyclesReach(count + 1));
        EXPECT_EQ(calls.keys(), std::vector<int>(count, key));
    }
    EXPECT_EQ(cycles(), 6U);
}

TEST_F(FileNotifyTest, CallsBackOnTheWorkerThread) {
    std::promise<std::thread::id> thread;
    const std::string path = file("value");
    notify.enableNotifications(path, [&](int) { thread.set_value(std::this_thread::get_id()); });
    modify(path);
    auto found = thread.get_future();
    ASSERT_EQ(found.wait_for(PATIENCE), std::future_status::ready);
    EXPECT_NE(found.get(), std::this_thread::get_id());
}

TEST_F(FileNotifyTest, OpeningReadingAndRenamingAreNoModifications) {
    const CallbackRecord calls;
    const std::string path = file("value");
    const std::string renamed = path + "-renamed";
    const int key = notify.enableNotifications(path, calls.callback());
    readFile(path);
    close(open(path.c_str(), O_RDWR));
    std::filesystem::rename(path, renamed);
    std::filesystem::permissions(renamed, std::filesystem::perms::owner_all);
    EXPECT_TRUE(sleepsBetweenEvents());
    EXPECT_THAT(calls.keys(), IsEmpty());
    // The watch is on the file, not on its name.
    modify(renamed);
    EXPECT_TRUE(calls.reach(1));
    EXPECT_THAT(calls.keys(), ElementsAre(key));
}

TEST_F(FileNotifyTest, ServesEveryRecordOfOneReadInOrder) {
    const CallbackRecord calls;
    Gate gate;
    const std::string first = file("first");
    const std::string second = file("second");
    const std::string blocking = file("blocking");
    const int a = notify.enableNotifications(first, calls.callback());
    const int b = notify.enableNotifications(second, calls.callback());
    notify.enableNotifications(blocking, gate.callback());
    EXPECT_NE(a, b);
    modify(blocking);
    ASSERT_TRUE(gate.isEntered());
    for (const std::string& path : {first, second, first, second, second}) {
        modify(path);
    }
    gate.open();
    ASSERT_TRUE(calls.reach(4));
    ASSERT_TRUE(cyclesReach(3));
    // The kernel joins a record to an equal one before it.
    EXPECT_THAT(calls.keys(), ElementsAre(a, b, a, b));
    EXPECT_EQ(cycles(), 3U);
}

/// Changes two files by turns, so that the kernel cannot join the records, until its queue is full
/// and it drops changes.
void overflowQueue(const std::string& first, const std::string& second) {
    const std::size_t limit = std::stoul(readFile("/proc/sys/fs/inotify/max_queued_events"));
    const std::array<FileDescriptor, 2> files{FileDescriptor(open(first.c_str(), O_WRONLY)),
                                              FileDescriptor(open(second.c_str(), O_WRONLY))};
    for (std::size_t count = 0; count < limit + 10; ++count) {
        ASSERT_EQ(pwrite(files.at(count % 2).get(), "1", 1, 0), 1);
    }
}

TEST_F(FileNotifyTest, ServesAFullQueueAndNamesTheOverflowAsAnUnknownFile) {
    const CallbackRecord calls;
    Gate gate;
    const std::string first = file("first");
    const std::string second = file("second");
    const std::string blocking = file("blocking");
    notify.enableNotifications(first, calls.callback());
    notify.enableNotifications(second, calls.callback());
    notify.enableNotifications(blocking, gate.callback());
    const std::size_t limit = std::stoul(readFile("/proc/sys/fs/inotify/max_queued_events"));
    modify(blocking);
    ASSERT_TRUE(gate.isEntered());
    overflowQueue(first, second);
    gate.open();
    ASSERT_TRUE(isLogged("event received of unknown file -1"));
    // Both files are told once more, since the kernel does not say what it dropped.
    EXPECT_TRUE(calls.reach(limit + 2));
    ASSERT_TRUE(allIsServed());
    EXPECT_EQ(calls.keys().size(), limit + 2);
    EXPECT_THAT(log.texts(WARNING), ElementsAre("event received of unknown file -1"));
}

TEST_F(FileNotifyTest, AFileWhoseChangeTheKernelDropsIsCalledBackOnceWithItsKey) {
    const CallbackRecord calls;
    const CallbackRecord calledDescriptors;
    Gate gate;
    const Pipe pipe;
    const std::string quiet = file("quiet");
    const std::string first = file("first");
    const std::string second = file("second");
    const std::string blocking = file("blocking");
    const int key = notify.enableNotifications(quiet, calls.callback());
    watch(first);
    watch(second);
    notify.enableNotifications(blocking, gate.callback());
    notify.enableNotifications(pipe.readEnd(), calledDescriptors.callback());
    modify(blocking);
    ASSERT_TRUE(gate.isEntered());
    overflowQueue(first, second);
    modify(quiet);
    gate.open();
    ASSERT_TRUE(calls.reach(1));
    ASSERT_TRUE(allIsServed());
    EXPECT_THAT(calls.keys(), ElementsAre(key));
    EXPECT_THAT(calledDescriptors.keys(), IsEmpty());
    notify.disableNotifications(pipe.readEnd());
}

TEST_F(FileNotifyTest, AFileThatIsTellingWhenTheKernelDropsItsNextChangeIsToldAgain) {
    const std::string first = file("first");
    const std::string second = file("second");
    const std::string blocking = file("blocking");
    const std::string quiet = file("quiet");
    Gate gate;
    Gate gateOfQuiet;
    std::string told;
    std::atomic<bool> isTold{false};
    // The quiet file has the lowest key, so it is the first of those called back.
    const int key = notify.enableNotifications(quiet, [&](int number) {
        told = readFile(quiet);
        gateOfQuiet.callback()(number);
        isTold = told == "2";
    });
    EXPECT_LT(key, watch(first));
    watch(second);
    notify.enableNotifications(blocking, gate.callback());
    modify(blocking);
    ASSERT_TRUE(gate.isEntered());
    overflowQueue(first, second);
    gate.open();
    ASSERT_TRUE(gateOfQuiet.isEntered());
    overflowQueue(first, second);
    directory.file("quiet", "2");
    gateOfQuiet.open();
    EXPECT_TRUE(runUntil([&] { return isTold.load(); }));
    ASSERT_TRUE(allIsServed());
    EXPECT_EQ(log.linesWithText("event received of unknown file -1").size(), 2U);
}

TEST_F(FileNotifyTest, LogsTheFileItWatches) {
    const std::string path = file("va%slue");
    log.clear();
    const int key = watch(path);
    const auto lines = log.lines();
    ASSERT_EQ(lines.size(), 1U);
    EXPECT_EQ(lines[0].text,
              "file " + path + " added to monitor list with fd " + std::to_string(key));
    EXPECT_EQ(lines[0].priority, INFORMATION);
}

TEST_F(FileNotifyTest, AFileWatchedAgainKeepsItsKeyAndTakesTheNewCallbackAndName) {
    const CallbackRecord first;
    const CallbackRecord second;
    const std::string path = file("value");
    const std::string link = path + "-link";
    std::filesystem::create_symlink(path, link);
    const int key = notify.enableNotifications(path, first.callback());
    EXPECT_EQ(notify.enableNotifications(link, second.callback()), key);
    modify(path);
    ASSERT_TRUE(second.reach(1));
    EXPECT_THAT(second.keys(), ElementsAre(key));
    EXPECT_THAT(first.keys(), IsEmpty());
    notify.disableNotifications(key);
    EXPECT_EQ(log.linesWithText("monitoring stopped for file '" + link + "'").size(), 1U);
    EXPECT_THROW(notify.disableNotifications(key), tesk::NotFoundException);
}

TEST_F(FileNotifyTest, AFileThatCannotBeWatchedIsAnErrorAndChangesNothing) {
    log.clear();
    const std::string tooLong = "/" + std::string(300, 'x');
    const std::string missing = directory.path() / "missing%d";
    const std::string intoFile = file("value") + "/x";
    const std::map<std::string, std::string> reasons{
        {missing, "No such file or directory"},
        {"", "No such file or directory"},
        {intoFile, "Not a directory"},
        {tooLong, "File name too long"},
    };
    for (const auto& row : reasons) {
        EXPECT_THAT([&] { watch(row.first); },
                    ThrowsMessage<tesk::InputOutputException>(
                        "error enabling notification for file '" + row.first + "': " + row.second));
    }
    EXPECT_THAT(log.lines(), IsEmpty());
    EXPECT_THROW(notify.disableNotifications(-1), tesk::NotFoundException);
}

TEST_F(FileNotifyTest, AddingADescriptorWakesTheWorkerWhichThenPollsIt) {
    const CallbackRecord calls;
    const Pipe pipe;
    EXPECT_EQ(notify.enableNotifications(pipe.readEnd(), calls.callback()), pipe.readEnd());
    ASSERT_TRUE(cyclesReach(2));
    const auto lines = log.lines();
    ASSERT_EQ(lines.size(), 4U);
    EXPECT_EQ(lines[2].text,
              "file added to monitor list with fd " + std::to_string(pipe.readEnd()));
    EXPECT_EQ(lines[2].priority, INFORMATION);
    EXPECT_EQ(lines[3].text, CYCLE);
    pipe.put();
    ASSERT_TRUE(calls.reach(1));
    EXPECT_THAT(calls.keys(), Each(pipe.readEnd()));
}

TEST_F(FileNotifyTest, EveryDescriptorAddedCostsOneWakeUp) {
    std::array<Pipe, 10> pipes;
    for (const Pipe& pipe : pipes) {
        const std::size_t before = cycles();
        notify.enableNotifications(pipe.readEnd(), [](int) {});
        ASSERT_TRUE(cyclesReach(before + 1));
    }
    EXPECT_EQ(cycles(), 1 + pipes.size());
    EXPECT_TRUE(sleepsBetweenEvents());
}

TEST_F(FileNotifyTest, AReadableDescriptorCallsBackUntilItIsRead) {
    const CallbackRecord calls;
    const Pipe pipe;
    int count = 0;
    notify.enableNotifications(pipe.readEnd(), [&count, note = calls.callback()](int fd) {
        if (++count == 3) {
            take(fd);
        }
        note(fd);
    });
    pipe.put();
    ASSERT_TRUE(calls.reach(3));
    ASSERT_TRUE(cyclesReach(5));
    EXPECT_TRUE(sleepsBetweenEvents());
    EXPECT_THAT(calls.keys(), ElementsAre(pipe.readEnd(), pipe.readEnd(), pipe.readEnd()));
}

TEST_F(FileNotifyTest, ReadyDescriptorsAreServedInAscendingOrder) {
    const CallbackRecord calls;
    Gate gate;
    const std::string blocking = file("blocking");
    const Pipe low;
    const Pipe high;
    const auto served = [note = calls.callback()](int fd) {
        take(fd);
        note(fd);
    };
    notify.enableNotifications(high.readEnd(), served);
    notify.enableNotifications(low.readEnd(), served);
    notify.enableNotifications(blocking, gate.callback());
    modify(blocking);
    ASSERT_TRUE(gate.isEntered());
    high.put();
    low.put();
    gate.open();
    ASSERT_TRUE(calls.reach(2));
    EXPECT_THAT(calls.keys(), ElementsAre(low.readEnd(), high.readEnd()));
}

TEST_F(FileNotifyTest, AHangUpNeverCallsBackAndIsNotPolledAgain) {
    for (const bool withData : {false, true}) {
        const CallbackRecord calls;
        Pipe pipe;
        const std::string fd = std::to_string(pipe.readEnd());
        if (withData) {
            pipe.put();
        }
        pipe.closeWriteEnd();
        log.clear();
        notify.enableNotifications(pipe.readEnd(), calls.callback());
        // Woken by the addition and by the hang-up.
        ASSERT_TRUE(cyclesReach(2));
        EXPECT_TRUE(sleepsBetweenEvents());
        EXPECT_THAT(calls.keys(), IsEmpty());
        EXPECT_THAT(log.texts(WARNING),
                    ElementsAre("file descriptor '" + fd +
                                "' reports an error or hang-up and is not watched any longer"));
        notify.disableNotifications(pipe.readEnd());
    }
}

TEST_F(FileNotifyTest, AHangUpWhileTheWorkerSleepsIsSeenOnce) {
    const CallbackRecord calls;
    Pipe pipe;
    notify.enableNotifications(pipe.readEnd(), calls.callback());
    ASSERT_TRUE(cyclesReach(2));
    pipe.closeWriteEnd();
    ASSERT_TRUE(cyclesReach(3));
    EXPECT_TRUE(sleepsBetweenEvents());
    EXPECT_THAT(calls.keys(), IsEmpty());
    EXPECT_EQ(log.texts(WARNING).size(), 1U);
}

TEST_F(FileNotifyTest, AnErrorOrAClosedDescriptorIsTreatedAsAHangUp) {
    Pipe pipe;
    const int broken = dup(pipe.writeEnd());
    const int closed = 1000;
    ASSERT_EQ(fcntl(closed, F_GETFD), -1);
    {
        // The other end of what `broken` writes to goes.
        const Pipe other;
        ASSERT_GE(dup2(other.writeEnd(), broken), 0);
    }
    const CallbackRecord calls;
    for (const int fd : {broken, closed}) {
        log.clear();
        notify.enableNotifications(fd, calls.callback());
        ASSERT_TRUE(cyclesReach(2));
        EXPECT_THAT(log.texts(WARNING),
                    ElementsAre("file descriptor '" + std::to_string(fd) +
                                "' reports an error or hang-up and is not watched any longer"));
        EXPECT_TRUE(sleepsBetweenEvents());
    }
    EXPECT_THAT(calls.keys(), IsEmpty());
    close(broken);
}

TEST_F(FileNotifyTest, ADescriptorThatBrokeCanBeWatchedAgain) {
    const CallbackRecord calls;
    const Pipe pipe;
    const int fd = 1000;
    notify.enableNotifications(fd, calls.callback());
    ASSERT_TRUE(cyclesReach(3));
    ASSERT_EQ(dup2(pipe.readEnd(), fd), fd);
    notify.enableNotifications(fd, calls.callback());
    pipe.put();
    ASSERT_TRUE(calls.reach(1));
    EXPECT_THAT(calls.keys(), Each(fd));
    notify.disableNotifications(fd);
    ASSERT_TRUE(cyclesReach(5));
    close(fd);
}

TEST_F(FileNotifyTest, UrgentDataBesideDataDoesNotCallBack) {
    const CallbackRecord calls;
    const auto [sender, receiver] = connection();
    ASSERT_EQ(send(sender, "!", 1, MSG_OOB), 1);
    ASSERT_EQ(send(sender, "x", 1, 0), 1);
    notify.enableNotifications(receiver, calls.callback());
    ASSERT_TRUE(cyclesReach(10));
    EXPECT_THAT(calls.keys(), IsEmpty());
    EXPECT_THAT(log.texts(WARNING), IsEmpty());
    char urgent = 0;
    ASSERT_EQ(recv(receiver, &urgent, 1, MSG_OOB), 1);
    EXPECT_TRUE(calls.reach(1));
    EXPECT_THAT(calls.keys(), Each(receiver));
    notify.disableNotifications(receiver);
    close(sender);
    close(receiver);
}

TEST_F(FileNotifyTest, DisablingAFileLogsAnErrorTakesATenthOfASecondAndLogsTheEnd) {
    const std::string path = file("value");
    const int key = watch(path);
    log.clear();
    const auto start = std::chrono::steady_clock::now();
    notify.disableNotifications(key);
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(100));
    EXPECT_THAT(log.texts(ERROR),
                ElementsAre(StartsWith("error removing file '" + path + "' from monitor list: ")));
    std::vector<std::string> own;
    for (const auto& line : log.lines()) {
        if (line.text.find(path) != std::string::npos) {
            own.push_back(line.text);
        }
    }
    ASSERT_EQ(own.size(), 2U);
    EXPECT_THAT(own[0], StartsWith("error removing"));
    EXPECT_EQ(own[1], "monitoring stopped for file '" + path + "'");
    EXPECT_EQ(log.linesWithText(own[1]).front().priority, INFORMATION);
}

TEST_F(FileNotifyTest, ADisabledFileDoesNotCallBack) {
    const CallbackRecord calls;
    const std::string path = file("value");
    notify.disableNotifications(notify.enableNotifications(path, calls.callback()));
    // Woken by the kernel's word that the watch was removed.
    ASSERT_TRUE(cyclesReach(2));
    const std::size_t last = calls.keys().size();
    modify(path);
    EXPECT_TRUE(sleepsBetweenEvents());
    EXPECT_EQ(calls.keys().size(), last);
}

TEST_F(FileNotifyTest, TheKernelsWordThatAWatchWasRemovedIsServedAsAChange) {
    const CallbackRecord calls;
    const std::string path = file("value");
    const int key = notify.enableNotifications(path, calls.callback());
    notify.disableNotifications(key);
    // A worker that is held up for longer than the pause finds the watch gone.
    const std::string unknown = "event received of unknown file " + std::to_string(key);
    EXPECT_TRUE(
        runUntil([&] { return calls.keys().size() + log.linesWithText(unknown).size() == 1; }));
    ASSERT_TRUE(cyclesReach(2));
    EXPECT_TRUE(sleepsBetweenEvents());
    EXPECT_THAT(calls.keys(), Each(key));
    EXPECT_EQ(calls.keys().size() + log.linesWithText(unknown).size(), 1U);
}

TEST_F(FileNotifyTest, AFileThatGoesCallsBackOnceMore) {
    const auto unlinked = [](const std::string& path) { std::filesystem::remove(path); };
    const auto replaced = [this](const std::string& path) {
        std::filesystem::rename(file("new"), path);
    };
    for (const auto& go :
         std::vector<std::function<void(const std::string&)>>{unlinked, replaced}) {
        const CallbackRecord calls;
        const std::string path = file("value");
        const int key = notify.enableNotifications(path, calls.callback());
        const std::size_t before = cycles();
        go(path);
        ASSERT_TRUE(calls.reach(1));
        ASSERT_TRUE(cyclesReach(before + 1));
        EXPECT_TRUE(sleepsBetweenEvents());
        EXPECT_THAT(calls.keys(), ElementsAre(key));
        log.clear();
        notify.disableNotifications(key);
        EXPECT_THAT(log.texts(ERROR), IsEmpty());
        EXPECT_EQ(log.linesWithText("monitoring stopped for file '" + path + "'").size(), 1U);
    }
}

/// Collects the paths that a notifier tells its listener, until it goes.
class GonePaths {
 public:
    explicit GonePaths(FileNotify& notifier) : notify(notifier) {
        notify.setGoneListener([this](const std::string& path) {
            const std::lock_guard<std::mutex> guard(mutex);
            paths.push_back(path);
        });
    }
    ~GonePaths() { notify.setGoneListener({}); }
    GonePaths(const GonePaths&) = delete;
    GonePaths& operator=(const GonePaths&) = delete;

    std::vector<std::string> told() const {
        const std::lock_guard<std::mutex> guard(mutex);
        return paths;
    }
    bool reach(std::size_t count) const {
        return runUntil([this, count] { return told().size() >= count; });
    }

 private:
    FileNotify& notify;
    mutable std::mutex mutex;
    std::vector<std::string> paths;
};

TEST_F(FileNotifyTest, AFileThatIsReplacedIsWatchedOnAndToldToTheListener) {
    const GonePaths gone(notify);
    const CallbackRecord calls;
    const std::string path = file("value");
    const int key = notify.enableNotifications(path, calls.callback());
    std::filesystem::rename(file("new"), path);
    ASSERT_TRUE(gone.reach(1));
    EXPECT_THAT(gone.told(), ElementsAre(path));
    EXPECT_THAT(calls.keys(), ElementsAre(key));
    modify(path);
    ASSERT_TRUE(calls.reach(2));
    EXPECT_GT(calls.keys().back(), key);
    EXPECT_THAT(log.texts(WARNING), IsEmpty());
    EXPECT_THROW(notify.disableNotifications(key), tesk::NotFoundException);
}

TEST_F(FileNotifyTest, AFileThatIsDeletedIsToldToTheListenerAndItsWatchEnds) {
    const GonePaths gone(notify);
    const std::string path = file("value");
    const int key = watch(path);
    std::filesystem::remove(path);
    ASSERT_TRUE(gone.reach(1));
    EXPECT_THAT(gone.told(), ElementsAre(path));
    EXPECT_THROW(notify.disableNotifications(key), tesk::NotFoundException);
}

TEST_F(FileNotifyTest, AFileThatIsDisabledIsNotToldToTheListener) {
    const GonePaths gone(notify);
    const std::string path = file("value");
    notify.disableNotifications(watch(path));
    ASSERT_TRUE(allIsServed());
    EXPECT_THAT(gone.told(), IsEmpty());
}

TEST_F(FileNotifyTest, ADirectoryThatIsMovedOrDeletedIsToldToTheListener) {
    const std::filesystem::path board = directory.path() / "board";
    const std::filesystem::path away = directory.path() / "away";
    for (const auto& go :
         std::vector<std::function<void()>>{[&] { std::filesystem::remove(board); },
                                            [&] { std::filesystem::rename(board, away); }}) {
        const GonePaths gone(notify);
        std::filesystem::create_directory(board);
        ASSERT_TRUE(notify.watchDirectory(board));
        // What happens in the directory is not told.
        writeFile(board / "value", "1");
        std::filesystem::remove(board / "value");
        ASSERT_TRUE(allIsServed());
        EXPECT_THAT(gone.told(), IsEmpty());
        go();
        EXPECT_TRUE(gone.reach(1));
        EXPECT_THAT(gone.told(), Each(board.string()));
    }
    EXPECT_FALSE(notify.watchDirectory(directory.path() / "missing"));
}

TEST_F(FileNotifyTest, WhatIsForgottenIsNeitherCalledBackNorTold) {
    const GonePaths gone(notify);
    const CallbackRecord calls;
    const CallbackRecord otherCalls;
    const std::filesystem::path board = directory.path() / "board-1";
    const std::filesystem::path other = directory.path() / "board-10";
    for (const auto& [tree, record] : {std::pair(board, &calls), std::pair(other, &otherCalls)}) {
        writeFile(tree / "value", "0");
        notify.watchDirectory(tree);
        notify.enableNotifications(tree / "value", record->callback());
    }
    notify.forget(board);
    modify(board / "value");
    std::filesystem::remove_all(board);
    modify(other / "value");
    ASSERT_TRUE(otherCalls.reach(1));
    ASSERT_TRUE(allIsServed());
    EXPECT_THAT(calls.keys(), IsEmpty());
    EXPECT_THAT(gone.told(), IsEmpty());
    EXPECT_THAT(log.texts(WARNING), IsEmpty());
    EXPECT_THAT(log.texts(ERROR), IsEmpty());
}

TEST_F(FileNotifyTest, AForgottenFileCanBeWatchedAgain) {
    const CallbackRecord calls;
    const std::string path = file("value");
    const int old = watch(path);
    notify.forget(path);
    const int key = notify.enableNotifications(path, calls.callback());
    EXPECT_NE(key, old);
    modify(path);
    ASSERT_TRUE(calls.reach(1));
    ASSERT_TRUE(allIsServed());
    EXPECT_THAT(calls.keys(), ElementsAre(key));
}

TEST_F(FileNotifyTest, FilesBelowAPathAreCalledBackInTheOrderOfTheirWatches) {
    const CallbackRecord calls;
    const CallbackRecord others;
    const std::filesystem::path board = directory.path() / "board";
    std::vector<int> keys;
    notify.enableNotifications(file("board-2"), others.callback());
    for (const char* name : {"b", "a", "c"}) {
        writeFile(board / name, "0");
        keys.push_back(notify.enableNotifications(board / name, calls.callback()));
    }
    notify.watchDirectory(board);
    notify.callBack(board);
    EXPECT_EQ(calls.keys(), keys);
    notify.callBack(board / "a");
    EXPECT_EQ(calls.keys().back(), keys[1]);
    EXPECT_EQ(calls.keys().size(), 4U);
    EXPECT_THAT(others.keys(), IsEmpty());
}

TEST_F(FileNotifyTest, AFileWhoseEndTheKernelDropsIsToldToTheListener) {
    const GonePaths gone(notify);
    const CallbackRecord calls;
    const std::string first = file("first");
    const std::string second = file("second");
    const std::string blocking = file("blocking");
    const std::string deleted = file("deleted");
    const std::string replaced = file("replaced");
    const std::string forgotten = file("forgotten");
    Gate gate;
    watch(first);
    watch(second);
    watch(deleted);
    watch(forgotten);
    notify.enableNotifications(replaced, calls.callback());
    notify.enableNotifications(blocking, gate.callback());
    modify(blocking);
    ASSERT_TRUE(gate.isEntered());
    overflowQueue(first, second);
    std::filesystem::remove(deleted);
    std::filesystem::rename(file("new"), replaced);
    gate.open();
    notify.forget(forgotten);
    ASSERT_TRUE(gone.reach(2));
    ASSERT_TRUE(allIsServed());
    EXPECT_THAT(gone.told(), testing::UnorderedElementsAre(deleted, replaced));
    const std::size_t before = calls.keys().size();
    modify(replaced);
    EXPECT_TRUE(calls.reach(before + 1));
}

TEST_F(FileNotifyTest, AnUnknownKeyCannotBeDisabled) {
    const CallbackRecord calls;
    const std::string path = file("value");
    const int known = notify.enableNotifications(path, calls.callback());
    for (const int key : {known + 1, 0, -1, std::numeric_limits<int>::min()}) {
        log.clear();
        EXPECT_THAT([&] { notify.disableNotifications(key); },
                    ThrowsMessage<tesk::NotFoundException>("file reference not found"));
        const auto lines = log.lines();
        ASSERT_EQ(lines.size(), 1U);
        EXPECT_EQ(lines[0].text, "file reference '" + std::to_string(key) + "' not found");
        EXPECT_EQ(lines[0].priority, WARNING);
    }
    modify(path);
    EXPECT_TRUE(calls.reach(1));
}

TEST_F(FileNotifyTest, DisablingADescriptorLogsItAndLeavesItOpen) {
    const CallbackRecord calls;
    const Pipe pipe;
    notify.enableNotifications(pipe.readEnd(), calls.callback());
    ASSERT_TRUE(cyclesReach(2));
    log.clear();
    notify.disableNotifications(pipe.readEnd());
    const auto lines = log.lines();
    ASSERT_EQ(lines.size(), 1U);
    EXPECT_EQ(lines[0].text,
              "monitoring stopped for file descriptor '" + std::to_string(pipe.readEnd()) + "'");
    EXPECT_EQ(lines[0].priority, INFORMATION);
    EXPECT_THROW(notify.disableNotifications(pipe.readEnd()), tesk::NotFoundException);
    // The poll that is under way still has it, the next one has not.
    pipe.put();
    ASSERT_TRUE(cyclesReach(1));
    EXPECT_TRUE(sleepsBetweenEvents());
    EXPECT_THAT(calls.keys(), IsEmpty());
    take(pipe.readEnd());
}

TEST_F(FileNotifyTest, PollsOtherDescriptorsAfterSomeWereDisabled) {
    const CallbackRecord calls;
    const Pipe pipe;
    for (int round = 0; round < 20; ++round) {
        const Pipe gone;
        notify.enableNotifications(gone.readEnd(), [](int) {});
        notify.disableNotifications(gone.readEnd());
    }
    const auto served = [note = calls.callback()](int fd) {
        take(fd);
        note(fd);
    };
    notify.enableNotifications(pipe.readEnd(), served);
    pipe.put();
    ASSERT_TRUE(calls.reach(1));
    EXPECT_THAT(log.texts(WARNING), IsEmpty());
}

TEST_F(FileNotifyTest, AKeyServesTheWatchThatWasAddedLast) {
    const CallbackRecord fileCalls;
    const CallbackRecord fdCalls;
    const Pipe pipe;
    std::string path;
    int key = 0;
    while (key < 100) {
        path = file("value" + std::to_string(key));
        key = notify.enableNotifications(path, fileCalls.callback());
    }
    ASSERT_EQ(dup2(pipe.readEnd(), key), key);
    notify.enableNotifications(key, fdCalls.callback());
    modify(path);
    EXPECT_TRUE(isLogged("event received of unknown file " + std::to_string(key)));
    EXPECT_THAT(fileCalls.keys(), IsEmpty());
    pipe.put();
    EXPECT_TRUE(fdCalls.reach(1));
    // And back: nothing is polled under the key any longer.
    EXPECT_EQ(notify.enableNotifications(path, fileCalls.callback()), key);
    modify(path);
    EXPECT_TRUE(fileCalls.reach(1));
    EXPECT_THAT(fileCalls.keys(), ElementsAre(key));
    close(key);
}

TEST_F(FileNotifyTest, ARecordOfAnUnknownFileIsLoggedAndTheNextServed) {
    const CallbackRecord calls;
    Gate gate;
    const std::string known = file("known");
    const std::string unknown = file("unknown");
    const std::string blocking = file("blocking");
    notify.enableNotifications(known, calls.callback());
    notify.enableNotifications(blocking, gate.callback());
    const int wd = inotify_add_watch(inotifyFd(), unknown.c_str(), IN_MODIFY);
    ASSERT_GT(wd, 0);
    modify(blocking);
    ASSERT_TRUE(gate.isEntered());
    modify(unknown);
    modify(known);
    gate.open();
    ASSERT_TRUE(calls.reach(1));
    EXPECT_THAT(log.texts(WARNING),
                ElementsAre("event received of unknown file " + std::to_string(wd)));
}

TEST_F(FileNotifyTest, SkipsTheNamesThatRecordsOfADirectoryCarry) {
    const CallbackRecord calls;
    const std::string first = file("a-file-with-a-name-that-takes-some-space");
    const std::string second = file("b");
    const int key = notify.enableNotifications(directory.path(), calls.callback());
    modify(first);
    modify(second);
    ASSERT_TRUE(calls.reach(2));
    EXPECT_THAT(calls.keys(), ElementsAre(key, key));
    EXPECT_THAT(log.texts(WARNING), IsEmpty());
}

TEST_F(FileNotifyTest, AnInotifyReadThatYieldsNothingEndsTheCycle) {
    endsTheCycleAtOnce("/dev/null", "inotify returned empty");
}

TEST_F(FileNotifyTest, AnInotifyReadThatFailsEndsTheCycle) {
    endsTheCycleAtOnce("/", "inotify returned error");
}

TEST_F(FileNotifyTest, AnInterruptedPollStartsANewCycle) {
    struct sigaction ignore {};
    struct sigaction before {};
    ignore.sa_handler = [](int) {};
    ASSERT_EQ(sigaction(SIGUSR1, &ignore, &before), 0);
    std::promise<pthread_t> thread;
    const std::string path = file("value");
    notify.enableNotifications(path, [&thread](int) { thread.set_value(pthread_self()); });
    modify(path);
    const pthread_t worker = thread.get_future().get();
    ASSERT_TRUE(cyclesReach(2));
    // A signal that comes before poll() interrupts nothing, so there may have to be another.
    EXPECT_TRUE(runUntil([&] {
        const bool isInterrupted = cycles() >= 3;
        if (!isInterrupted) {
            pthread_kill(worker, SIGUSR1);
        }
        return isInterrupted;
    }));
    EXPECT_THAT(log.texts(WARNING), IsEmpty());
    EXPECT_THAT(log.texts(ERROR), IsEmpty());
    const CallbackRecord calls;
    notify.enableNotifications(path, calls.callback());
    modify(path);
    EXPECT_TRUE(calls.reach(1));
    sigaction(SIGUSR1, &before, nullptr);
}

TEST_F(FileNotifyTest, AFailingPollEndsTheProcess) {
    const Pipe pipe;
    EXPECT_EXIT(
        {
            // Every addition takes a slot, and so many are too many for poll().
            limitDescriptors(64);
            for (int count = 0; count < 64; ++count) {
                notify.enableNotifications(pipe.readEnd(), [](int) {});
            }
            poll(nullptr, 0, Deadline().milliseconds());
        },
        ExitedWithCode(EXIT_FAILURE), "poll: Invalid argument");
}

TEST_F(FileNotifyTest, ACallbackThatThrowsOrIsNoneEndsTheProcess) {
    const std::string path = file("value");
    EXPECT_EXIT(
        {
            notify.enableNotifications(path, [](int) { throw std::logic_error("my word"); });
            modify(path);
            poll(nullptr, 0, Deadline().milliseconds());
        },
        KilledBySignal(SIGABRT), "std::logic_error(.|\n)*my word");
    EXPECT_EXIT(
        {
            notify.enableNotifications(path, nullptr);
            modify(path);
            poll(nullptr, 0, Deadline().milliseconds());
        },
        KilledBySignal(SIGABRT), "std::bad_function_call");
}

TEST_F(FileNotifyTest, TwoThreadsMayDisableTheSameKey) {
    const std::string path = file("value");
    for (int round = 0; round < 10; ++round) {
        const Pipe pipe;
        const bool isFile = round < 5;
        const int key =
            isFile ? watch(path) : notify.enableNotifications(pipe.readEnd(), [](int) {});
        std::promise<void> start;
        const std::shared_future<void> started = start.get_future().share();
        std::atomic<int> succeeded{0};
        const auto disable = [&] {
            started.wait();
            try {
                notify.disableNotifications(key);
                ++succeeded;
            } catch (const tesk::NotFoundException& e) {
                EXPECT_STREQ(e.what(), "file reference not found");
            }
        };
        std::thread first(disable);
        std::thread second(disable);
        start.set_value();
        first.join();
        second.join();
        EXPECT_GE(succeeded, 1);
        EXPECT_THROW(notify.disableNotifications(key), tesk::NotFoundException);
    }
}

TEST_F(FileNotifyTest, ServesSeveralThreadsAtOnce) {
    const auto useAll = [this](const std::string& path) {
        for (int round = 0; round < 3; ++round) {
            const CallbackRecord fileCalls;
            const CallbackRecord fdCalls;
            const Pipe pipe;
            const int key = notify.enableNotifications(path, fileCalls.callback());
            notify.enableNotifications(pipe.readEnd(), fdCalls.callback());
            modify(path);
            pipe.put();
            EXPECT_TRUE(fileCalls.reach(1));
            EXPECT_TRUE(fdCalls.reach(1));
            notify.disableNotifications(pipe.readEnd());
            notify.disableNotifications(key);
            EXPECT_THAT(fileCalls.keys(), Each(key));
        }
    };
    std::vector<std::thread> threads;
    for (const char* name : {"a", "b", "c"}) {
        threads.emplace_back(useAll, file(name));
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
}

TEST_F(FileNotifyTest, EndsAtOnceAndClosesWhatItOpened) {
    const std::string path = file("value");
    const Pipe pipe;
    const std::size_t before = descriptors().size();
    for (int round = 0; round < 20; ++round) {
        FileNotify other;
        if (round % 2 == 0) {
            other.enableNotifications(path, [](int) {});
            other.enableNotifications(pipe.readEnd(), [](int) {});
        }
    }
    EXPECT_EQ(descriptors().size(), before);
    EXPECT_EQ(log.linesWithText("worker function running").size(), 21U);
}

TEST_F(FileNotifyTest, ItsLoggerGoesWithIt) {
    std::string name;
    {
        const FileNotify other;
        name = loggerNameOf("file-notify", &other);
        EXPECT_TRUE(loggerExists(name));
    }
    EXPECT_FALSE(loggerExists(name));
}

/// The lines, priority first, and the exception of a notifier that may open only so many
/// descriptors more.
std::string startWith(rlim_t descriptorsLeft) {
    return inChildProcess([descriptorsLeft] {
        const CapturedLog log;
        const int next = dup(STDERR_FILENO);
        close(next);
        limitDescriptors(static_cast<rlim_t>(next) + descriptorsLeft);
        std::string result;
        try {
            const FileNotify notify;
        } catch (const tesk::InputOutputException& e) {
            result = e.what();
        }
        for (const auto& line : log.lines()) {
            result += "\n" + std::to_string(line.priority) + " " + line.text;
        }
        return result;
    });
}

TEST_F(FileNotifyTest, IsNotMadeWithoutInotify) {
    EXPECT_EQ(startWith(0), "error initializing inotify\n" + std::to_string(FATAL) +
                                " error initializing inotify: Too many open files");
}

TEST_F(FileNotifyTest, IsNotMadeWithoutAPipe) {
    for (const rlim_t left : {rlim_t{1}, rlim_t{2}}) {
        EXPECT_EQ(startWith(left), "error initializing pipe\n" + std::to_string(FATAL) +
                                       " error initializing pipe: Too many open files");
    }
}

/// What happens in a user namespace whose users may have no inotify object of a sort any longer:
/// the exception and the notices. Where there can be no such namespace, the limit is that of all.
///
/// @param limit the name of the limit in /proc/sys/user
std::string atLimit(const std::string& limit, const std::string& path) {
    const std::filesystem::path file = "/proc/sys/user/" + limit;
    const std::string before = readFile(file);
    std::string result = inChildProcess(
        [&file, &path] {
            const CapturedLog log;
            std::string text = "works";
            std::ofstream(file) << 0;
            try {
                FileNotify notify;
                notify.enableNotifications(path, [](int) {});
            } catch (const tesk::InputOutputException& e) {
                text = e.what();
            }
            for (const std::string& notice : log.texts(Poco::Message::PRIO_NOTICE)) {
                text += "\n" + notice;
            }
            return text;
        },
        CLONE_NEWUSER);
    if (readFile(file) != before) {
        std::ofstream(file) << before;
    }
    return result;
}

TEST_F(FileNotifyTest, TheLimitOfWatchesIsNamed) {
    const std::string path = file("value");
    EXPECT_EQ(atLimit("max_inotify_watches", path),
              "error enabling notification for file '" + path +
                  "': No space left on device\nthis user watches too many files: raise "
                  "fs.inotify.max_user_watches with sysctl");
}

TEST_F(FileNotifyTest, TheLimitOfInstancesIsNamed) {
    EXPECT_EQ(atLimit("max_inotify_instances", file("value")),
              "error initializing inotify\nthis user watches files with too many programs: raise "
              "fs.inotify.max_user_instances with sysctl");
}

TEST_F(FileNotifyTest, TheProcessHasOneOfItsOwn) {
    FileNotify* const instance = FileNotify::getInstance();
    ASSERT_NE(instance, nullptr);
    EXPECT_EQ(FileNotify::getInstance(), instance);
    const CallbackRecord calls;
    const std::string path = file("value");
    const int key = instance->enableNotifications(path, calls.callback());
    modify(path);
    EXPECT_TRUE(calls.reach(1));
    instance->disableNotifications(key);
    untilNotifierSleeps(log);
}

}  // namespace
