// SPDX-License-Identifier: MIT
#include <Poco/Exception.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "BusClient.h"
#include "CapturedLog.h"
#include "FakeDriver.h"
#include "PeerConnection.h"
#include "RegisterMap.h"
#include "TemporaryDirectory.h"
#include "support/GLibOwners.h"
#include "tesk/Exceptions.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr const char* FAILED = "org.freedesktop.DBus.Error.Failed";

/// Not in the order of their addresses.
constexpr const char* FIELDS = R"({"io_mapping": [
    {"address": 60001, "size": 32, "count": 1},
    {"address": 10, "size": 1, "count": 2, "type": "relay", "driver": "kr62"},
    {"address": 20, "size": 8, "count": 1, "type": "reserved"},
    {"address": 30, "size": 4, "count": 1, "type": "unknown", "driver": "kr62"},
    {"address": 1, "size": 8, "count": 2}]})";

class RegisterRequestsTest : public testing::Test {
 protected:
    RegisterRequestsTest() {
        drivers.addDriver(std::make_shared<FakeDriver>(DriverInterface::VADU));
        drivers.addDriver(driver);
        map.parse();
        driver->forgetCalls();
        log.clear();
    }

    /// The answer to a call over the connection, as text.
    std::string ask(const std::string& method, const std::string& parameters) const {
        return client.call(method, parameters).text();
    }

    /// What Read answers for an address, without the tuple.
    std::string valueAt(const std::string& address) const {
        const std::string answer = ask("Read", "(" + address + ",)");
        return answer.substr(1, answer.size() - 3);
    }

    void expectFailure(const std::string& method, const std::string& parameters,
                       const std::string& text) const {
        SCOPED_TRACE(method + parameters);
        const BusClient::Answer answer = client.call(method, parameters);
        EXPECT_EQ(answer.errorName, FAILED);
        EXPECT_EQ(answer.errorText, text);
    }

    /// Runs the handler itself.
    ///
    /// @return the reply as text, the error as "domain code: message", or "nothing"
    std::string handle(const std::string& method, const std::string& parameters) {
        const VariantOwner arguments(
            g_variant_parse(nullptr, parameters.c_str(), nullptr, nullptr, nullptr));
        GVariant* reply = nullptr;
        GError* error = nullptr;
        map.onDBusObjMessage(method, arguments.get(), &reply, &error);
        EXPECT_TRUE(reply == nullptr || error == nullptr);
        if (error != nullptr) {
            const ErrorOwner owner(error);
            return std::string(g_quark_to_string(error->domain)) + " " +
                   std::to_string(error->code) + ": " + error->message;
        }
        if (reply == nullptr) {
            return "nothing";
        }
        EXPECT_TRUE(g_variant_is_floating(reply));
        const VariantOwner owner(g_variant_ref_sink(reply));
        return StringOwner(g_variant_print(reply, FALSE)).get();
    }

    /// The lines as "logger priority text", without the loggers' addresses and the times.
    std::vector<std::string> lines() const {
        const std::string time = "processing time: ";
        std::vector<std::string> result;
        for (const CapturedLog::Line& line : log.lines()) {
            const bool tellsTime = line.text.compare(0, time.size(), time) == 0;
            result.push_back(line.source.substr(0, line.source.find('.')) + " " +
                             std::to_string(line.priority) + " " + (tellsTime ? time : line.text));
        }
        return result;
    }

    std::shared_ptr<FakeDriver> driver{std::make_shared<FakeDriver>(DriverInterface::KR62)};
    DriverManager drivers;
    CapturedLog log;
    TemporaryDirectory directory;
    PeerConnection peer;
    RegisterMap map{peer.service(), directory.file("map.json", FIELDS), drivers};
    BusClient client{peer.client()};
};

// ---- the five methods

TEST_F(RegisterRequestsTest, ReadAnswersWithTheValue) {
    EXPECT_EQ(ask("Read", "(1,)"), "(0,)");
    driver->convert = [](RegisterType, int, int index) { return index * 1000; };
    EXPECT_EQ(ask("Read", "(11,)"), "(2000,)");
    EXPECT_EQ(ask("Read", "(20,)"), "(0,)");
}

TEST_F(RegisterRequestsTest, WriteAnswersWithNothingAndStores) {
    EXPECT_EQ(ask("Write", "(1, 255)"), "()");
    EXPECT_EQ(ask("Read", "(1,)"), "(255,)");
    EXPECT_EQ(ask("Write", "(60001, -1)"), "()");
    EXPECT_EQ(ask("Read", "(60001,)"), "(-1,)");
    EXPECT_EQ(ask("Write", "(11, 1)"), "()");
    EXPECT_THAT(driver->calls(),
                ElementsAre("isValueValid(relay, 1)", "specificWriteValue(relay, 1, 2)"));
}

TEST_F(RegisterRequestsTest, ReadListAnswersWithTheValuesInTheOrderOfTheAddresses) {
    ask("Write", "(1, 7)");
    ask("Write", "(60001, -2)");
    const BusClient::Answer answer = client.call("ReadList", "(<[60001, 1, 2, 20]>,)");
    EXPECT_EQ(answer.text(), "(<[-2, 7, 0, 0]>,)");
    EXPECT_STREQ(g_variant_get_type_string(answer.reply.get()), "(v)");
}

TEST_F(RegisterRequestsTest, ReadListFindsEveryRegisterFromEveryOther) {
    const auto& registers = map.allRegisters();
    for (std::size_t place = 0; place < registers.size(); ++place) {
        registers[place]->Register::writeValue(place % 2 == 0 ? 1 : 0);
    }
    for (const auto& one : registers) {
        for (const auto& other : registers) {
            const std::string first = std::to_string(one->getAddress());
            const std::string second = std::to_string(other->getAddress());
            const std::string list = "(<[" + first + ", " + second + "]>,)";
            const std::string separate = "(<[" + valueAt(first) + ", " + valueAt(second) + "]>,)";
            EXPECT_EQ(ask("ReadList", list), separate) << list;
        }
    }
}

TEST_F(RegisterRequestsTest, NoRequestTakesAShareOfARegister) {
    const std::shared_ptr<Register>& reg = map.allRegisters().at(2);
    ASSERT_EQ(reg->getAddress(), 10);
    driver->convert = [&reg](RegisterType, int, int) { return static_cast<int>(reg.use_count()); };
    EXPECT_EQ(ask("Read", "(10,)"), "(1,)");
    EXPECT_EQ(ask("ReadList", "(<[10, 10]>,)"), "(<[1, 1]>,)");
}

TEST_F(RegisterRequestsTest, ReadListReadsARepeatedAddressEachTime) {
    int value = 0;
    driver->convert = [&value](RegisterType, int, int) { return ++value; };
    EXPECT_EQ(ask("ReadList", "(<[10, 1, 10, 10]>,)"), "(<[1, 0, 2, 3]>,)");
}

TEST_F(RegisterRequestsTest, ReadListOfNoAddressAnswersWithNoValue) {
    EXPECT_EQ(ask("ReadList", "(<@ai []>,)"), "(<@ai []>,)");
    EXPECT_THAT(lines(), ElementsAre("register-map 6 call method 'ReadList'\n",
                                     "register-map 6 Addresses lenght: 0",
                                     "register-map 6 processing time: "));
}

TEST_F(RegisterRequestsTest, GetAddrsPerTypeAnswersInAscendingOrder) {
    EXPECT_EQ(ask("GetAddrsPerType", "(29,)"), "(<[1, 2, 60001]>,)");
    EXPECT_EQ(ask("GetAddrsPerType", "(0,)"), "(<[10, 11]>,)");
    EXPECT_EQ(ask("GetAddrsPerType", "(28,)"), "(<[20]>,)");
    EXPECT_EQ(ask("GetAddrsPerType", "(30,)"), "(<[30]>,)");
}

TEST_F(RegisterRequestsTest, GetAddrsPerTypeOfATypeThatNoRegisterHasIsEmpty) {
    for (const std::string type : {"1", "27", "31", "99", "-1", "2147483647", "-2147483648"}) {
        EXPECT_EQ(ask("GetAddrsPerType", "(" + type + ",)"), "(<@ai []>,)");
    }
}

TEST_F(RegisterRequestsTest, GetParamsAnswersWithTypeIndexAndMaxValue) {
    EXPECT_EQ(ask("GetParams", "(1,)"), "(29, 1, 255)");
    EXPECT_EQ(ask("GetParams", "(2,)"), "(29, 2, 255)");
    EXPECT_EQ(ask("GetParams", "(11,)"), "(0, 2, 1)");
    EXPECT_EQ(ask("GetParams", "(20,)"), "(28, 1, 255)");
    EXPECT_EQ(ask("GetParams", "(30,)"), "(30, 1, 15)");
    EXPECT_EQ(ask("GetParams", "(60001,)"), "(29, 1, -1)");
    EXPECT_THAT(driver->calls(), IsEmpty());
}

TEST_F(RegisterRequestsTest, RepliesHaveTheirDocumentedTypes) {
    const std::vector<std::vector<std::string>> rows{
        {"GetAddrsPerType", "(29,)", "(v)"},
        {"Write", "(1, 1)", "()"},
        {"Read", "(1,)", "(i)"},
        {"ReadList", "(<[1]>,)", "(v)"},
        {"GetParams", "(1,)", "(iii)"},
    };
    for (const auto& row : rows) {
        const BusClient::Answer answer = client.call(row[0], row[1]);
        ASSERT_TRUE(answer.reply) << answer.text();
        EXPECT_EQ(g_variant_get_type_string(answer.reply.get()), row[2]);
        if (row[2] == "(v)") {
            const VariantOwner box(g_variant_get_child_value(answer.reply.get(), 0));
            const VariantOwner list(g_variant_get_variant(box.get()));
            EXPECT_STREQ(g_variant_get_type_string(list.get()), "ai");
        }
    }
}

// ---- failures

TEST_F(RegisterRequestsTest, AnAddressWithoutRegisterIsAnErrorOfEveryMethod) {
    expectFailure("Read", "(99,)", "address '99' not found");
    expectFailure("Read", "(-2147483648,)", "address '-2147483648' not found");
    expectFailure("Write", "(3, 1)", "address '3' not found");
    expectFailure("GetParams", "(0,)", "address '0' not found");
    expectFailure("ReadList", "(<[1, 99, 98]>,)", "address '99' not found");
}

TEST_F(RegisterRequestsTest, AValueThatTheRegisterRefusesIsAnError) {
    expectFailure("Write", "(1, 256)", "value 256 is higher than max value 255");
    expectFailure("Write", "(1, -1)", "value -1 is higher than max value 255");
    expectFailure("Write", "(20, 0)", "this register is reserved. No writes are allowed");
    driver->accept = [](RegisterType, int) { return false; };
    expectFailure("Write", "(10, 1)", "value 1 is invalid for address 10");
    driver->accept = [](RegisterType, int) -> bool {
        throw tesk::UnsupportedException("write not supported for IO type relay");
    };
    expectFailure("Write", "(10, 1)", "write not supported for IO type relay");

    EXPECT_EQ(ask("Read", "(1,)"), "(0,)");
    EXPECT_EQ(ask("Read", "(20,)"), "(0,)");
    EXPECT_THAT(client.changes(), IsEmpty());
}

TEST_F(RegisterRequestsTest, AFailureOfTheDriverIsAnErrorInItsOwnWords) {
    const std::vector<std::function<void()>> throwers{
        [] { throw tesk::InputOutputException("error opening file '/sys/x' for reading"); },
        [] { throw tesk::InvalidStateException("100% of %s and %d\nand a second line"); },
        [] { throw std::out_of_range("far away"); },
    };
    const std::vector<std::string> texts{"error opening file '/sys/x' for reading",
                                         "100% of %s and %d\nand a second line", "far away"};
    for (std::size_t i = 0; i < throwers.size(); ++i) {
        driver->convert = [&throwers, i](RegisterType, int value, int) {
            throwers[i]();
            return value;
        };
        expectFailure("Read", "(10,)", texts[i]);
        expectFailure("ReadList", "(<[1, 10]>,)", texts[i]);
        driver->write = [&throwers, i](RegisterType, int, int) { throwers[i](); };
        expectFailure("Write", "(10, 1)", texts[i]);
    }
}

TEST_F(RegisterRequestsTest, AnExceptionOfPocosIsAnErrorWithItsDisplayText) {
    driver->convert = [](RegisterType, int, int) -> int {
        throw Poco::SyntaxException("Not a valid hexadecimal integer", "xyz");
    };
    expectFailure("Read", "(10,)", "Syntax error: Not a valid hexadecimal integer: xyz");
    driver->convert = [](RegisterType, int, int) -> int { throw Poco::TimeoutException(); };
    expectFailure("ReadList", "(<[10]>,)", "Timeout");
}

TEST_F(RegisterRequestsTest, AnExceptionWithoutTextIsAnEmptyReply) {
    driver->convert = [](RegisterType, int, int) -> int { throw std::runtime_error(""); };
    driver->accept = [](RegisterType, int) -> bool { throw tesk::InputOutputException(""); };
    EXPECT_EQ(ask("Read", "(10,)"), "()");
    EXPECT_EQ(ask("ReadList", "(<[1, 10]>,)"), "()");
    EXPECT_EQ(ask("Write", "(10, 1)"), "()");
    EXPECT_THAT(log.texts(Poco::Message::PRIO_ERROR), IsEmpty());
    EXPECT_EQ(handle("Read", "(10,)"), "nothing");
}

TEST_F(RegisterRequestsTest, ATextThatIsNoUtf8StillArrivesAsAnError) {
    driver->convert = [](RegisterType, int, int) -> int {
        throw std::runtime_error("bad \xFF byte in '\xC3\xA9\xE2\x82'");
    };
    expectFailure("Read", "(10,)", "bad \xEF\xBF\xBD byte in '\xC3\xA9\xEF\xBF\xBD\xEF\xBF\xBD'");
    EXPECT_EQ(ask("Read", "(1,)"), "(0,)");
}

TEST_F(RegisterRequestsTest, ReadListStopsAtTheFirstFailure) {
    driver->convert = [](RegisterType, int value, int index) {
        return index == 1 ? throw tesk::InputOutputException("no line") : value;
    };
    expectFailure("ReadList", "(<[11, 10, 11]>,)", "no line");
    EXPECT_THAT(driver->calls(),
                ElementsAre("convertValue(relay, 0, 2)", "convertValue(relay, 0, 1)"));
}

TEST_F(RegisterRequestsTest, ReadListTakesNothingButIntegers) {
    const std::vector<std::pair<std::string, std::string>> rows{
        {"'text'", "s"},    {"1", "i"},       {"@au [1]", "au"},
        {"@ax [1]", "ax"},  {"@ay []", "ay"}, {"[(1, 2)]", "a(ii)"},
        {"[<1>]", "av"},    {"<[1]>", "v"},   {"['1']", "as"},
        {"(1, 2)", "(ii)"}, {"[[1]]", "aai"}, {"{1: 2}", "a{ii}"},
    };
    for (const auto& [list, type] : rows) {
        expectFailure("ReadList", "(<" + list + ">,)",
                      "the addresses must be an array of integers, type 'ai', not '" + type + "'");
    }
    EXPECT_EQ(ask("ReadList", "(<[1]>,)"), "(<[0]>,)");
}

TEST_F(RegisterRequestsTest, AFailedRequestChangesNothing) {
    ask("Write", "(1, 9)");
    expectFailure("Write", "(1, 300)", "value 300 is higher than max value 255");
    expectFailure("Write", "(77, 3)", "address '77' not found");
    EXPECT_EQ(ask("Read", "(1,)"), "(9,)");
    EXPECT_FALSE(map.addressExists(77));
    EXPECT_EQ(ask("GetAddrsPerType", "(29,)"), "(<[1, 2, 60001]>,)");
}

// ---- the handler itself

TEST_F(RegisterRequestsTest, TheHandlerLeavesReplyOrNothing) {
    EXPECT_EQ(handle("GetAddrsPerType", "(29,)"), "(<[1, 2, 60001]>,)");
    EXPECT_EQ(handle("Write", "(1, 5)"), "nothing");
    EXPECT_EQ(handle("Read", "(1,)"), "(5,)");
    EXPECT_EQ(handle("ReadList", "(<[2, 1]>,)"), "(<[0, 5]>,)");
    EXPECT_EQ(handle("GetParams", "(1,)"), "(29, 1, 255)");
}

TEST_F(RegisterRequestsTest, TheHandlerLeavesErrorsOfTheDBusDomain) {
    const std::string failed = "g-dbus-error-quark " + std::to_string(G_DBUS_ERROR_FAILED) + ": ";
    EXPECT_EQ(handle("Read", "(99,)"), failed + "address '99' not found");
    EXPECT_EQ(handle("Write", "(1, 256)"), failed + "value 256 is higher than max value 255");
}

TEST_F(RegisterRequestsTest, AMethodNameThatFitsNotExactlyIsUnknown) {
    const std::string unknown =
        "g-dbus-error-quark " + std::to_string(G_DBUS_ERROR_UNKNOWN_METHOD) + ": ";
    for (const std::string name : {"read", "READ", "Read ", "Rea", "ReadLis", "ReadLists",
                                   "getParams", "write", "GetAddrsPertype", "", "%s", "%d"}) {
        log.clear();
        EXPECT_EQ(handle(name, "(1,)"), unknown + "Method " + name + " not found");
        EXPECT_THAT(lines(), ElementsAre("register-map 6 call method '" + name + "'\n"));
    }
}

// ---- log lines

TEST_F(RegisterRequestsTest, AReadIsLoggedByMapAndRegister) {
    ask("Read", "(1,)");
    EXPECT_THAT(lines(), ElementsAre("register-map 6 call method 'Read'\n",
                                     "register-1 6 read value for address 1 -> 0",
                                     "register-map 6 processing time: "));
}

TEST_F(RegisterRequestsTest, AWriteIsLoggedByMapAndRegister) {
    ask("Write", "(2, 3)");
    EXPECT_THAT(lines(), ElementsAre("register-map 6 call method 'Write'\n",
                                     "register-2 6 write address 2, value 3",
                                     "register-2 6 read value for address 2 -> 3",
                                     "register-map 6 notification sent with value 3 for address 2",
                                     "register-map 6 processing time: "));
}

TEST_F(RegisterRequestsTest, AListIsLoggedWithItsLength) {
    ask("ReadList", "(<[2, 10, 99]>,)");
    EXPECT_THAT(
        lines(),
        ElementsAre("register-map 6 call method 'ReadList'\n", "register-map 6 Addresses lenght: 3",
                    "register-2 6 read value for address 2 -> 0",
                    "register-10 6 read value for address 10 -> 0",
                    "register-map 3 address '99' not found", "register-map 6 processing time: "));
}

TEST_F(RegisterRequestsTest, LooksAtTheMapAreLoggedByTheMapAlone) {
    ask("GetParams", "(1,)");
    ask("GetAddrsPerType", "(1,)");
    EXPECT_THAT(lines(), ElementsAre("register-map 6 call method 'GetParams'\n",
                                     "register-map 6 processing time: ",
                                     "register-map 6 call method 'GetAddrsPerType'\n",
                                     "register-map 6 processing time: "));
}

TEST_F(RegisterRequestsTest, OnlyFailuresAreLoggedWhereLoggersTakeNoInformation) {
    Poco::Logger::setLevel("", Poco::Message::PRIO_NOTICE);
    ask("Write", "(2, 3)");
    ask("ReadList", "(<[2, 10]>,)");
    ask("Read", "(99,)");
    EXPECT_THAT(lines(), ElementsAre("register-map 3 address '99' not found"));
}

}  // namespace
