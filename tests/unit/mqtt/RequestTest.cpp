// SPDX-License-Identifier: MIT
#include "mqtt/Request.h"

#include <gmock/gmock.h>

#include <string>

namespace {

using testing::ElementsAre;
using testing::HasSubstr;

TEST(RequestTest, AnEmptyGetAsksForEverything) {
    const Request request = parseRequest({}, "");
    EXPECT_EQ(request.action, Request::Action::GET);
    EXPECT_TRUE(request.everything);
    EXPECT_EQ(request.fault, "");
}

TEST(RequestTest, AGetNamesRegistersAndCarriesAToken) {
    const Request request =
        parseRequest({}, R"({"token": "a b", "registers": [1, "5-9", "pump", "7"]})");
    EXPECT_EQ(request.fault, "");
    EXPECT_EQ(request.token, "a b");
    EXPECT_FALSE(request.everything);
    EXPECT_TRUE(request.ranges.contains(1));
    EXPECT_TRUE(request.ranges.contains(8));
    EXPECT_FALSE(request.ranges.contains(10));
    EXPECT_THAT(request.names, ElementsAre("pump"));
}

TEST(RequestTest, ASetCarriesAValueInAnyForm) {
    for (const auto& [payload, value] : {std::pair{"1", "1"},
                                         {"-5", "-5"},
                                         {"closed", "closed"},
                                         {R"({"value": 1})", "1"},
                                         {R"({"value": "closed"})", "closed"},
                                         {R"({"value": 21.5})", "21.5"}}) {
        const Request request = parseRequest("pump", payload);
        EXPECT_EQ(request.action, Request::Action::SET);
        EXPECT_EQ(request.fault, "") << payload;
        EXPECT_EQ(request.target, "pump");
        EXPECT_EQ(request.value, value);
    }
}

TEST(RequestTest, WhatCannotBeUnderstoodIsAFaultWithTheToken) {
    for (const auto& [payload, fault] :
         {std::pair{R"({"token":"t","value":true})", "must be a number or a text"},
          {R"({"token":"t","value":null})", "must be a number or a text"},
          {R"({"token":"t","value":[1]})", "must be a number or a text"},
          {R"({"token":"t"})", "must be a number or a text"},
          {R"({"token":"t","value":""})", "1 to 200 bytes"},
          {R"({"token":"t","value":1,"force":1})", "no key 'force'"}}) {
        const Request request = parseRequest("1", payload);
        EXPECT_THAT(request.fault, HasSubstr(fault)) << payload;
        EXPECT_EQ(request.token, "t");
    }
}

TEST(RequestTest, HostilePayloadsAreFaults) {
    for (const std::string& payload :
         {std::string("{"), std::string("{\"value\":"), std::string(5000, '1'),
          std::string("{\"value\":" + std::string(2000, '[')), std::string("\xFF\xFE"),
          std::string("1\0", 2), std::string("{\"token\":5,\"value\":1}"), std::string(300, 'a'),
          std::string("{\"value\":\"\\u0000\"}")}) {
        EXPECT_NE(parseRequest("1", payload).fault, "") << payload;
    }
    EXPECT_NE(parseRequest({}, "[1]").fault, "");
    EXPECT_NE(parseRequest({}, R"({"registers": 5})").fault, "");
    EXPECT_NE(parseRequest({}, R"({"registers": [null]})").fault, "");
    EXPECT_NE(parseRequest("", "1").fault, "");
    EXPECT_EQ(parseRequest(std::string(500, 'x'), "1").target, "") << "it is not sent back";
}

}  // namespace
