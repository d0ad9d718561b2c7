// SPDX-License-Identifier: MIT
#include "ChangeFilter.h"

#include <utility>

ChangeFilter::ChangeFilter(std::string interface, std::string signal)
    : interfaceName(std::move(interface)), signalName(std::move(signal)) {}

void ChangeFilter::attach(const std::shared_ptr<ChangeFilter>& filter,
                          GDBusConnection* connection) {
    // GDBus's thread may be in the filter when the connection ends: it says when it is done.
    using Share = std::shared_ptr<ChangeFilter>;
    g_dbus_connection_add_filter(
        connection,
        [](GDBusConnection* /*connection*/, GDBusMessage* message, gboolean incoming,
           gpointer share) -> GDBusMessage* {
            if (incoming == FALSE || !(*static_cast<Share*>(share))->drops(message)) {
                return message;
            }
            g_object_unref(message);
            return nullptr;
        },
        new Share(filter), [](gpointer share) { delete static_cast<Share*>(share); });
}

void ChangeFilter::admit(int address) {
    const std::lock_guard<std::mutex> guard(lock);
    admitted.insert(address);
}

void ChangeFilter::dismiss(int address) {
    const std::lock_guard<std::mutex> guard(lock);
    admitted.erase(address);
}

bool ChangeFilter::drops(GDBusMessage* message) {
    if (g_dbus_message_get_message_type(message) != G_DBUS_MESSAGE_TYPE_SIGNAL ||
        signalName != g_dbus_message_get_member(message) ||
        interfaceName != g_dbus_message_get_interface(message)) {
        return false;
    }
    GVariant* body = g_dbus_message_get_body(message);
    if (body == nullptr || g_variant_is_of_type(body, G_VARIANT_TYPE("(ii)")) == FALSE) {
        return true;
    }
    gint32 address = 0;
    g_variant_get_child(body, 0, "i", &address);
    const std::lock_guard<std::mutex> guard(lock);
    return admitted.count(address) == 0;
}
