// SPDX-License-Identifier: MIT
#pragma once

#include <gio/gio.h>

#include <memory>

/// Owners of GLib handles: each releases its handle when it goes.

template <typename T, auto Release>
struct GLibRelease {
    void operator()(T* handle) const { Release(handle); }
};

using ErrorOwner = std::unique_ptr<GError, GLibRelease<GError, g_error_free>>;
using VariantOwner = std::unique_ptr<GVariant, GLibRelease<GVariant, g_variant_unref>>;
using NodeInfoOwner =
    std::unique_ptr<GDBusNodeInfo, GLibRelease<GDBusNodeInfo, g_dbus_node_info_unref>>;
using MainLoopOwner = std::unique_ptr<GMainLoop, GLibRelease<GMainLoop, g_main_loop_unref>>;
using SourceOwner = std::unique_ptr<GSource, GLibRelease<GSource, g_source_unref>>;
using MainContextOwner =
    std::unique_ptr<GMainContext, GLibRelease<GMainContext, g_main_context_unref>>;
using StringOwner = std::unique_ptr<gchar, GLibRelease<gchar, g_free>>;

/// Owns one reference to a GObject: a connection, a proxy, a message, an invocation.
template <typename T>
using ObjectOwner = std::unique_ptr<T, GLibRelease<T, g_object_unref>>;
