// SPDX-License-Identifier: MIT
#include <Poco/Exception.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "BusClient.h"
#include "CapturedLog.h"
#include "Deadline.h"
#include "FakeDriver.h"
#include "KR62Driver.h"
#include "LoggerNames.h"
#include "NotifierAsleep.h"
#include "PeerConnection.h"
#include "RegisterMap.h"
#include "TemporaryDirectory.h"
#include "tesk/Exceptions.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;

constexpr const char* FIELDS = R"({"io_mapping": [
    {"address": 1, "size": 8, "count": 2},
    {"address": 10, "size": 8, "count": 1, "type": "input_digital", "driver": "kr62"},
    {"address": 20, "size": 8, "count": 1, "type": "cts", "driver": "gpiochip-0"}]})";

class RegisterMapNotificationTest : public testing::Test {
 protected:
    RegisterMapNotificationTest() {
        // The child of a death test would inherit GDBus's locks without GDBus's threads.
        testing::GTEST_FLAG(death_test_style) = "threadsafe";
        drivers.addDriver(std::make_shared<FakeDriver>(DriverInterface::VADU));
        drivers.addDriver(kr62);
        drivers.addDriver(gpio);
        map.parse();
        log.clear();
    }

    Register* at(int address) const { return map.getRegisterByAddress(address).get(); }

    /// Closes the connection on the side of the service.
    void close() const {
        ASSERT_TRUE(g_dbus_connection_close_sync(peer.service(), nullptr, nullptr));
        // Its other thread takes note of that only later.
        ASSERT_TRUE(runUntil([this] { return g_dbus_connection_is_closed(peer.service()); }));
    }

    /// The lines of the map's own logger.
    std::vector<CapturedLog::Line> linesOfMap() const {
        std::vector<CapturedLog::Line> result;
        for (const CapturedLog::Line& line : log.lines()) {
            if (line.source == loggerNameOf("register-map", &map)) {
                result.push_back(line);
            }
        }
        return result;
    }

    /// Expects that this one line, and no other, came from the map.
    void expectLine(Poco::Message::Priority priority, const std::string& text) const {
        const auto lines = linesOfMap();
        ASSERT_EQ(lines.size(), 1U);
        EXPECT_EQ(lines[0].priority, priority);
        EXPECT_EQ(lines[0].text, text);
    }

    std::shared_ptr<FakeDriver> kr62{std::make_shared<FakeDriver>(DriverInterface::KR62)};
    std::shared_ptr<FakeDriver> gpio{std::make_shared<FakeDriver>(DriverInterface::GPIOCHIP, 0)};
    DriverManager drivers;
    CapturedLog log;
    TemporaryDirectory directory;
    PeerConnection peer;
    RegisterMap map{peer.service(), directory.file("map.json", FIELDS), drivers};
    BusClient client{peer.client()};
};

TEST_F(RegisterMapNotificationTest, ANotificationCarriesAddressAndValue) {
    kr62->convert = [](RegisterType, int, int) { return -7; };
    map.createNotification(at(10));
    EXPECT_TRUE(client.waitForChanges(1));
    EXPECT_THAT(client.changes(), ElementsAre(Pair(10, -7)));
    expectLine(Poco::Message::PRIO_INFORMATION, "notification sent with value -7 for address 10");
}

TEST_F(RegisterMapNotificationTest, TheSignalComesFromTheObjectOfTheService) {
    std::vector<std::string> received;
    const guint subscription = g_dbus_connection_signal_subscribe(
        peer.client(), nullptr, nullptr, nullptr, nullptr, nullptr, G_DBUS_SIGNAL_FLAGS_NONE,
        [](GDBusConnection* /*connection*/, const gchar* /*sender*/, const gchar* path,
           const gchar* interface, const gchar* signal, GVariant* parameters, gpointer target) {
            const StringOwner arguments(g_variant_print(parameters, TRUE));
            static_cast<std::vector<std::string>*>(target)->push_back(
                std::string(path) + " " + interface + "." + signal + arguments.get());
        },
        &received, nullptr);
    map.createNotification(at(1));
    EXPECT_TRUE(runUntil([&received] { return !received.empty(); }));
    g_dbus_connection_signal_unsubscribe(peer.client(), subscription);
    EXPECT_THAT(received,
                ElementsAre("/org/mirel/register org.mirel.Register.OnValueChange(1, 0)"));
}

TEST_F(RegisterMapNotificationTest, EveryAcceptedWriteToAVirtualRegisterIsNotified) {
    at(1)->writeValue(5);
    at(1)->writeValue(5);
    at(2)->writeValue(6);
    EXPECT_THROW(at(2)->writeValue(256), tesk::InvalidArgumentsException);
    at(1)->writeValue(0);
    EXPECT_TRUE(client.waitForChanges(4));
    EXPECT_THAT(client.changes(), ElementsAre(Pair(1, 5), Pair(1, 5), Pair(2, 6), Pair(1, 0)));
}

TEST_F(RegisterMapNotificationTest, WhatADriverReportsIsReadAnewAndNotified) {
    const std::vector<std::pair<FakeDriver*, int>> rows{{kr62.get(), 10}, {gpio.get(), 20}};
    for (const auto& [driver, address] : rows) {
        log.clear();
        ASSERT_EQ(driver->notifications().size(), 1U);
        int value = 40;
        driver->convert = [&value](RegisterType, int, int) { return ++value; };
        const std::size_t before = client.changes().size();
        driver->notifications().front()(12345);
        driver->notifications().front()(-1);
        EXPECT_TRUE(client.waitForChanges(before + 2));
        const std::vector<BusClient::Change> changes(
            client.changes().begin() + static_cast<std::ptrdiff_t>(before), client.changes().end());
        EXPECT_THAT(changes, ElementsAre(Pair(address, 41), Pair(address, 42)));
        EXPECT_EQ(linesOfMap().size(), 2U);
    }
}

TEST_F(RegisterMapNotificationTest, AChangeOfAFileAnnouncesEveryRegisterOnItInTheOrderOfTheMap) {
    const std::string board = "/sys/kernel/kr62/";
    writeFile(board + "info_io", "relays 2\n");
    writeFile(board + "relays/1/value", "0");
    writeFile(board + "relays/2/value", "0");
    const auto setRelay = [&board](int relay) {
        // Not emptied first, which would be a change of its own.
        std::fstream(board + "relays/" + std::to_string(relay) + "/value") << "1";
    };
    DriverManager boards;
    boards.addDriver(std::make_shared<KR62Driver>());
    const PeerConnection connection;
    BusClient listener{connection.client()};
    const std::string relays = R"(, "size": 8, "type": "relay", "driver": "kr62", "count": )";
    const std::string fields = R"({"io_mapping": [{"address": 30)" + relays + R"(2},
        {"address": 10)" + relays +
                               R"(1}, {"address": 20)" + relays + "2}]}";
    RegisterMap shared(connection.service(), directory.file("shared.json", fields), boards);
    shared.parse();
    setRelay(1);
    EXPECT_TRUE(listener.waitForChanges(3));
    setRelay(2);
    EXPECT_TRUE(listener.waitForChanges(5));
    // The watches end here, so that the notifier never calls a register that has gone.
    std::filesystem::remove_all("/sys/kernel");
    untilNotifierSleeps(log);
    EXPECT_THAT(listener.changes(),
                ElementsAre(Pair(30, 1), Pair(10, 1), Pair(20, 1), Pair(31, 1), Pair(21, 1)));
}

TEST_F(RegisterMapNotificationTest, AWriteToHardwareIsNotNotifiedUntilTheDriverReportsIt) {
    at(10)->writeValue(1);
    at(20)->writeValue(1);
    EXPECT_THAT(linesOfMap(), IsEmpty());
    at(1)->writeValue(9);
    EXPECT_TRUE(client.waitForChanges(1));
    EXPECT_THAT(client.changes(), ElementsAre(Pair(1, 9)));
}

TEST_F(RegisterMapNotificationTest, NotificationsMayComeFromAnyThread) {
    kr62->convert = [](RegisterType, int, int) { return 3; };
    std::thread notifier([this] {
        for (int i = 0; i < 10; ++i) {
            kr62->notifications().front()(0);
        }
    });
    EXPECT_EQ(client.call("Read", "(1,)").text(), "(0,)");
    EXPECT_TRUE(client.waitForChanges(10));
    notifier.join();
    EXPECT_EQ(client.changes(), std::vector<BusClient::Change>(10, {10, 3}));
}

TEST_F(RegisterMapNotificationTest, AReadThatFailsSendsNothingAndLogsOneErrorLine) {
    const std::vector<std::function<void()>> throwers{
        [] { throw tesk::InputOutputException("error opening file '/sys/x' for reading"); },
        [] { throw std::runtime_error("100% %s"); },
        [] { throw std::runtime_error(""); },
        [] { throw Poco::SyntaxException("Not a valid hexadecimal integer"); },
    };
    const std::vector<std::string> texts{"error opening file '/sys/x' for reading", "100% %s", "",
                                         "Syntax error: Not a valid hexadecimal integer"};
    for (std::size_t i = 0; i < throwers.size(); ++i) {
        log.clear();
        kr62->convert = [&throwers, i](RegisterType, int value, int) {
            throwers[i]();
            return value;
        };
        map.createNotification(at(10));
        expectLine(Poco::Message::PRIO_ERROR, "error reading value for notification: " + texts[i]);
    }
    map.createNotification(at(1));
    EXPECT_TRUE(client.waitForChanges(1));
    EXPECT_THAT(client.changes(), ElementsAre(Pair(1, 0)));
}

TEST_F(RegisterMapNotificationTest, ASignalThatCannotBeSentIsAnErrorLine) {
    close();
    GError* error = nullptr;
    ASSERT_FALSE(map.sendSignal("OnValueChange", g_variant_new("(ii)", 1, 1), &error));
    const ErrorOwner owner(error);
    map.createNotification(at(10));
    expectLine(Poco::Message::PRIO_ERROR,
               std::string("error sending notification: ") + error->message);
}

TEST_F(RegisterMapNotificationTest, AWriteHoldsEvenIfItsSignalCannotBeSent) {
    close();
    at(1)->writeValue(5);
    EXPECT_EQ(at(1)->readValue(), 5);
    EXPECT_EQ(log.texts(Poco::Message::PRIO_ERROR).size(), 1U);
}

TEST_F(RegisterMapNotificationTest, LoggersThatTakeNoInformationGetErrorsOnly) {
    Poco::Logger::setLevel("", Poco::Message::PRIO_NOTICE);
    map.createNotification(at(10));
    EXPECT_TRUE(client.waitForChanges(1));
    EXPECT_THAT(log.lines(), IsEmpty());
    kr62->convert = [](RegisterType, int, int) -> int { throw std::runtime_error("no line"); };
    map.createNotification(at(10));
    expectLine(Poco::Message::PRIO_ERROR, "error reading value for notification: no line");
}

// The library keeps its asserts in builds that define NDEBUG, as the default build does.
TEST_F(RegisterMapNotificationTest, ANullRegisterEndsTheProcess) {
    EXPECT_DEATH(map.createNotification(nullptr), "reg != nullptr");
}

}  // namespace
