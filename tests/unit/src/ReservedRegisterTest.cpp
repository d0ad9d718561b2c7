// SPDX-License-Identifier: MIT
#include "ReservedRegister.h"

#include <gmock/gmock.h>

#include "CapturedLog.h"
#include "LoggerNames.h"
#include "tesk/Exceptions.h"

namespace {

class ReservedRegisterTest : public testing::Test {
 protected:
    CapturedLog log;
    ReservedRegister reg{12, RegisterType::RESERVED, 3, 8};
};

TEST_F(ReservedRegisterTest, KeepsWhatItWasMadeOf) {
    EXPECT_EQ(reg.toString(), "address 12, type 'reserved', index '3', max value '255'");
}

TEST_F(ReservedRegisterTest, ReadsZeroWithoutALogLine) {
    EXPECT_EQ(reg.readValue(), 0);
    EXPECT_THAT(log.lines(), testing::IsEmpty());
}

TEST_F(ReservedRegisterTest, RefusesEveryWriteAndStoresAndLogsNothing) {
    for (const int value : {0, 1, 255, 256, -1}) {
        EXPECT_THAT([&] { reg.writeValue(value); },
                    testing::ThrowsMessage<tesk::InvalidStateException>(
                        "this register is reserved. No writes are allowed"));
        EXPECT_EQ(reg.readValue(), 0);
    }
    EXPECT_THAT(log.lines(), testing::IsEmpty());
    EXPECT_EQ(reg.Register::readValue(), 0);
}

TEST_F(ReservedRegisterTest, BehavesTheSameThroughItsBase) {
    Register& base = reg;
    EXPECT_EQ(base.readValue(), 0);
    EXPECT_THROW(base.writeValue(0), tesk::InvalidStateException);
}

TEST_F(ReservedRegisterTest, HasALoggerAsLongAsItLives) {
    std::string name;
    {
        const ReservedRegister other(13, RegisterType::RESERVED, 1, 1);
        name = loggerNameOf("register-13", &other);
        EXPECT_TRUE(loggerExists(name));
    }
    EXPECT_FALSE(loggerExists(name));
}

}  // namespace
