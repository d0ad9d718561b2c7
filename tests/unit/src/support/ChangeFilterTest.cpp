// SPDX-License-Identifier: MIT
#include "support/ChangeFilter.h"

#include <gmock/gmock.h>

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "Deadline.h"
#include "PeerConnection.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr const char* INTERFACE = "org.example.Register";
constexpr const char* SIGNAL = "Changed";

/// A client with a filter on its connection, which hears every signal that passes.
class ChangeFilterTest : public testing::Test {
 protected:
    ChangeFilterTest() {
        ChangeFilter::attach(filter, peer.client());
        subscription = g_dbus_connection_signal_subscribe(
            peer.client(), nullptr, nullptr, nullptr, nullptr, nullptr, G_DBUS_SIGNAL_FLAGS_NONE,
            [](GDBusConnection* /*connection*/, const gchar* /*sender*/, const gchar* /*path*/,
               const gchar* interface, const gchar* signal, GVariant* parameters, gpointer target) {
                const std::unique_ptr<gchar, decltype(&g_free)> text(
                    g_variant_print(parameters, FALSE), g_free);
                static_cast<std::vector<std::string>*>(target)->push_back(
                    std::string(interface) + "." + signal + text.get());
            },
            &heard, nullptr);
    }
    ~ChangeFilterTest() override {
        g_dbus_connection_signal_unsubscribe(peer.client(), subscription);
    }

    void emit(GVariant* parameters, const char* interface = INTERFACE,
              const char* signal = SIGNAL) const {
        g_dbus_connection_emit_signal(peer.service(), nullptr, "/object", interface, signal,
                                      parameters, nullptr);
    }
    void emitChange(int address) const { emit(g_variant_new("(ii)", address, 0)); }

    /// What was heard so far. Signals arrive in order: what comes before a last one has come.
    std::vector<std::string> heardSoFar() {
        emit(g_variant_new("()"), INTERFACE, "Last");
        const std::string last = std::string(INTERFACE) + ".Last()";
        EXPECT_TRUE(runUntil([&] { return !heard.empty() && heard.back() == last; }));
        heard.pop_back();
        return std::exchange(heard, {});
    }

    PeerConnection peer;
    std::shared_ptr<ChangeFilter> filter = std::make_shared<ChangeFilter>(INTERFACE, SIGNAL);
    std::vector<std::string> heard;
    guint subscription{0};
};

TEST_F(ChangeFilterTest, OnlyChangesOfAdmittedAddressesPass) {
    emitChange(7);
    EXPECT_THAT(heardSoFar(), IsEmpty());
    filter->admit(7);
    filter->admit(9);
    for (const int address : {7, 8, 9}) {
        emitChange(address);
    }
    EXPECT_THAT(heardSoFar(), ElementsAre("org.example.Register.Changed(7, 0)",
                                          "org.example.Register.Changed(9, 0)"));
}

TEST_F(ChangeFilterTest, ADismissedAddressIsDroppedAgain) {
    filter->admit(7);
    filter->admit(8);
    filter->dismiss(7);
    filter->dismiss(1000);
    emitChange(7);
    emitChange(8);
    EXPECT_THAT(heardSoFar(), ElementsAre("org.example.Register.Changed(8, 0)"));
}

TEST_F(ChangeFilterTest, AChangeWithOtherArgumentsIsDropped) {
    filter->admit(7);
    emit(g_variant_new("(is)", 7, "text"));
    emit(nullptr);
    emitChange(7);
    EXPECT_THAT(heardSoFar(), ElementsAre("org.example.Register.Changed(7, 0)"));
}

TEST_F(ChangeFilterTest, EverythingElsePasses) {
    emit(g_variant_new("(ii)", 7, 0), "org.example.Other");
    emit(g_variant_new("(ii)", 7, 0), INTERFACE, "Other");
    EXPECT_THAT(heardSoFar(),
                ElementsAre("org.example.Other.Changed(7, 0)", "org.example.Register.Other(7, 0)"));
}

TEST_F(ChangeFilterTest, TheConnectionKeepsTheFilter) {
    const std::weak_ptr<ChangeFilter> watched = filter;
    filter.reset();
    EXPECT_FALSE(watched.expired());
    emitChange(7);
    EXPECT_THAT(heardSoFar(), IsEmpty());
}

}  // namespace
