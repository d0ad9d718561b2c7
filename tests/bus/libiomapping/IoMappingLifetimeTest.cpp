// SPDX-License-Identifier: MIT
#include <gmock/gmock.h>
#include <unistd.h>

#include <iostream>
#include <memory>

#include "BusConnection.h"
#include "BusFixture.h"
#include "Deadline.h"
#include "IoMapping.h"
#include "ProcessFigures.h"
#include "Soak.h"
#include "tesk/Exceptions.h"

namespace {

class IoMappingLifetimeTest : public BusFixture {
 protected:
    void serve() { startService(mapOf({R"({"address": 1, "size": 32, "count": 10})"})); }

    /// Expects that GLib's main context still serves an application.
    static void expectWorkingMainContext() {
        IoMapping io;
        int received = 0;
        io.enableNotifications(1, [&received](int /*address*/, int value) { received = value; });
        io.writeValue(1, 42);
        const Deadline deadline;
        while (received == 0 && !deadline.passed()) {
            io.run(false);
        }
        EXPECT_EQ(received, 42);

        const MainLoopOwner loop(g_main_loop_new(nullptr, FALSE));
        g_idle_add(
            [](gpointer running) -> gboolean {
                g_main_loop_quit(static_cast<GMainLoop*>(running));
                return G_SOURCE_REMOVE;
            },
            loop.get());
        g_main_loop_run(loop.get());
    }
};

TEST_F(IoMappingLifetimeTest, AThousandObjectsComeAndGoAndTheMainContextStays) {
    constexpr int OBJECTS = EMULATED ? 100 : 1000;
    serve();
    for (int i = 0; i < OBJECTS; ++i) {
        IoMapping io;
        if (i % 100 == 0) {
            EXPECT_EQ(io.readValue(1), 0);
        }
    }
    expectWorkingMainContext();
}

TEST_F(IoMappingLifetimeTest, TwoLivingObjectsMayGoInEitherOrder) {
    serve();
    for (int i = 0; i < 50; ++i) {
        auto first = std::make_unique<IoMapping>();
        auto second = std::make_unique<IoMapping>();
        (i % 2 == 0 ? first : second).reset();
        const auto& left = i % 2 == 0 ? second : first;
        left->run(false);
        EXPECT_EQ(left->readValue(1), 0);
    }
    expectWorkingMainContext();
}

TEST_F(IoMappingLifetimeTest, AnObjectLeavesNoDescriptorBehindAlsoAfterALivenessCheck) {
    serve();
    const auto live = [] {
        IoMapping io;
        EXPECT_TRUE(io.isAlive());
    };
    live();
    ASSERT_TRUE(runUntil([] { return g_main_context_pending(nullptr) == FALSE; }));
    const auto before = openDescriptors(getpid());
    for (int i = 0; i < 20; ++i) {
        live();
    }
    EXPECT_TRUE(runUntil([before] { return openDescriptors(getpid()) <= before; }));
}

TEST_F(IoMappingLifetimeTest, NoRestartOfTheServiceQueuesAnythingForAClientThatNeverRuns) {
    constexpr int RESTARTS = 20;
    IoMapping io;
    while (io.run(false)) {
    }
    const auto failure = [&io] {
        try {
            io.readValue(1);
        } catch (const tesk::InputOutputException& e) {
            return std::string(e.what());
        }
        return std::string();
    };
    // What the connections of this test queue does not count.
    const MainContextOwner own(g_main_context_new());
    g_main_context_push_thread_default(own.get());
    for (int i = 0; i < RESTARTS; ++i) {
        // Of a service the bus tells that its name has come and gone.
        const ObjectOwner<GDBusConnection> service = connectToBus();
        const VariantOwner owned(g_dbus_connection_call_sync(
            service.get(), "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus",
            "RequestName", g_variant_new("(su)", BusClient::SERVICE, 0), nullptr,
            G_DBUS_CALL_FLAGS_NONE, -1, nullptr, nullptr));
        EXPECT_TRUE(owned);
        EXPECT_THAT(failure(), testing::HasSubstr("UnknownMethod"));
        g_dbus_connection_close_sync(service.get(), nullptr, nullptr);
        const Deadline deadline;
        while (failure().find("ServiceUnknown") == std::string::npos && !deadline.passed()) {
        }
    }
    g_main_context_pop_thread_default(own.get());
    EXPECT_FALSE(io.run(false)) << "something was queued";
}

TEST_F(IoMappingLifetimeTest, AClientThatNeverRunsDoesNotGrowWithTheChangesItIgnores) {
    // The sanitizers keep freed memory: with them the path is only exercised, not measured.
    const int changes = SANITIZED || EMULATED ? 20'000 : soakOr(1'000'000, 100'000);
    constexpr double LIMIT_KIB = SANITIZED ? 1'000'000 : 1024;
    constexpr int BURST = 1000;
    const Process storm({CHANGE_STORM});
    BusClient().waitForService();
    IoMapping io;
    const auto cause = [&io](int count) {
        for (int sent = 0; sent < count; sent += BURST) {
            io.writeValue(1, BURST);
        }
    };
    cause(10 * BURST);
    const double before = kilobytes(getpid(), "status", "VmRSS:");
    cause(changes);
    const double growth = kilobytes(getpid(), "status", "VmRSS:") - before;
    std::cout << changes << " changes, growth " << growth << " KiB\n";
    recordFigure("growth", growth);
    EXPECT_LT(growth, LIMIT_KIB);

    int last = 0;
    io.enableNotifications(1, [&last](int /*address*/, int value) { last = value; });
    io.writeValue(1, BURST);
    const Deadline deadline;
    while (last < BURST && !deadline.passed()) {
        io.run(false);
    }
    EXPECT_EQ(last, BURST) << "the changes did not reach this client at all";
}

}  // namespace
