// SPDX-License-Identifier: MIT
#include "CallLimits.h"

#include <map>
#include <mutex>
#include <optional>
#include <string_view>

#include "BusContract.h"
#include "GLibOwners.h"
#include "Pattern.h"

namespace {

constexpr Pattern<std::size_t, std::size_t> LIST_TOO_LONG(
    "a list may have at most %z addresses, not %z");
constexpr Pattern<std::size_t> TOO_MANY_CALLS("at most %z calls of one client may wait");
constexpr Pattern<std::size_t> TOO_MANY_ADDRESSES(
    "the lists of one client that wait may have at most %z addresses together");

/// How many addresses a call names in a list. A list of another type counts by its size.
std::size_t addressesIn(GDBusMessage* call) {
    GVariant* const body = g_dbus_message_get_body(call);
    if (body == nullptr || g_variant_is_of_type(body, G_VARIANT_TYPE("(v)")) == FALSE) {
        return 0;
    }
    const VariantOwner boxed(g_variant_get_child_value(body, 0));
    const VariantOwner list(g_variant_get_variant(boxed.get()));
    return g_variant_get_size(list.get()) / sizeof(gint32);
}

/// What waits, for each sender. Senders for whom nothing waits have no entry.
class WaitingCalls : public std::enable_shared_from_this<WaitingCalls> {
 public:
    explicit WaitingCalls(std::string path) : objectPath(std::move(path)) {}

    bool concerns(GDBusMessage* message) const {
        return g_dbus_message_get_message_type(message) == G_DBUS_MESSAGE_TYPE_METHOD_CALL &&
               objectPath == g_dbus_message_get_path(message);
    }

    /// Counts a call, or says which limit it exceeds.
    std::optional<std::string> admit(GDBusMessage* call);

    /// Ends the wait of a call that was counted.
    static void end(GDBusMessage* call);

 private:
    struct Count {
        std::size_t calls{0};
        std::size_t addresses{0};
    };
    using Senders = std::map<std::string, Count, std::less<>>;

    /// What a counted call carries until its wait ends.
    struct Ticket {
        std::shared_ptr<WaitingCalls> waiting;
        Senders::iterator sender;
        std::size_t addresses;

        Ticket(std::shared_ptr<WaitingCalls> all, Senders::iterator entry, std::size_t count)
            : waiting(std::move(all)), sender(entry), addresses(count) {}
        ~Ticket() { waiting->discount(sender, addresses); }
        Ticket(const Ticket&) = delete;
        Ticket& operator=(const Ticket&) = delete;
    };

    static GQuark ticketKey() {
        static const GQuark key = g_quark_from_static_string("io-mapping-waiting-call");
        return key;
    }

    void discount(Senders::iterator sender, std::size_t addresses);

    const std::string objectPath;
    std::mutex mutex;
    Senders senders;
};

std::optional<std::string> WaitingCalls::admit(GDBusMessage* call) {
    const std::size_t addresses = addressesIn(call);
    if (addresses > BusContract::MOST_ADDRESSES) {
        return CallLimits::listTooLong(addresses);
    }
    // Nobody but the bus names senders: without a bus, there is only one.
    const char* const name = g_dbus_message_get_sender(call);
    const std::string_view key = name != nullptr ? name : "";
    const std::lock_guard<std::mutex> guard(mutex);
    auto sender = senders.find(key);
    if (sender == senders.end()) {
        sender = senders.emplace(key, Count{}).first;
    }
    Count& count = sender->second;
    if (count.calls == CallLimits::MOST_CALLS) {
        return TOO_MANY_CALLS(CallLimits::MOST_CALLS);
    }
    if (count.addresses + addresses > BusContract::MOST_ADDRESSES) {
        return TOO_MANY_ADDRESSES(BusContract::MOST_ADDRESSES);
    }
    ++count.calls;
    count.addresses += addresses;
    g_object_set_qdata_full(G_OBJECT(call), ticketKey(),
                            new Ticket(shared_from_this(), sender, addresses),
                            [](gpointer ticket) { delete static_cast<Ticket*>(ticket); });
    return std::nullopt;
}

void WaitingCalls::end(GDBusMessage* call) {
    g_object_set_qdata(G_OBJECT(call), ticketKey(), nullptr);
}

void WaitingCalls::discount(Senders::iterator sender, std::size_t addresses) {
    const std::lock_guard<std::mutex> guard(mutex);
    sender->second.addresses -= addresses;
    if (--sender->second.calls == 0) {
        senders.erase(sender);
    }
}

void refuse(GDBusConnection* connection, GDBusMessage* call, const std::string& text) {
    if ((g_dbus_message_get_flags(call) & G_DBUS_MESSAGE_FLAGS_NO_REPLY_EXPECTED) == 0) {
        const ObjectOwner<GDBusMessage> reply(g_dbus_message_new_method_error_literal(
            call, "org.freedesktop.DBus.Error.LimitsExceeded", text.c_str()));
        g_dbus_connection_send_message(connection, reply.get(), G_DBUS_SEND_MESSAGE_FLAGS_NONE,
                                       nullptr, nullptr);
    }
}

GDBusMessage* onMessage(GDBusConnection* connection, GDBusMessage* message, gboolean incoming,
                        gpointer share) {
    const auto& waiting = *static_cast<std::shared_ptr<WaitingCalls>*>(share);
    if (incoming == FALSE || !waiting->concerns(message)) {
        return message;
    }
    const std::optional<std::string> refusal = waiting->admit(message);
    if (!refusal) {
        return message;
    }
    const ObjectOwner<GDBusMessage> refused(message);
    refuse(connection, message, *refusal);
    return nullptr;
}

}  // namespace

CallLimits::CallLimits(GDBusConnection* connection, const std::string& path)
    : busConnection(connection),
      // GDBus's thread may run the filter while the filter is being removed: a share keeps the
      // counts until GDBus has done with them.
      filterId(g_dbus_connection_add_filter(
          connection, onMessage,
          new std::shared_ptr<WaitingCalls>(std::make_shared<WaitingCalls>(path)),
          [](gpointer share) { delete static_cast<std::shared_ptr<WaitingCalls>*>(share); })) {}

CallLimits::~CallLimits() {
    g_dbus_connection_remove_filter(busConnection, filterId);
}

void CallLimits::handled(GDBusMessage* call) {
    WaitingCalls::end(call);
}

std::string CallLimits::listTooLong(std::size_t count) {
    return LIST_TOO_LONG(BusContract::MOST_ADDRESSES, count);
}
