// SPDX-License-Identifier: MIT
#include "mqtt/DeviceId.h"

#include <gtest/gtest.h>

#include <string>

#include "TemporaryDirectory.h"
#include "client/Failure.h"

namespace {

class DeviceIdTest : public testing::Test {
 protected:
    std::string idOf(const std::string& text) const {
        return deviceIdOf(directory.file("machine-id", text));
    }

    TemporaryDirectory directory;
    const std::string machine = "0123456789abcdef0123456789abcdef";
};

TEST_F(DeviceIdTest, TheIdIsAlwaysTheSameAndDoesNotShowTheMachines) {
    const std::string id = idOf(machine + "\n");
    EXPECT_EQ(id, idOf(machine));
    EXPECT_EQ(id.size(), 32U);
    EXPECT_NE(id, machine);
}

TEST_F(DeviceIdTest, MachinesDiffer) {
    EXPECT_NE(idOf(machine), idOf("1123456789abcdef0123456789abcdef"));
}

TEST_F(DeviceIdTest, AnImageBeforeItsFirstStartHasNoId) {
    for (const std::string text :
         {"", "uninitialized\n", "0123", "g123456789abcdef0123456789abcdef"}) {
        EXPECT_THROW(idOf(text), Failure) << text;
    }
    EXPECT_THROW(deviceIdOf(directory.path() / "missing"), Failure);
}

}  // namespace
