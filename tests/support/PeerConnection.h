// SPDX-License-Identifier: MIT
#pragma once

#include <gio/gio.h>

#include "support/GLibOwners.h"

/// Two D-Bus connections that talk to each other without a bus: what is registered on one is called
/// through the other. Both live in the default main context.
class PeerConnection {
 public:
    PeerConnection();
    ~PeerConnection();
    PeerConnection(const PeerConnection&) = delete;
    PeerConnection& operator=(const PeerConnection&) = delete;

    /// The side on which objects are registered.
    GDBusConnection* service() const { return serviceSide.get(); }
    /// The side of a client; calls to it name no destination.
    GDBusConnection* client() const { return clientSide.get(); }

 private:
    ObjectOwner<GDBusConnection> serviceSide;
    ObjectOwner<GDBusConnection> clientSide;
};
