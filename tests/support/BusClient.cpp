// SPDX-License-Identifier: MIT
#include "BusClient.h"

#include <stdexcept>

#include "BusConnection.h"
#include "Deadline.h"

namespace {

void keepResult(GObject* /*source*/, GAsyncResult* result, gpointer target) {
    static_cast<ObjectOwner<GAsyncResult>*>(target)->reset(G_ASYNC_RESULT(g_object_ref(result)));
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
    g_dbus_connection_signal_unsubscribe(bus.get(), subscription);
    if (destination != nullptr) {
        g_dbus_connection_close_sync(bus.get(), nullptr, nullptr);
    }
}

void BusClient::subscribe() {
    subscription = g_dbus_connection_signal_subscribe(
        bus.get(), destination, INTERFACE, "OnValueChange", nullptr, nullptr,
        G_DBUS_SIGNAL_FLAGS_NONE,
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
    const VariantOwner arguments(
        g_variant_parse(nullptr, parameters.c_str(), nullptr, nullptr, &error));
    if (!arguments) {
        const ErrorOwner owner(error);
        throw std::runtime_error(parameters + ": " + error->message);
    }
    ObjectOwner<GAsyncResult> result;
    g_dbus_connection_call(bus.get(), destination, path.c_str(), interface.c_str(), method.c_str(),
                           arguments.get(), nullptr, G_DBUS_CALL_FLAGS_NONE, -1, nullptr,
                           keepResult, &result);
    if (!runUntil([&result] { return result != nullptr; })) {
        throw std::runtime_error("no answer to " + method + parameters);
    }
    VariantOwner reply(g_dbus_connection_call_finish(bus.get(), result.get(), &error));
    if (reply) {
        return {std::move(reply), {}, {}};
    }
    const ErrorOwner owner(error);
    const StringOwner name(g_dbus_error_get_remote_error(error));
    g_dbus_error_strip_remote_error(error);
    return {nullptr, name ? name.get() : "(local)", error->message};
}

void BusClient::waitForService() const {
    bool present = false;
    const guint watch = g_bus_watch_name_on_connection(
        bus.get(), SERVICE, G_BUS_NAME_WATCHER_FLAGS_NONE,
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
