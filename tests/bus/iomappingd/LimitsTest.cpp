// SPDX-License-Identifier: MIT
#include <gmock/gmock.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <iostream>
#include <string>
#include <thread>
#include <vector>

#include "BlockingClient.h"
#include "Build.h"
#include "BusContract.h"
#include "BusFixture.h"
#include "Deadline.h"
#include "ProcessFigures.h"

namespace {

constexpr const char* LIMITS_EXCEEDED = "org.freedesktop.DBus.Error.LimitsExceeded";
constexpr double LONGEST_READ = SANITIZED ? 10 : 1;  // seconds
constexpr double MOST_MEMORY = 32 * 1024;            // kilobytes

/// A client that sends calls one after the other and does not wait for the replies.
class Flood {
 public:
    /// How the calls ended.
    struct Outcome {
        int replies{0};
        int refusals{0};
        /// The text of the last refusal.
        std::string text;
    };

    void send(const char* method, GVariant* arguments) {
        ++sent;
        g_dbus_connection_call(client.connection(), BusClient::SERVICE, BusClient::PATH,
                               BusClient::INTERFACE, method, arguments, nullptr,
                               G_DBUS_CALL_FLAGS_NONE, -1, nullptr, take, this);
    }

    /// Sends a call whose reply nobody wants.
    void sendWithoutReply(const char* method, GVariant* arguments) {
        const ObjectOwner<GDBusMessage> message(g_dbus_message_new_method_call(
            BusClient::SERVICE, BusClient::PATH, BusClient::INTERFACE, method));
        g_dbus_message_set_flags(message.get(), G_DBUS_MESSAGE_FLAGS_NO_REPLY_EXPECTED);
        g_dbus_message_set_body(message.get(), arguments);
        g_dbus_connection_send_message(client.connection(), message.get(),
                                       G_DBUS_SEND_MESSAGE_FLAGS_NONE, nullptr, nullptr);
    }

    /// Waits until all calls have ended.
    Outcome finish() {
        EXPECT_TRUE(runUntil([this] { return outcome.replies + outcome.refusals == sent; }));
        return outcome;
    }

    const BlockingClient& connection() const { return client; }

 private:
    static void take(GObject* source, GAsyncResult* result, gpointer target) {
        Outcome& outcome = static_cast<Flood*>(target)->outcome;
        GError* error = nullptr;
        const VariantOwner reply(
            g_dbus_connection_call_finish(G_DBUS_CONNECTION(source), result, &error));
        if (reply) {
            ++outcome.replies;
            return;
        }
        const ErrorOwner owner(error);
        const StringOwner name(g_dbus_error_get_remote_error(error));
        EXPECT_STREQ(name.get(), LIMITS_EXCEEDED) << error->message;
        g_dbus_error_strip_remote_error(error);
        ++outcome.refusals;
        outcome.text = error->message;
    }

    BlockingClient client;
    int sent{0};
    Outcome outcome;
};

/// A client that reads one register after the other, on a thread of its own, while it lives.
class PoliteClient {
 public:
    PoliteClient() : reader([this] { readOn(); }) {}
    ~PoliteClient() {
        if (reader.joinable()) {
            finish();
        }
    }
    PoliteClient(const PoliteClient&) = delete;
    PoliteClient& operator=(const PoliteClient&) = delete;

    /// Ends it.
    ///
    /// @return how long the slowest read took
    std::chrono::duration<double> finish() {
        mayStop = true;
        reader.join();
        std::cout << reads << " polite reads, the slowest within " << slowest.count() << " s\n";
        return slowest;
    }

 private:
    void readOn() {
        const BlockingClient client;
        do {
            const auto start = std::chrono::steady_clock::now();
            client.call(BusClient::SERVICE, "Read", g_variant_new("(i)", 1));
            slowest = std::max<std::chrono::duration<double>>(
                slowest, std::chrono::steady_clock::now() - start);
            ++reads;
        } while (!mayStop);
    }

    std::atomic<bool> mayStop{false};
    std::chrono::duration<double> slowest{0};
    int reads{0};
    std::thread reader;
};

class LimitsTest : public BusFixture {
 protected:
    void SetUp() override {
        service = &startService(mapOf({R"({"address": 1, "size": 32, "count": 8})"}));
    }

    static GVariant* listOf(std::size_t count) {
        const std::vector<gint32> numbers(count, 1);
        return g_variant_new("(v)", g_variant_new_fixed_array(G_VARIANT_TYPE_INT32, numbers.data(),
                                                              count, sizeof(gint32)));
    }

    /// Whether the memory that the service ever had is as little as it should be.
    void expectLittleMemory() const {
        const double peak = kilobytes(service->pid(), "status", "VmHWM:");
        const double now = kilobytes(service->pid(), "status", "VmRSS:");
        std::cout << "memory of the service: " << now << " kB, at most " << peak << " kB\n";
        if (!SANITIZED) {
            EXPECT_LE(peak, MOST_MEMORY);
        }
    }

    Process* service{nullptr};
};

TEST_F(LimitsTest, ListsOfAMillionAddressesAreRefusedAndKeepNobodyOut) {
    PoliteClient polite;
    Flood flood;
    for (int i = 0; i < 60; ++i) {
        flood.send("ReadList", listOf(1'000'000));
    }
    const Flood::Outcome outcome = flood.finish();
    EXPECT_EQ(outcome.replies, 0);
    EXPECT_EQ(outcome.text, "a list may have at most 65536 addresses, not 1000000");
    EXPECT_LE(polite.finish().count(), LONGEST_READ);
    expectLittleMemory();
}

TEST_F(LimitsTest, ListsThatAreAllowedKeepNobodyOutHoweverMany) {
    PoliteClient polite;
    Flood flood;
    // The bus itself lets 128 calls of one client wait.
    for (int i = 0; i < 100; ++i) {
        flood.send("ReadList", listOf(BusContract::MOST_ADDRESSES));
    }
    const Flood::Outcome outcome = flood.finish();
    EXPECT_GE(outcome.replies, 1);
    EXPECT_EQ(outcome.text,
              "the lists of one client that wait may have at most 65536 addresses together");
    EXPECT_LE(polite.finish().count(), LONGEST_READ);
    expectLittleMemory();
    // Nothing is held against the client afterwards.
    for (int i = 0; i < 3; ++i) {
        flood.connection().call(BusClient::SERVICE, "ReadList",
                                listOf(BusContract::MOST_ADDRESSES));
    }
}

TEST_F(LimitsTest, ListsWithoutReplyKeepNobodyOutHoweverMany) {
    PoliteClient polite;
    Flood flood;
    for (int i = 0; i < 300; ++i) {
        flood.sendWithoutReply("ReadList", listOf(BusContract::MOST_ADDRESSES));
    }
    flood.connection().callBus();
    EXPECT_LE(polite.finish().count(), LONGEST_READ);
    expectLittleMemory();
}

}  // namespace
