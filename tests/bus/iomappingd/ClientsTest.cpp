// SPDX-License-Identifier: MIT
#include <gmock/gmock.h>

#include <atomic>
#include <thread>

#include "BusFixture.h"
#include "Deadline.h"

namespace {

constexpr int CLIENTS = 8;
constexpr int ROUNDS = 100;

class ClientsTest : public BusFixture {
 protected:
    /// Writes and reads back one register of its own, over a connection of its own.
    void work(int address, std::atomic<int>& mistakes) const {
        GDBusConnection* connection = g_dbus_connection_new_for_address_sync(
            bus.address().c_str(),
            static_cast<GDBusConnectionFlags>(G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT |
                                              G_DBUS_CONNECTION_FLAGS_MESSAGE_BUS_CONNECTION),
            nullptr, nullptr, nullptr);
        const auto call = [connection](const char* method, GVariant* arguments) {
            return VariantOwner(g_dbus_connection_call_sync(
                connection, "org.mirel.IoMapping", "/org/mirel/register", "org.mirel.Register",
                method, arguments, nullptr, G_DBUS_CALL_FLAGS_NONE, -1, nullptr, nullptr));
        };
        for (int round = 1; round <= ROUNDS; ++round) {
            call("Write", g_variant_new("(ii)", address, round * address));
            const VariantOwner reply = call("Read", g_variant_new("(i)", address));
            gint32 value = -1;
            if (reply) {
                g_variant_get(reply.get(), "(i)", &value);
            }
            mistakes += value == round * address ? 0 : 1;
        }
        g_dbus_connection_close_sync(connection, nullptr, nullptr);
        g_object_unref(connection);
    }
};

TEST_F(ClientsTest, EightClientsAtOnceEachFindTheirOwnValuesAndSeeEveryChange) {
    startService(mapOf({R"({"address": 1, "size": 32, "count": 8})"}));
    std::vector<std::unique_ptr<BusClient>> watchers;
    for (int i = 0; i < CLIENTS; ++i) {
        watchers.push_back(std::make_unique<BusClient>());
        watchers.back()->call("Read", "(1,)");
    }

    std::atomic<int> mistakes{0};
    std::vector<std::thread> workers;
    for (int address = 1; address <= CLIENTS; ++address) {
        workers.emplace_back([this, address, &mistakes] { work(address, mistakes); });
    }
    for (const auto& watcher : watchers) {
        EXPECT_TRUE(watcher->waitForChanges(CLIENTS * ROUNDS));
    }
    for (std::thread& worker : workers) {
        worker.join();
    }

    EXPECT_EQ(mistakes, 0);
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
