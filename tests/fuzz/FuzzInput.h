// SPDX-License-Identifier: MIT
#pragma once

#include <gio/gio.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <string>
#include <utility>

#include "support/GLibOwners.h"

/// Ends the fuzzer with a finding.
[[noreturn]] inline void fail(const std::string& what) {
    std::cerr << what << '\n';
    std::abort();
}

/// The bytes of one round, taken piece by piece. Behind the end there are only zeros.
class FuzzInput {
 public:
    FuzzInput(const std::uint8_t* data, std::size_t size) : next(data), end(data + size) {}

    bool isEmpty() const { return next == end; }

    std::uint8_t byte() { return isEmpty() ? std::uint8_t{0} : *next++; }

    /// A number of four bytes, in the order of the machine.
    std::int32_t number() {
        std::int32_t result = 0;
        const std::size_t size = std::min(sizeof(result), left());
        std::memcpy(&result, next, size);
        next += size;
        return result;
    }

    /// What stands before the next zero byte.
    std::string text() {
        std::string result;
        for (std::uint8_t c = byte(); c != 0; c = byte()) {
            result += static_cast<char>(c);
        }
        return result;
    }

    /// A tuple of any type: first the type as a text, then the length of the value in two bytes,
    /// then the value as it is in memory. What no message can carry gives an empty tuple.
    VariantOwner tuple() {
        const std::string type = text();
        const std::size_t low = byte();
        const std::size_t high = byte();
        const std::size_t length = std::min(low + high * 256, left());
        const std::uint8_t* const first = next;
        next += length;
        VariantOwner empty(g_variant_ref_sink(g_variant_new_tuple(nullptr, 0)));
        if (type.front() != '(' || g_variant_type_string_is_valid(type.c_str()) == FALSE) {
            return empty;
        }
        GBytes* const bytes = g_bytes_new(first, length);
        const VariantOwner raw(g_variant_ref_sink(
            g_variant_new_from_bytes(G_VARIANT_TYPE(type.c_str()), bytes, FALSE)));
        g_bytes_unref(bytes);
        VariantOwner body(g_variant_get_normal_form(raw.get()));
        return isCarried(body.get()) ? std::move(body) : std::move(empty);
    }

 private:
    static bool isCarried(GVariant* body) {
        const ObjectOwner<GDBusMessage> message(
            g_dbus_message_new_method_call(nullptr, "/", nullptr, "Any"));
        g_dbus_message_set_serial(message.get(), 1);
        g_dbus_message_set_body(message.get(), body);
        gsize size = 0;
        const StringOwner blob(reinterpret_cast<gchar*>(
            g_dbus_message_to_blob(message.get(), &size, G_DBUS_CAPABILITY_FLAGS_NONE, nullptr)));
        return blob != nullptr;
    }

    std::size_t left() const { return static_cast<std::size_t>(end - next); }

    const std::uint8_t* next;
    const std::uint8_t* end;
};
