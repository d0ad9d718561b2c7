// SPDX-License-Identifier: MIT
#include "IoMapping.h"

#include <gio/gio.h>

#include <chrono>
#include <future>
#include <map>
#include <mutex>
#include <string>

#include "BusContract.h"
#include "ServiceError.h"
#include "support/CallLimits.h"
#include "support/ChangeFilter.h"
#include "support/ErrorCause.h"
#include "support/GLibOwners.h"
#include "support/Pattern.h"
#include "support/TimeLimit.h"
#include "tesk/Exceptions.h"

namespace {

constexpr Pattern<std::string> BUS_FAILED("Error initializing DBus: %s");
constexpr Pattern<std::string> INTROSPECTION_FAILED("error creating DBus introspection: %s");
constexpr Pattern<std::string> PROXY_FAILED("Error creating service proxy: %s");
constexpr Pattern<std::string> CALL_FAILED("Error calling method: %s");
constexpr Pattern<std::string> REPLY_UNEXPECTED("the service has replied with the type '%s'");

constexpr const char* TIMED_OUT = "Timeout was reached";

constexpr int CALL_TIMEOUT_MS = 5000;

/// How long the constructor and a liveness check take at most.
constexpr std::chrono::milliseconds TIME_LIMIT(CALL_TIMEOUT_MS);

/// A proxy that loads no properties, queues no signals of its own and, while it is constructed,
/// starts no service.
constexpr auto PROXY_FLAGS = static_cast<GDBusProxyFlags>(
    G_DBUS_PROXY_FLAGS_DO_NOT_LOAD_PROPERTIES | G_DBUS_PROXY_FLAGS_DO_NOT_CONNECT_SIGNALS |
    G_DBUS_PROXY_FLAGS_DO_NOT_AUTO_START_AT_CONSTRUCTION);

/// How long run(true) waits on a closed connection. Nothing will come any more, but a loop around
/// run(true) must not take the whole processor.
constexpr guint CLOSED_PAUSE_MS = 100;

/// Fails for want of the bus, whatever the error is.
[[noreturn]] void failWithoutBus(const Pattern<std::string>& pattern, GError* error) {
    const ErrorOwner owner(error);
    // Only the time limit cancels.
    const bool timedOut = g_error_matches(error, G_IO_ERROR, G_IO_ERROR_CANCELLED) != FALSE;
    throw ServiceError(pattern(timedOut ? TIMED_OUT : error->message), ServiceError::Cause::NO_BUS,
                       busNameOf(*error));
}

[[noreturn]] void failCall(GError* error) {
    const ErrorOwner owner(error);
    throw ServiceError(CALL_FAILED(error->message), causeOf(*error), busNameOf(*error));
}

[[noreturn]] void failReply(GVariant* reply) {
    throw ServiceError(CALL_FAILED(REPLY_UNEXPECTED(g_variant_get_type_string(reply))),
                       ServiceError::Cause::OTHER, {});
}

struct ConnectionClose {
    void operator()(GDBusConnection* connection) const {
        const ObjectOwner<GDBusConnection> reference(connection);
        // The probe of a liveness check keeps a reference for good: closing cannot wait for it.
        g_dbus_connection_close_sync(connection, nullptr, nullptr);
    }
};
using ConnectionOwner = std::unique_ptr<GDBusConnection, ConnectionClose>;

/// A connection of the object's own. A filter on the shared connection would see the messages of
/// other code in the application, and the loss of the shared connection ends the application.
ConnectionOwner connectToSystemBus(GCancellable* cancellable) {
    GError* error = nullptr;
    const StringOwner address(
        g_dbus_address_get_for_bus_sync(G_BUS_TYPE_SYSTEM, cancellable, &error));
    if (!address) {
        failWithoutBus(BUS_FAILED, error);
    }
    ConnectionOwner connection(g_dbus_connection_new_for_address_sync(
        address.get(),
        static_cast<GDBusConnectionFlags>(G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT |
                                          G_DBUS_CONNECTION_FLAGS_MESSAGE_BUS_CONNECTION),
        nullptr, cancellable, &error));
    if (!connection) {
        failWithoutBus(BUS_FAILED, error);
    }
    return connection;
}

/// Takes the reference to the default main context that the destructor of each object gives back.
/// Without it the context would be freed while others use it.
void holdDefaultContextForOneObject() {
    g_main_context_ref(g_main_context_default());
}

/// One iteration of a main context that waits for a short time at most.
///
/// @return whether anything else than the end of that time was dispatched
bool runBriefly(GMainContext* context) {
    bool elapsed = false;
    const SourceOwner pause(g_timeout_source_new(CLOSED_PAUSE_MS));
    g_source_set_callback(
        pause.get(),
        [](gpointer flag) -> gboolean {
            *static_cast<bool*>(flag) = true;
            return G_SOURCE_REMOVE;
        },
        &elapsed, nullptr);
    g_source_attach(pause.get(), context);
    const bool dispatched = g_main_context_iteration(context, TRUE) != FALSE;
    g_source_destroy(pause.get());
    return dispatched && !elapsed;
}

GVariant* intArray(const std::vector<int>& numbers) {
    return g_variant_new_fixed_array(G_VARIANT_TYPE_INT32, numbers.data(), numbers.size(),
                                     sizeof(gint32));
}

/// The numbers in a "(v)" that holds an "ai".
std::vector<int> unboxInts(GVariant* reply) {
    const VariantOwner boxed(g_variant_get_child_value(reply, 0));
    const VariantOwner list(g_variant_get_variant(boxed.get()));
    if (g_variant_is_of_type(list.get(), G_VARIANT_TYPE("ai")) == FALSE) {
        failReply(list.get());
    }
    gsize count = 0;
    const auto* const numbers =
        static_cast<const gint32*>(g_variant_get_fixed_array(list.get(), &count, sizeof(gint32)));
    return {numbers, numbers + count};
}

}  // namespace

struct IoMapping::State {
    State();
    ~State();
    State(const State&) = delete;
    State& operator=(const State&) = delete;

    /// Connects and subscribes, on a thread without a main context of its own.
    void open(GCancellable* cancellable);

    /// Calls a method of the service.
    ///
    /// @return the reply, of the type asked for
    /// @throws ServiceError "Error calling method: %s"
    VariantOwner call(const char* method, GVariant* parameters, const char* replyType) const;

    static void onSignal(GDBusConnection* connection, const gchar* sender, const gchar* objectPath,
                         const gchar* interfaceName, const gchar* signalName, GVariant* parameters,
                         gpointer userData);

    /// Has the bus tell of each new owner of the service's name, and the connection of its end.
    /// On a thread without a main context of its own.
    void subscribeToService();
    void tellOfService(bool present);

    static void onNewOwner(GDBusConnection* connection, const gchar* sender,
                           const gchar* objectPath, const gchar* interfaceName,
                           const gchar* signalName, GVariant* parameters, gpointer userData);
    static void onClosed(GDBusConnection* connection, gboolean remotely, GError* error,
                         gpointer userData);

    ConnectionOwner connection;
    NodeInfoOwner nodeInfo;
    GMainContext* mainContext{g_main_context_default()};
    guint subscriptionId{0};
    guint ownerSubscriptionId{0};
    gulong closedId{0};
    std::mutex lock;
    std::map<int, std::function<void(int, int)>> callbacks;
    std::function<void(bool)> serviceCallback;
    std::shared_ptr<ChangeFilter> filter;

    /// A wait between its beginWait() and its endWait(), which holds the main context.
    bool waits{false};
    gint waitPriority{0};
    /// Where the main context's descriptors begin among those of the application.
    std::size_t firstPolled{0};
    std::vector<GPollFD> polled;
};

IoMapping::State::State() {
    withinTimeLimit(TIME_LIMIT, [this](GCancellable* cancellable) { open(cancellable); });
    holdDefaultContextForOneObject();
}

void IoMapping::State::open(GCancellable* cancellable) {
    connection = connectToSystemBus(cancellable);
    GError* error = nullptr;
    nodeInfo.reset(g_dbus_node_info_new_for_xml(BusContract::INTROSPECTION_XML, &error));
    if (!nodeInfo) {
        failWithoutBus(INTROSPECTION_FAILED, error);
    }
    const char* const interfaceName = nodeInfo->interfaces[0]->name;
    filter = std::make_shared<ChangeFilter>(interfaceName, BusContract::CHANGE_SIGNAL);
    ChangeFilter::attach(filter, connection.get());
    subscriptionId = g_dbus_connection_signal_subscribe(
        connection.get(), BusContract::SERVICE_NAME, interfaceName, BusContract::CHANGE_SIGNAL,
        nullptr, nullptr, G_DBUS_SIGNAL_FLAGS_NONE, onSignal, this, nullptr);
    // The bus handles what it is sent in order. By its answer to the proxy it confirms the
    // subscription, too. The proxy is not kept: it would queue each coming and going of the service
    // until the application runs its main context.
    const ObjectOwner<GDBusProxy> proxy(
        g_dbus_proxy_new_sync(connection.get(), PROXY_FLAGS, nullptr, BusContract::SERVICE_NAME,
                              BusContract::OBJECT_PATH, interfaceName, cancellable, &error));
    if (!proxy) {
        g_dbus_connection_signal_unsubscribe(connection.get(), subscriptionId);
        failWithoutBus(PROXY_FAILED, error);
    }
}

IoMapping::State::~State() {
    g_dbus_connection_signal_unsubscribe(connection.get(), subscriptionId);
    if (closedId != 0) {
        g_dbus_connection_signal_unsubscribe(connection.get(), ownerSubscriptionId);
        g_signal_handler_disconnect(connection.get(), closedId);
    }
    nodeInfo.reset();
    if (waits) {
        g_main_context_release(mainContext);
    }
    g_main_context_wakeup(mainContext);
    g_main_context_unref(mainContext);
    connection.reset();
    callbacks.clear();
}

VariantOwner IoMapping::State::call(const char* method, GVariant* parameters,
                                    const char* replyType) const {
    // By name, not through a proxy: that calls the last owner of the name that it has heard of. In
    // an application that never runs the main context it hears of no new owner.
    GError* error = nullptr;
    VariantOwner reply(g_dbus_connection_call_sync(
        connection.get(), BusContract::SERVICE_NAME, BusContract::OBJECT_PATH,
        nodeInfo->interfaces[0]->name, method, parameters, nullptr, G_DBUS_CALL_FLAGS_NONE,
        CALL_TIMEOUT_MS, nullptr, &error));
    if (!reply) {
        failCall(error);
    }
    if (g_variant_is_of_type(reply.get(), G_VARIANT_TYPE(replyType)) == FALSE) {
        failReply(reply.get());
    }
    return reply;
}

void IoMapping::State::onSignal(GDBusConnection* /*connection*/, const gchar* /*sender*/,
                                const gchar* /*objectPath*/, const gchar* interfaceName,
                                const gchar* signalName, GVariant* parameters, gpointer userData) {
    auto* const state = static_cast<State*>(userData);
    if (state == nullptr || g_strcmp0(interfaceName, state->nodeInfo->interfaces[0]->name) != 0 ||
        g_strcmp0(signalName, BusContract::CHANGE_SIGNAL) != 0) {
        return;
    }
    gint32 address = 0;
    gint32 value = 0;
    g_variant_get(parameters, "(ii)", &address, &value);
    const std::lock_guard<std::mutex> guard(state->lock);
    const auto entry = state->callbacks.find(address);
    if (entry != state->callbacks.end() && entry->second) {
        entry->second(address, value);
    }
}

void IoMapping::State::subscribeToService() {
    ownerSubscriptionId = g_dbus_connection_signal_subscribe(
        connection.get(), "org.freedesktop.DBus", "org.freedesktop.DBus", "NameOwnerChanged",
        "/org/freedesktop/DBus", BusContract::SERVICE_NAME, G_DBUS_SIGNAL_FLAGS_NONE, onNewOwner,
        this, nullptr);
    closedId = g_signal_connect(connection.get(), "closed", G_CALLBACK(onClosed), this);
}

void IoMapping::State::tellOfService(bool present) {
    const std::lock_guard<std::mutex> guard(lock);
    if (serviceCallback) {
        serviceCallback(present);
    }
}

void IoMapping::State::onNewOwner(GDBusConnection* /*connection*/, const gchar* /*sender*/,
                                  const gchar* /*objectPath*/, const gchar* /*interfaceName*/,
                                  const gchar* /*signalName*/, GVariant* parameters,
                                  gpointer userData) {
    const gchar* before = nullptr;
    const gchar* after = nullptr;
    g_variant_get(parameters, "(&s&s&s)", nullptr, &before, &after);
    auto* const state = static_cast<State*>(userData);
    if (*before != '\0') {
        state->tellOfService(false);
    }
    if (*after != '\0') {
        state->tellOfService(true);
    }
}

void IoMapping::State::onClosed(GDBusConnection* /*connection*/, gboolean /*remotely*/,
                                GError* /*error*/, gpointer userData) {
    static_cast<State*>(userData)->tellOfService(false);
}

IoMapping::IoMapping() : state(std::make_unique<State>()) {}

IoMapping::~IoMapping() = default;

bool IoMapping::isAlive() {
    if (g_dbus_connection_is_closed(state->connection.get()) != FALSE) {
        return false;
    }
    return withinTimeLimit(TIME_LIMIT, [this](GCancellable* cancellable) {
        ObjectOwner<GDBusProxy> probe(g_dbus_proxy_new_sync(
            state->connection.get(), PROXY_FLAGS, nullptr, "org.freedesktop.DBus", "/",
            "org.freedesktop.DBus", cancellable, nullptr));
        if (!probe) {
            return false;
        }
        const VariantOwner reply(
            g_dbus_proxy_call_sync(probe.get(), "GetConnectionUnixProcessID",
                                   g_variant_new("(s)", BusContract::SERVICE_NAME),
                                   G_DBUS_CALL_FLAGS_NONE, CALL_TIMEOUT_MS, cancellable, nullptr));
        if (!reply) {
            return false;
        }
        // The probe of a successful check is kept for good.
        [[maybe_unused]] const GDBusProxy* const kept = probe.release();
        return true;
    });
}

bool IoMapping::run(bool mayBlock) {
    if (mayBlock && g_dbus_connection_is_closed(state->connection.get()) != FALSE) {
        return runBriefly(state->mainContext);
    }
    return g_main_context_iteration(state->mainContext, mayBlock ? TRUE : FALSE) != FALSE;
}

void IoMapping::wakeup() {
    g_main_context_wakeup(state->mainContext);
}

int IoMapping::beginWait(std::vector<pollfd>& descriptors) {
    GMainContext* const context = state->mainContext;
    // While nobody holds it, the context tells no descriptor of what is added to it.
    if (g_main_context_acquire(context) == FALSE) {
        throw tesk::InvalidStateException("another thread runs the main context");
    }
    if (state->waits) {
        g_main_context_release(context);
    }
    state->waits = true;
    g_main_context_prepare(context, &state->waitPriority);
    gint timeout = 0;
    const auto query = [&] {
        return static_cast<std::size_t>(
            g_main_context_query(context, state->waitPriority, &timeout, state->polled.data(),
                                 static_cast<gint>(state->polled.size())));
    };
    for (std::size_t count = query(); count != state->polled.size(); count = query()) {
        state->polled.resize(count);
    }
    state->firstPolled = descriptors.size();
    for (const GPollFD& polled : state->polled) {
        descriptors.push_back({polled.fd, static_cast<short>(polled.events), 0});
    }
    return timeout;
}

bool IoMapping::endWait(const std::vector<pollfd>& descriptors) {
    if (!state->waits) {
        throw tesk::InvalidStateException("endWait() without beginWait()");
    }
    GMainContext* const context = state->mainContext;
    for (std::size_t i = 0; i < state->polled.size(); ++i) {
        state->polled[i].revents =
            static_cast<gushort>(descriptors.at(state->firstPolled + i).revents);
    }
    const bool ready = g_main_context_check(context, state->waitPriority, state->polled.data(),
                                            static_cast<gint>(state->polled.size())) != FALSE;
    g_main_context_dispatch(context);
    state->waits = false;
    g_main_context_release(context);
    return ready;
}

int IoMapping::readValue(int address) {
    const VariantOwner reply = state->call("Read", g_variant_new("(i)", address), "(i)");
    gint32 value = 0;
    g_variant_get(reply.get(), "(i)", &value);
    return value;
}

std::vector<int> IoMapping::readValues(const std::vector<int>& addresses) {
    // A list beyond what the bus carries in one message would cost the connection.
    if (addresses.size() > BusContract::MOST_ADDRESSES) {
        throw ServiceError(CALL_FAILED(CallLimits::listTooLong(addresses.size())),
                           ServiceError::Cause::LIMITS_EXCEEDED, {});
    }
    return unboxInts(
        state->call("ReadList", g_variant_new("(v)", intArray(addresses)), "(v)").get());
}

void IoMapping::writeValue(int address, int value) {
    state->call("Write", g_variant_new("(ii)", address, value), "()");
}

std::tuple<RegisterType, int, int> IoMapping::getParams(int address) {
    const VariantOwner reply = state->call("GetParams", g_variant_new("(i)", address), "(iii)");
    gint32 type = 0;
    gint32 index = 0;
    gint32 maxValue = 0;
    g_variant_get(reply.get(), "(iii)", &type, &index, &maxValue);
    return {static_cast<RegisterType>(type), index, maxValue};
}

std::vector<int> IoMapping::getAddrsPerType(RegisterType type) {
    return unboxInts(
        state->call("GetAddrsPerType", g_variant_new("(i)", static_cast<gint32>(type)), "(v)")
            .get());
}

void IoMapping::enableNotifications(int address, std::function<void(int, int)> callback) {
    const std::lock_guard<std::mutex> guard(state->lock);
    state->callbacks[address] = std::move(callback);
    state->filter->admit(address);
}

void IoMapping::enableNotificationsRange(
    const std::vector<int>& addresses,
    std::function<void(int, int)> callback) {  // NOLINT(performance-unnecessary-value-param)
    const std::lock_guard<std::mutex> guard(state->lock);
    for (const int address : addresses) {
        state->callbacks[address] = callback;
        state->filter->admit(address);
    }
}

void IoMapping::disableNotifications(int address) {
    const std::lock_guard<std::mutex> guard(state->lock);
    state->callbacks.erase(address);
    state->filter->dismiss(address);
}

void IoMapping::disableNotificationsRange(const std::vector<int>& addresses) {
    const std::lock_guard<std::mutex> guard(state->lock);
    for (const int address : addresses) {
        state->callbacks.erase(address);
        state->filter->dismiss(address);
    }
}

void IoMapping::watchService(std::function<void(bool)> callback) {
    const std::lock_guard<std::mutex> guard(state->lock);
    state->serviceCallback = std::move(callback);
    // An application that does not ask has nothing queued when the service comes and goes.
    if (state->closedId == 0) {
        std::async(std::launch::async, [this] { state->subscribeToService(); }).get();
    }
}
