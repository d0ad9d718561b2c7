// SPDX-License-Identifier: MIT
#include "support/DriverRefusal.h"

#include <gmock/gmock.h>

#include <limits>

#include "CapturedLog.h"
#include "tesk/Exceptions.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::ThrowsMessage;

TEST(DriverRefusalTest, NamesTheTypeThatIsNotSupported) {
    EXPECT_THAT([] { DriverRefusal::unsupportedType(RegisterType::PULLUP); },
                ThrowsMessage<tesk::UnsupportedException>("type 'pullup' not supported"));
    EXPECT_THAT([] { DriverRefusal::unsupportedType(static_cast<RegisterType>(99)); },
                ThrowsMessage<tesk::UnsupportedException>("type 'unknown' not supported"));
}

TEST(DriverRefusalTest, NamesTheTypeThatCannotBeWritten) {
    EXPECT_THAT(
        [] { DriverRefusal::unsupportedWrite(RegisterType::UPTIME); },
        ThrowsMessage<tesk::UnsupportedException>("write not supported for IO type uptime"));
}

TEST(DriverRefusalTest, AcceptsZeroAndOneSilently) {
    const CapturedLog log;
    Poco::Logger& logger = Poco::Logger::get("driver-refusal-test");
    EXPECT_TRUE(DriverRefusal::acceptBit(RegisterType::RELAY, 0, logger));
    EXPECT_TRUE(DriverRefusal::acceptBit(RegisterType::RELAY, 1, logger));
    EXPECT_THAT(log.lines(), IsEmpty());
    Poco::Logger::destroy(logger.name());
}

TEST(DriverRefusalTest, RefusesEveryOtherValueAsUnsignedWithAnError) {
    const CapturedLog log;
    Poco::Logger& logger = Poco::Logger::get("driver-refusal-test");
    for (const int value : {2, -1, std::numeric_limits<int>::min()}) {
        EXPECT_FALSE(DriverRefusal::acceptBit(RegisterType::RTS, value, logger)) << value;
    }
    EXPECT_THAT(log.texts(Poco::Message::PRIO_ERROR),
                ElementsAre("invalid value '2' for IO type rts",
                            "invalid value '4294967295' for IO type rts",
                            "invalid value '2147483648' for IO type rts"));
    ASSERT_EQ(log.lines().size(), 3U);
    EXPECT_EQ(log.lines()[0].source, "driver-refusal-test");
    Poco::Logger::destroy("driver-refusal-test");
}

}  // namespace
