// SPDX-License-Identifier: MIT
#include "tesk/ObjectBase.h"

#include <gmock/gmock.h>

#include <memory>
#include <stdexcept>
#include <type_traits>

#include "CapturedLog.h"
#include "LoggerNames.h"

namespace {

constexpr const char* SHARED_NAME = "object-base-test";

class OwnLogger : public tesk::ObjectBase {
 public:
    explicit OwnLogger(const std::string& name) : ObjectBase(name) {}
    Poco::Logger& used() const { return logger; }
};

class Shared : public tesk::ObjectBase {
 public:
    Shared() : ObjectBase(SharedLogger(), SHARED_NAME) {}
    Poco::Logger& used() const { return logger; }
};

class Unfinished : public tesk::ObjectBase {
 public:
    Unfinished() : ObjectBase("unfinished") { throw std::domain_error("no more"); }
};

TEST(ObjectBaseTest, TheLoggersNameEndsInTheObjectsAddressInLowerCaseHexadecimal) {
    const OwnLogger object("register-12");
    EXPECT_EQ(object.used().name(), loggerNameOf("register-12", &object));
    const std::string address = object.used().name().substr(std::string("register-12.").size());
    EXPECT_EQ(address.find_first_not_of("0123456789abcdef"), std::string::npos) << address;
    EXPECT_NE(address.front(), '0');
}

TEST(ObjectBaseTest, TheNameIsTakenAsItIs) {
    for (const char* name : {"", "%s", "a.b", "with blank"}) {
        const OwnLogger object(name);
        EXPECT_EQ(object.used().name(), loggerNameOf(name, &object));
    }
}

TEST(ObjectBaseTest, ObjectsOfTheSameNameHaveDifferentLoggers) {
    const OwnLogger first("same");
    const OwnLogger second("same");
    EXPECT_NE(&first.used(), &second.used());
    EXPECT_NE(first.used().name(), second.used().name());
}

TEST(ObjectBaseTest, ALoggerOfItsOwnGoesWithTheObject) {
    auto object = std::make_unique<OwnLogger>("own");
    const std::string name = object->used().name();
    EXPECT_TRUE(loggerExists(name));
    std::unique_ptr<tesk::ObjectBase> base = std::move(object);
    EXPECT_TRUE(loggerExists(name));
    base.reset();
    EXPECT_FALSE(loggerExists(name));
}

TEST(ObjectBaseTest, ALoggerOfItsOwnGoesWhenTheObjectIsNotFinished) {
    const auto loggers = loggerNames();
    EXPECT_THROW(Unfinished(), std::domain_error);
    EXPECT_EQ(loggerNames(), loggers);
}

TEST(ObjectBaseTest, ASharedLoggerHasExactlyTheNameAndOutlivesTheObjects) {
    {
        const Shared first;
        const Shared second;
        EXPECT_EQ(first.used().name(), SHARED_NAME);
        EXPECT_EQ(&first.used(), &second.used());
    }
    EXPECT_TRUE(loggerExists(SHARED_NAME));
    Poco::Logger::destroy(SHARED_NAME);
}

TEST(ObjectBaseTest, ALineBearsTheLoggersName) {
    const CapturedLog log;
    const OwnLogger object("own");
    object.used().notice("here");
    ASSERT_EQ(log.linesWithText("here").size(), 1U);
    EXPECT_EQ(log.lines()[0].source, loggerNameOf("own", &object));
}

TEST(ObjectBaseTest, CannotBeCopiedNorMoved) {
    EXPECT_FALSE(std::is_copy_constructible_v<OwnLogger>);
    EXPECT_FALSE(std::is_copy_assignable_v<OwnLogger>);
    EXPECT_FALSE(std::is_move_constructible_v<OwnLogger>);
    EXPECT_FALSE(std::is_move_assignable_v<OwnLogger>);
    EXPECT_TRUE(std::has_virtual_destructor_v<tesk::ObjectBase>);
}

}  // namespace
