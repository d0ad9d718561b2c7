// SPDX-License-Identifier: MIT
#pragma once

#include <gio/gio.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <string>

#include "support/CallLimits.h"
#include "support/GLibOwners.h"
#include "tesk/ObjectBase.h"

/// One object on a D-Bus connection. Passes method calls to onDBusObjMessage(), sends the replies,
/// and emits signals. The calls that wait are limited; see CallLimits.
///
/// Objects are created, called and destroyed on one thread, which runs the main context. Only
/// sendSignal() may be called from any thread.
class DBusObject : public tesk::ObjectBase {
 public:
    /// Registers the first interface of an introspection document.
    ///
    /// @param name the base of the logger's name
    /// @param connection borrowed; must outlive the object
    /// @param introspectionXml the document
    /// @param path the object path
    /// @throws tesk::InputOutputException "error creating DBus introspection: %s" for a bad
    ///         document; "error registering object %s on DBus" when the connection refuses the
    ///         path, for instance because another object has it
    DBusObject(const std::string& name, GDBusConnection* connection,
               const std::string& introspectionXml, const std::string& path);

    /// Takes the object off the connection. The object's entry in ObjectCallbacks stays: without
    /// the registration no call reaches that entry.
    ~DBusObject() override;

    /// Broadcasts a signal of the object's interface. Now and then this waits for the bus, and all
    /// threads that send wait together: signals that the bus cannot take at once would pile up in
    /// memory and delay replies.
    ///
    /// @param signalName the signal's name
    /// @param parameters its arguments, a tuple; a floating reference is consumed
    /// @param error set when the result is false; the caller frees it
    /// @return whether the signal was sent
    bool sendSignal(const std::string& signalName, GVariant* parameters, GError** error);

    /// Carries out one method call. Sets a reply, or an error, or neither for an empty reply. Must
    /// not throw.
    ///
    /// @param method the name of the method
    /// @param parameters its arguments, borrowed
    /// @param reply set to the reply's tuple, a floating reference
    /// @param error set to an error, which the caller frees
    virtual void onDBusObjMessage(const std::string& method, GVariant* parameters, GVariant** reply,
                                  GError** error) = 0;

    /// The live objects by path.
    static std::map<std::string, DBusObject*, std::less<>>
        ObjectCallbacks;  // NOLINT(cppcoreguidelines-avoid-non-const-global-variables)

    /// What GDBus calls for the object: method calls only, there are no properties.
    static const GDBusInterfaceVTable dbusVTable;

    /// GDBus's method-call callback. `userData` is the object that registered the path.
    static void dbusHandleMethodCall(GDBusConnection* connection, const gchar* sender,
                                     const gchar* objectPath, const gchar* interfaceName,
                                     const gchar* methodName, GVariant* parameters,
                                     GDBusMethodInvocation* invocation, gpointer userData);

 private:
    void answer(const gchar* methodName, GVariant* parameters,
                ObjectOwner<GDBusMethodInvocation> invocation, DBusObject& receiver);
    void letBusCatchUp();

    GDBusConnection* busConnection;
    std::string objectPath;
    NodeInfoOwner nodeInfo;
    guint registrationId{0};
    std::optional<CallLimits> callLimits;
    /// Held while the bus is waited for. Its holder needs only the bus, and no other lock.
    std::mutex paceMutex;
    /// How many signals go ahead between two waits. Belongs to the holder of paceMutex, as do the
    /// next two.
    int signalsAhead;
    /// The least that the bus has taken when no signal was ahead.
    std::chrono::nanoseconds bareWait{std::chrono::nanoseconds::max()};
    int waitsUntilProbe{0};
    /// 0 or less: whoever has sent a signal waits.
    std::atomic<int> signalsLeft;
};
