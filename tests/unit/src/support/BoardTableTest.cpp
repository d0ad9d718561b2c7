// SPDX-License-Identifier: MIT
#include "support/BoardTable.h"

#include <gmock/gmock.h>

#include "CapturedLog.h"
#include "RegisterTypes.h"
#include "TemporaryDirectory.h"
#include "tesk/Exceptions.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::ThrowsMessage;
using Type = RegisterType;

int tenfold(int index, const InfoIo& counts) {
    if (index > static_cast<int>(counts.relays)) {
        throw tesk::InvalidArgumentsException("no such lamp");
    }
    return index * 10;
}

bool acceptEven(RegisterType type, int value, Poco::Logger& logger) {
    if (value % 2 != 0) {
        logger.log(Poco::Message(logger.name(), getTypeName(type), Poco::Message::PRIO_ERROR));
    }
    return value % 2 == 0;
}

constexpr BoardTable::Folder LAMPS{"lamps", tenfold};
constexpr BoardTable::Edge FALLING{"slope", "falling"};

constexpr BoardTable::Rows ROWS{
    {Type::RELAY, LAMPS, "state", acceptEven, BoardTable::WATCHED},
    {Type::INPUT_DIGITAL, BoardTable::INPUTS, "level", BoardTable::READ_ONLY, BoardTable::WATCHED,
     FALLING},
    {Type::INPUT_COUNTER, LAMPS, "count", BoardTable::acceptAll, BoardTable::UNWATCHED, FALLING},
    {Type::USB_ENABLE, BoardTable::WHOLE_BOARD, "power", acceptEven},
};

/// A board with two relays, three inputs and four analogs.
class BoardTableTest : public testing::Test {
 protected:
    ~BoardTableTest() override { Poco::Logger::destroy("board-table-test"); }

    static bool isServed(RegisterType type) {
        return type == Type::RELAY || type == Type::INPUT_DIGITAL || type == Type::INPUT_COUNTER ||
               type == Type::USB_ENABLE;
    }

    std::string fileName(RegisterType type, int index) const {
        return BoardTable::fileName(ROWS, type, index, "/b%d", counts);
    }

    bool isValid(RegisterType type, int value) const {
        return BoardTable::isValueValid(ROWS, type, value, logger);
    }

    TemporaryDirectory directory;
    InfoIo counts{directory.file("info_io", "relays 2\ninputs 3\nanalogs 4\n")};
    CapturedLog log;
    Poco::Logger& logger = Poco::Logger::get("board-table-test");
};

TEST_F(BoardTableTest, AFileOfAnIoHasTheKernelsNumberInItsPath) {
    EXPECT_EQ(fileName(Type::RELAY, 2), "/b%d/lamps/20/state");
    EXPECT_EQ(fileName(Type::INPUT_COUNTER, 1), "/b%d/lamps/10/count");
    EXPECT_EQ(fileName(Type::INPUT_DIGITAL, 3), "/b%d/inputs/3/level");
}

TEST_F(BoardTableTest, AFileOfTheWholeBoardIgnoresTheIndex) {
    for (const int index : {0, -1, 99}) {
        EXPECT_EQ(fileName(Type::USB_ENABLE, index), "/b%d/power");
    }
}

TEST_F(BoardTableTest, TheFolderRefusesAnIndex) {
    EXPECT_THAT([this] { fileName(Type::RELAY, 3); },
                ThrowsMessage<tesk::InvalidArgumentsException>("no such lamp"));
    EXPECT_THAT([this] { fileName(Type::INPUT_DIGITAL, 4); },
                ThrowsMessage<tesk::InvalidArgumentsException>("invalid IO index 4"));
}

TEST_F(BoardTableTest, TheFoldersOfEveryBoardAreBoundedByTheirOwnCounts) {
    const auto last = [this](const BoardTable::Folder& folder) {
        int index = 0;
        EXPECT_THROW(
            for (;; ++index) { EXPECT_EQ(folder.number(index, counts), index); },
            tesk::InvalidArgumentsException);
        EXPECT_THROW(folder.number(-1, counts), tesk::InvalidArgumentsException);
        return index - 1;
    };
    EXPECT_EQ(last(BoardTable::RELAYS), 2);
    EXPECT_EQ(last(BoardTable::INPUTS), 3);
    EXPECT_EQ(last(BoardTable::ANALOGS), 4);
}

TEST_F(BoardTableTest, ATypeWithoutARowIsNotSupported) {
    for (const RegisterType type : allTypes()) {
        if (isServed(type)) {
            continue;
        }
        const std::string text = "type '" + getTypeName(type) + "' not supported";
        EXPECT_THAT([&] { fileName(type, 1); }, ThrowsMessage<tesk::UnsupportedException>(text));
        EXPECT_THAT([&] { isValid(type, 1); }, ThrowsMessage<tesk::UnsupportedException>(text));
    }
}

TEST_F(BoardTableTest, SelectsTheEdgeUnderTheUncheckedIndex) {
    const std::string base = directory.path();
    writeFile(base + "/inputs/9/slope", "something longer\n");
    writeFile(base + "/lamps/9/slope", "");
    BoardTable::selectEdge(ROWS, Type::INPUT_DIGITAL, 9, base);
    BoardTable::selectEdge(ROWS, Type::INPUT_COUNTER, 9, base);
    EXPECT_EQ(readFile(base + "/inputs/9/slope"), "falling");
    EXPECT_EQ(readFile(base + "/lamps/9/slope"), "falling");
}

TEST_F(BoardTableTest, ARowWithoutAnEdgeAndATypeWithoutARowSelectNone) {
    const std::string base = directory.path();
    writeFile(base + "/lamps/2/slope", "none");
    for (const RegisterType type : allTypes()) {
        if (type != Type::INPUT_DIGITAL && type != Type::INPUT_COUNTER) {
            BoardTable::selectEdge(ROWS, type, 2, base);
        }
    }
    EXPECT_EQ(readFile(base + "/lamps/2/slope"), "none");
}

TEST_F(BoardTableTest, WatchesWhatItsRowsSay) {
    for (const RegisterType type : allTypes()) {
        EXPECT_EQ(BoardTable::isWatched(ROWS, type),
                  type == Type::RELAY || type == Type::INPUT_DIGITAL)
            << getTypeName(type);
    }
}

TEST_F(BoardTableTest, TheRowJudgesAValue) {
    EXPECT_TRUE(isValid(Type::RELAY, 4));
    EXPECT_TRUE(isValid(Type::INPUT_COUNTER, -5));
    EXPECT_THAT(log.lines(), IsEmpty());
    EXPECT_FALSE(isValid(Type::USB_ENABLE, 5));
    EXPECT_THAT(log.texts(Poco::Message::PRIO_ERROR), ElementsAre("usb_enable"));
    EXPECT_EQ(log.lines().at(0).source, "board-table-test");
}

TEST_F(BoardTableTest, ATypeThatCanOnlyBeReadRefusesEveryValue) {
    for (const int value : {0, 1, -1}) {
        EXPECT_THAT([&] { isValid(Type::INPUT_DIGITAL, value); },
                    ThrowsMessage<tesk::UnsupportedException>(
                        "write not supported for IO type input_digital"));
    }
}

}  // namespace
