// SPDX-License-Identifier: MIT
#include "ChangeFilter.h"

#include <utility>

#include "GLibOwners.h"

ChangeFilter::ChangeFilter(std::string interface, std::string signal)
    : interfaceName(std::move(interface)), signalName(std::move(signal)) {}

void ChangeFilter::attach(const std::shared_ptr<ChangeFilter>& filter,
                          GDBusConnection* connection) {
    // GDBus's thread may run the filter while the connection ends: a share keeps the filter alive
    // until GDBus has done with it.
    using Share = std::shared_ptr<ChangeFilter>;
    g_dbus_connection_add_filter(
        connection,
        [](GDBusConnection* /*connection*/, GDBusMessage* message, gboolean incoming,
           gpointer share) -> GDBusMessage* {
            if (incoming == FALSE || !(*static_cast<Share*>(share))->drops(message)) {
                return message;
            }
            const ObjectOwner<GDBusMessage> dropped(message);
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
