// SPDX-License-Identifier: MIT
#include "PeerConnection.h"

#include <sys/socket.h>

#include <array>
#include <stdexcept>
#include <utility>

#include "Deadline.h"
#include "support/FileDescriptor.h"

namespace {

ObjectOwner<GSocketConnection> streamOf(FileDescriptor end) {
    const ObjectOwner<GSocket> socket(g_socket_new_from_fd(end.get(), nullptr));
    if (!socket) {
        throw std::runtime_error("a connection cannot have its end of the socket pair");
    }
    end.release();
    return ObjectOwner<GSocketConnection>(
        g_socket_connection_factory_create_connection(socket.get()));
}

void open(FileDescriptor end, GDBusConnectionFlags flags, GDBusConnection** result) {
    const ObjectOwner<GSocketConnection> stream = streamOf(std::move(end));
    const StringOwner guid(g_dbus_generate_guid());
    const bool server = (flags & G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_SERVER) != 0;
    g_dbus_connection_new(
        G_IO_STREAM(stream.get()), server ? guid.get() : nullptr, flags, nullptr, nullptr,
        [](GObject* /*source*/, GAsyncResult* outcome, gpointer target) {
            *static_cast<GDBusConnection**>(target) =
                g_dbus_connection_new_finish(outcome, nullptr);
        },
        result);
}

}  // namespace

PeerConnection::~PeerConnection() {
    for (const auto* side : {&clientSide, &serviceSide}) {
        g_dbus_connection_close_sync(side->get(), nullptr, nullptr);
    }
}

PeerConnection::PeerConnection() {
    std::array<int, 2> ends{};
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends.data()) != 0) {
        throw std::runtime_error("no socket pair");
    }
    FileDescriptor serviceEnd(ends[0]);
    FileDescriptor clientEnd(ends[1]);
    GDBusConnection* opened[2]{};
    open(std::move(serviceEnd), G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_SERVER, &opened[0]);
    open(std::move(clientEnd), G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT, &opened[1]);
    if (!runUntil([&opened] { return opened[0] != nullptr && opened[1] != nullptr; })) {
        throw std::runtime_error("the connections did not get together");
    }
    serviceSide.reset(opened[0]);
    clientSide.reset(opened[1]);
}
