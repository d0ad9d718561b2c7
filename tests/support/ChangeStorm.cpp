// SPDX-License-Identifier: MIT
//
// Stands in for the service where only the number of changes matters: owns its name, and answers
// Write(address, n) after it has sent n changes of that address, the last with the value n.
#include <gio/gio.h>

#include <cstdlib>

#include "BusContract.h"
#include "support/GLibOwners.h"

namespace {

void onCall(GDBusConnection* connection, const gchar* /*sender*/, const gchar* path,
            const gchar* interface, const gchar* /*method*/, GVariant* parameters,
            GDBusMethodInvocation* invocation, gpointer /*userData*/) {
    gint32 address = 0;
    gint32 changes = 0;
    g_variant_get(parameters, "(ii)", &address, &changes);
    for (gint32 value = 1; value <= changes; ++value) {
        g_dbus_connection_emit_signal(connection, nullptr, path, interface, "OnValueChange",
                                      g_variant_new("(ii)", address, value), nullptr);
    }
    g_dbus_method_invocation_return_value(invocation, nullptr);
}

}  // namespace

int main() {
    const NodeInfoOwner node(g_dbus_node_info_new_for_xml(BusContract::INTROSPECTION_XML, nullptr));
    g_bus_own_name(
        G_BUS_TYPE_SYSTEM, BusContract::SERVICE_NAME, G_BUS_NAME_OWNER_FLAGS_NONE,
        [](GDBusConnection* connection, const gchar* /*name*/, gpointer description) {
            static const GDBusInterfaceVTable calls{onCall, nullptr, nullptr, {}};
            g_dbus_connection_register_object(
                connection, BusContract::OBJECT_PATH,
                static_cast<GDBusNodeInfo*>(description)->interfaces[0], &calls, nullptr, nullptr,
                nullptr);
        },
        nullptr, nullptr, node.get(), nullptr);
    const MainLoopOwner loop(g_main_loop_new(nullptr, FALSE));
    g_main_loop_run(loop.get());
    return EXIT_SUCCESS;
}
