// SPDX-License-Identifier: MIT
#include "support/BoardIo.h"

#include <gmock/gmock.h>

#include <filesystem>
#include <limits>

#include "TemporaryDirectory.h"
#include "tesk/Exceptions.h"

namespace {

using testing::ThrowsMessage;

constexpr int MIN = std::numeric_limits<int>::min();
constexpr int MAX = std::numeric_limits<int>::max();

TEST(BoardIoTest, AnIndexMayBeAsLargeAsTheCount) {
    for (const int index : {0, 1, 4}) {
        EXPECT_NO_THROW(BoardIo::requireIndex(index, 4)) << index;
    }
    EXPECT_NO_THROW(BoardIo::requireIndex(0, 0));
    EXPECT_NO_THROW(BoardIo::requireIndex(MAX, std::numeric_limits<std::uint32_t>::max()));
}

TEST(BoardIoTest, ALargerOrNegativeIndexIsInvalid) {
    for (const int index : {5, MAX, -1, MIN}) {
        EXPECT_THAT([&] { BoardIo::requireIndex(index, 4); },
                    ThrowsMessage<tesk::InvalidArgumentsException>("invalid IO index " +
                                                                   std::to_string(index)));
    }
    EXPECT_THROW(BoardIo::requireIndex(-1, std::numeric_limits<std::uint32_t>::max()),
                 tesk::InvalidArgumentsException);
}

TEST(BoardIoTest, AnEdgeReplacesTheWholeText) {
    const TemporaryDirectory directory;
    const std::string file = directory.file("edge", "something longer\n");
    BoardIo::writeEdge(file, "both");
    EXPECT_EQ(readFile(file), "both");
}

TEST(BoardIoTest, AMissingEdgeFileIsNotCreated) {
    const TemporaryDirectory directory;
    BoardIo::writeEdge(directory.path() / "edge", "both");
    BoardIo::writeEdge(directory.path() / "no/edge", "both");
    EXPECT_TRUE(std::filesystem::is_empty(directory.path()));
}

TEST(BoardIoTest, AnEdgeFileThatCannotBeWrittenIsIgnored) {
    const TemporaryDirectory directory;
    EXPECT_NO_THROW(BoardIo::writeEdge(directory.path(), "both"));
    EXPECT_NO_THROW(BoardIo::writeEdge("/dev/full", "both"));
}

TEST(BoardIoTest, LeavesNoEdgeFileOpen) {
    const auto openFiles = [] {
        const std::filesystem::directory_iterator entries("/proc/self/fd");
        return std::distance(begin(entries), end(entries));
    };
    const TemporaryDirectory directory;
    const std::string file = directory.file("edge", "none");
    const auto before = openFiles();
    BoardIo::writeEdge(file, "both");
    BoardIo::writeEdge("/dev/full", "both");
    BoardIo::writeEdge(directory.path(), "both");
    EXPECT_EQ(openFiles(), before);
}

TEST(BoardIoTest, AFractionIsDroppedTowardsZero) {
    EXPECT_EQ(BoardIo::truncate(1836.99), 1836);
    EXPECT_EQ(BoardIo::truncate(-1836.99), -1836);
    EXPECT_EQ(BoardIo::truncate(-0.5), 0);
    EXPECT_EQ(BoardIo::truncate(7), 7);
}

TEST(BoardIoTest, AValueBeyond32BitsIsTheNearestEnd) {
    EXPECT_EQ(BoardIo::truncate(2147483647.9), MAX);
    EXPECT_EQ(BoardIo::truncate(2147483646.9), MAX - 1);
    EXPECT_EQ(BoardIo::truncate(1e300), MAX);
    EXPECT_EQ(BoardIo::truncate(-2147483648.9), MIN);
    EXPECT_EQ(BoardIo::truncate(-2147483647.9), MIN + 1);
    EXPECT_EQ(BoardIo::truncate(-1e300), MIN);
}

TEST(BoardIoTest, OnlyADirectoryIsADirectory) {
    const TemporaryDirectory directory;
    EXPECT_TRUE(BoardIo::directoryExists(directory.path()));
    EXPECT_FALSE(BoardIo::directoryExists(directory.file("file", "")));
    EXPECT_FALSE(BoardIo::directoryExists(directory.path() / "missing"));
}

}  // namespace
