// SPDX-License-Identifier: MIT
#include "program/ServiceNotice.h"

#include <gmock/gmock.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <array>
#include <cstddef>
#include <cstdlib>
#include <cstring>

#include "TemporaryDirectory.h"
#include "support/FileDescriptor.h"

namespace {

using std::chrono::microseconds;
using testing::Eq;
using testing::Optional;

constexpr std::array VARIABLES{"NOTIFY_SOCKET", "WATCHDOG_USEC", "WATCHDOG_PID"};

class ServiceNoticeTest : public testing::Test {
 protected:
    ServiceNoticeTest() { forgetManager(); }
    ~ServiceNoticeTest() override { forgetManager(); }

    static void forgetManager() {
        for (const char* const variable : VARIABLES) {
            ::unsetenv(variable);
        }
    }

    static void setVariable(const char* name, const std::string& value) {
        ::setenv(name, value.c_str(), 1);
    }

    /// A manager that listens on an address.
    ///
    /// @param path the address; its first byte is zero for a name of the kernel's own
    static FileDescriptor managerAt(const std::string& path) {
        FileDescriptor socket(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        path.copy(address.sun_path, path.size());
        const auto size = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + path.size());
        EXPECT_EQ(::bind(socket.get(), reinterpret_cast<const sockaddr*>(&address), size), 0)
            << std::strerror(errno);
        return socket;
    }

    static std::string heardBy(const FileDescriptor& manager) {
        std::array<char, 100> text{};
        const ssize_t size = ::recv(manager.get(), text.data(), text.size(), 0);
        return size < 0 ? std::strerror(errno)
                        : std::string(text.data(), static_cast<std::size_t>(size));
    }

    TemporaryDirectory directory;
    const std::string path = directory.path() / "notify";
};

TEST_F(ServiceNoticeTest, TheManagerHearsTheLines) {
    const FileDescriptor manager = managerAt(path);
    setVariable("NOTIFY_SOCKET", path);
    EXPECT_TRUE(isSupervised());
    EXPECT_TRUE(notifySupervisor("READY=1\nSTATUS=well"));
    EXPECT_EQ(heardBy(manager), "READY=1\nSTATUS=well");
}

TEST_F(ServiceNoticeTest, AManagerMayHaveANameThatIsNoFile) {
    const std::string name = "io-mapping-test-" + std::to_string(::getpid());
    const FileDescriptor manager = managerAt(std::string(1, '\0') + name);
    setVariable("NOTIFY_SOCKET", "@" + name);
    EXPECT_TRUE(notifySupervisor("WATCHDOG=1"));
    EXPECT_EQ(heardBy(manager), "WATCHDOG=1");
}

TEST_F(ServiceNoticeTest, WithoutAManagerNothingIsTold) {
    EXPECT_FALSE(isSupervised());
    EXPECT_FALSE(notifySupervisor("READY=1"));
    for (const std::string& nobody : {std::string(), path, std::string(200, 'x')}) {
        setVariable("NOTIFY_SOCKET", nobody);
        EXPECT_FALSE(notifySupervisor("READY=1")) << nobody;
    }
}

TEST_F(ServiceNoticeTest, AManagerThatDoesNotListenIsNotWaitedFor) {
    const FileDescriptor manager = managerAt(path);
    setVariable("NOTIFY_SOCKET", path);
    int told = 0;
    while (told < 100'000 && notifySupervisor("WATCHDOG=1")) {
        ++told;
    }
    EXPECT_GT(told, 0);
    EXPECT_LT(told, 100'000);
}

TEST_F(ServiceNoticeTest, TheWatchdogsLimitIsThatForThisProcess) {
    setVariable("WATCHDOG_USEC", "90000000");
    EXPECT_THAT(watchdogLimit(), Optional(Eq(microseconds(90'000'000))));
    setVariable("WATCHDOG_PID", std::to_string(::getpid()));
    EXPECT_THAT(watchdogLimit(), Optional(Eq(microseconds(90'000'000))));
    setVariable("WATCHDOG_PID", std::to_string(::getppid()));
    EXPECT_EQ(watchdogLimit(), std::nullopt);
    setVariable("WATCHDOG_PID", "x");
    EXPECT_EQ(watchdogLimit(), std::nullopt);
}

TEST_F(ServiceNoticeTest, WithoutAWholeNumberThereIsNoWatchdog) {
    EXPECT_EQ(watchdogLimit(), std::nullopt);
    for (const char* limit : {"", "0", "-1", "1s", " 1", "99999999999999999999"}) {
        setVariable("WATCHDOG_USEC", limit);
        EXPECT_EQ(watchdogLimit(), std::nullopt) << limit;
    }
}

}  // namespace
