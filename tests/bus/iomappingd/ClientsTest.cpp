// SPDX-License-Identifier: MIT
#include <gmock/gmock.h>

#include <future>

#include "BlockingClient.h"
#include "BusFixture.h"

namespace {

constexpr const char* SERVICE = BusClient::SERVICE;
constexpr int CLIENTS = 8;
constexpr int ROUNDS = 100;

class ClientsTest : public BusFixture {
 protected:
    /// Writes and reads back one register of its own, over a connection of its own.
    ///
    /// @return how often another value came back
    static int work(int address) {
        const BlockingClient client;
        int mistakes = 0;
        for (int round = 1; round <= ROUNDS; ++round) {
            client.call(SERVICE, "Write", g_variant_new("(ii)", address, round * address));
            const VariantOwner reply = client.call(SERVICE, "Read", g_variant_new("(i)", address));
            gint32 value = -1;
            g_variant_get(reply.get(), "(i)", &value);
            mistakes += value == round * address ? 0 : 1;
        }
        return mistakes;
    }
};

TEST_F(ClientsTest, EightClientsAtOnceEachFindTheirOwnValuesAndSeeEveryChange) {
    startService(mapOf({R"({"address": 1, "size": 32, "count": 8})"}));
    std::vector<std::unique_ptr<BusClient>> watchers;
    for (int i = 0; i < CLIENTS; ++i) {
        watchers.push_back(std::make_unique<BusClient>());
        watchers.back()->call("Read", "(1,)");
    }

    std::vector<std::future<int>> workers;
    for (int address = 1; address <= CLIENTS; ++address) {
        workers.push_back(std::async(std::launch::async, work, address));
    }
    for (const auto& watcher : watchers) {
        EXPECT_TRUE(watcher->waitForChanges(CLIENTS * ROUNDS));
    }
    for (std::future<int>& worker : workers) {
        EXPECT_EQ(worker.get(), 0);
    }
    for (const auto& watcher : watchers) {
        std::vector<int> last(CLIENTS + 1, 0);
        for (const auto& [address, value] : watcher->changes()) {
            EXPECT_EQ(value, last.at(static_cast<std::size_t>(address)) + address);
            last.at(static_cast<std::size_t>(address)) = value;
        }
        EXPECT_EQ(watcher->changes().size(), static_cast<std::size_t>(CLIENTS * ROUNDS));
    }
}

}  // namespace
