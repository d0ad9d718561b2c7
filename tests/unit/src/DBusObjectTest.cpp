// SPDX-License-Identifier: MIT
#include "DBusObject.h"

#include <Poco/Logger.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "BusClient.h"
#include "CapturedLog.h"
#include "Deadline.h"
#include "LoggerNames.h"
#include "PeerConnection.h"
#include "support/GLibOwners.h"
#include "tesk/Exceptions.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::MatchesRegex;

constexpr const char* PATH = "/test/object";
constexpr const char* INTERFACE = "test.First";
constexpr const char* DOCUMENT = R"(<node>
  <interface name='test.First'>
    <method name='Double'>
      <arg type='s' name='text' direction='in'/>
      <arg type='i' name='number' direction='in'/>
      <arg type='s' name='text' direction='out'/>
      <arg type='i' name='number' direction='out'/>
    </method>
    <method name='Nothing'/>
    <signal name='Ticked'><arg type='i' name='count'/></signal>
  </interface>
  <interface name='test.Second'>
    <method name='Nothing'/>
  </interface>
</node>)";

/// An object whose answers a test decides.
class TestObject : public DBusObject {
 public:
    using Handler = std::function<void(GVariant** reply, GError** error)>;

    explicit TestObject(GDBusConnection* connection, const std::string& document = DOCUMENT,
                        const std::string& path = PATH)
        : DBusObject("test-object", connection, document, path) {}

    static auto& registry() { return ObjectCallbacks; }
    static const GDBusInterfaceVTable& vtable() { return dbusVTable; }

    void onDBusObjMessage(const std::string& method, GVariant* parameters, GVariant** reply,
                          GError** error) override {
        const StringOwner arguments(g_variant_print(parameters, FALSE));
        calls.push_back(method + arguments.get());
        untouched = *reply == nullptr && *error == nullptr;
        if (handler) {
            handler(reply, error);
        }
    }

    Handler handler;
    /// Every call as "Method(arguments)".
    std::vector<std::string> calls;
    /// Whether reply and error both started out null in the last call.
    bool untouched{false};
};

/// Notes every message that comes in on a connection.
class Arrivals {
 public:
    struct Message {
        GDBusMessageType type;
        guint32 replySerial;
        bool hasDestination;
    };

    explicit Arrivals(GDBusConnection* watched) : connection(watched) {
        // The filter runs on GDBus's thread and may run on while it is being removed.
        filter = g_dbus_connection_add_filter(
            connection, note, new std::shared_ptr<State>(state),
            [](gpointer target) { delete static_cast<std::shared_ptr<State>*>(target); });
    }
    ~Arrivals() { g_dbus_connection_remove_filter(connection, filter); }
    Arrivals(const Arrivals&) = delete;
    Arrivals& operator=(const Arrivals&) = delete;

    std::vector<Message> all() const {
        const std::lock_guard<std::mutex> lock(state->mutex);
        return state->messages;
    }

    /// How many answers to a call have come in.
    std::ptrdiff_t answersTo(guint32 serial) const {
        const std::vector<Message> messages = all();
        return std::count_if(messages.begin(), messages.end(), [serial](const Message& message) {
            return message.replySerial == serial;
        });
    }

 private:
    struct State {
        std::mutex mutex;
        std::vector<Message> messages;
    };

    static GDBusMessage* note(GDBusConnection* /*connection*/, GDBusMessage* message,
                              gboolean incoming, gpointer target) {
        if (incoming != FALSE) {
            State& state = **static_cast<std::shared_ptr<State>*>(target);
            const std::lock_guard<std::mutex> lock(state.mutex);
            state.messages.push_back({g_dbus_message_get_message_type(message),
                                      g_dbus_message_get_reply_serial(message),
                                      g_dbus_message_get_destination(message) != nullptr});
        }
        return message;
    }

    GDBusConnection* connection;
    std::shared_ptr<State> state{std::make_shared<State>()};
    guint filter;
};

/// A bus that is as slow as a test wants. It hears signals and answers "Hello" and "GetId".
class SlowBus {
 public:
    /// @param perCall what it takes to answer a call
    /// @param perSignal what it takes to take in a signal
    SlowBus(std::chrono::microseconds perCall, std::chrono::microseconds perSignal)
        : callTime(perCall), signalTime(perSignal) {
        const StringOwner guid(g_dbus_generate_guid());
        server.reset(g_dbus_server_new_sync("unix:dir=/tmp", G_DBUS_SERVER_FLAGS_RUN_IN_THREAD,
                                            guid.get(), nullptr, nullptr, nullptr));
        g_signal_connect(server.get(), "new-connection", G_CALLBACK(onConnection), this);
        g_dbus_server_start(server.get());
        // The server takes the connection in this thread's main context.
        g_dbus_connection_new_for_address(
            g_dbus_server_get_client_address(server.get()),
            static_cast<GDBusConnectionFlags>(G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT |
                                              G_DBUS_CONNECTION_FLAGS_MESSAGE_BUS_CONNECTION),
            nullptr, nullptr,
            [](GObject* /*source*/, GAsyncResult* result, gpointer target) {
                static_cast<ObjectOwner<GDBusConnection>*>(target)->reset(
                    g_dbus_connection_new_for_address_finish(result, nullptr));
            },
            &user);
        EXPECT_TRUE(runUntil([this] { return user != nullptr; }));
    }
    ~SlowBus() {
        g_dbus_connection_close_sync(user.get(), nullptr, nullptr);
        g_dbus_server_stop(server.get());
        g_dbus_connection_close_sync(busSide.get(), nullptr, nullptr);
    }
    SlowBus(const SlowBus&) = delete;
    SlowBus& operator=(const SlowBus&) = delete;

    /// The connection of its one user.
    GDBusConnection* connection() const { return user.get(); }

    /// How many signals came before each "GetId" and after the one before.
    std::vector<int> signalsBetweenCalls() const {
        const std::lock_guard<std::mutex> lock(mutex);
        return batches;
    }

 private:
    static gboolean onConnection(GDBusServer* /*server*/, GDBusConnection* connection,
                                 gpointer bus) {
        static_cast<SlowBus*>(bus)->busSide.reset(G_DBUS_CONNECTION(g_object_ref(connection)));
        g_dbus_connection_add_filter(connection, onMessage, bus, nullptr);
        return TRUE;
    }

    static GDBusMessage* onMessage(GDBusConnection* connection, GDBusMessage* message,
                                   gboolean incoming, gpointer bus) {
        if (incoming == FALSE) {
            return message;
        }
        const ObjectOwner<GDBusMessage> taken(message);
        static_cast<SlowBus*>(bus)->take(connection, message);
        return nullptr;
    }

    void take(GDBusConnection* connection, GDBusMessage* message) {
        if (g_dbus_message_get_message_type(message) == G_DBUS_MESSAGE_TYPE_SIGNAL) {
            std::this_thread::sleep_for(signalTime);
            ++batch;
            return;
        }
        if (std::string(g_dbus_message_get_member(message)) == "GetId") {
            std::this_thread::sleep_for(callTime);
            const std::lock_guard<std::mutex> lock(mutex);
            batches.push_back(std::exchange(batch, 0));
        }
        const ObjectOwner<GDBusMessage> reply(g_dbus_message_new_method_reply(message));
        g_dbus_message_set_body(reply.get(), g_variant_new("(s)", ":1.7"));
        g_dbus_connection_send_message(connection, reply.get(), G_DBUS_SEND_MESSAGE_FLAGS_NONE,
                                       nullptr, nullptr);
    }

    std::chrono::microseconds callTime;
    std::chrono::microseconds signalTime;
    ObjectOwner<GDBusServer> server;
    ObjectOwner<GDBusConnection> user;
    ObjectOwner<GDBusConnection> busSide;
    mutable std::mutex mutex;
    int batch{0};
    std::vector<int> batches;
};

class DBusObjectTest : public testing::Test {
 protected:
    DBusObjectTest() {
        // The child of a death test would inherit GDBus's locks without GDBus's threads.
        testing::GTEST_FLAG(death_test_style) = "threadsafe";
    }
    ~DBusObjectTest() override { TestObject::registry().erase(PATH); }

    BusClient::Answer call(const std::string& method, const std::string& parameters) const {
        return client.call(PATH, INTERFACE, method, parameters);
    }

    /// Sends a call without waiting for its answer.
    ///
    /// @return its serial
    guint32 send(const char* method, GVariant* parameters, GDBusMessageFlags flags) const {
        const ObjectOwner<GDBusMessage> message(
            g_dbus_message_new_method_call(nullptr, PATH, INTERFACE, method));
        g_dbus_message_set_flags(message.get(), flags);
        if (parameters != nullptr) {
            g_dbus_message_set_body(message.get(), parameters);
        }
        volatile guint32 serial = 0;
        EXPECT_TRUE(g_dbus_connection_send_message(
            peer.client(), message.get(), G_DBUS_SEND_MESSAGE_FLAGS_NONE, &serial, nullptr));
        return serial;
    }

    /// The captured lines without those that tell times.
    std::vector<CapturedLog::Line> linesButTimes() const {
        std::vector<CapturedLog::Line> lines = log.lines();
        lines.erase(
            std::remove_if(lines.begin(), lines.end(),
                           [](const CapturedLog::Line& line) { return timeIn(line.text) >= 0; }),
            lines.end());
        return lines;
    }

    /// The numbers of the lines that tell times.
    std::vector<int> times() const {
        std::vector<int> result;
        for (const std::string& text : log.texts(Poco::Message::PRIO_INFORMATION)) {
            if (timeIn(text) >= 0) {
                result.push_back(timeIn(text));
            }
        }
        return result;
    }

    /// The number in a line that tells a time; -1 for any other line.
    static int timeIn(const std::string& text) {
        int time = -1;
        int end = 0;
        const int read = std::sscanf(text.c_str(), "processing time: %dus%n", &time, &end);
        return read == 1 && end == static_cast<int>(text.size()) ? time : -1;
    }

    static std::string loggerOf(const tesk::ObjectBase& object) {
        return loggerNameOf("test-object", &object);
    }

    /// Closes the connection on the side of the service.
    void close() const {
        ASSERT_TRUE(g_dbus_connection_close_sync(peer.service(), nullptr, nullptr));
        // Its other thread takes note of that only later.
        ASSERT_TRUE(runUntil([this] { return g_dbus_connection_is_closed(peer.service()); }));
    }

    static void replyDoubled(GVariant** reply, GError** /*error*/) {
        *reply = g_variant_new("(si)", "twice", 42);
    }

    CapturedLog log;
    PeerConnection peer;
    BusClient client{peer.client()};
};

// ---- construction and destruction

TEST_F(DBusObjectTest, ABadDescriptionIsRefusedInTheWordsOfTheParser) {
    GError* error = nullptr;
    ASSERT_EQ(g_dbus_node_info_new_for_xml("<node><interface></node>", &error), nullptr);
    const ErrorOwner owner(error);
    try {
        const TestObject object(peer.service(), "<node><interface></node>");
        ADD_FAILURE() << "the object was made";
    } catch (const tesk::InputOutputException& e) {
        EXPECT_EQ(e.what(), std::string("error creating DBus introspection: ") + error->message);
    }
    EXPECT_EQ(TestObject::registry().count(PATH), 0U);
}

TEST_F(DBusObjectTest, APathThatIsTakenIsRefusedAndItsOwnerKeepsTheCalls) {
    TestObject first(peer.service());
    try {
        const TestObject second(peer.service());
        ADD_FAILURE() << "the path was given twice";
    } catch (const tesk::InputOutputException& e) {
        EXPECT_STREQ(e.what(), "error registering object /test/object on DBus");
    }
    EXPECT_EQ(TestObject::registry().at(PATH), &first);
    EXPECT_EQ(call("Nothing", "()").text(), "()");
    EXPECT_THAT(first.calls, ElementsAre("Nothing()"));
}

TEST_F(DBusObjectTest, APathThatIsFreeAgainGoesToTheNextObjectWithItsRegistryEntry) {
    auto first = std::make_unique<TestObject>(peer.service());
    first.reset();
    EXPECT_NE(TestObject::registry().at(PATH), nullptr) << "the entry outlives its object";
    EXPECT_EQ(call("Nothing", "()").errorName, "org.freedesktop.DBus.Error.UnknownMethod");

    TestObject second(peer.service());
    EXPECT_EQ(TestObject::registry().at(PATH), &second);
    EXPECT_EQ(call("Nothing", "()").text(), "()");
    EXPECT_THAT(second.calls, ElementsAre("Nothing()"));
}

TEST_F(DBusObjectTest, ObjectsOnTwoPathsGetTheirOwnCalls) {
    TestObject one(peer.service());
    TestObject other(peer.service(), DOCUMENT, "/test/other");
    EXPECT_EQ(client.call("/test/other", INTERFACE, "Nothing", "()").text(), "()");
    EXPECT_THAT(one.calls, IsEmpty());
    EXPECT_THAT(other.calls, ElementsAre("Nothing()"));
    TestObject::registry().erase("/test/other");
}

TEST_F(DBusObjectTest, OnlyTheFirstInterfaceIsOnTheBus) {
    TestObject object(peer.service());
    EXPECT_FALSE(client.call(PATH, "test.Second", "Nothing", "()").reply);
    EXPECT_THAT(object.calls, IsEmpty());
}

TEST_F(DBusObjectTest, ThereAreNoPropertyHandlers) {
    EXPECT_EQ(TestObject::vtable().method_call, &DBusObject::dbusHandleMethodCall);
    EXPECT_EQ(TestObject::vtable().get_property, nullptr);
    EXPECT_EQ(TestObject::vtable().set_property, nullptr);
}

TEST_F(DBusObjectTest, TheLoggerBearsNameAndAddressAndGoesWithTheObject) {
    auto object = std::make_unique<TestObject>(peer.service());
    const std::string name = loggerOf(*object);
    EXPECT_TRUE(loggerExists(name));
    object.reset();
    EXPECT_FALSE(loggerExists(name));
}

// ---- calls

TEST_F(DBusObjectTest, TheHandlerGetsNameAndArgumentsAndItsReplyGoesBack) {
    TestObject object(peer.service());
    object.handler = replyDoubled;
    EXPECT_EQ(call("Double", "('once', 21)").text(), "('twice', 42)");
    EXPECT_THAT(object.calls, ElementsAre("Double('once', 21)"));
    EXPECT_TRUE(object.untouched);
}

TEST_F(DBusObjectTest, CallsAreHandledInTheOrderOfArrival) {
    TestObject object(peer.service());
    std::vector<std::string> expected;
    for (int number = 0; number < 20; ++number) {
        send("Double", g_variant_new("(si)", "", number), G_DBUS_MESSAGE_FLAGS_NO_REPLY_EXPECTED);
        expected.push_back("Double('', " + std::to_string(number) + ")");
    }
    EXPECT_TRUE(runUntil([&] { return object.calls.size() >= expected.size(); }));
    EXPECT_EQ(object.calls, expected);
}

TEST_F(DBusObjectTest, AnErrorIsLoggedAndReturnedUnchanged) {
    TestObject object(peer.service());
    object.handler = [](GVariant** /*reply*/, GError** error) {
        *error = g_error_new_literal(G_DBUS_ERROR, G_DBUS_ERROR_ACCESS_DENIED, "100% %s of %d");
    };
    const BusClient::Answer answer = call("Nothing", "()");
    EXPECT_EQ(answer.errorName, "org.freedesktop.DBus.Error.AccessDenied");
    EXPECT_EQ(answer.errorText, "100% %s of %d");

    const auto lines = log.lines();
    ASSERT_EQ(lines.size(), 2U);
    EXPECT_EQ(lines[0].priority, Poco::Message::PRIO_ERROR);
    EXPECT_EQ(lines[0].source, loggerOf(object));
    EXPECT_EQ(lines[0].text, "100% %s of %d");
    EXPECT_THAT(lines[1].text, MatchesRegex("processing time: [0-9]+us"));
}

TEST_F(DBusObjectTest, NeitherReplyNorErrorIsAnEmptyReply) {
    TestObject object(peer.service());
    EXPECT_EQ(call("Nothing", "()").text(), "()");
    EXPECT_THAT(linesButTimes(), IsEmpty());
}

TEST_F(DBusObjectTest, NeitherReplyNorErrorIsAnEmptyReplyAlsoWhereValuesArePromised) {
    TestObject object(peer.service());
    EXPECT_EQ(call("Double", "('', 0)").text(), "()");
    EXPECT_THAT(linesButTimes(), IsEmpty());
}

TEST_F(DBusObjectTest, NothingIsSentToACallerThatExpectsNoReply) {
    TestObject object(peer.service());
    const Arrivals arrivals(peer.client());
    const std::vector<TestObject::Handler> handlers{
        {}, replyDoubled, [](GVariant** /*reply*/, GError** error) {
            *error = g_error_new_literal(G_DBUS_ERROR, G_DBUS_ERROR_FAILED, "failed");
        }};
    for (const TestObject::Handler& handler : handlers) {
        object.handler = handler;
        object.calls.clear();
        const guint32 serial =
            send("Double", g_variant_new("(si)", "", 0), G_DBUS_MESSAGE_FLAGS_NO_REPLY_EXPECTED);
        ASSERT_TRUE(runUntil([&object] { return !object.calls.empty(); }));
        // The answer to this one comes after whatever the call before has been answered.
        object.handler = {};
        const std::size_t before = arrivals.all().size();
        EXPECT_EQ(call("Nothing", "()").text(), "()");
        EXPECT_EQ(arrivals.answersTo(serial), 0);
        EXPECT_EQ(arrivals.all().size(), before + 1);
    }
}

TEST_F(DBusObjectTest, WhatIsNotInTheDescriptionNeverReachesTheHandler) {
    TestObject object(peer.service());
    EXPECT_EQ(call("Missing", "()").errorName, "org.freedesktop.DBus.Error.UnknownMethod");
    EXPECT_EQ(call("Double", "('text',)").errorName, "org.freedesktop.DBus.Error.InvalidArgs");
    EXPECT_EQ(call("Nothing", "(1,)").errorName, "org.freedesktop.DBus.Error.InvalidArgs");
    EXPECT_THAT(object.calls, IsEmpty());
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(DBusObjectTest, TheRegistryNamesTheReceiverAndTheRegisteringObjectLogs) {
    TestObject registering(peer.service());
    TestObject receiving(peer.service(), DOCUMENT, "/test/other");
    receiving.handler = [](GVariant** /*reply*/, GError** error) {
        *error = g_error_new_literal(G_DBUS_ERROR, G_DBUS_ERROR_FAILED, "from the receiver");
    };
    TestObject::registry()[PATH] = &receiving;
    EXPECT_EQ(call("Nothing", "()").errorText, "from the receiver");
    EXPECT_THAT(registering.calls, IsEmpty());
    EXPECT_THAT(receiving.calls, ElementsAre("Nothing()"));
    for (const CapturedLog::Line& line : log.lines()) {
        EXPECT_EQ(line.source, loggerOf(registering)) << line.text;
    }
    EXPECT_EQ(log.lines().size(), 2U);
    TestObject::registry().erase("/test/other");
}

TEST_F(DBusObjectTest, ACallWithoutRegistryEntryIsLoggedAndGetsNoReply) {
    TestObject object(peer.service());
    const Arrivals arrivals(peer.client());
    const std::vector<std::function<void()>> losses{
        [] { TestObject::registry().erase(PATH); },
        [] { TestObject::registry()[PATH] = nullptr; },
    };
    for (const auto& lose : losses) {
        log.clear();
        lose();
        const guint32 serial = send("Nothing", nullptr, G_DBUS_MESSAGE_FLAGS_NONE);
        ASSERT_TRUE(runUntil([this] { return log.lines().size() >= 2; }));
        const auto lines = log.lines();
        ASSERT_EQ(lines.size(), 2U);
        EXPECT_EQ(lines[0].priority, Poco::Message::PRIO_WARNING);
        EXPECT_EQ(lines[0].source, loggerOf(object));
        EXPECT_EQ(lines[0].text,
                  "unrecognized dbus call: obj '/test/object', interface 'test.First', method "
                  "'[ERRFMT]'");
        EXPECT_EQ(lines[1].priority, Poco::Message::PRIO_INFORMATION);
        EXPECT_THAT(lines[1].text, MatchesRegex("processing time: [0-9]+us"));
        EXPECT_THAT(object.calls, IsEmpty());

        TestObject::registry()[PATH] = &object;
        EXPECT_EQ(call("Nothing", "()").text(), "()");
        EXPECT_EQ(arrivals.answersTo(serial), 0);
        object.calls.clear();
    }
}

TEST_F(DBusObjectTest, NullUserDataEndsTheProcess) {
    EXPECT_DEATH(DBusObject::dbusHandleMethodCall(nullptr, nullptr, PATH, INTERFACE, "Nothing",
                                                  nullptr, nullptr, nullptr),
                 "obj != nullptr");
}

// ---- the time line

TEST_F(DBusObjectTest, TheTimeOfEveryCallIsLogged) {
    TestObject object(peer.service());
    const std::vector<TestObject::Handler> handlers{
        {}, replyDoubled, [](GVariant** /*reply*/, GError** error) {
            *error = g_error_new_literal(G_DBUS_ERROR, G_DBUS_ERROR_FAILED, "failed");
        }};
    for (const TestObject::Handler& handler : handlers) {
        object.handler = handler;
        log.clear();
        call("Double", "('', 0)");
        EXPECT_EQ(times().size(), 1U);
        EXPECT_THAT(log.lines().back().text, MatchesRegex("processing time: [0-9]+us"));
        EXPECT_EQ(log.lines().back().source, loggerOf(object));
    }
}

TEST_F(DBusObjectTest, TheTimeIsThatOfTheHandlerInMicroseconds) {
    TestObject object(peer.service());
    constexpr std::chrono::milliseconds WORK{5};
    object.handler = [WORK](GVariant** /*reply*/, GError** /*error*/) {
        std::this_thread::sleep_for(WORK);
    };
    const auto start = std::chrono::steady_clock::now();
    call("Nothing", "()");
    const std::chrono::duration<double, std::micro> whole =
        std::chrono::steady_clock::now() - start;
    ASSERT_EQ(times().size(), 1U);
    EXPECT_GE(times().front(), 5000);
    EXPECT_LE(times().front(), whole.count());
}

TEST_F(DBusObjectTest, LoggersThatTakeNoLinesGetNone) {
    TestObject object(peer.service());
    object.handler = [](GVariant** /*reply*/, GError** error) {
        *error = g_error_new_literal(G_DBUS_ERROR, G_DBUS_ERROR_FAILED, "failed");
    };
    Poco::Logger::setLevel("", Poco::Message::PRIO_NOTICE);
    EXPECT_EQ(call("Nothing", "()").errorText, "failed");
    EXPECT_THAT(times(), IsEmpty());
    EXPECT_EQ(log.linesWithText("failed").size(), 1U);

    log.clear();
    Poco::Logger::setLevel("", Poco::Message::PRIO_FATAL);
    EXPECT_EQ(call("Nothing", "()").errorText, "failed");
    EXPECT_THAT(log.lines(), IsEmpty());
}

// ---- signals

TEST_F(DBusObjectTest, ASignalIsBroadcastFromPathAndFirstInterface) {
    TestObject object(peer.service());
    const Arrivals arrivals(peer.client());
    std::vector<std::string> received;
    const guint subscription = g_dbus_connection_signal_subscribe(
        peer.client(), nullptr, nullptr, nullptr, nullptr, nullptr, G_DBUS_SIGNAL_FLAGS_NONE,
        [](GDBusConnection* /*connection*/, const gchar* /*sender*/, const gchar* path,
           const gchar* interface, const gchar* signal, GVariant* parameters, gpointer target) {
            const StringOwner arguments(g_variant_print(parameters, FALSE));
            static_cast<std::vector<std::string>*>(target)->push_back(
                std::string(path) + " " + interface + "." + signal + arguments.get());
        },
        &received, nullptr);

    GError* error = nullptr;
    EXPECT_TRUE(object.sendSignal("Ticked", g_variant_new("(i)", 7), &error));
    EXPECT_EQ(error, nullptr);
    // GDBus lets any thread send.
    std::thread([&object] {
        GError* failure = nullptr;
        EXPECT_TRUE(object.sendSignal("Ticked", g_variant_new("(i)", 8), &failure));
        EXPECT_EQ(failure, nullptr);
    }).join();

    EXPECT_TRUE(runUntil([&received] { return received.size() >= 2; }));
    g_dbus_connection_signal_unsubscribe(peer.client(), subscription);
    EXPECT_THAT(received, ElementsAre("/test/object test.First.Ticked(7,)",
                                      "/test/object test.First.Ticked(8,)"));
    for (const Arrivals::Message& message : arrivals.all()) {
        EXPECT_EQ(message.type, G_DBUS_MESSAGE_TYPE_SIGNAL);
        EXPECT_FALSE(message.hasDestination);
    }
    EXPECT_EQ(arrivals.all().size(), 2U);
}

TEST_F(DBusObjectTest, ASignalOnAClosedConnectionFailsWithAnErrorOfTheCallers) {
    TestObject object(peer.service());
    close();
    GError* error = nullptr;
    EXPECT_FALSE(object.sendSignal("Ticked", g_variant_new("(i)", 7), &error));
    ASSERT_NE(error, nullptr);
    const ErrorOwner owner(error);
    EXPECT_TRUE(g_error_matches(error, G_IO_ERROR, G_IO_ERROR_CLOSED));
}

// ---- the pace of signals

void sendSignals(DBusObject& object, int count) {
    for (int i = 0; i < count; ++i) {
        object.sendSignal("Ticked", g_variant_new("(i)", i), nullptr);
    }
}

TEST_F(DBusObjectTest, ABusThatIsSlowForEveryCallDoesNotSlowSignalsDown) {
    if (EMULATED) {
        GTEST_SKIP() << "an emulated processor takes longer for the signals than the bus may";
    }
    using namespace std::chrono_literals;
    SlowBus bus(15ms, 0ms);
    TestObject object(bus.connection());
    constexpr int MOST_AHEAD = 128;
    constexpr int BATCHES = 10;
    sendSignals(object, BATCHES * MOST_AHEAD);
    // There would be 160 if the time that every call takes counted. A busy machine may make some of
    // them.
    EXPECT_LE(bus.signalsBetweenCalls().size(), (SANITIZED ? 10U : 3U) * BATCHES);
}

TEST_F(DBusObjectTest, ABusThatTakesLongForSignalsGetsFewerAtATime) {
    using namespace std::chrono_literals;
    SlowBus bus(0ms, SANITIZED || EMULATED ? 10ms : 3ms);
    TestObject object(bus.connection());
    sendSignals(object, 128 + 64 + 32 + 16);
    const std::vector<int> batches = bus.signalsBetweenCalls();
    // The second call is the probe, which no signal comes before.
    EXPECT_THAT(batches, ElementsAre(128, 0, 64, 32, 16));
}

TEST_F(DBusObjectTest, AllThreadsWaitForTheBusTogether) {
    using namespace std::chrono_literals;
    constexpr int MOST_AHEAD = 128;
    constexpr int THREADS = 2;
    SlowBus bus(20ms, 0ms);
    TestObject object(bus.connection());
    std::thread other([&object] { sendSignals(object, 1000); });
    sendSignals(object, 1000);
    other.join();
    // Each thread may have one under way when the wait begins.
    for (const int batch : bus.signalsBetweenCalls()) {
        EXPECT_LE(batch, MOST_AHEAD + THREADS);
    }
}

}  // namespace
