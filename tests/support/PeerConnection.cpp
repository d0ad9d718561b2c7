// SPDX-License-Identifier: MIT
#include "PeerConnection.h"

#include <sys/socket.h>

#include <array>
#include <stdexcept>

#include "Deadline.h"

namespace {

GIOStream* streamOf(int fd) {
    GSocket* socket = g_socket_new_from_fd(fd, nullptr);
    GIOStream* stream = G_IO_STREAM(g_socket_connection_factory_create_connection(socket));
    g_object_unref(socket);
    return stream;
}

void open(int fd, GDBusConnectionFlags flags, GDBusConnection** result) {
    GIOStream* stream = streamOf(fd);
    const std::unique_ptr<gchar, decltype(&g_free)> guid(g_dbus_generate_guid(), g_free);
    const bool server = (flags & G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_SERVER) != 0;
    g_dbus_connection_new(
        stream, server ? guid.get() : nullptr, flags, nullptr, nullptr,
        [](GObject* /*source*/, GAsyncResult* outcome, gpointer target) {
            *static_cast<GDBusConnection**>(target) =
                g_dbus_connection_new_finish(outcome, nullptr);
        },
        result);
    g_object_unref(stream);
}

}  // namespace

void PeerConnection::Unref::operator()(GDBusConnection* connection) const {
    g_dbus_connection_close_sync(connection, nullptr, nullptr);
    g_object_unref(connection);
}

PeerConnection::PeerConnection() {
    std::array<int, 2> ends{};
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends.data()) != 0) {
        throw std::runtime_error("no socket pair");
    }
    GDBusConnection* opened[2]{};
    open(ends[0], G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_SERVER, &opened[0]);
    open(ends[1], G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT, &opened[1]);
    if (!runUntil([&opened] { return opened[0] != nullptr && opened[1] != nullptr; })) {
        throw std::runtime_error("the connections did not get together");
    }
    serviceSide.reset(opened[0]);
    clientSide.reset(opened[1]);
}
