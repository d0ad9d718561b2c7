// SPDX-License-Identifier: MIT
#include "InfoIo.h"

#include <Poco/Exception.h>
#include <gmock/gmock.h>
#include <sys/stat.h>

#include <array>
#include <limits>

#include "TemporaryDirectory.h"
#include "tesk/Exceptions.h"

namespace {

using testing::ElementsAre;
using testing::ThrowsMessage;

class InfoIoTest : public testing::Test {
 protected:
    /// Relays, outputs, inputs, analog outputs and analogs that a text states.
    std::array<std::uint32_t, 5> counts(const std::string& text) const {
        const InfoIo info(directory.file("info_io", text));
        return {info.relays, info.outputs, info.inputs, info.analogOutputs, info.analogs};
    }

    TemporaryDirectory directory;
};

TEST_F(InfoIoTest, TakesTheCountsOfABoard) {
    EXPECT_THAT(counts("relays 4\ninputs 8\noutputs 2\nanalogs 3\n"), ElementsAre(4, 2, 8, 0, 3));
}

TEST_F(InfoIoTest, TheOrderOfTheLinesDoesNotMatter) {
    EXPECT_THAT(counts("analogs 3\noutputs 2\nrelays 4\ninputs 8\n"), ElementsAre(4, 2, 8, 0, 3));
}

TEST_F(InfoIoTest, TheLastLineNeedsNoEnd) {
    EXPECT_THAT(counts("relays 4\ninputs 8"), ElementsAre(4, 0, 8, 0, 0));
}

TEST_F(InfoIoTest, WhatIsNotStatedIsZero) {
    EXPECT_THAT(counts(""), ElementsAre(0, 0, 0, 0, 0));
    EXPECT_THAT(counts("\n\n"), ElementsAre(0, 0, 0, 0, 0));
    EXPECT_THAT(counts("inputs 8\n"), ElementsAre(0, 0, 8, 0, 0));
}

TEST_F(InfoIoTest, NoLineStatesAnalogOutputs) {
    for (const char* name : {"analog_outputs", "analogOutputs", "analogoutputs", "analog"}) {
        EXPECT_THAT(counts(std::string(name) + " 7\n"), ElementsAre(0, 0, 0, 0, 0)) << name;
    }
}

TEST_F(InfoIoTest, SkipsLinesThatAreNotANameABlankAndANumber) {
    for (const char* line : {"relays", "relays 4 extra", "relays  4", "relays 4 ", " relays 4",
                             "relays\t4", "relays=4", "relays4", "relays: 4", "4", " "}) {
        EXPECT_THAT(counts(std::string("outputs 2\n") + line + "\ninputs 8\n"),
                    ElementsAre(0, 2, 8, 0, 0))
            << '"' << line << '"';
    }
}

TEST_F(InfoIoTest, SkipsUnknownNamesWhateverFollows) {
    EXPECT_THAT(counts("leds 2\nversion x\nRelays 4\nRELAYS 4\nrelay 4\nrelays 1\n"),
                ElementsAre(1, 0, 0, 0, 0));
}

TEST_F(InfoIoTest, OfTwoLinesWithTheSameNameTheLaterCounts) {
    EXPECT_THAT(counts("relays 4\ninputs 8\nrelays 9\ninputs 0\n"), ElementsAre(9, 0, 0, 0, 0));
}

TEST_F(InfoIoTest, DropsOtherBlanksAroundTheNameAndTheNumber) {
    EXPECT_THAT(counts("relays 4\r\n\tinputs\t \t8\t\r\n"), ElementsAre(4, 0, 8, 0, 0));
}

TEST_F(InfoIoTest, TakesThousandsSeparatorsAndEveryNumberOf32Bits) {
    EXPECT_THAT(counts("relays 1,024\ninputs 4294967295\noutputs 0\nanalogs 007\n"),
                ElementsAre(1024, 0, std::numeric_limits<std::uint32_t>::max(), 0, 7));
}

TEST_F(InfoIoTest, ANumberOfAKnownNameThatIsNoneIsASyntaxError) {
    for (const char* name : {"relays", "inputs", "outputs", "analogs"}) {
        for (const char* number : {"x", "4x", "-4", "0x4", "4.5", "4294967296"}) {
            const std::string line = std::string(name) + " " + number;
            EXPECT_THROW(counts(line + "\n"), Poco::SyntaxException) << line;
        }
    }
}

TEST_F(InfoIoTest, ALaterGoodNumberDoesNotMakeUpForABadOne) {
    EXPECT_THROW(counts("relays x\nrelays 4\n"), Poco::SyntaxException);
}

TEST_F(InfoIoTest, ALineMayHoldZeroBytesAndAFileMayBeLong) {
    using namespace std::string_literals;
    EXPECT_THAT(counts("outputs 2\0\nrelays 4\n"s), ElementsAre(4, 2, 0, 0, 0));
    EXPECT_THAT(counts(std::string(100000, '\n') + "inputs 8"), ElementsAre(0, 0, 8, 0, 0));
}

TEST_F(InfoIoTest, APipeAndADirectoryAreNotFoundAndNotWaitedFor) {
    const std::string pipe = directory.path() / "info_io";
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    for (const std::string& path : {pipe, directory.path().string()}) {
        EXPECT_THAT([&] { InfoIo{path}; },
                    ThrowsMessage<tesk::NotFoundException>("file " + path + " not found"));
    }
}

TEST_F(InfoIoTest, AMissingFileIsNotFound) {
    const std::string path = directory.path() / "missing%s" / "info_io";
    EXPECT_THAT([&] { InfoIo{path}; },
                ThrowsMessage<tesk::NotFoundException>("file " + path + " not found"));
}

}  // namespace
