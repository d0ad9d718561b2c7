// SPDX-License-Identifier: MIT
#include "support/BoardIo.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/stat.h>

#include <filesystem>
#include <limits>

#include "CapturedLog.h"
#include "TemporaryDirectory.h"
#include "support/FileDescriptor.h"
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

TEST(BoardIoTest, AnEdgeFileThatCannotBeWrittenIsAWarning) {
    const CapturedLog log;
    const TemporaryDirectory directory;
    const std::string missing = directory.path() / "missing";
    const std::string folder = directory.path();
    const std::string pipe = directory.path() / "pipe";
    const std::string memory = directory.path() / "memory";
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    const FileDescriptor reader(open(pipe.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
    std::filesystem::create_symlink("/proc/self/mem", memory);
    for (const std::string& file : {missing, folder, pipe, memory}) {
        EXPECT_NO_THROW(BoardIo::writeEdge(file, "both"));
    }
    EXPECT_THAT(
        log.texts(Poco::Message::PRIO_WARNING),
        testing::ElementsAre(
            "file '" + missing + "' cannot be opened for writing: No such file or directory",
            "file '" + folder + "' cannot be opened for writing: Is a directory",
            "file '" + pipe + "' cannot be opened for writing: not a regular file",
            "file '" + memory + "' cannot be written: Input/output error"));
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
