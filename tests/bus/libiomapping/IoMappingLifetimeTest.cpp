// SPDX-License-Identifier: MIT
#include <gmock/gmock.h>

#include <filesystem>
#include <fstream>
#include <iostream>
#include <memory>

#include "BusFixture.h"
#include "Deadline.h"
#include "IoMapping.h"

namespace {

class IoMappingLifetimeTest : public BusFixture {
 protected:
    void serve() { startService(mapOf({R"({"address": 1, "size": 32, "count": 10})"})); }

    /// Everything of GLib's main context that an application may use still works.
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

        GMainLoop* loop = g_main_loop_new(nullptr, FALSE);
        g_idle_add(
            [](gpointer running) -> gboolean {
                g_main_loop_quit(static_cast<GMainLoop*>(running));
                return G_SOURCE_REMOVE;
            },
            loop);
        g_main_loop_run(loop);
        g_main_loop_unref(loop);
    }

    static std::size_t openDescriptors() {
        const std::filesystem::directory_iterator entries("/proc/self/fd");
        return static_cast<std::size_t>(std::distance(begin(entries), end(entries)));
    }

    /// The resident memory of this process in KiB.
    static long residentMemory() {
        std::ifstream status("/proc/self/status");
        for (std::string key; status >> key;) {
            if (key == "VmRSS:") {
                long kibibytes = 0;
                status >> kibibytes;
                return kibibytes;
            }
        }
        return -1;
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
    const std::size_t before = openDescriptors();
    for (int i = 0; i < 20; ++i) {
        live();
    }
    EXPECT_TRUE(runUntil([before] { return openDescriptors() <= before; }));
}

TEST_F(IoMappingLifetimeTest, AClientThatNeverRunsDoesNotGrowWithTheChangesItIgnores) {
    // The sanitizers keep freed memory: with them the path is only exercised, not measured.
    constexpr int CHANGES = SANITIZED || EMULATED ? 20'000 : 1'000'000;
    constexpr long LIMIT_KIB = SANITIZED ? 1'000'000 : 1024;
    constexpr int BURST = 1000;
    const Process storm({CHANGE_STORM});
    BusClient().waitForService();
    IoMapping io;
    const auto cause = [&io](int changes) {
        for (int sent = 0; sent < changes; sent += BURST) {
            io.writeValue(1, BURST);
        }
    };
    cause(10 * BURST);
    const long before = residentMemory();
    cause(CHANGES);
    const long growth = residentMemory() - before;
    std::cout << CHANGES << " changes, growth " << growth << " KiB\n";
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
