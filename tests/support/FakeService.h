// SPDX-License-Identifier: MIT
#pragma once

#include <gio/gio.h>
#include <gtest/gtest.h>

#include <map>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "BusClient.h"
#include "RegisterType.h"
#include "support/GLibOwners.h"

/// What the service knows of a register. One without a value cannot be read.
struct FakeRegister {
    RegisterType type;
    int index;
    int maximum;
    std::optional<int> value;
};

/// Answers the calls that clients make to the service, in a thread of GDBus.
class FakeService {
 public:
    explicit FakeService(std::map<int, FakeRegister> served) : registers(std::move(served)) {
        filter = g_dbus_connection_add_filter(client.connection(), onMessage, this, nullptr);
        const VariantOwner reply(g_dbus_connection_call_sync(
            client.connection(), "org.freedesktop.DBus", "/org/freedesktop/DBus",
            "org.freedesktop.DBus", "RequestName", g_variant_new("(su)", "org.mirel.IoMapping", 0),
            nullptr, G_DBUS_CALL_FLAGS_NONE, -1, nullptr, nullptr));
        EXPECT_TRUE(reply);
    }
    ~FakeService() { g_dbus_connection_remove_filter(client.connection(), filter); }
    FakeService(const FakeService&) = delete;
    FakeService& operator=(const FakeService&) = delete;

    /// Gives a register another value, or makes it one that cannot be read.
    void set(int address, std::optional<int> value) {
        const std::lock_guard<std::mutex> lock(mutex);
        registers.at(address).value = value;
    }

    /// Gives a register another value and announces it.
    void announce(int address, int value) {
        set(address, value);
        g_dbus_connection_emit_signal(client.connection(), nullptr, BusClient::PATH,
                                      BusClient::INTERFACE, "OnValueChange",
                                      g_variant_new("(ii)", address, value), nullptr);
    }

    /// Forgets the calls until now.
    void forgetCalls() {
        const std::lock_guard<std::mutex> lock(mutex);
        record.clear();
    }

    /// The calls until now, such as "ReadList (<[1, 2]>,)".
    std::vector<std::string> calls() const {
        const std::lock_guard<std::mutex> lock(mutex);
        return record;
    }

 private:
    static GDBusMessage* onMessage(GDBusConnection* connection, GDBusMessage* message,
                                   gboolean incoming, gpointer service) {
        if (incoming == FALSE ||
            g_dbus_message_get_message_type(message) != G_DBUS_MESSAGE_TYPE_METHOD_CALL) {
            return message;
        }
        const ObjectOwner<GDBusMessage> call(message);
        const ObjectOwner<GDBusMessage> reply(static_cast<FakeService*>(service)->answer(message));
        g_dbus_connection_send_message(connection, reply.get(), G_DBUS_SEND_MESSAGE_FLAGS_NONE,
                                       nullptr, nullptr);
        return nullptr;
    }

    GDBusMessage* answer(GDBusMessage* call) {
        const std::string method = g_dbus_message_get_member(call);
        GVariant* const body = g_dbus_message_get_body(call);
        const std::lock_guard<std::mutex> lock(mutex);
        record.push_back(method + " " + StringOwner(g_variant_print(body, FALSE)).get());
        GDBusMessage* reply = g_dbus_message_new_method_reply(call);
        try {
            g_dbus_message_set_body(reply, result(method, body));
        } catch (const std::exception& e) {
            g_object_unref(reply);
            reply = g_dbus_message_new_method_error_literal(
                call, "org.freedesktop.DBus.Error.Failed", e.what());
        }
        return reply;
    }

    GVariant* result(const std::string& method, GVariant* body) const {
        if (method == "ReadList") {
            return readList(body);
        }
        gint32 number = 0;
        g_variant_get(body, "(i)", &number);
        if (method == "Read") {
            return g_variant_new("(i)", valueOf(number));
        }
        if (method == "GetParams") {
            const FakeRegister& entry = find(number);
            return g_variant_new("(iii)", static_cast<int>(entry.type), entry.index, entry.maximum);
        }
        std::vector<int> addresses;
        for (const auto& [address, entry] : registers) {
            if (static_cast<int>(entry.type) == number) {
                addresses.push_back(address);
            }
        }
        return numbers(addresses);
    }

    GVariant* readList(GVariant* body) const {
        GVariant* list = nullptr;
        g_variant_get(body, "(v)", &list);
        const VariantOwner owner(list);
        std::vector<int> values;
        for (gsize i = 0; i < g_variant_n_children(list); ++i) {
            gint32 address = 0;
            g_variant_get_child(list, i, "i", &address);
            values.push_back(valueOf(address));
        }
        return numbers(values);
    }

    int valueOf(int address) const {
        const FakeRegister& entry = find(address);
        if (!entry.value) {
            throw std::runtime_error("cannot read " + std::to_string(address));
        }
        return *entry.value;
    }

    const FakeRegister& find(int address) const {
        const auto entry = registers.find(address);
        if (entry == registers.end()) {
            throw std::runtime_error("address '" + std::to_string(address) + "' not found");
        }
        return entry->second;
    }

    static GVariant* numbers(const std::vector<int>& values) {
        return g_variant_new("(v)", g_variant_new_fixed_array(G_VARIANT_TYPE_INT32, values.data(),
                                                              values.size(), sizeof(gint32)));
    }

    mutable std::mutex mutex;
    std::map<int, FakeRegister> registers;
    std::vector<std::string> record;
    BusClient client;
    guint filter{0};
};
