// SPDX-License-Identifier: MIT
#include "mqtt/Credentials.h"

#include <gtest/gtest.h>

#include "TemporaryDirectory.h"
#include "client/Failure.h"

namespace {

class CredentialsTest : public testing::Test {
 protected:
    TemporaryDirectory directory;
    BrokerSettings broker;
};

TEST_F(CredentialsTest, WithoutADirectoryThereAreNone) {
    EXPECT_EQ(Credentials::read("", broker).password, "");
}

TEST_F(CredentialsTest, ThePasswordEndsBeforeTheLineEnd) {
    broker.user = "device";
    directory.file("mqtt-password", "secret word\n");
    EXPECT_EQ(Credentials::read(directory.path(), broker).password, "secret word");
}

TEST_F(CredentialsTest, APasswordWithoutAUserIsAMistake) {
    directory.file("mqtt-password", "secret");
    EXPECT_THROW(Credentials::read(directory.path(), broker), Failure);
}

TEST_F(CredentialsTest, ACertificateNeedsItsKey) {
    broker.certificate = "/etc/ssl/device.pem";
    EXPECT_THROW(Credentials::read("", broker), Failure);
    EXPECT_THROW(Credentials::read(directory.path(), broker), Failure);
    const std::string key = directory.file("mqtt-key", "key");
    EXPECT_EQ(Credentials::read(directory.path(), broker).keyFile, key);
}

}  // namespace
