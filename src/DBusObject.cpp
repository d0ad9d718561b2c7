// SPDX-License-Identifier: MIT
#include "DBusObject.h"

#include <algorithm>
#include <cassert>
#include <chrono>
#include <string_view>
#include <utility>

#include "support/Log.h"
#include "tesk/Exceptions.h"

namespace {

constexpr Pattern<std::string> INTROSPECTION_FAILED("error creating DBus introspection: %s");
constexpr Pattern<std::string> REGISTRATION_FAILED("error registering object %s on DBus");
constexpr Pattern<std::string> CALL_FAILED("%s");
constexpr Pattern<int> PROCESSING_TIME("processing time: %dus");

/// The method's name meets a placeholder for a number. Poco prints its marker for a mismatch there,
/// and tools that watch the log expect that marker. A Pattern would refuse this text.
constexpr const char* UNRECOGNIZED_CALL =
    "unrecognized dbus call: obj '%s', interface '%s', method '%d'";

/// How many signals may go ahead before their sender waits for the bus. Waiting more often lowers
/// the rate of signals. Replies queue behind the signals, though: on a slow bus, fewer may go
/// ahead.
constexpr int MOST_AHEAD = 128;
constexpr int FEWEST_AHEAD = 8;
constexpr std::chrono::milliseconds LONGEST_DELAY{10};
/// After so many waits, the bus is asked again how long it takes when no signal is ahead.
constexpr int WAITS_PER_PROBE = 16;

/// Waits until the bus has taken in all that was sent on a connection.
///
/// @return how long that took
std::chrono::nanoseconds awaitBus(GDBusConnection* connection) {
    const auto start = std::chrono::steady_clock::now();
    if (g_dbus_connection_get_unique_name(connection) == nullptr) {
        g_dbus_connection_flush_sync(connection, nullptr, nullptr);
    } else {
        // The bus works in order: its answer, even an error, comes after everything sent before.
        const VariantOwner answer(g_dbus_connection_call_sync(
            connection, "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus",
            "GetId", nullptr, nullptr, G_DBUS_CALL_FLAGS_NONE, -1, nullptr, nullptr));
    }
    return std::chrono::steady_clock::now() - start;
}

/// Answers with an empty body. GDBus's own function refuses an empty body where the introspection
/// states values, and the caller would wait in vain.
void returnNothing(GDBusMethodInvocation& invocation) {
    GDBusMessage* const call = g_dbus_method_invocation_get_message(&invocation);
    if ((g_dbus_message_get_flags(call) & G_DBUS_MESSAGE_FLAGS_NO_REPLY_EXPECTED) == 0) {
        const ObjectOwner<GDBusMessage> reply(g_dbus_message_new_method_reply(call));
        g_dbus_connection_send_message(g_dbus_method_invocation_get_connection(&invocation),
                                       reply.get(), G_DBUS_SEND_MESSAGE_FLAGS_NONE, nullptr,
                                       nullptr);
    }
}

}  // namespace

std::map<std::string, DBusObject*, std::less<>>
    DBusObject::ObjectCallbacks;  // NOLINT(cppcoreguidelines-avoid-non-const-global-variables)

const GDBusInterfaceVTable DBusObject::dbusVTable{
    DBusObject::dbusHandleMethodCall, nullptr, nullptr, {}};

DBusObject::DBusObject(const std::string& name, GDBusConnection* connection,
                       const std::string& introspectionXml, const std::string& path)
    : ObjectBase(name),
      busConnection(connection),
      objectPath(path),
      signalsAhead(MOST_AHEAD),
      signalsLeft(MOST_AHEAD) {
    GError* error = nullptr;
    nodeInfo.reset(g_dbus_node_info_new_for_xml(introspectionXml.c_str(), &error));
    if (!nodeInfo) {
        const ErrorOwner owner(error);
        throw tesk::InputOutputException(INTROSPECTION_FAILED(error->message));
    }
    registrationId = g_dbus_connection_register_object(busConnection, objectPath.c_str(),
                                                       nodeInfo->interfaces[0], &dbusVTable, this,
                                                       nullptr, nullptr);
    if (registrationId == 0) {
        throw tesk::InputOutputException(REGISTRATION_FAILED(objectPath));
    }
    callLimits.emplace(busConnection, objectPath);
    ObjectCallbacks[objectPath] = this;
}

DBusObject::~DBusObject() {
    g_dbus_connection_unregister_object(busConnection, registrationId);
}

bool DBusObject::sendSignal(const std::string& signalName, GVariant* parameters, GError** error) {
    const bool sent = g_dbus_connection_emit_signal(busConnection, nullptr, objectPath.c_str(),
                                                    nodeInfo->interfaces[0]->name,
                                                    signalName.c_str(), parameters, error) != FALSE;
    if (--signalsLeft <= 0) {
        const std::lock_guard<std::mutex> guard(paceMutex);
        // Another thread may have waited for the bus while this one waited for the mutex.
        if (signalsLeft <= 0) {
            letBusCatchUp();
        }
    }
    return sent;
}

void DBusObject::letBusCatchUp() {
    const std::chrono::nanoseconds wait = awaitBus(busConnection);
    if (waitsUntilProbe == 0) {
        // The least ever: in a storm, the bus passes signals on long after it has taken them in.
        bareWait = std::min(bareWait, awaitBus(busConnection));
        waitsUntilProbe = WAITS_PER_PROBE;
    }
    --waitsUntilProbe;
    // What the bus takes in any case is none of the signals' doing: fewer of them would not help.
    const bool isSlow = wait - bareWait > LONGEST_DELAY;
    signalsAhead =
        std::clamp(isSlow ? signalsAhead / 2 : signalsAhead * 2, FEWEST_AHEAD, MOST_AHEAD);
    signalsLeft = signalsAhead;
}

void DBusObject::dbusHandleMethodCall(GDBusConnection* /*connection*/, const gchar* /*sender*/,
                                      const gchar* objectPath, const gchar* interfaceName,
                                      const gchar* methodName, GVariant* parameters,
                                      GDBusMethodInvocation* invocation, gpointer userData) {
    const auto start = std::chrono::steady_clock::now();
    auto* const obj = static_cast<DBusObject*>(userData);
    assert(obj != nullptr);
    ObjectOwner<GDBusMethodInvocation> call(invocation);

    const auto entry = ObjectCallbacks.find(std::string_view(objectPath));
    if (entry == ObjectCallbacks.end() || entry->second == nullptr) {
        writeLine(obj->logger, Poco::Message::PRIO_WARNING, [&] {
            return Poco::format(UNRECOGNIZED_CALL, std::string(objectPath),
                                std::string(interfaceName), std::string(methodName));
        });
    } else {
        obj->answer(methodName, parameters, std::move(call), *entry->second);
    }

    const std::chrono::nanoseconds elapsed = std::chrono::steady_clock::now() - start;
    log(obj->logger, Poco::Message::PRIO_INFORMATION, PROCESSING_TIME,
        static_cast<int>(elapsed.count() / 1000));
}

void DBusObject::answer(const gchar* methodName, GVariant* parameters,
                        ObjectOwner<GDBusMethodInvocation> invocation, DBusObject& receiver) {
    GVariant* reply = nullptr;
    GError* error = nullptr;
    receiver.onDBusObjMessage(methodName, parameters, &reply, &error);
    CallLimits::handled(g_dbus_method_invocation_get_message(invocation.get()));
    if (error != nullptr) {
        const ErrorOwner owner(error);
        if (logger.error()) {
            log(logger, Poco::Message::PRIO_ERROR, CALL_FAILED, error->message);
        }
        g_dbus_method_invocation_return_gerror(invocation.release(), error);
    } else if (reply != nullptr) {
        g_dbus_method_invocation_return_value(invocation.release(), reply);
    } else {
        returnNothing(*invocation);
    }
}
