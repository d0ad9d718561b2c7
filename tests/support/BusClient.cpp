// SPDX-License-Identifier: MIT
#include "BusClient.h"

#include <cstdlib>
#include <stdexcept>

#include "Deadline.h"

namespace {

constexpr const char* SERVICE = "org.mirel.IoMapping";
constexpr const char* PATH = "/org/mirel/register";
constexpr const char* INTERFACE = "org.mirel.Register";

GDBusConnection* connectToBus() {
    GError* error = nullptr;
    GDBusConnection* connection = g_dbus_connection_new_for_address_sync(
        std::getenv("DBUS_SYSTEM_BUS_ADDRESS"),
        static_cast<GDBusConnectionFlags>(G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT |
                                          G_DBUS_CONNECTION_FLAGS_MESSAGE_BUS_CONNECTION),
        nullptr, nullptr, &error);
    if (connection == nullptr) {
        const ErrorOwner owner(error);
        throw std::runtime_error(error->message);
    }
    return connection;
}

void keepResult(GObject* /*source*/, GAsyncResult* result, gpointer target) {
    *static_cast<GAsyncResult**>(target) = G_ASYNC_RESULT(g_object_ref(result));
}

}  // namespace

std::string BusClient::Answer::text() const {
    if (!reply) {
        return errorName + ": " + errorText;
    }
    return StringOwner(g_variant_print(reply.get(), FALSE)).get();
}

BusClient::BusClient() : bus(connectToBus()), destination(SERVICE) {
    subscribe();
}

BusClient::BusClient(GDBusConnection* peer)
    : bus(G_DBUS_CONNECTION(g_object_ref(peer))), destination(nullptr) {
    subscribe();
}

BusClient::~BusClient() {
    g_dbus_connection_signal_unsubscribe(bus, subscription);
    if (destination != nullptr) {
        g_dbus_connection_close_sync(bus, nullptr, nullptr);
    }
    g_object_unref(bus);
}

void BusClient::subscribe() {
    subscription = g_dbus_connection_signal_subscribe(
        bus, destination, INTERFACE, "OnValueChange", nullptr, nullptr, G_DBUS_SIGNAL_FLAGS_NONE,
        [](GDBusConnection* /*connection*/, const gchar* /*sender*/, const gchar* /*path*/,
           const gchar* /*interface*/, const gchar* /*signal*/, GVariant* parameters,
           gpointer target) {
            Change change;
            g_variant_get(parameters, "(ii)", &change.first, &change.second);
            static_cast<std::vector<Change>*>(target)->push_back(change);
        },
        &received, nullptr);
}

BusClient::Answer BusClient::call(const std::string& method, const std::string& parameters) const {
    return call(PATH, INTERFACE, method, parameters);
}

BusClient::Answer BusClient::call(const std::string& path, const std::string& interface,
                                  const std::string& method, const std::string& parameters) const {
    GError* error = nullptr;
    GVariant* arguments = g_variant_parse(nullptr, parameters.c_str(), nullptr, nullptr, &error);
    if (arguments == nullptr) {
        const ErrorOwner owner(error);
        throw std::runtime_error(parameters + ": " + error->message);
    }
    GAsyncResult* result = nullptr;
    g_dbus_connection_call(bus, destination, path.c_str(), interface.c_str(), method.c_str(),
                           arguments, nullptr, G_DBUS_CALL_FLAGS_NONE, -1, nullptr, keepResult,
                           &result);
    g_variant_unref(arguments);
    if (!runUntil([&result] { return result != nullptr; })) {
        throw std::runtime_error("no answer to " + method + parameters);
    }
    GVariant* reply = g_dbus_connection_call_finish(bus, result, &error);
    g_object_unref(result);
    if (reply != nullptr) {
        return {std::shared_ptr<GVariant>(reply, g_variant_unref), {}, {}};
    }
    const ErrorOwner owner(error);
    const StringOwner name(g_dbus_error_get_remote_error(error));
    g_dbus_error_strip_remote_error(error);
    return {nullptr, name ? name.get() : "(local)", error->message};
}

void BusClient::waitForService() const {
    bool present = false;
    const guint watch = g_bus_watch_name_on_connection(
        bus, SERVICE, G_BUS_NAME_WATCHER_FLAGS_NONE,
        [](GDBusConnection* /*connection*/, const gchar* /*name*/, const gchar* /*owner*/,
           gpointer flag) { *static_cast<bool*>(flag) = true; },
        nullptr, &present, nullptr);
    const bool appeared = runUntil([&present] { return present; });
    g_bus_unwatch_name(watch);
    if (!appeared) {
        throw std::runtime_error("the service did not appear on the bus");
    }
}

bool BusClient::waitForChanges(std::size_t count) const {
    return runUntil([this, count] { return received.size() >= count; });
}
