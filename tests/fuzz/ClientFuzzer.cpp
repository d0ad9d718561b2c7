// SPDX-License-Identifier: MIT
//
// Gives the class IoMapping any replies and signals. A bus of its own answers the client. Each
// round is a sequence of calls with their replies, with signals before them. The client may take a
// reply, or refuse it with its exception. A callback must hear exactly the changes of its register.

#include <glib/gstdio.h>

#include <algorithm>
#include <array>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "BusContract.h"
#include "CallFilter.h"
#include "FuzzInput.h"
#include "IoMapping.h"
#include "TemporaryDirectory.h"
#include "tesk/Exceptions.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace {

constexpr int MOST_CALLS = 8;
/// The registers that a callback listens to.
constexpr std::array<int, 3> LISTENED{1, 2, 60001};

constexpr const char* BUS = "org.freedesktop.DBus";
constexpr const char* OWNER = ":1.1";

using Change = std::pair<int, int>;

/// What the bus is to send when the service is called next.
struct Script {
    struct Signal {
        std::string interface;
        std::string member;
        VariantOwner body;
    };
    std::vector<Signal> signals;
    /// No reply for an error with this name and text.
    VariantOwner reply;
    std::string errorName;
    std::string errorText;
};

/// A bus with one service, on a thread of its own.
class FakeBus {
 public:
    FakeBus() {
        thread = std::thread([this] { serve(); });
        std::unique_lock<std::mutex> guard(mutex);
        started.wait(guard, [this] { return isUp; });
    }
    ~FakeBus() {
        g_main_loop_quit(loop.get());
        thread.join();
    }
    FakeBus(const FakeBus&) = delete;
    FakeBus& operator=(const FakeBus&) = delete;

    std::string address() const { return "unix:path=" + path(); }

    void setScript(Script&& next) {
        const std::lock_guard<std::mutex> guard(mutex);
        script = std::move(next);
    }

 private:
    std::string path() const { return (directory.path() / "bus").string(); }

    void serve() {
        const MainContextOwner context(g_main_context_new());
        g_main_context_push_thread_default(context.get());
        loop.reset(g_main_loop_new(context.get(), FALSE));
        const StringOwner guid(g_dbus_generate_guid());
        const ObjectOwner<GDBusServer> server(g_dbus_server_new_sync(
            address().c_str(), G_DBUS_SERVER_FLAGS_NONE, guid.get(), nullptr, nullptr, nullptr));
        if (!server) {
            fail("no bus");
        }
        g_signal_connect(server.get(), "new-connection", G_CALLBACK(onConnection), this);
        g_dbus_server_start(server.get());
        {
            const std::lock_guard<std::mutex> guard(mutex);
            isUp = true;
        }
        started.notify_all();
        g_main_loop_run(loop.get());
        g_main_context_pop_thread_default(context.get());
    }

    static gboolean onConnection(GDBusServer* /*server*/, GDBusConnection* connection,
                                 gpointer self) {
        auto* const bus = static_cast<FakeBus*>(self);
        bus->client.emplace(connection, [bus](GDBusConnection* caller, GDBusMessage* call) {
            bus->answer(caller, call);
        });
        return TRUE;
    }

    /// Runs on GDBus's own thread.
    void answer(GDBusConnection* connection, GDBusMessage* call) {
        if (g_strcmp0(g_dbus_message_get_destination(call), BUS) == 0) {
            answerAsBus(connection, call);
        } else {
            answerAsService(connection, call);
        }
    }

    static void answerAsBus(GDBusConnection* connection, GDBusMessage* call) {
        const std::string member = g_dbus_message_get_member(call);
        GVariant* body = nullptr;
        if (member == "Hello") {
            body = g_variant_new("(s)", ":1.2");
        } else if (member == "GetNameOwner") {
            body = g_variant_new("(s)", OWNER);
        } else if (member == "StartServiceByName") {
            body = g_variant_new("(u)", 2);
        }
        const ObjectOwner<GDBusMessage> reply(g_dbus_message_new_method_reply(call));
        g_dbus_message_set_sender(reply.get(), BUS);
        if (body != nullptr) {
            g_dbus_message_set_body(reply.get(), body);
        }
        send(connection, reply.get());
    }

    void answerAsService(GDBusConnection* connection, GDBusMessage* call) {
        const std::lock_guard<std::mutex> guard(mutex);
        for (const Script::Signal& signal : script.signals) {
            const ObjectOwner<GDBusMessage> message(g_dbus_message_new_signal(
                BusContract::OBJECT_PATH, signal.interface.c_str(), signal.member.c_str()));
            g_dbus_message_set_sender(message.get(), OWNER);
            g_dbus_message_set_body(message.get(), signal.body.get());
            send(connection, message.get());
        }
        const ObjectOwner<GDBusMessage> reply(
            script.reply ? g_dbus_message_new_method_reply(call)
                         : g_dbus_message_new_method_error_literal(call, script.errorName.c_str(),
                                                                   script.errorText.c_str()));
        g_dbus_message_set_sender(reply.get(), OWNER);
        if (script.reply) {
            g_dbus_message_set_body(reply.get(), script.reply.get());
        }
        send(connection, reply.get());
    }

    static void send(GDBusConnection* connection, GDBusMessage* message) {
        GError* error = nullptr;
        if (g_dbus_connection_send_message(connection, message, G_DBUS_SEND_MESSAGE_FLAGS_NONE,
                                           nullptr, &error) == FALSE) {
            const ErrorOwner owner(error);
            // The client goes at the end, with its last calls still under way.
            if (g_error_matches(error, G_IO_ERROR, G_IO_ERROR_CLOSED) == FALSE) {
                fail(error->message);
            }
        }
    }

    TemporaryDirectory directory;
    std::mutex mutex;
    std::condition_variable started;
    bool isUp{false};
    Script script;
    std::optional<CallFilter> client;
    MainLoopOwner loop;
    std::thread thread;
};

/// The numbers of a list in a variant; nothing for any other reply.
std::optional<std::vector<int>> listIn(GVariant* reply) {
    if (reply == nullptr || g_variant_is_of_type(reply, G_VARIANT_TYPE("(v)")) == FALSE) {
        return std::nullopt;
    }
    const VariantOwner boxed(g_variant_get_child_value(reply, 0));
    const VariantOwner list(g_variant_get_variant(boxed.get()));
    if (g_variant_is_of_type(list.get(), G_VARIANT_TYPE("ai")) == FALSE) {
        return std::nullopt;
    }
    std::vector<int> numbers;
    for (gsize i = 0; i < g_variant_n_children(list.get()); ++i) {
        gint32 number = 0;
        g_variant_get_child(list.get(), i, "i", &number);
        numbers.push_back(number);
    }
    return numbers;
}

/// The numbers of a tuple; nothing for a reply of any other type.
std::optional<std::vector<int>> numbersIn(GVariant* reply, const char* type) {
    if (reply == nullptr || g_variant_is_of_type(reply, G_VARIANT_TYPE(type)) == FALSE) {
        return std::nullopt;
    }
    std::vector<int> numbers;
    for (gsize i = 0; i < g_variant_n_children(reply); ++i) {
        gint32 number = 0;
        g_variant_get_child(reply, i, "i", &number);
        numbers.push_back(number);
    }
    return numbers;
}

/// A method of the client, and what a reply means to it.
struct Method {
    std::vector<int> (*call)(IoMapping& io);
    std::optional<std::vector<int>> (*meaning)(GVariant* reply);
};
const std::array<Method, 5> METHODS{{
    {[](IoMapping& io) { return std::vector<int>{io.readValue(1)}; },
     [](GVariant* reply) { return numbersIn(reply, "(i)"); }},
    {[](IoMapping& io) {
         return io.readValues({1, 2});
     },
     listIn},
    {[](IoMapping& io) {
         io.writeValue(1, 2);
         return std::vector<int>{};
     },
     [](GVariant* reply) { return numbersIn(reply, "()"); }},
    {[](IoMapping& io) {
         const auto [type, index, maximum] = io.getParams(1);
         return std::vector<int>{static_cast<int>(type), index, maximum};
     },
     [](GVariant* reply) { return numbersIn(reply, "(iii)"); }},
    {[](IoMapping& io) { return io.getAddrsPerType(RegisterType::RELAY); }, listIn},
}};

/// What all rounds share.
class Client {
 public:
    Client() {
        g_log_set_always_fatal(
            static_cast<GLogLevelFlags>(G_LOG_LEVEL_CRITICAL | G_LOG_FATAL_MASK));
        setenv("DBUS_SYSTEM_BUS_ADDRESS", bus.address().c_str(), 1);
        io = std::make_unique<IoMapping>();
        io->enableNotificationsRange(
            {LISTENED.begin(), LISTENED.end()},
            [this](int address, int value) { heard.emplace_back(address, value); });
    }

    void round(FuzzInput input) {
        for (int i = 0; i < MOST_CALLS && !input.isEmpty(); ++i) {
            const std::uint8_t choice = input.byte();
            heard.clear();
            const std::vector<Change> told = prepare(choice, input);
            call(METHODS.at(choice % METHODS.size()));
            while (io->run(false)) {
            }
            if (heard != told) {
                fail("the callbacks have heard of " + std::to_string(heard.size()) +
                     " changes, and not of " + std::to_string(told.size()));
            }
        }
    }

 private:
    /// Hands the bus its next script.
    ///
    /// @return the changes that the callbacks must hear
    std::vector<Change> prepare(std::uint8_t choice, FuzzInput& input) {
        Script script;
        std::vector<Change> told;
        const int signals = choice >> 5 & 3;
        for (int i = 0; i < signals; ++i) {
            Script::Signal signal = signalOf(input);
            const auto change = numbersIn(signal.body.get(), "(ii)");
            if (change && signal.interface == BusContract::INTERFACE_NAME &&
                signal.member == BusContract::CHANGE_SIGNAL &&
                std::count(LISTENED.begin(), LISTENED.end(), change->at(0)) > 0) {
                told.emplace_back(change->at(0), change->at(1));
            }
            script.signals.push_back(std::move(signal));
        }
        const bool isError = (choice & 0x80) != 0;
        if (isError) {
            script.errorName = g_dbus_is_interface_name((script.errorName = input.text()).c_str())
                                   ? script.errorName
                                   : "org.mirel.Error";
            const StringOwner valid(g_utf8_make_valid(input.text().c_str(), -1));
            script.errorText = valid.get();
        } else {
            script.reply = input.tuple();
        }
        expected.reset(script.reply ? g_variant_ref(script.reply.get()) : nullptr);
        bus.setScript(std::move(script));
        return told;
    }

    static Script::Signal signalOf(FuzzInput& input) {
        const std::uint8_t choice = input.byte();
        // Most signals are changes: others do not come far.
        return {(choice & 3) == 1 ? "org.mirel.Other" : BusContract::INTERFACE_NAME,
                (choice & 3) == 2 ? "Other" : BusContract::CHANGE_SIGNAL,
                (choice & 4) == 0 ? changeOf(input) : input.tuple()};
    }

    static VariantOwner changeOf(FuzzInput& input) {
        const gint32 address = input.byte();
        return VariantOwner(g_variant_ref_sink(
            g_variant_new("(ii)", address == 255 ? 60001 : address, input.number())));
    }

    void call(const Method& method) {
        const std::optional<std::vector<int>> meaning = method.meaning(expected.get());
        try {
            const std::vector<int> result = method.call(*io);
            if (!meaning || result != *meaning) {
                fail("the client has made something else of the reply");
            }
        } catch (const tesk::InputOutputException& e) {
            if (meaning) {
                fail(std::string("the client has refused a good reply: ") + e.what());
            }
        }
    }

    FakeBus bus;
    std::unique_ptr<IoMapping> io;
    std::vector<Change> heard;
    VariantOwner expected;
};

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static Client client;
    client.round({data, size});
    return 0;
}
