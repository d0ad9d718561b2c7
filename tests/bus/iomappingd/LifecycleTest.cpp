// SPDX-License-Identifier: MIT
#include <gmock/gmock.h>

#include <sys/resource.h>

#include <csignal>
#include <filesystem>
#include <thread>

#include "Build.h"
#include "BusFixture.h"
#include "Soak.h"
#include "WatchedFiles.h"

namespace {

using testing::HasSubstr;

constexpr const char* NAME = BusClient::SERVICE;
// Two hundred show an end that goes wrong once in a hundred times.
const int REPETITIONS = soakOr(200, 20);
constexpr const char* BAD_MAP = R"({"io_mapping": [{"address": 1, "size": 8, "count": 0}]})";

/// How the daemon ends. Each cause leads to the same exit status every time, also while the daemon
/// writes log lines and answers calls.
class LifecycleTest : public BusFixture {
 protected:
    const std::string map = mapOf({R"({"address": 1, "size": 32, "count": 100})"});

    /// Asks the bus for the service's name, as a newer instance would.
    static void takeName(const BusClient& client) {
        constexpr int REPLACE_EXISTING = 2;
        constexpr int PRIMARY_OWNER = 1;
        const VariantOwner reply(
            busCall(client, "RequestName", g_variant_new("(su)", NAME, REPLACE_EXISTING)));
        guint32 result = 0;
        g_variant_get(reply.get(), "(u)", &result);
        ASSERT_EQ(result, PRIMARY_OWNER);
    }

    static void giveNameBack(const BusClient& client) {
        const VariantOwner reply(busCall(client, "ReleaseName", g_variant_new("(s)", NAME)));
    }

    /// Sends the service more work than it can have done when its end comes.
    static void flood(const BusClient& client) {
        flood(client, "Write", [](int address) { return g_variant_new("(ii)", address, address); });
    }

    template <typename MakeArguments>
    static void flood(const BusClient& client, const char* method,
                      const MakeArguments& argumentsOf) {
        for (int address = 1; address <= 100; ++address) {
            const ObjectOwner<GDBusMessage> message(g_dbus_message_new_method_call(
                NAME, BusClient::PATH, BusClient::INTERFACE, method));
            g_dbus_message_set_flags(message.get(), G_DBUS_MESSAGE_FLAGS_NO_REPLY_EXPECTED);
            g_dbus_message_set_body(message.get(), argumentsOf(address));
            g_dbus_connection_send_message(client.connection(), message.get(),
                                           G_DBUS_SEND_MESSAGE_FLAGS_NONE, nullptr, nullptr);
        }
        g_dbus_connection_flush_sync(client.connection(), nullptr, nullptr);
    }

 private:
    static GVariant* busCall(const BusClient& client, const char* method, GVariant* arguments) {
        return g_dbus_connection_call_sync(client.connection(), "org.freedesktop.DBus",
                                           "/org/freedesktop/DBus", "org.freedesktop.DBus", method,
                                           arguments, nullptr, G_DBUS_CALL_FLAGS_NONE, -1, nullptr,
                                           nullptr);
    }
};

TEST_F(LifecycleTest, ASecondInstanceEndsWithStatus1AndTheFirstServesOn) {
    startService(map);
    const auto second = launch(map, {"--log-level", "information"});
    EXPECT_EQ(second->waitForExit(), 1);
    EXPECT_THAT(second->standardError(), HasSubstr("Information server: org.mirel.IoMapping was "
                                                   "lost on DBus\n"));
    EXPECT_THAT(second->standardError(),
                HasSubstr("Notice server: org.mirel.IoMapping belongs to another process, or the "
                          "bus policy does not let this user own it\n"));
    EXPECT_EQ(BusClient().call("Read", "(1,)").text(), "(0,)");
}

TEST_F(LifecycleTest, AReplacedServiceEndsWithStatus1) {
    Process& service = startService(map);
    const BusClient client;
    takeName(client);
    EXPECT_EQ(service.waitForExit(), 1);
}

TEST_F(LifecycleTest, TheServiceEndsWithStatus1WhenTheBusDies) {
    Process& service = startService(map);
    bus.kill();
    EXPECT_EQ(service.waitForExit(), 1);
    EXPECT_THAT(service.standardError(),
                HasSubstr("Notice server: the system bus has closed the connection\n"));
}

TEST_F(LifecycleTest, TheServiceEndsWithStatus1WithoutABus) {
    bus.kill();
    const auto service = launch(map);
    EXPECT_EQ(service->waitForExit(), 1);
    EXPECT_THAT(service->standardError(),
                HasSubstr("Notice server: the system bus cannot be reached: start dbus-daemon, or "
                          "set DBUS_SYSTEM_BUS_ADDRESS\n"));
}

TEST_F(LifecycleTest, ABadMapEndsTheServiceAndIsExplained) {
    const auto service = launch(BAD_MAP);
    EXPECT_EQ(service->waitForExit(), 1);
    const auto lines = Process::lines(service->standardError());
    ASSERT_EQ(lines.size(), 3U);
    EXPECT_THAT(lines[0], HasSubstr(": invalid value for count: 0"));
    EXPECT_THAT(lines[1], HasSubstr("map.json', field io_mapping[0], address 1"));
    EXPECT_THAT(lines[2], HasSubstr(" Fatal server: error parsing field"));
}

TEST_F(LifecycleTest, TerminationAndInterruptEndTheServiceWithStatus0) {
    for (const int signal : {SIGTERM, SIGINT}) {
        const auto service = launch(map, {"--log-level", "information"});
        service->waitForLine("was acquired on DBus");
        service->signal(signal);
        EXPECT_EQ(service->waitForExit(), 0);
    }
}

TEST_F(LifecycleTest, ALostNameIsStatus1EveryTimeUnderLoad) {
    const BusClient client;
    for (int i = 0; i < REPETITIONS; ++i) {
        const auto service = launch(map, {"--log-level", "information"});
        service->waitForLine("was acquired on DBus");
        flood(client);
        takeName(client);
        ASSERT_EQ(service->waitForExit(), 1) << "at repetition " << i;
        giveNameBack(client);
    }
}

TEST_F(LifecycleTest, TerminationIsStatus0EveryTimeUnderLoad) {
    const BusClient client;
    for (int i = 0; i < REPETITIONS; ++i) {
        const auto service = launch(map, {"--log-level", "information"});
        service->waitForLine("was acquired on DBus");
        flood(client);
        service->signal(SIGTERM);
        ASSERT_EQ(service->waitForExit(), 0) << "at repetition " << i;
    }
}

TEST_F(LifecycleTest, ABadMapIsStatus1EveryTimeUnderLoad) {
    for (int i = 0; i < REPETITIONS / 2; ++i) {
        const auto one = launch(BAD_MAP, {"--log-level", "information"});
        const auto other = launch(BAD_MAP, {"--log-level", "information"});
        ASSERT_EQ(one->waitForExit(), 1) << "at repetition " << i;
        ASSERT_EQ(other->waitForExit(), 1) << "at repetition " << i;
    }
}

TEST_F(LifecycleTest, AMissingBusIsStatus1EveryTimeUnderLoad) {
    bus.kill();
    for (int i = 0; i < REPETITIONS / 2; ++i) {
        const auto one = launch(map, {"--log-level", "information"});
        const auto other = launch(map, {"--log-level", "information"});
        ASSERT_EQ(one->waitForExit(), 1) << "at repetition " << i;
        ASSERT_EQ(other->waitForExit(), 1) << "at repetition " << i;
    }
}

TEST_F(LifecycleTest, AFailingPollIsStatus1EveryTimeUnderLoad) {
#ifdef __SANITIZE_ADDRESS__
    GTEST_SKIP() << "without a descriptor to spare, the sanitizer takes any exception for a fault";
#endif
    std::filesystem::remove_all("/sys/kernel");
    const WatchedFiles files(1);
    const std::string boardMap =
        mapOf({files.field(), R"({"address": 2, "size": 32, "count": 99})"});
    const BusClient client;
    for (int i = 0; i < REPETITIONS; ++i) {
        const auto service = launch(boardMap, {"--log-level", "information"});
        service->waitForLine("was acquired on DBus");
        flood(client, "Read", [](int address) { return g_variant_new("(i)", address); });
        // More descriptors than the process may have are too many for poll().
        const rlimit one{1, 1};
        ASSERT_EQ(prlimit(service->pid(), RLIMIT_NOFILE, &one, nullptr), 0);
        files.set(1, i);
        ASSERT_EQ(service->waitForExit(), 1) << "at repetition " << i;
        ASSERT_THAT(service->standardError(), HasSubstr("poll: Invalid argument\n"));
    }
}

}  // namespace
