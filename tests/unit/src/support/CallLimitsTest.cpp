// SPDX-License-Identifier: MIT
#include "support/CallLimits.h"

#include <gmock/gmock.h>

#include <condition_variable>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "BusContract.h"
#include "Deadline.h"
#include "PeerConnection.h"
#include "support/GLibOwners.h"

namespace {

using testing::IsEmpty;

constexpr const char* LIMITED = "/limited";
constexpr const char* UNLIMITED = "/unlimited";
constexpr const char* INTERFACE = "test.Lists";
constexpr const char* LIMITS_EXCEEDED = "org.freedesktop.DBus.Error.LimitsExceeded";
constexpr const char* LIST_LIMIT =
    "the lists of one client that wait may have at most 65536 addresses together";
constexpr const char* CALL_LIMIT = "at most 1024 calls of one client may wait";

/// The errors that come in on a connection, by the serial of their call.
class Errors {
 public:
    explicit Errors(GDBusConnection* watched) : connection(watched) {
        filter = g_dbus_connection_add_filter(
            connection, note, new std::shared_ptr<State>(state),
            [](gpointer target) { delete static_cast<std::shared_ptr<State>*>(target); });
    }
    ~Errors() {
        g_dbus_connection_remove_filter(connection, filter);
        // GDBus's thread has noted its last reply.
        const std::lock_guard<std::mutex> lock(state->mutex);
    }
    Errors(const Errors&) = delete;
    Errors& operator=(const Errors&) = delete;

    /// Waits for any reply to a call.
    ///
    /// @return "name: text" of the error; empty when the reply is none
    std::string to(guint32 serial) const {
        std::unique_lock<std::mutex> lock(state->mutex);
        if (!state->arrived.wait_for(lock, PATIENCE,
                                     [&] { return state->replies.count(serial) != 0; })) {
            return "no reply";
        }
        return state->replies.at(serial);
    }

    std::size_t count() const {
        const std::lock_guard<std::mutex> lock(state->mutex);
        return state->replies.size();
    }

 private:
    struct State {
        std::mutex mutex;
        std::condition_variable arrived;
        std::map<guint32, std::string> replies;
    };

    static GDBusMessage* note(GDBusConnection* /*connection*/, GDBusMessage* message,
                              gboolean incoming, gpointer target) {
        if (incoming != FALSE && g_dbus_message_get_reply_serial(message) != 0) {
            const char* const name = g_dbus_message_get_error_name(message);
            State& state = **static_cast<std::shared_ptr<State>*>(target);
            const std::lock_guard<std::mutex> lock(state.mutex);
            state.replies[g_dbus_message_get_reply_serial(message)] =
                name == nullptr ? "" : std::string(name) + ": " + g_dbus_message_get_arg0(message);
            state.arrived.notify_all();
        }
        return message;
    }

    GDBusConnection* connection;
    std::shared_ptr<State> state{std::make_shared<State>()};
    guint filter;
};

GVariant* listOf(std::size_t count) {
    const std::vector<gint32> numbers(count, 7);
    return g_variant_new("(v)", g_variant_new_fixed_array(G_VARIANT_TYPE_INT32, numbers.data(),
                                                          count, sizeof(gint32)));
}

/// An object whose calls wait until the test runs the main context.
class CallLimitsTest : public testing::Test {
 protected:
    CallLimitsTest() : node(g_dbus_node_info_new_for_xml(DOCUMENT, nullptr)) {
        for (const char* const path : {LIMITED, UNLIMITED}) {
            g_dbus_connection_register_object(peer.service(), path, node->interfaces[0], &VTABLE,
                                              this, nullptr, nullptr);
        }
    }

    /// Sends a call without waiting for anything.
    ///
    /// @return its serial
    guint32 send(GVariant* body, const char* path = LIMITED, const char* method = "List",
                 GDBusMessageFlags flags = G_DBUS_MESSAGE_FLAGS_NONE) const {
        const ObjectOwner<GDBusMessage> message(
            g_dbus_message_new_method_call(nullptr, path, INTERFACE, method));
        g_dbus_message_set_flags(message.get(), flags);
        g_dbus_message_set_body(message.get(), body);
        volatile guint32 serial = 0;
        EXPECT_TRUE(g_dbus_connection_send_message(
            peer.client(), message.get(), G_DBUS_SEND_MESSAGE_FLAGS_NONE, &serial, nullptr));
        return serial;
    }

    /// Lets all that wait be carried out.
    void carryOut(std::size_t awaited) {
        EXPECT_TRUE(runUntil([&] { return carriedOut == awaited; })) << carriedOut;
        carriedOut = 0;
    }

    static std::string refusal(const std::string& text) {
        return std::string(LIMITS_EXCEEDED) + ": " + text;
    }

    PeerConnection peer;
    std::unique_ptr<CallLimits> limits = std::make_unique<CallLimits>(peer.service(), LIMITED);
    Errors errors{peer.client()};
    std::size_t carriedOut{0};

 private:
    static void onCall(GDBusConnection* /*connection*/, const gchar* /*sender*/,
                       const gchar* /*path*/, const gchar* /*interface*/, const gchar* /*method*/,
                       GVariant* /*parameters*/, GDBusMethodInvocation* invocation, gpointer test) {
        ++static_cast<CallLimitsTest*>(test)->carriedOut;
        CallLimits::handled(g_dbus_method_invocation_get_message(invocation));
        g_dbus_method_invocation_return_value(invocation, nullptr);
    }

    static constexpr GDBusInterfaceVTable VTABLE{onCall, nullptr, nullptr, {}};
    static constexpr const char* DOCUMENT = R"(<node>
      <interface name='test.Lists'>
        <method name='List'><arg type='v' name='addresses' direction='in'/></method>
        <method name='Plain'><arg type='i' name='address' direction='in'/></method>
      </interface>
    </node>)";
    NodeInfoOwner node;
};

TEST_F(CallLimitsTest, AListOfAsManyAddressesAsMayBeIsTaken) {
    const guint32 serial = send(listOf(BusContract::MOST_ADDRESSES));
    carryOut(1);
    EXPECT_EQ(errors.to(serial), "");
}

TEST_F(CallLimitsTest, AListOfOneAddressMoreIsRefusedAtOnce) {
    const guint32 serial = send(listOf(BusContract::MOST_ADDRESSES + 1));
    EXPECT_EQ(errors.to(serial), refusal("a list may have at most 65536 addresses, not 65537"));
    EXPECT_EQ(carriedOut, 0U);
}

TEST_F(CallLimitsTest, ListsThatWaitShareTheLimit) {
    constexpr std::size_t HALF = BusContract::MOST_ADDRESSES / 2;
    send(listOf(HALF));
    send(listOf(HALF));
    EXPECT_EQ(errors.to(send(listOf(1))), refusal(LIST_LIMIT));
    EXPECT_EQ(errors.count(), 1U);
    const guint32 withoutAddress = send(g_variant_new("(i)", 7), LIMITED, "Plain");
    carryOut(3);
    EXPECT_EQ(errors.to(withoutAddress), "");
}

TEST_F(CallLimitsTest, AsManyCallsAsMayBeWaitAndOneMoreIsRefused) {
    for (std::size_t i = 0; i < CallLimits::MOST_CALLS; ++i) {
        send(g_variant_new("(i)", 7), LIMITED, "Plain");
    }
    EXPECT_EQ(errors.to(send(g_variant_new("(i)", 7), LIMITED, "Plain")), refusal(CALL_LIMIT));
    EXPECT_EQ(errors.count(), 1U);
    carryOut(CallLimits::MOST_CALLS);
}

TEST_F(CallLimitsTest, WhatWasCarriedOutOrRefusedCountsNoLonger) {
    for (int round = 0; round < 3; ++round) {
        send(listOf(BusContract::MOST_ADDRESSES));
        EXPECT_EQ(errors.to(send(listOf(1))), refusal(LIST_LIMIT));
        carryOut(1);
    }
}

TEST_F(CallLimitsTest, CallsThatGDBusAnswersItselfCountNoLongerThanTheirAnswerTakes) {
    guint32 last = 0;
    for (std::size_t i = 0; i < CallLimits::MOST_CALLS; ++i) {
        send(listOf(BusContract::MOST_ADDRESSES), LIMITED, "Missing");
        last = send(g_variant_new("(s)", "of another type"));
    }
    EXPECT_EQ(errors.to(last).rfind("org.freedesktop.DBus.Error.InvalidArgs: ", 0), 0U)
        << errors.to(last);
    const guint32 serial = send(listOf(BusContract::MOST_ADDRESSES));
    carryOut(1);
    EXPECT_EQ(errors.to(serial), "");
}

TEST_F(CallLimitsTest, AListOfAnotherTypeCountsByItsSize) {
    const std::string text(4 * BusContract::MOST_ADDRESSES + 4, 'x');
    const guint32 serial = send(g_variant_new("(v)", g_variant_new_string(text.c_str())));
    EXPECT_EQ(errors.to(serial), refusal("a list may have at most 65536 addresses, not 65537"));
}

TEST_F(CallLimitsTest, ACallWithoutReplyIsDroppedBeyondTheLimit) {
    constexpr auto NO_REPLY = G_DBUS_MESSAGE_FLAGS_NO_REPLY_EXPECTED;
    send(listOf(BusContract::MOST_ADDRESSES), LIMITED, "List", NO_REPLY);
    send(listOf(1), LIMITED, "List", NO_REPLY);
    send(listOf(BusContract::MOST_ADDRESSES + 1), LIMITED, "List", NO_REPLY);
    const guint32 last = send(g_variant_new("(i)", 7), LIMITED, "Plain");
    // Calls arrive in order: with this refusal, all of them have.
    EXPECT_EQ(errors.to(send(listOf(1))), refusal(LIST_LIMIT));
    EXPECT_EQ(errors.count(), 1U);
    carryOut(2);
    EXPECT_EQ(errors.to(last), "");
    EXPECT_EQ(errors.count(), 2U);
}

TEST_F(CallLimitsTest, OtherPathsAreNotLimited) {
    const guint32 serial = send(listOf(BusContract::MOST_ADDRESSES + 1), UNLIMITED);
    carryOut(1);
    EXPECT_EQ(errors.to(serial), "");
}

TEST_F(CallLimitsTest, GoneItLimitsNothingAndItsCallsAreStillCarriedOut) {
    send(listOf(BusContract::MOST_ADDRESSES));
    EXPECT_EQ(errors.to(send(listOf(1))), refusal(LIST_LIMIT));
    limits.reset();
    const guint32 serial = send(listOf(BusContract::MOST_ADDRESSES + 1));
    carryOut(2);
    EXPECT_EQ(errors.to(serial), "");
}

}  // namespace
