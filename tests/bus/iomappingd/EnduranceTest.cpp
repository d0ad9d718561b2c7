// SPDX-License-Identifier: MIT
#include <gmock/gmock.h>

#include <filesystem>

#include "BlockingClient.h"
#include "Build.h"
#include "BusContract.h"
#include "BusFixture.h"
#include "ChangeListeners.h"
#include "ProcessFigures.h"
#include "Soak.h"
#include "WatchedFiles.h"

namespace {

// A day; an hour where a day is not asked for.
const int SECONDS = soakOr(86'400, 3'600);
constexpr int FILES = 10;
constexpr int VIRTUAL = 101;
constexpr double LARGEST_GROWTH = 256;  // kilobytes

class EnduranceTest : public BusFixture {
 protected:
    static void SetUpTestSuite() { std::filesystem::remove_all("/sys/kernel"); }

    /// What happens on a device in a second: an input changes, somebody reads, somebody writes.
    void second(const BlockingClient& client, int number) {
        files.set(1 + number % FILES, number);
        client.call(BusContract::SERVICE_NAME, "Read", g_variant_new("(i)", 1 + number % FILES));
        client.call(BusContract::SERVICE_NAME, "Write", g_variant_new("(ii)", VIRTUAL, number));
    }

    WatchedFiles files{FILES};
};

TEST_F(EnduranceTest, TrafficLeavesMemoryAndDescriptorsAsTheyWere) {
    const Process& service =
        startService(mapOf({files.field(), R"({"address": 101, "size": 32, "count": 1})"}));
    const ChangeListeners listeners(CHANGE_LISTENER, 2);
    const BlockingClient client;
    constexpr int WARM_UP = 500;
    for (int number = 1; number <= WARM_UP; ++number) {
        second(client, number);
    }
    ASSERT_TRUE(listeners.waitUntilAllHeard(VIRTUAL, WARM_UP));
    const double memory = kilobytes(service.pid(), "status", "VmRSS:");
    const auto descriptors = openDescriptors(service.pid());
    for (int number = WARM_UP + 1; number <= SECONDS; ++number) {
        second(client, number);
    }
    EXPECT_TRUE(listeners.waitUntilAllHeard(VIRTUAL, SECONDS));
    recordFigure("told", listeners.told());
    recordFigure("lost", listeners.missing(VIRTUAL, SECONDS));
    EXPECT_EQ(openDescriptors(service.pid()), descriptors);
    const double growth = kilobytes(service.pid(), "status", "VmRSS:") - memory;
    recordFigure("growth", growth);
    std::cout << "growth in " << SECONDS << " s of traffic: " << growth << " kB\n";
    if (!SANITIZED) {
        EXPECT_LE(growth, LARGEST_GROWTH);
    }
}

}  // namespace
