// SPDX-License-Identifier: MIT
#include "Register.h"

#include <gmock/gmock.h>

#include <limits>
#include <memory>
#include <stdexcept>
#include <utility>
#include <vector>

#include "CapturedLog.h"
#include "LoggerNames.h"
#include "tesk/Exceptions.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::ThrowsMessage;

constexpr int MIN = std::numeric_limits<int>::min();
constexpr int MAX = std::numeric_limits<int>::max();

class RegisterTest : public testing::Test {
 protected:
    static Register ofSize(unsigned int size) {
        return Register(12, RegisterType::VIRTUAL, 1, size, {});
    }

    /// The change callback: notes the value that the register holds when it is called.
    std::function<void(Register*)> collect() {
        return [this](Register* reg) { changes.emplace_back(reg, reg->readValue()); };
    }

    CapturedLog log;
    std::vector<std::pair<Register*, int>> changes;
};

TEST_F(RegisterTest, KeepsWhatItWasMadeOf) {
    const Register reg(-7, RegisterType::INPUT_ANALOG, 3, 16, {});
    EXPECT_EQ(reg.getAddress(), -7);
    EXPECT_EQ(reg.getType(), RegisterType::INPUT_ANALOG);
    EXPECT_EQ(reg.getIndex(), 3);
    EXPECT_EQ(reg.getMaxValue(), 65535U);
}

TEST_F(RegisterTest, ReadsZeroBeforeTheFirstWrite) {
    EXPECT_EQ(ofSize(32).readValue(), 0);
}

TEST_F(RegisterTest, TheLargestValueHasAllBitsOfTheSizeSet) {
    for (unsigned int size = 0; size < 32; ++size) {
        EXPECT_EQ(ofSize(size).getMaxValue(), (std::uint64_t{1} << size) - 1) << "size " << size;
    }
}

TEST_F(RegisterTest, OnlyTheLowEightBitsOfTheSizeCountAndFrom32OnAllBitsAreSet) {
    constexpr unsigned int ALL = 0xFFFFFFFF;
    const std::vector<std::pair<unsigned int, unsigned int>> maxValues{
        {32, ALL},
        {33, ALL},
        {64, ALL},
        {128, ALL},
        {254, ALL},
        {255, ALL},
        {256, 0},
        {257, 1},
        {256 + 31, 0x7FFFFFFF},
        {256 + 32, ALL},
        {static_cast<unsigned int>(-1), ALL},
        {static_cast<unsigned int>(-255), 1},
        {static_cast<unsigned int>(-256), 0},
    };
    for (const auto& [size, maxValue] : maxValues) {
        EXPECT_EQ(ofSize(size).getMaxValue(), maxValue) << "size " << size;
    }
}

TEST_F(RegisterTest, AValueUpToTheLargestIsWithinTheLimits) {
    const Register reg = ofSize(8);
    EXPECT_TRUE(reg.isValueAboveLimits(0));
    EXPECT_TRUE(reg.isValueAboveLimits(255));
    EXPECT_FALSE(reg.isValueAboveLimits(256));
    EXPECT_FALSE(reg.isValueAboveLimits(MAX));
}

TEST_F(RegisterTest, ANegativeValueIsComparedAsUnsigned) {
    for (const int value : {-1, -2, MIN}) {
        EXPECT_FALSE(ofSize(0).isValueAboveLimits(value)) << value;
        EXPECT_FALSE(ofSize(31).isValueAboveLimits(value)) << value;
        EXPECT_TRUE(ofSize(32).isValueAboveLimits(value)) << value;
    }
}

TEST_F(RegisterTest, SizeOneTakesZeroAndOneOnly) {
    Register reg = ofSize(1);
    reg.writeValue(0);
    EXPECT_EQ(reg.readValue(), 0);
    reg.writeValue(1);
    EXPECT_EQ(reg.readValue(), 1);
    EXPECT_THAT([&reg] { reg.writeValue(2); }, ThrowsMessage<tesk::InvalidArgumentsException>(
                                                   "value 2 is higher than max value 1"));
}

TEST_F(RegisterTest, SizeZeroTakesZeroOnly) {
    Register reg = ofSize(0);
    reg.writeValue(0);
    EXPECT_THAT([&reg] { reg.writeValue(1); }, ThrowsMessage<tesk::InvalidArgumentsException>(
                                                   "value 1 is higher than max value 0"));
    EXPECT_THAT([&reg] { reg.writeValue(-1); }, ThrowsMessage<tesk::InvalidArgumentsException>(
                                                    "value -1 is higher than max value 0"));
}

TEST_F(RegisterTest, SizeThirtyOneRefusesANegativeValue) {
    Register reg = ofSize(31);
    reg.writeValue(MAX);
    EXPECT_EQ(reg.readValue(), MAX);
    EXPECT_THAT([&reg] { reg.writeValue(-1); },
                ThrowsMessage<tesk::InvalidArgumentsException>(
                    "value -1 is higher than max value 2147483647"));
}

TEST_F(RegisterTest, SizeThirtyTwoTakesEveryValue) {
    Register reg = ofSize(32);
    for (const int value : {-1, MIN, MAX, 0}) {
        reg.writeValue(value);
        EXPECT_EQ(reg.readValue(), value);
    }
}

TEST_F(RegisterTest, ARefusedWriteChangesNothing) {
    Register reg(12, RegisterType::VIRTUAL, 1, 4, collect());
    reg.writeValue(9);
    changes.clear();
    log.clear();
    EXPECT_THROW(reg.writeValue(16), tesk::InvalidArgumentsException);
    EXPECT_THAT(changes, IsEmpty());
    EXPECT_THAT(log.lines(), IsEmpty());
    EXPECT_EQ(reg.readValue(), 9);
}

TEST_F(RegisterTest, EveryAcceptedWriteCallsTheCallbackWithTheValueStored) {
    Register reg(12, RegisterType::VIRTUAL, 1, 8, collect());
    reg.writeValue(5);
    reg.writeValue(5);
    reg.writeValue(0);
    EXPECT_THAT(changes, ElementsAre(std::pair(&reg, 5), std::pair(&reg, 5), std::pair(&reg, 0)));
}

TEST_F(RegisterTest, WithoutACallbackAWriteOnlyStoresAndLogs) {
    Register reg(12, RegisterType::VIRTUAL, 1, 8, nullptr);
    reg.writeValue(7);
    EXPECT_THAT(log.texts(Poco::Message::PRIO_INFORMATION),
                ElementsAre("write address 12, value 7"));
    EXPECT_EQ(reg.readValue(), 7);
}

TEST_F(RegisterTest, WhatTheCallbackThrowsPassesOutAfterTheValueIsStored) {
    Register reg(12, RegisterType::VIRTUAL, 1, 8,
                 [](Register*) { throw std::domain_error("no more"); });
    EXPECT_THAT([&reg] { reg.writeValue(7); }, ThrowsMessage<std::domain_error>("no more"));
    EXPECT_EQ(reg.readValue(), 7);
}

TEST_F(RegisterTest, KeepsACopyOfTheCallbackUntilItGoes) {
    const auto token = std::make_shared<int>();
    {
        std::function<void(Register*)> callback = [token](Register*) { ++*token; };
        Register reg(12, RegisterType::VIRTUAL, 1, 8, callback);
        callback = nullptr;
        EXPECT_EQ(token.use_count(), 2);
        reg.writeValue(1);
        EXPECT_EQ(*token, 1);
    }
    EXPECT_EQ(token.use_count(), 1);
}

TEST_F(RegisterTest, LogsReadsAndWritesAtInformationBeforeTheCallback) {
    Register reg(12, RegisterType::VIRTUAL, 1, 32, [](Register* r) { r->readValue(); });
    reg.writeValue(-1);
    EXPECT_THAT(log.texts(Poco::Message::PRIO_INFORMATION),
                ElementsAre("write address 12, value -1", "read value for address 12 -> -1"));
    ASSERT_EQ(log.lines().size(), 2U);
    for (const CapturedLog::Line& line : log.lines()) {
        EXPECT_EQ(line.source, loggerNameOf("register-12", &reg));
    }
}

TEST_F(RegisterTest, LogsNothingWhenInformationIsNotWanted) {
    const CapturedLog quiet(Poco::Message::PRIO_NOTICE);
    Register reg = ofSize(8);
    reg.writeValue(7);
    EXPECT_EQ(reg.readValue(), 7);
    EXPECT_THAT(quiet.lines(), IsEmpty());
}

TEST_F(RegisterTest, ItsLoggerLivesAsLongAsItDoes) {
    std::string positive;
    std::string negative;
    {
        const Register first(12, RegisterType::VIRTUAL, 1, 8, {});
        const Register second(-5, RegisterType::VIRTUAL, 1, 8, {});
        positive = loggerNameOf("register-12", &first);
        negative = loggerNameOf("register--5", &second);
        EXPECT_TRUE(loggerExists(positive));
        EXPECT_TRUE(loggerExists(negative));
    }
    EXPECT_FALSE(loggerExists(positive));
    EXPECT_FALSE(loggerExists(negative));
}

TEST_F(RegisterTest, DescribesItself) {
    EXPECT_EQ(Register(12, RegisterType::RELAY, 3, 1, {}).toString(),
              "address 12, type 'relay', index '3', max value '1'");
    EXPECT_EQ(Register(-1, RegisterType::VIRTUAL, 0, 32, {}).toString(),
              "address -1, type 'virtual', index '0', max value '4294967295'");
    EXPECT_EQ(Register(60001, static_cast<RegisterType>(77), -2, 0, {}).toString(),
              "address 60001, type 'unknown', index '-2', max value '0'");
}

}  // namespace
