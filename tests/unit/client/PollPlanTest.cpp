// SPDX-License-Identifier: MIT
#include "client/PollPlan.h"

#include <gtest/gtest.h>

namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;

TEST(PollPlanTest, WhatABoardAnnouncesIsReadOnceAMinute) {
    for (const RegisterType type : {RegisterType::RELAY, RegisterType::INPUT_DIGITAL,
                                    RegisterType::PULLUP, RegisterType::CTS}) {
        EXPECT_EQ(PollPlan().intervalOf(type), seconds(60)) << getTypeName(type);
    }
}

TEST(PollPlanTest, WhatNoBoardHasOrNeverChangesIsReadOnlyOnce) {
    for (const RegisterType type :
         {RegisterType::VIRTUAL, RegisterType::HW_TYPE, RegisterType::COUNT_RELAYS}) {
        EXPECT_EQ(PollPlan().intervalOf(type), milliseconds::zero()) << getTypeName(type);
    }
}

TEST(PollPlanTest, AnIntervalCanBeAnotherOne) {
    PollPlan plan;
    plan.set(RegisterType::VIRTUAL, milliseconds(500));
    EXPECT_EQ(plan.intervalOf(RegisterType::VIRTUAL), milliseconds(500));
}

}  // namespace
