// SPDX-License-Identifier: MIT
#include "IoMapping.h"

#include <gmock/gmock.h>
#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <csignal>
#include <memory>
#include <stdexcept>
#include <thread>

#include "BusConnection.h"
#include "BusFixture.h"
#include "Deadline.h"
#include "support/FileDescriptor.h"
#include "tesk/Exceptions.h"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;

using Changes = std::vector<std::pair<int, int>>;

/// What an operation throws; it must be an InputOutputException.
template <typename Operation>
std::string failureOf(const Operation& operation) {
    try {
        operation();
    } catch (const tesk::InputOutputException& e) {
        return e.what();
    }
    return "no failure";
}

using Cause = ServiceError::Cause;

/// The cause that an operation throws, and the name of the error on the bus.
template <typename Operation>
std::pair<Cause, std::string> causeOf(const Operation& operation) {
    try {
        operation();
    } catch (const ServiceError& e) {
        return {e.getCause(), e.getErrorName()};
    }
    throw std::logic_error("no failure");
}

class IoMappingTest : public BusFixture {
 protected:
    const std::string map = mapOf(
        {R"({"address": 1, "size": 16, "count": 10})", R"({"address": 20, "size": 32, "count": 1})",
         R"({"address": 30, "size": 8, "count": 2, "type": "reserved"})"});

    /// A function that keeps what it is called with.
    static std::function<void(int, int)> into(Changes& changes) {
        return [&changes](int address, int value) { changes.emplace_back(address, value); };
    }

    /// Runs a client's loop until a condition holds; false when it does not in time.
    template <typename Condition>
    static bool runClientUntil(IoMapping& io, const Condition& condition) {
        const Deadline deadline;
        while (!condition() && !deadline.passed()) {
            if (!io.run(false)) {
                std::this_thread::yield();
            }
        }
        return condition();
    }
};

/// Makes a connection the owner of the service's name, also if the name has one.
void takeName(GDBusConnection* connection) {
    constexpr guint REPLACE = 2;
    const VariantOwner owned(g_dbus_connection_call_sync(
        connection, "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus",
        "RequestName", g_variant_new("(su)", BusClient::SERVICE, REPLACE), nullptr,
        G_DBUS_CALL_FLAGS_NONE, -1, nullptr, nullptr));
    ASSERT_TRUE(owned);
}

TEST_F(IoMappingTest, WithoutABusThereIsNoObject) {
    bus.kill();
    EXPECT_THAT(failureOf([] { IoMapping io; }), StartsWith("Error initializing DBus: "));
}

TEST_F(IoMappingTest, AStoppedBusIsGivenUpAfter5Seconds) {
    bus.signal(SIGSTOP);
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(failureOf([] { IoMapping io; }), "Error initializing DBus: Timeout was reached");
    const auto waited = std::chrono::steady_clock::now() - start;
    bus.signal(SIGCONT);
    EXPECT_GE(waited, std::chrono::milliseconds(4900));
    EXPECT_LT(waited, std::chrono::seconds(10));
}

TEST_F(IoMappingTest, OnAStoppedBusNobodyIsAliveAfter5Seconds) {
    startService(map);
    IoMapping io;
    bus.signal(SIGSTOP);
    const auto start = std::chrono::steady_clock::now();
    EXPECT_FALSE(io.isAlive());
    const auto waited = std::chrono::steady_clock::now() - start;
    bus.signal(SIGCONT);
    EXPECT_LT(waited, std::chrono::seconds(10));
    EXPECT_TRUE(io.isAlive());
}

TEST_F(IoMappingTest, OnlyACallStartsTheService) {
    bus.startOnDemand(BusClient::SERVICE, DAEMON + " --map " + directory.file("map.json", map));
    IoMapping io;
    EXPECT_FALSE(io.isAlive());
    EXPECT_EQ(io.readValue(1), 0);
    EXPECT_TRUE(io.isAlive());
}

TEST_F(IoMappingTest, AServiceThatCannotStartFailsTheCallsAndNotTheConstructor) {
    bus.startOnDemand(BusClient::SERVICE, "/bin/false");
    IoMapping io;
    EXPECT_FALSE(io.isAlive());
    EXPECT_THAT(failureOf([&io] { io.readValue(1); }),
                StartsWith("Error calling method: GDBus.Error:org.freedesktop.DBus.Error.Spawn."));
}

TEST_F(IoMappingTest, TheFirstChangeAfterTheConstructionIsNotMissed) {
    constexpr int OBJECTS = EMULATED ? 50 : 500;
    const ObjectOwner<GDBusConnection> service = connectToBus();
    takeName(service.get());
    for (int i = 0; i < OBJECTS; ++i) {
        IoMapping io;
        Changes changes;
        io.enableNotifications(1, into(changes));
        g_dbus_connection_emit_signal(service.get(), nullptr, BusClient::PATH, BusClient::INTERFACE,
                                      "OnValueChange", g_variant_new("(ii)", 1, i), nullptr);
        ASSERT_TRUE(runClientUntil(io, [&changes] { return !changes.empty(); })) << i;
    }
    g_dbus_connection_close_sync(service.get(), nullptr, nullptr);
}

TEST_F(IoMappingTest, AnObjectOfAThreadWithAMainContextOfItsOwnDeliversInRun) {
    startService(map);
    std::unique_ptr<IoMapping> io;
    std::thread([&io] {
        const MainContextOwner own(g_main_context_new());
        g_main_context_push_thread_default(own.get());
        io = std::make_unique<IoMapping>();
        g_main_context_pop_thread_default(own.get());
    }).join();
    Changes changes;
    io->enableNotifications(1, into(changes));
    io->writeValue(1, 1);
    EXPECT_TRUE(runClientUntil(*io, [&changes] { return !changes.empty(); }));
}

TEST_F(IoMappingTest, WithoutAServiceEveryCallFailsAndIsAliveIsFalse) {
    IoMapping io;
    EXPECT_FALSE(io.isAlive());
    const std::string absent =
        "Error calling method: GDBus.Error:org.freedesktop.DBus.Error.ServiceUnknown: The name "
        "org.mirel.IoMapping was not provided by any .service files";
    EXPECT_EQ(failureOf([&io] { io.readValue(1); }), absent);
    EXPECT_EQ(failureOf([&io] { io.readValues({1}); }), absent);
    EXPECT_EQ(failureOf([&io] { io.writeValue(1, 1); }), absent);
    EXPECT_EQ(failureOf([&io] { io.getParams(1); }), absent);
    EXPECT_EQ(failureOf([&io] { io.getAddrsPerType(RegisterType::VIRTUAL); }), absent);
}

TEST_F(IoMappingTest, EveryOperationReachesTheService) {
    startService(map);
    IoMapping io;
    EXPECT_TRUE(io.isAlive());
    io.writeValue(1, 65535);
    io.writeValue(20, -7);
    EXPECT_EQ(io.readValue(1), 65535);
    EXPECT_THAT(io.readValues({20, 1, 2, 20}), ElementsAre(-7, 65535, 0, -7));
    EXPECT_THAT(io.readValues({}), IsEmpty());
    EXPECT_EQ(io.getParams(3), std::tuple(RegisterType::VIRTUAL, 3, 65535));
    EXPECT_EQ(io.getParams(20), std::tuple(RegisterType::VIRTUAL, 1, -1));
    EXPECT_EQ(io.getParams(31), std::tuple(RegisterType::RESERVED, 2, 255));
    EXPECT_THAT(io.getAddrsPerType(RegisterType::RESERVED), ElementsAre(30, 31));
    EXPECT_THAT(io.getAddrsPerType(RegisterType::RELAY), IsEmpty());
}

TEST_F(IoMappingTest, ARefusalCarriesTheServicesText) {
    startService(map);
    IoMapping io;
    const std::string prefix =
        "Error calling method: GDBus.Error:org.freedesktop.DBus.Error.Failed: ";
    EXPECT_EQ(failureOf([&io] { io.readValue(99); }), prefix + "address '99' not found");
    EXPECT_EQ(failureOf([&io] { io.readValues({1, 99}); }), prefix + "address '99' not found");
    EXPECT_EQ(failureOf([&io] { io.writeValue(1, 65536); }),
              prefix + "value 65536 is higher than max value 65535");
    EXPECT_EQ(failureOf([&io] { io.getParams(99); }), prefix + "address '99' not found");
}

TEST_F(IoMappingTest, AFailureTellsAProgramItsCauseAndItsNameOnTheBus) {
    const std::string names = "org.freedesktop.DBus.Error.";
    IoMapping io;
    const auto read = [&io] { io.readValue(99); };
    EXPECT_EQ(causeOf(read), std::pair(Cause::NO_SERVICE, names + "ServiceUnknown"));
    startService(map);
    EXPECT_EQ(causeOf(read), std::pair(Cause::REFUSED, names + "Failed"));
    EXPECT_EQ(causeOf([&io] { io.readValues(std::vector<int>(65'537)); }),
              std::pair(Cause::LIMITS_EXCEEDED, std::string()));
    bus.kill();
    EXPECT_TRUE(runClientUntil(io, [&] { return causeOf(read).first != Cause::REFUSED; }));
    EXPECT_EQ(causeOf(read), std::pair(Cause::NO_BUS, std::string()));
    EXPECT_EQ(causeOf([] { IoMapping(); }), std::pair(Cause::NO_BUS, std::string()));
}

TEST_F(IoMappingTest, AListThatIsTooLongIsNotSent) {
    startService(map);
    IoMapping io;
    EXPECT_EQ(io.readValues(std::vector<int>(65'536, 1)).size(), 65'536U);
    // The bus would close the connection over a message with the longer list.
    for (const std::size_t length : {65'537U, 40'000'000U}) {
        EXPECT_EQ(failureOf([&] { io.readValues(std::vector<int>(length, 1)); }),
                  "Error calling method: a list may have at most 65536 addresses, not " +
                      std::to_string(length));
    }
    EXPECT_EQ(io.readValue(1), 0);
}

TEST_F(IoMappingTest, AServiceThatDoesNotAnswerIsGivenUpAfter5Seconds) {
    const Process& service = startService(map);
    IoMapping io;
    service.signal(SIGSTOP);
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(failureOf([&io] { io.readValue(1); }), "Error calling method: Timeout was reached");
    const auto waited = std::chrono::steady_clock::now() - start;
    EXPECT_GE(waited, std::chrono::milliseconds(4900));
    EXPECT_LT(waited, std::chrono::seconds(10));
    EXPECT_EQ(causeOf([&io] { io.readValue(1); }), std::pair(Cause::TIMED_OUT, std::string()));
    EXPECT_TRUE(io.isAlive()) << "it still holds its name";
    service.signal(SIGCONT);
    EXPECT_EQ(io.readValue(1), 0);
}

TEST_F(IoMappingTest, AChangeCallsTheFunctionOfItsAddress) {
    startService(map);
    IoMapping io;
    Changes first;
    Changes range;
    io.enableNotifications(1, into(first));
    io.enableNotificationsRange({2, 3, 4}, into(range));
    for (int address = 1; address <= 5; ++address) {
        io.writeValue(address, address * 10);
    }
    EXPECT_TRUE(runClientUntil(io, [&range] { return range.size() >= 3; }));
    EXPECT_THAT(first, ElementsAre(std::pair(1, 10)));
    EXPECT_THAT(range, ElementsAre(std::pair(2, 20), std::pair(3, 30), std::pair(4, 40)));
}

TEST_F(IoMappingTest, ASecondFunctionTakesThePlaceOfTheFirst) {
    startService(map);
    IoMapping io;
    Changes first;
    Changes second;
    io.enableNotifications(1, into(first));
    io.enableNotifications(1, into(second));
    io.writeValue(1, 5);
    EXPECT_TRUE(runClientUntil(io, [&second] { return !second.empty(); }));
    EXPECT_THAT(first, IsEmpty());
}

TEST_F(IoMappingTest, DisabledNotificationsAreNotDelivered) {
    startService(map);
    IoMapping io;
    Changes dropped;
    Changes last;
    io.enableNotificationsRange({1, 2, 3}, into(dropped));
    io.enableNotifications(9, into(last));
    io.disableNotifications(1);
    io.disableNotificationsRange({2, 3, 77});
    io.disableNotifications(77);
    for (const int address : {1, 2, 3, 9}) {
        io.writeValue(address, 1);
    }
    EXPECT_TRUE(runClientUntil(io, [&last] { return !last.empty(); }));
    EXPECT_THAT(dropped, IsEmpty());
}

TEST_F(IoMappingTest, ChangesThatAreQueuedWhenTheyAreDisabledAreNotDelivered) {
    startService(map);
    IoMapping io;
    Changes dropped;
    io.enableNotifications(1, into(dropped));
    io.writeValue(1, 1);
    io.disableNotifications(1);
    Changes last;
    io.enableNotifications(2, into(last));
    io.writeValue(2, 2);
    EXPECT_TRUE(runClientUntil(io, [&last] { return !last.empty(); }));
    EXPECT_THAT(dropped, IsEmpty());
}

TEST_F(IoMappingTest, ADisabledAddressDoesNotWakeTheApplication) {
    startService(map);
    IoMapping io;
    Changes dropped;
    io.enableNotifications(1, into(dropped));
    io.disableNotifications(1);
    while (io.run(false)) {
    }
    io.writeValue(1, 1);
    // The change has come before this answer.
    EXPECT_EQ(io.readValue(1), 1);
    EXPECT_FALSE(io.run(false));
}

TEST_F(IoMappingTest, AnEmptyFunctionIsIgnored) {
    startService(map);
    IoMapping io;
    Changes last;
    io.enableNotifications(1, {});
    io.enableNotifications(2, into(last));
    io.writeValue(1, 1);
    io.writeValue(2, 2);
    EXPECT_TRUE(runClientUntil(io, [&last] { return !last.empty(); }));
}

TEST_F(IoMappingTest, ACallbackMayCallTheService) {
    startService(map);
    IoMapping io;
    int echoed = 0;
    io.enableNotifications(1, [&io, &echoed](int address, int /*value*/) {
        io.writeValue(2, 7);
        echoed = io.readValue(address);
    });
    io.writeValue(1, 55);
    EXPECT_TRUE(runClientUntil(io, [&echoed] { return echoed == 55; }));
}

TEST_F(IoMappingTest, RunDeliversOnTheCallingThread) {
    startService(map);
    IoMapping io;
    std::thread::id calledOn;
    io.enableNotifications(
        1, [&calledOn](int /*address*/, int /*value*/) { calledOn = std::this_thread::get_id(); });
    io.writeValue(1, 1);
    std::thread::id runner;
    std::thread([&] {
        runner = std::this_thread::get_id();
        runClientUntil(io, [&calledOn] { return calledOn != std::thread::id(); });
    }).join();
    EXPECT_EQ(calledOn, runner);
}

TEST_F(IoMappingTest, RunWithoutBlockingReturnsFalseWhenNothingIsThere) {
    startService(map);
    IoMapping io;
    EXPECT_TRUE(runClientUntil(io, [&io] { return !io.run(false); }));
}

TEST_F(IoMappingTest, WakeupEndsARunThatBlocksInAnotherThread) {
    startService(map);
    IoMapping io;
    std::atomic<bool> asked{false};
    std::atomic<bool> returned{false};
    std::thread runner([&] {
        while (!asked) {
            io.run(true);
        }
        returned = true;
    });
    asked = true;
    io.wakeup();
    runner.join();
    EXPECT_TRUE(returned);
}

TEST_F(IoMappingTest, TheLossOfTheBusEndsARunThatBlocksAndTheNextCallSaysSo) {
    startService(map);
    IoMapping io;
    EXPECT_EQ(io.readValue(1), 0);
    std::thread listener([&io] {
        while (failureOf([&io] { io.readValue(1); }) == "no failure") {
            io.run(true);
        }
    });
    bus.kill();
    listener.join();
    EXPECT_EQ(failureOf([&io] { io.readValue(1); }),
              "Error calling method: The connection is closed");
    EXPECT_FALSE(io.isAlive());
}

TEST_F(IoMappingTest, OnAClosedConnectionRunDoesNotBlock) {
    startService(map);
    IoMapping io;
    bus.kill();
    EXPECT_TRUE(runClientUntil(io, [&io] {
        return failureOf([&io] { io.readValue(1); }) ==
               "Error calling method: The connection is closed";
    }));
    EXPECT_TRUE(runClientUntil(io, [&io] { return !io.run(true); }));
    const auto start = std::chrono::steady_clock::now();
    EXPECT_FALSE(io.run(true));
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(90))
        << "a loop that never asks would keep the processor busy";
}

TEST_F(IoMappingTest, ManyThreadsCallWhileChangesArrive) {
    constexpr int THREADS = 4;
    constexpr int ROUNDS = 200;
    startService(map);
    IoMapping io;
    std::atomic<int> delivered{0};
    io.enableNotificationsRange({1, 2, 3, 4},
                                [&delivered](int /*address*/, int /*value*/) { ++delivered; });
    std::atomic<int> mistakes{0};
    std::vector<std::thread> callers;
    for (int address = 1; address <= THREADS; ++address) {
        callers.emplace_back([&io, &mistakes, address] {
            for (int round = 1; round <= ROUNDS; ++round) {
                io.writeValue(address, round);
                mistakes += io.readValues({address, address}) == std::vector<int>(2, round) ? 0 : 1;
            }
        });
    }
    EXPECT_TRUE(runClientUntil(io, [&delivered] { return delivered >= THREADS * ROUNDS; }));
    for (std::thread& caller : callers) {
        caller.join();
    }
    EXPECT_EQ(mistakes, 0);
    EXPECT_EQ(delivered, THREADS * ROUNDS);
}

TEST_F(IoMappingTest, ARestartedServiceIsUsedAgainAndNotificationsGoOn) {
    Process& first = startService(map);
    IoMapping io;
    Changes changes;
    io.enableNotifications(1, into(changes));
    io.writeValue(1, 1);
    EXPECT_TRUE(runClientUntil(io, [&changes] { return changes.size() == 1; }));

    first.signal(SIGTERM);
    first.waitForExit();
    const Deadline deadline;
    while (io.isAlive() && !deadline.passed()) {
    }
    EXPECT_THAT(failureOf([&io] { io.readValue(1); }), StartsWith("Error calling method: "));

    startService(map);
    EXPECT_TRUE(io.isAlive());
    EXPECT_EQ(io.readValue(1), 0);
    io.writeValue(1, 2);
    EXPECT_TRUE(runClientUntil(io, [&changes] { return changes.size() == 2; }));
    EXPECT_THAT(changes, ElementsAre(std::pair(1, 1), std::pair(1, 2)));
}

TEST_F(IoMappingTest, TheComingAndGoingOfTheServiceIsToldInRun) {
    std::vector<bool> told;
    IoMapping io;
    io.watchService([&told](bool present) { told.push_back(present); });
    EXPECT_FALSE(io.isAlive());
    for (int round = 0; round < 2; ++round) {
        Process& service = startService(map);
        EXPECT_TRUE(runClientUntil(io, [&told] { return !told.empty(); }));
        service.signal(SIGTERM);
        service.waitForExit();
        EXPECT_TRUE(runClientUntil(io, [&told] { return told.size() >= 2; }));
        EXPECT_THAT(told, ElementsAre(true, false));
        told.clear();
    }
}

TEST_F(IoMappingTest, ACallbackOfTheServiceMayReadTheNewValues) {
    IoMapping io;
    int value = -1;
    io.watchService([&io, &value](bool present) {
        if (present) {
            value = io.readValue(1);
        }
    });
    startService(map);
    EXPECT_TRUE(runClientUntil(io, [&value] { return value == 0; }));
}

TEST_F(IoMappingTest, AServiceWhoseNameIsTakenOverGoesAndComes) {
    startService(map);
    IoMapping io;
    std::vector<bool> told;
    io.watchService([&told](bool present) { told.push_back(present); });
    EXPECT_TRUE(io.isAlive());
    const ObjectOwner<GDBusConnection> other = connectToBus();
    takeName(other.get());
    EXPECT_TRUE(runClientUntil(io, [&told] { return told.size() >= 2; }));
    EXPECT_THAT(told, ElementsAre(false, true));
    g_dbus_connection_close_sync(other.get(), nullptr, nullptr);
}

TEST_F(IoMappingTest, TheLossOfTheBusIsToldAsAServiceThatGoes) {
    startService(map);
    IoMapping io;
    std::vector<bool> told;
    io.watchService([&told](bool present) { told.push_back(present); });
    EXPECT_TRUE(io.isAlive());
    bus.kill();
    EXPECT_TRUE(runClientUntil(io, [&told] { return !told.empty(); }));
    EXPECT_FALSE(told.back());
}

TEST_F(IoMappingTest, AServiceThatIsNotWatchedAnyMoreIsNotTold) {
    IoMapping io;
    std::vector<bool> dropped;
    io.watchService([&dropped](bool present) { dropped.push_back(present); });
    const ObjectOwner<GDBusConnection> service = connectToBus();
    takeName(service.get());
    EXPECT_TRUE(io.isAlive()) << "its coming is queued by now";
    io.watchService({});
    Changes changes;
    io.enableNotifications(1, into(changes));
    g_dbus_connection_emit_signal(service.get(), nullptr, BusClient::PATH, BusClient::INTERFACE,
                                  "OnValueChange", g_variant_new("(ii)", 1, 1), nullptr);
    EXPECT_TRUE(runClientUntil(io, [&changes] { return !changes.empty(); }));
    EXPECT_THAT(dropped, IsEmpty());
    g_dbus_connection_close_sync(service.get(), nullptr, nullptr);
}

TEST_F(IoMappingTest, AnApplicationThatNeverRunsFindsTheRestartedService) {
    Process& first = startService(map);
    IoMapping io;
    EXPECT_EQ(io.readValue(1), 0);
    first.signal(SIGTERM);
    first.waitForExit();
    startService(map);
    EXPECT_EQ(io.readValue(1), 0);
}

TEST_F(IoMappingTest, TwoObjectsInOneProcessEachGetTheirChanges) {
    startService(map);
    IoMapping one;
    IoMapping two;
    Changes ofOne;
    Changes ofTwo;
    one.enableNotifications(1, into(ofOne));
    two.enableNotificationsRange({1, 2}, into(ofTwo));
    two.writeValue(1, 11);
    one.writeValue(2, 22);
    EXPECT_TRUE(runClientUntil(one, [&] { return ofOne.size() + ofTwo.size() >= 3; }));
    EXPECT_THAT(ofOne, ElementsAre(std::pair(1, 11)));
    EXPECT_THAT(ofTwo, ElementsAre(std::pair(1, 11), std::pair(2, 22)));
}

TEST_F(IoMappingTest, SignalsOfOthersAreNotTaken) {
    startService(map);
    IoMapping io;
    Changes changes;
    io.enableNotifications(1, into(changes));
    const BusClient stranger;
    g_dbus_connection_emit_signal(stranger.connection(), nullptr, BusClient::PATH,
                                  BusClient::INTERFACE, "OnValueChange",
                                  g_variant_new("(ii)", 1, 666), nullptr);
    g_dbus_connection_flush_sync(stranger.connection(), nullptr, nullptr);
    io.writeValue(1, 3);
    EXPECT_TRUE(runClientUntil(io, [&changes] { return !changes.empty(); }));
    EXPECT_THAT(changes, ElementsAre(std::pair(1, 3)));
}

/// One round of an application's own loop.
///
/// @return whether anything of the object was delivered
bool pollOnce(IoMapping& io, std::vector<pollfd>& descriptors) {
    const int timeout = io.beginWait(descriptors);
    const int patience = Deadline().milliseconds();
    poll(descriptors.data(), descriptors.size(),
         timeout < 0 ? patience : std::min(timeout, patience));
    return io.endWait(descriptors);
}

TEST_F(IoMappingTest, ALoopOfTheApplicationsOwnDeliversChanges) {
    startService(map);
    IoMapping io;
    Changes changes;
    io.enableNotifications(1, into(changes));
    std::atomic<bool> waits{false};
    // The change comes while poll() waits, as the loop is told of nothing else.
    std::thread writer([&] {
        while (!waits) {
        }
        IoMapping().writeValue(1, 7);
    });
    bool delivered = false;
    const Deadline deadline;
    while (changes.empty() && !deadline.passed()) {
        std::vector<pollfd> descriptors;
        const int timeout = io.beginWait(descriptors);
        waits = true;
        poll(descriptors.data(), descriptors.size(),
             timeout < 0 ? deadline.milliseconds() : timeout);
        delivered = io.endWait(descriptors);
    }
    waits = true;
    writer.join();
    EXPECT_THAT(changes, ElementsAre(std::pair(1, 7)));
    EXPECT_TRUE(delivered);
}

TEST_F(IoMappingTest, ALoopOfTheApplicationsOwnKeepsItsDescriptors) {
    IoMapping io;
    std::array<int, 2> ends{};
    ASSERT_EQ(pipe(ends.data()), 0);
    const FileDescriptor reader(ends[0]);
    const FileDescriptor writer(ends[1]);
    ASSERT_EQ(write(writer.get(), "x", 1), 1);
    std::vector<pollfd> descriptors{{reader.get(), POLLIN, 0}};
    pollOnce(io, descriptors);
    ASSERT_GE(descriptors.size(), 2U);
    EXPECT_EQ(descriptors[0].fd, reader.get());
    EXPECT_EQ(descriptors[0].revents, POLLIN);
}

TEST_F(IoMappingTest, WakeupEndsAWaitOfTheApplicationsOwnLoop) {
    IoMapping io;
    while (io.run(false)) {
    }
    std::vector<pollfd> descriptors;
    io.beginWait(descriptors);
    std::thread([&io] { io.wakeup(); }).join();
    EXPECT_GT(poll(descriptors.data(), descriptors.size(), Deadline().milliseconds()), 0);
    io.endWait(descriptors);
}

TEST_F(IoMappingTest, OneThreadAtATimeWaits) {
    IoMapping io;
    std::vector<pollfd> descriptors;
    io.beginWait(descriptors);
    std::thread([&io] {
        std::vector<pollfd> others;
        EXPECT_THROW(io.beginWait(others), tesk::InvalidStateException);
    }).join();
    io.endWait(descriptors);
    EXPECT_THROW(io.endWait(descriptors), tesk::InvalidStateException);
    std::thread([&io] {
        std::vector<pollfd> others;
        io.beginWait(others);
        io.endWait(others);
    }).join();
}

TEST_F(IoMappingTest, AWaitThatIsGivenUpLeavesTheLoopToOthers) {
    std::vector<pollfd> descriptors;
    {
        IoMapping io;
        io.beginWait(descriptors);
        descriptors.clear();
        io.beginWait(descriptors);
    }
    std::thread([] {
        IoMapping io;
        std::vector<pollfd> others;
        io.beginWait(others);
        io.endWait(others);
    }).join();
}

TEST_F(IoMappingTest, AMainLoopOfTheApplicationsOwnDeliversChanges) {
    startService(map);
    IoMapping io;
    Changes changes;
    io.enableNotifications(1, into(changes));
    io.writeValue(1, 5);
    EXPECT_TRUE(runUntil([&changes] { return !changes.empty(); }));
}

}  // namespace
