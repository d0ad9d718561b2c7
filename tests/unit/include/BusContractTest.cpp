// SPDX-License-Identifier: MIT
#include "BusContract.h"

#include <gtest/gtest.h>

#include "RegisterMap.h"
#include "Server.h"
#include "support/GLibOwners.h"

namespace {

TEST(BusContractTest, TheNamesAreThoseThatProgramsOnTheBusKnow) {
    EXPECT_STREQ(BusContract::SERVICE_NAME, "org.mirel.IoMapping");
    EXPECT_STREQ(BusContract::OBJECT_PATH, "/org/mirel/register");
    EXPECT_STREQ(BusContract::INTERFACE_NAME, "org.mirel.Register");
    EXPECT_STREQ(BusContract::CHANGE_SIGNAL, "OnValueChange");
    EXPECT_EQ(BusContract::MOST_ADDRESSES, 65'536U);
}

TEST(BusContractTest, TheClassConstantsHoldTheSame) {
    EXPECT_EQ(Server::DBUS_SERVICE_NAME, BusContract::SERVICE_NAME);
    EXPECT_EQ(RegisterMap::DBUS_OBJECT_NAME, BusContract::OBJECT_PATH);
    EXPECT_EQ(RegisterMap::DBUS_INTROSPECTION_XML, BusContract::INTROSPECTION_XML);
}

TEST(BusContractTest, TheDocumentStatesTheOneInterfaceAndItsOneSignal) {
    const NodeInfoOwner node(g_dbus_node_info_new_for_xml(BusContract::INTROSPECTION_XML, nullptr));
    ASSERT_NE(node, nullptr);
    ASSERT_NE(node->interfaces[0], nullptr);
    EXPECT_EQ(node->interfaces[1], nullptr);
    EXPECT_STREQ(node->interfaces[0]->name, BusContract::INTERFACE_NAME);
    GDBusSignalInfo** const signals = node->interfaces[0]->signals;
    ASSERT_NE(signals[0], nullptr);
    EXPECT_STREQ(signals[0]->name, BusContract::CHANGE_SIGNAL);
    EXPECT_EQ(signals[1], nullptr);
}

}  // namespace
