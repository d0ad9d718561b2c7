// SPDX-License-Identifier: MIT
#include <gmock/gmock.h>

#include <atomic>
#include <filesystem>
#include <random>
#include <thread>

#include "BlockingClient.h"
#include "Build.h"
#include "BusContract.h"
#include "BusFixture.h"
#include "ChangeListeners.h"
#include "WatchedFiles.h"

namespace {

constexpr int FILES = 40;
constexpr int LAST_FILE = FILES;

/// Changes of watched files, as clients hear of them.
class ChangesTest : public BusFixture, public testing::WithParamInterface<int> {
 protected:
    static void SetUpTestSuite() { std::filesystem::remove_all("/sys/kernel"); }

    static void write(const BlockingClient& client, int address, int value) {
        client.call(BusContract::SERVICE_NAME, "Write", g_variant_new("(ii)", address, value));
    }

    /// The number in a file, as the standard library reads it.
    int valueIn(int relay) const {
        std::ifstream file(files.path(relay));
        int value = 0;
        file >> value;
        return value;
    }

    WatchedFiles files{FILES};
};

TEST_P(ChangesTest, EveryListenerHearsTheValueOfEveryChange) {
    startService(mapOf({files.field()}));
    const ChangeListeners listeners(CHANGE_LISTENER, GetParam());
    for (int relay = 1; relay <= FILES; ++relay) {
        files.set(relay, 100 + relay);
        ASSERT_TRUE(listeners.waitUntilAllHeard(relay, 100 + relay)) << "relay " << relay;
    }
    const BlockingClient client;
    write(client, 1, 1);
    ASSERT_TRUE(listeners.waitUntilAllHeard(1, 1));
    for (std::size_t i = 0; i < listeners.count(); ++i) {
        // The service empties the file before it writes, which may be heard as a change, too.
        EXPECT_GE(listeners.heard(i).count, FILES + 1U);
        EXPECT_LE(listeners.heard(i).count, FILES + 2U);
    }
}

TEST_P(ChangesTest, EveryRegisterOnAFileIsAnnounced) {
    const std::string relays = R"(, "size": 32, "type": "relay", "driver": "kr62", "count": )";
    startService(mapOf({files.field(), R"({"address": 500)" + relays + "2}",
                        R"({"address": 400)" + relays + "1}"}));
    const ChangeListeners listeners(CHANGE_LISTENER, GetParam());
    files.set(1, 7);
    for (const int address : {1, 500, 400}) {
        EXPECT_TRUE(listeners.waitUntilAllHeard(address, 7)) << "address " << address;
    }
    files.set(2, 8);
    for (const int address : {2, 501}) {
        EXPECT_TRUE(listeners.waitUntilAllHeard(address, 8)) << "address " << address;
    }
    for (std::size_t i = 0; i < listeners.count(); ++i) {
        EXPECT_EQ(listeners.heard(i).count, 5U);
    }
}

TEST_P(ChangesTest, TheLastValueToldIsTheFilesWhoeverWritesAtTheSameTime) {
    constexpr int CHANGES_PER_WRITER = EMULATED ? 100 : 2500;
    startService(mapOf({files.field()}));
    const ChangeListeners listeners(CHANGE_LISTENER, GetParam());

    const auto writer = [](int seed, const auto& writeOne) {
        std::mt19937 random(static_cast<unsigned>(seed));
        // There are few files, so that the writers often meet at one.
        std::uniform_int_distribution<int> relays(1, 8);
        std::uniform_int_distribution<int> values(0, 1'000'000);
        for (int i = 0; i < CHANGES_PER_WRITER; ++i) {
            writeOne(relays(random), values(random));
        }
    };
    const auto intoEmptiedFile = [this](int relay, int value) {
        std::ofstream(files.path(relay)) << value;
    };
    std::atomic<bool> reading{true};
    std::thread reader([&reading] {
        const BlockingClient client;
        while (reading) {
            client.call(BusContract::SERVICE_NAME, "Read", g_variant_new("(i)", 1));
        }
    });
    std::vector<std::thread> writers;
    for (int i = 0; i < 2; ++i) {
        writers.emplace_back([&, i] {
            const BlockingClient client;
            writer(i, [&client](int relay, int value) { write(client, relay, value % 2); });
        });
        writers.emplace_back([&, i] { writer(10 + i, intoEmptiedFile); });
    }
    for (std::thread& each : writers) {
        each.join();
    }
    reading = false;
    reader.join();

    files.set(LAST_FILE, 7);
    ASSERT_TRUE(listeners.waitUntilAllHeard(LAST_FILE, 7));
    for (std::size_t i = 0; i < listeners.count(); ++i) {
        for (int relay = 1; relay <= FILES; ++relay) {
            EXPECT_EQ(listeners.heard(i).last.at(static_cast<std::size_t>(relay)), valueIn(relay))
                << "listener " << i << ", relay " << relay;
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Listeners, ChangesTest, testing::Values(1, 2, 10));

}  // namespace
