// SPDX-License-Identifier: MIT
#include "mqtt/ChangeQueue.h"

#include <gtest/gtest.h>

#include <string>

namespace {

constexpr std::size_t PLENTY = 1'000'000;

TEST(ChangeQueueTest, ChangesComeInOrderWithTheirAge) {
    ChangeQueue queue;
    queue.push({1, 5, "", 100});
    queue.push({2, {}, "no sensor", 130});
    queue.push({1, -6, "", 150});
    EXPECT_EQ(queue.take(200, PLENTY), R"([[1,5,100],[2,null,70,"no sensor"],[1,-6,50]])");
    EXPECT_TRUE(queue.empty());
    EXPECT_EQ(queue.take(200, PLENTY), "[]");
}

TEST(ChangeQueueTest, WhatDoesNotFitWaitsForTheNextMessage) {
    ChangeQueue queue;
    for (int address = 1; address <= 3; ++address) {
        queue.push({address, 0, "", 0});
    }
    EXPECT_EQ(queue.take(0, 17), "[[1,0,0],[2,0,0]]");
    EXPECT_EQ(queue.take(0, 1), "[[3,0,0]]") << "one always fits";
}

TEST(ChangeQueueTest, TheNewestOfEachRegisterStaysWhenTooManyWait) {
    ChangeQueue queue;
    for (int value = 1; value <= 100'000; ++value) {
        queue.push({value % 2, value, "", 0});
    }
    EXPECT_LE(queue.size(), 2 + 2 * ChangeQueue::SPARE);
    EXPECT_EQ(queue.merged() + queue.size(), 100'000U);
    const std::string changes = queue.take(0, PLENTY);
    EXPECT_NE(changes.find("[1,99999,0],[0,100000,0]]"), std::string::npos);
}

}  // namespace
