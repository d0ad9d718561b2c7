// SPDX-License-Identifier: MIT
#include "support/ExceptionText.h"

#include <Poco/Exception.h>
#include <gtest/gtest.h>

#include <functional>
#include <new>
#include <stdexcept>

#include "tesk/Exceptions.h"

namespace {

TEST(ExceptionTextTest, OfAStandardExceptionIsItsWords) {
    EXPECT_EQ(exceptionText(std::runtime_error("no such thing")), "no such thing");
    EXPECT_EQ(exceptionText(std::out_of_range("map::at")), "map::at");
    EXPECT_EQ(exceptionText(std::bad_alloc()), std::bad_alloc().what());
    EXPECT_EQ(exceptionText(std::bad_function_call()), std::bad_function_call().what());
}

TEST(ExceptionTextTest, OfTheOwnFamilyIsTheMessageAlsoWhenEmpty) {
    EXPECT_EQ(exceptionText(tesk::NotFoundException("address '7' not found")),
              "address '7' not found");
    EXPECT_EQ(exceptionText(tesk::ParseException("")), "");
}

TEST(ExceptionTextTest, OfAPocoExceptionHasNameAndMessage) {
    EXPECT_EQ(exceptionText(Poco::SyntaxException("Not a valid unsigned integer", "4x")),
              "Syntax error: Not a valid unsigned integer: 4x");
    EXPECT_EQ(exceptionText(Poco::InvalidAccessException("Can not convert empty value.")),
              "Invalid access: Can not convert empty value.");
}

TEST(ExceptionTextTest, OfAPocoExceptionWithoutAMessageIsItsName) {
    EXPECT_EQ(exceptionText(Poco::NullPointerException()), "Null pointer");
}

TEST(ExceptionTextTest, SeesThePocoExceptionBehindAReferenceToTheStandardBase) {
    try {
        throw Poco::NotFoundException("key");
    } catch (const std::exception& e) {
        EXPECT_EQ(exceptionText(e), "Not found: key");
    }
}

}  // namespace
