// SPDX-License-Identifier: MIT
#include "mqtt/Mailbox.h"

#include <gtest/gtest.h>
#include <poll.h>

#include <string>
#include <vector>

namespace {

class MailboxTest : public testing::Test {
 protected:
    bool isNotified() const {
        pollfd entry{mailbox.descriptor(), POLLIN, 0};
        return poll(&entry, 1, 0) == 1;
    }

    int woken{0};
    Mailbox mailbox{[this] { ++woken; }};
};

TEST_F(MailboxTest, EverythingForTheNetworkNotifiesIt) {
    EXPECT_FALSE(isNotified());
    mailbox.addChange({1, 1, "", 0});
    EXPECT_TRUE(isNotified());
    mailbox.clearEvent();
    EXPECT_FALSE(isNotified());
    mailbox.setValue("pump", "1");
    EXPECT_TRUE(isNotified());
}

TEST_F(MailboxTest, TheNewestValueOfEachTopicStays) {
    mailbox.setValue("a", "1");
    mailbox.setValue("a", "2");
    EXPECT_EQ(mailbox.takeValue()->second, "2");
    EXPECT_FALSE(mailbox.takeValue());
}

TEST_F(MailboxTest, ATopicThatChangesAllTheTimeLetsTheOthersPass) {
    std::vector<std::string> order;
    mailbox.setValue("b", "1");
    mailbox.setValue("c", "1");
    for (int i = 0; i < 4; ++i) {
        mailbox.setValue("a", std::to_string(i));
        order.push_back(mailbox.takeValue()->first);
    }
    EXPECT_EQ(order, (std::vector<std::string>{"a", "b", "c", "a"}));
}

TEST_F(MailboxTest, RequestsAreBoundedAndWakeTheBus) {
    for (std::size_t i = 0; i < Mailbox::MOST_REQUESTS; ++i) {
        EXPECT_TRUE(mailbox.addRequest({}));
    }
    EXPECT_FALSE(mailbox.addRequest({}));
    EXPECT_EQ(woken, static_cast<int>(Mailbox::MOST_REQUESTS));
    EXPECT_TRUE(mailbox.takeRequest());
    mailbox.addReply({false, "{}"});
    EXPECT_FALSE(mailbox.addRequest({})) << "an answer that waits counts, too";
    mailbox.dropReplies();
    EXPECT_TRUE(mailbox.addRequest({}));
}

}  // namespace
