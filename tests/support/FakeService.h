// SPDX-License-Identifier: MIT
#pragma once

#include <gio/gio.h>

#include <chrono>
#include <map>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "RegisterType.h"
#include "StandInService.h"
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
    explicit FakeService(std::map<int, FakeRegister> served) : registers(std::move(served)) {}
    ~FakeService() {
        service.reset();
        // What the thread of GDBus did last is seen from here on.
        const std::lock_guard<std::mutex> lock(mutex);
    }
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
        g_dbus_connection_emit_signal(service->connection(), nullptr, BusClient::PATH,
                                      BusClient::INTERFACE, "OnValueChange",
                                      g_variant_new("(ii)", address, value), nullptr);
    }

    /// Lets every answer take some time, as a sensor does.
    void slowDown(std::chrono::milliseconds time) {
        const std::lock_guard<std::mutex> lock(mutex);
        pause = time;
    }

    /// When a method was called.
    std::vector<std::chrono::steady_clock::time_point> timesOf(const std::string& method) const {
        const std::lock_guard<std::mutex> lock(mutex);
        const auto found = times.find(method);
        return found == times.end() ? std::vector<std::chrono::steady_clock::time_point>()
                                    : found->second;
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
    void answer(GDBusConnection* connection, GDBusMessage* call) {
        const ObjectOwner<GDBusMessage> reply(replyTo(call));
        g_dbus_connection_send_message(connection, reply.get(), G_DBUS_SEND_MESSAGE_FLAGS_NONE,
                                       nullptr, nullptr);
    }

    GDBusMessage* replyTo(GDBusMessage* call) {
        const std::string method = g_dbus_message_get_member(call);
        GVariant* const body = g_dbus_message_get_body(call);
        const std::lock_guard<std::mutex> lock(mutex);
        times[method].push_back(std::chrono::steady_clock::now());
        std::this_thread::sleep_for(pause);
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
    std::map<std::string, std::vector<std::chrono::steady_clock::time_point>> times;
    std::chrono::milliseconds pause{0};
    std::optional<const StandInService> service{
        std::in_place,
        [this](GDBusConnection* connection, GDBusMessage* call) { answer(connection, call); }};
};
