// SPDX-License-Identifier: MIT
#include <gmock/gmock.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <filesystem>
#include <iostream>
#include <memory>
#include <ostream>
#include <stdexcept>
#include <string>
#include <utility>

#include "BusFixture.h"
#include "Deadline.h"
#include "Soak.h"
#include "WatchedFiles.h"

namespace {

using testing::HasSubstr;

/// What the service must do about a fault.
enum class Outcome {
    SERVES,   ///< Nobody notices.
    TELLS,    ///< The value read or written is lost, as for a broken file; the log tells of it.
    REFUSES,  ///< The caller gets an error; the log tells more.
    ENDS,     ///< The process ends with status 1 and tells why. A new one serves.
};

struct Fault {
    const char* name;
    const char* call;
    /// A part of the path of the file that the call works on.
    const char* file;
    int error;
    int first;
    int count;
    Outcome outcome;
    /// Words that the log must hold; empty where nothing need be told.
    const char* told;
};

void PrintTo(const Fault& fault, std::ostream* out) {
    *out << fault.name;
}

constexpr int ALWAYS = 1'000'000;

constexpr Fault FAULTS[]{
    {"ValueFileIsNotOpened", "open", "relays/1/value", EMFILE, 1, 4, Outcome::REFUSES,
     "relays/1/value' cannot be opened for reading: Too many open files"},
    {"ValueFileMayNotBeOpened", "open", "relays/1/value", EACCES, 3, 4, Outcome::REFUSES,
     "relays/1/value' cannot be opened for reading: Permission denied"},
    {"ValueFileIsNotRead", "pread", "relays/1/value", EIO, 1, 4, Outcome::TELLS,
     "relays/1/value' cannot be read: Input/output error"},
    {"ReadOfValueFileIsInterrupted", "pread", "relays/1/value", EINTR, 1, 5, Outcome::SERVES, ""},
    {"ValueFileIsNotOpenedToWrite", "open-to-write", "relays/2/value", EACCES, 1, 1,
     Outcome::REFUSES, "relays/2/value' cannot be opened for writing: Permission denied"},
    {"ValueFileIsNotWritten", "write", "relays/2/value", ENOSPC, 2, 1, Outcome::TELLS,
     "relays/2/value' cannot be written: No space left on device"},
    {"WriteOfValueFileIsInterrupted", "write", "relays/2/value", EINTR, 1, 5, Outcome::SERVES, ""},
    {"MapFileIsNotOpened", "open", "map.json", EMFILE, 1, 1, Outcome::ENDS, "cannot read map file"},
    {"MapFileIsNotOpenedAgain", "fopen", "map.json", EMFILE, 2, 1, Outcome::ENDS, "Fatal server: "},
    {"MapFileIsNotRead", "read", "map.json", EIO, 1, ALWAYS, Outcome::ENDS,
     "map.json': Input/output error"},
    {"InotifyIsNotThere", "inotify_init1", "-", EMFILE, 1, ALWAYS, Outcome::ENDS,
     "error initializing inotify: Too many open files"},
    {"PipeIsNotThere", "pipe", "-", EMFILE, 1, ALWAYS, Outcome::ENDS,
     "error initializing pipe: Too many open files"},
    {"FileIsNotWatched", "inotify_add_watch", "relays/2/value", ENOSPC, 1, 1, Outcome::ENDS,
     "relays/2/value': No space left on device"},
    {"EventsAreNotRead", "read", "inotify", EIO, 1, 3, Outcome::SERVES, "inotify returned error"},
    {"EventsAreNotThereYet", "read", "inotify", EAGAIN, 2, 3, Outcome::SERVES,
     "inotify returned empty"},
    {"PollIsInterrupted", "poll", "inotify", EINTR, 2, 5, Outcome::SERVES, ""},
    {"PollHasNoMemory", "poll", "inotify", ENOMEM, 3, 1, Outcome::ENDS, "poll: Cannot allocate"},
    {"EventDescriptorIsNotThere", "eventfd", "-", ENOSYS, 1, ALWAYS, Outcome::SERVES, ""},
    {"ClockIsBeyond32Bits", "clock", "-", 0, 1, ALWAYS, Outcome::SERVES, ""},
    {"BusIsNotHeard", "recvmsg", "socket", EIO, 12, ALWAYS, Outcome::ENDS,
     "the system bus has closed the connection"},
};

/// The service while single calls of the C library fail. A library that is preloaded makes them
/// fail. Whatever fails, a value is right, or an error is told, or the process ends and a new one
/// serves.
class FaultsTest : public BusFixture, public testing::WithParamInterface<Fault> {
 protected:
    static constexpr int ROUNDS = 20;

    static void SetUpTestSuite() { std::filesystem::remove_all("/sys/kernel"); }

    std::unique_ptr<Process> launchWith(const Fault& fault) {
        const std::string text = std::string(fault.call) + " " + fault.file + " " +
                                 std::to_string(fault.error) + " " + std::to_string(fault.first) +
                                 " " + std::to_string(fault.count);
        return launch(map, {"--log-level", "information"},
                      {{"LD_PRELOAD", FAULT_INJECTION}, {"IO_MAPPING_FAULT", text}});
    }

    /// Checks that a fault was injected at all, and counts the faults.
    void expectFaultsIn(const std::string& log) {
        EXPECT_THAT(log, HasSubstr("fault injected\n"));
        for (const std::string& line : Process::lines(log)) {
            faults += line.find("fault injected") == std::string::npos ? 0 : 1;
        }
        recordFigure("faults", faults);
    }

    /// Lets clients work until they are done or the service has gone.
    void tryOut(Process& service) {
        if (comesUp(service)) {
            work();
        } else {
            hasGone = true;
        }
    }

    /// Reads and writes until the rounds are done or the service has gone.
    void work() {
        for (int round = 1; round <= ROUNDS && !hasGone; ++round) {
            files.set(1, round);
            take(client.call("Read", "(1,)"), "(" + std::to_string(round) + ",)");
            const std::string onOrOff = std::to_string(round % 2);
            if (take(client.call("Write", "(2, " + onOrOff + ")"), "()")) {
                lost += readFile(files.path(2)) == onOrOff ? 0 : 1;
            }
            const std::string value = std::to_string(round);
            take(client.call("Write", "(101, " + value + ")"), "()");
            take(client.call("Read", "(101,)"), "(" + value + ",)");
        }
    }

    /// Notes the answer to a call.
    ///
    /// @return whether it is a good one
    bool take(const BusClient::Answer& answer, const std::string& expected) {
        if (answer.reply) {
            lost += answer.text() == expected ? 0 : 1;
            return true;
        }
        if (answer.errorName == "org.freedesktop.DBus.Error.Failed") {
            ++refused;
        } else {
            // The bus has no service any more, or has lost it in the middle of the call.
            hasGone = true;
            gone = answer.text();
        }
        return false;
    }

    /// Changes a file until the fault has happened: the notifier, whose thread may start late, may
    /// have heard of all changes so far at once.
    void provoke(Process& service, Outcome outcome) {
        bool isInjected = false;
        const auto happens = [&] {
            service.look();
            isInjected = service.standardError().find("fault injected\n") != std::string::npos;
            return isInjected;
        };
        for (int value = ROUNDS + 2; value < 2 * ROUNDS && !happens(); ++value) {
            files.set(1, value);
            ASSERT_TRUE(runUntil([&] { return happens() || lastChanges().first == value; }));
        }
        hasGone = isInjected && outcome == Outcome::ENDS;
    }

    /// What the service is when nothing fails any more.
    void expectToServe() {
        files.set(1, ROUNDS + 1);
        EXPECT_EQ(client.call("Read", "(1,)").text(), "(21,)");
        EXPECT_EQ(client.call("Write", "(2, 1)").text(), "()");
        EXPECT_EQ(readFile(files.path(2)), "1");
        EXPECT_TRUE(runUntil([this] { return lastChanges() == std::pair(21, 1); }))
            << "the last changes told are " << lastChanges().first << " and "
            << lastChanges().second;
        recordFigure("told", client.changes().size());
    }

    /// The last values that the bus has told of both relays.
    std::pair<int, int> lastChanges() const {
        std::array<int, 3> last{};
        for (const auto& [address, value] : client.changes()) {
            last.at(address < 3 ? static_cast<std::size_t>(address) : 0) = value;
        }
        return {last[1], last[2]};
    }

    /// Waits until the service has its name, or has ended.
    ///
    /// @return whether it has its name
    static bool comesUp(Process& service) {
        try {
            service.waitForLine("org.mirel.IoMapping was acquired on DBus");
            return true;
        } catch (const std::runtime_error&) {
            return false;
        }
    }

    WatchedFiles files{2};
    std::string map = mapOf({files.field(), R"({"address": 101, "size": 32, "count": 1})"});
    BusClient client;
    int faults{0};
    int refused{0};
    int lost{0};
    bool hasGone{false};
    std::string gone;
};

TEST_P(FaultsTest, AValueIsRightOrAnErrorIsToldOrANewServiceServes) {
    const Fault& fault = GetParam();
    const auto service = launchWith(fault);
    tryOut(*service);
    if (!hasGone) {
        provoke(*service, fault.outcome);
    }
    EXPECT_EQ(hasGone, fault.outcome == Outcome::ENDS) << gone;
    EXPECT_EQ(refused > 0, fault.outcome == Outcome::REFUSES) << refused;
    EXPECT_EQ(lost > 0, fault.outcome == Outcome::TELLS) << lost;
    if (hasGone) {
        EXPECT_EQ(service->waitForExit(), 1);
    } else {
        expectToServe();
        service->signal(SIGTERM);
        EXPECT_EQ(service->waitForExit(), 0);
    }
    expectFaultsIn(service->standardError());
    EXPECT_THAT(service->standardError(), HasSubstr(fault.told));
    if (hasGone) {
        startService(map);
        expectToServe();
    }
}

/// C++ ends the process where nobody can catch its exception.
TEST_F(FaultsTest, WithoutMemoryAValueIsRightOrAnErrorIsToldOrTheProcessEnds) {
    constexpr int TRIES = 20;
    constexpr int STEP = 60;
    int ends = 0;
    for (int i = 0; i < TRIES; ++i) {
        const int first = 1 + i * STEP;
        SCOPED_TRACE("allocation " + std::to_string(first));
        hasGone = false;
        const auto service = launchWith({"", "new", "-", ENOMEM, first, 1, Outcome::SERVES, ""});
        tryOut(*service);
        if (hasGone) {
            const int status = service->waitForExit();
            EXPECT_THAT(status, testing::AnyOf(1, 128 + SIGABRT));
            EXPECT_GE(Process::lines(service->standardError()).size(), 2U);
            ++ends;
        } else {
            service->signal(SIGTERM);
            EXPECT_EQ(service->waitForExit(), 0);
        }
        expectFaultsIn(service->standardError());
        EXPECT_EQ(lost, 0);
    }
    std::cout << TRIES << " allocations failed; " << ends << " ends, " << refused << " refusals\n";
}

INSTANTIATE_TEST_SUITE_P(Calls, FaultsTest, testing::ValuesIn(FAULTS),
                         [](const auto& parameter) { return std::string(parameter.param.name); });

}  // namespace
