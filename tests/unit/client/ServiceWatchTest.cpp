// SPDX-License-Identifier: MIT
#include "client/ServiceWatch.h"

#include <gmock/gmock.h>

#include <csignal>
#include <memory>
#include <string>
#include <vector>

#include "BusClient.h"
#include "Deadline.h"
#include "PrivateBus.h"
#include "client/Failure.h"
#include "support/GLibOwners.h"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::ThrowsMessage;

using Event = ServiceWatch::Event;

constexpr const char* NAME = "org.mirel.IoMapping";

/// Stands for the service: owns a name on the bus while it lives.
class NameOwner {
 public:
    explicit NameOwner(const char* name = NAME) {
        const VariantOwner reply(g_dbus_connection_call_sync(
            client.connection(), "org.freedesktop.DBus", "/org/freedesktop/DBus",
            "org.freedesktop.DBus", "RequestName", g_variant_new("(su)", name, 0), nullptr,
            G_DBUS_CALL_FLAGS_NONE, -1, nullptr, nullptr));
        EXPECT_TRUE(reply);
    }

 private:
    BusClient client;
};

class ServiceWatchTest : public testing::Test {
 protected:
    ~ServiceWatchTest() override {
        watch.reset();
        while (g_main_context_iteration(nullptr, FALSE) != FALSE) {
        }
    }

    void start() { watch = std::make_unique<ServiceWatch>(); }

    /// Waits until something happens.
    std::vector<Event> nextEvents() {
        std::vector<Event> events;
        EXPECT_TRUE(runUntil([this, &events] {
            events = watch->takeEvents();
            return !events.empty();
        }));
        return events;
    }

    PrivateBus bus;
    std::unique_ptr<ServiceWatch> watch;
};

TEST_F(ServiceWatchTest, TheFirstEventSaysThatTheServiceIsThere) {
    const NameOwner service;
    start();
    EXPECT_THAT(watch->takeEvents(), IsEmpty()) << "the main context has not run";
    EXPECT_THAT(nextEvents(), ElementsAre(Event::CAME));
}

TEST_F(ServiceWatchTest, TheFirstEventSaysThatTheServiceIsNotThere) {
    start();
    EXPECT_THAT(nextEvents(), ElementsAre(Event::WENT));
}

TEST_F(ServiceWatchTest, HearsOfEveryComingAndGoing) {
    start();
    nextEvents();
    for (int round = 0; round < 2; ++round) {
        auto service = std::make_unique<NameOwner>();
        EXPECT_THAT(nextEvents(), ElementsAre(Event::CAME));
        EXPECT_THAT(watch->takeEvents(), IsEmpty()) << "it has been taken";
        service.reset();
        EXPECT_THAT(nextEvents(), ElementsAre(Event::WENT));
    }
}

TEST_F(ServiceWatchTest, DoesNotHeedOtherServices) {
    start();
    nextEvents();
    const NameOwner other("org.example.Other");
    const NameOwner service;
    EXPECT_THAT(nextEvents(), ElementsAre(Event::CAME));
}

TEST_F(ServiceWatchTest, TheLossOfTheBusIsTheOnlyEventOfItsOwn) {
    start();
    nextEvents();
    bus.kill();
    EXPECT_THAT(nextEvents(), ElementsAre(Event::BUS_LOST));
}

TEST_F(ServiceWatchTest, ABusThatDoesNotAnswerIsGivenUp) {
    bus.signal(SIGSTOP);
    EXPECT_THAT([] { ServiceWatch(); },
                ThrowsMessage<Failure>("cannot reach the D-Bus system bus: Timeout was reached"));
}

TEST_F(ServiceWatchTest, ABusThatDoesNotSayWhetherTheServiceIsThereIsGivenUp) {
    // The watch shares this connection, so that it finds one to a bus that is stopped already.
    const ObjectOwner<GDBusConnection> shared(g_bus_get_sync(G_BUS_TYPE_SYSTEM, nullptr, nullptr));
    bus.signal(SIGSTOP);
    start();
    EXPECT_THAT([this] { watch->waitForFirstEvent(); },
                ThrowsMessage<Failure>("cannot reach the D-Bus system bus: Timeout was reached"));
    bus.signal(SIGCONT);
    watch->waitForFirstEvent();
    EXPECT_THAT(watch->takeEvents(), ElementsAre(Event::WENT));
}

TEST_F(ServiceWatchTest, WithoutABusThereIsNoWatch) {
    bus.kill();
    EXPECT_THAT([] { ServiceWatch(); },
                ThrowsMessage<Failure>(HasSubstr("cannot reach the D-Bus system bus: ")));
}

}  // namespace
