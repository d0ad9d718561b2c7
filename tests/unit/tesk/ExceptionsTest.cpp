// SPDX-License-Identifier: MIT
#include "tesk/Exceptions.h"

#include <gtest/gtest.h>

#include <array>
#include <string>
#include <type_traits>

namespace {

/// Whether a class of the family stands directly below the root: a child of it and of no other.
template <typename E, typename... Siblings>
constexpr bool standsAlone() {
    return std::is_convertible_v<E*, tesk::Exception*> && sizeof(E) == sizeof(std::runtime_error) &&
           !((std::is_base_of_v<Siblings, E> && !std::is_same_v<Siblings, E>) || ...);
}

template <typename... All>
constexpr bool allStandAlone() {
    return (standsAlone<All, All...>() && ...);
}

template <typename E>
void keepsItsTextWhenThrown() {
    for (const std::string text : {"driver 'x' not found", "", "100% %s"}) {
        try {
            throw E(text);
        } catch (const tesk::Exception& e) {
            EXPECT_EQ(e.what(), text);
            EXPECT_NE(dynamic_cast<const E*>(&e), nullptr);
        }
    }
}

TEST(ExceptionsTest, EachDerivesDirectlyFromTheRootAndAddsNothing) {
    EXPECT_TRUE((allStandAlone<tesk::NotFoundException, tesk::InvalidArgumentsException,
                               tesk::UnsupportedException, tesk::InputOutputException,
                               tesk::InvalidStateException, tesk::AlreadyExistsException,
                               tesk::ParseException>()));
}

TEST(ExceptionsTest, TheRootIsARuntimeErrorAndAddsNothing) {
    EXPECT_TRUE((std::is_convertible_v<tesk::Exception*, std::runtime_error*>));
    EXPECT_EQ(sizeof(tesk::Exception), sizeof(std::runtime_error));
}

TEST(ExceptionsTest, EachKeepsItsTextWhenThrown) {
    keepsItsTextWhenThrown<tesk::Exception>();
    keepsItsTextWhenThrown<tesk::NotFoundException>();
    keepsItsTextWhenThrown<tesk::InvalidArgumentsException>();
    keepsItsTextWhenThrown<tesk::UnsupportedException>();
    keepsItsTextWhenThrown<tesk::InputOutputException>();
    keepsItsTextWhenThrown<tesk::InvalidStateException>();
    keepsItsTextWhenThrown<tesk::AlreadyExistsException>();
    keepsItsTextWhenThrown<tesk::ParseException>();
}

}  // namespace
