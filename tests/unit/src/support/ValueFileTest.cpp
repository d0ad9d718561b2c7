// SPDX-License-Identifier: MIT
#include "support/ValueFile.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/fsuid.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <array>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <limits>
#include <map>
#include <optional>
#include <random>
#include <string_view>

#include "CapturedLog.h"
#include "TemporaryDirectory.h"
#include "support/FileDescriptor.h"
#include "tesk/Exceptions.h"

namespace {

using testing::ThrowsMessage;

constexpr int MIN = std::numeric_limits<int>::min();
constexpr int MAX = std::numeric_limits<int>::max();
constexpr std::string_view BLANKS{" \t\n\v\f\r"};
constexpr std::string_view DIGITS{"0123456789"};
constexpr std::string_view ALPHABET{"0123456789+- \t\n\v\f\r\0xaE.,'\x85\xa0\xff", 27};

/// Makes texts of all kinds that a value file might hold, and worse; the same ones in every run.
class TextGenerator {
 public:
    std::string next() {
        if (below(4) == 0) {
            return some(ALPHABET, below(12));
        }
        static constexpr std::array<const char*, 8> SIGNS{"", "", "", "-", "-", "+", "--", "+-"};
        return some(BLANKS, length()) + SIGNS.at(below(SIGNS.size())) +
               std::string(below(3) == 0 ? length() : 0, '0') + some(DIGITS, length()) +
               some(ALPHABET, below(4));
    }

 private:
    std::size_t below(std::size_t limit) {
        return std::uniform_int_distribution<std::size_t>(0, limit - 1)(engine);
    }

    /// Mostly a few; now and then about as many as fill the reader's buffer once or more.
    std::size_t length() {
        switch (below(8)) {
            case 0:
                return 56 + below(16);
            case 1:
                return below(200);
            case 2:
                return 0;
            default:
                return below(12);
        }
    }

    std::string some(std::string_view characters, std::size_t count) {
        std::string text;
        for (std::size_t i = 0; i < count; ++i) {
            text += characters.at(below(characters.size()));
        }
        return text;
    }

    std::mt19937 engine{20240607};
};

class ValueFileTest : public testing::Test {
 protected:
    int readText(const std::string& text) const { return ValueFile::read(write(text)); }

    std::string write(const std::string& text) const { return directory.file("value", text); }

    static int extractFrom(const std::string& path) {
        std::ifstream file(path);
        int value = 0;
        file >> value;
        return value;
    }

    /// A regular file whose reading and writing fail: nothing is mapped at address 0. It has
    /// another name in every test, since each name is warned of once a minute.
    std::string noPageAtZero() const {
        const std::string path = directory.path() / "memory";
        std::error_code exists;
        std::filesystem::create_symlink("/proc/self/mem", path, exists);
        return path;
    }

    /// Expects one line since the last call.
    void expectWarning(const std::string& text) {
        const auto lines = log.lines();
        ASSERT_EQ(lines.size(), 1U);
        EXPECT_EQ(lines[0].text, text);
        EXPECT_EQ(lines[0].priority, Poco::Message::PRIO_WARNING);
        EXPECT_EQ(lines[0].source, "value-file");
        log.clear();
    }

    /// A socket with a name.
    static FileDescriptor boundSocket(const std::string& path) {
        FileDescriptor result(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        path.copy(address.sun_path, sizeof(address.sun_path) - 1);
        EXPECT_EQ(bind(result.get(), reinterpret_cast<sockaddr*>(&address), sizeof(address)), 0);
        return result;
    }

    /// The path of a terminal.
    std::string terminal() const {
        EXPECT_EQ(grantpt(terminalMaster.get()), 0);
        EXPECT_EQ(unlockpt(terminalMaster.get()), 0);
        std::array<char, 64> name{};
        EXPECT_EQ(ptsname_r(terminalMaster.get(), name.data(), name.size()), 0);
        return name.data();
    }

    CapturedLog log;
    TemporaryDirectory directory;
    FileDescriptor terminalMaster{posix_openpt(O_RDWR | O_NOCTTY)};
};

TEST_F(ValueFileTest, ReadsTheNumberAtTheStart) {
    const std::map<std::string, int> values{
        {"17\n", 17},
        {"42", 42},
        {"0", 0},
        {"-5\n", -5},
        {"+5", 5},
        {" \t\n\v\f\r 8", 8},
        {"007", 7},
        {"12abc", 12},
        {"1 2", 1},
        {"3.9", 3},
        {"1,000", 1},
        {"2147483647", MAX},
        {"2147483648", MAX},
        {"-2147483648", MIN},
        {"-2147483649", MIN},
        {"99999999999999999999999999", MAX},
        {"-99999999999999999999999999", MIN},
        {std::string(100, ' ') + "6", 6},
        {std::string(63, ' ') + "-6", -6},
        {std::string(200, '0') + "6", 6},
        {std::string(62, ' ') + "1234", 1234},
    };
    for (const auto& [text, value] : values) {
        EXPECT_EQ(readText(text), value) << "text '" << text << "'";
    }
}

TEST_F(ValueFileTest, ATextWithoutANumberAtTheStartReadsAsZero) {
    const std::string nulThenDigit{"\0001", 2};
    for (const std::string& text :
         {std::string(), std::string("\n"), std::string("abc"), std::string("-"), std::string("+"),
          std::string("--5"), std::string("+-5"), std::string("- 5"), std::string("x5"),
          std::string(100, ' '), nulThenDigit, std::string("0x1F")}) {
        EXPECT_EQ(readText(text), 0) << "text '" << text << "'";
    }
}

TEST_F(ValueFileTest, ReadsEveryTextAsAStreamDoes) {
    constexpr int TEXTS = 25000;
    TextGenerator texts;
    std::map<int, int> seen;
    for (int i = 0; i < TEXTS; ++i) {
        const std::string path = write(texts.next());
        const int expected = extractFrom(path);
        ASSERT_EQ(ValueFile::read(path), expected)
            << "text " << i << ": " << testing::PrintToString(readFile(path));
        ++seen[expected];
    }
    // Otherwise the texts would say little.
    EXPECT_GT(seen.size(), 1000U);
    EXPECT_GT(seen[MIN], 100);
    EXPECT_GT(seen[MAX], 100);
    EXPECT_LT(seen[0], TEXTS / 2);
}

TEST_F(ValueFileTest, AMissingFileCannotBeRead) {
    for (const std::string& path :
         {(directory.path() / "nothing").string(), (directory.path() / "no/dir").string(),
          directory.file("file", "1") + "/below", std::string()}) {
        EXPECT_THAT([&path] { ValueFile::read(path); },
                    ThrowsMessage<tesk::InputOutputException>("error opening file '" + path +
                                                              "' for reading"));
    }
}

TEST_F(ValueFileTest, ADirectoryCannotBeReadOrWritten) {
    const std::string path = directory.path();
    EXPECT_THAT(
        [&path] { ValueFile::read(path); },
        ThrowsMessage<tesk::InputOutputException>("error opening file '" + path + "' for reading"));
    EXPECT_THAT(
        [&path] { ValueFile::write(path, 1); },
        ThrowsMessage<tesk::InputOutputException>("error opening file '" + path + "' for writing"));
}

TEST_F(ValueFileTest, AFileWithoutPermissionsCannotBeReadOrWritten) {
    const std::string path = write("1");
    chmod(path.c_str(), 0);
    // Root may open it all the same, so this thread stops being root where files are concerned.
    const int owner = setfsuid(65534);
    EXPECT_THAT(
        [&path] { ValueFile::read(path); },
        ThrowsMessage<tesk::InputOutputException>("error opening file '" + path + "' for reading"));
    EXPECT_THAT(
        [&path] { ValueFile::write(path, 2); },
        ThrowsMessage<tesk::InputOutputException>("error opening file '" + path + "' for writing"));
    setfsuid(static_cast<uid_t>(owner));
    chmod(path.c_str(), S_IRUSR);
    EXPECT_EQ(readFile(path), "1");
}

TEST_F(ValueFileTest, AFileThatOpensButCannotBeReadReadsAsZero) {
    EXPECT_EQ(ValueFile::read(noPageAtZero()), 0);
    EXPECT_EQ(extractFrom(noPageAtZero()), 0);
    expectWarning("file '" + noPageAtZero() + "' cannot be read: Input/output error");
}

TEST_F(ValueFileTest, WritesTheDigitsWithoutALineEnd) {
    const std::map<int, std::string> texts{{0, "0"},
                                           {5, "5"},
                                           {-1, "-1"},
                                           {1234567890, "1234567890"},
                                           {MAX, "2147483647"},
                                           {MIN, "-2147483648"}};
    for (const auto& [value, text] : texts) {
        const std::string path = write("");
        ValueFile::write(path, value);
        EXPECT_EQ(readFile(path), text);
        EXPECT_EQ(ValueFile::read(path), value);
    }
}

TEST_F(ValueFileTest, WritingReplacesALongerText) {
    const std::string path = write("123456789 and more\nand more\n");
    ValueFile::write(path, 5);
    EXPECT_EQ(readFile(path), "5");
}

TEST_F(ValueFileTest, WritingNeverCreatesAFile) {
    const std::string path = directory.path() / "nothing";
    EXPECT_THAT(
        [&path] { ValueFile::write(path, 1); },
        ThrowsMessage<tesk::InputOutputException>("error opening file '" + path + "' for writing"));
    EXPECT_TRUE(std::filesystem::is_empty(directory.path()));
}

TEST_F(ValueFileTest, AnErrorAfterTheFileIsOpenIsNoExceptionButAWarning) {
    EXPECT_NO_THROW(ValueFile::write(noPageAtZero(), 1));
    expectWarning("file '" + noPageAtZero() + "' cannot be written: Input/output error");
}

TEST_F(ValueFileTest, WhatIsNoFileIsRefusedAtOnce) {
    const std::string pipe = directory.path() / "pipe";
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    const std::string filledPipe = directory.path() / "filled";
    ASSERT_EQ(mkfifo(filledPipe.c_str(), 0600), 0);
    const FileDescriptor bothEnds(open(filledPipe.c_str(), O_RDWR | O_CLOEXEC));
    ASSERT_EQ(::write(bothEnds.get(), "1\n", 2), 2);
    const std::string socketPath = directory.path() / "socket";
    const FileDescriptor socketFile(boundSocket(socketPath));
    for (const std::string& path :
         {pipe, filledPipe, socketPath, terminal(), std::string("/dev/null"),
          std::string("/dev/zero"), std::string("/dev/full")}) {
        EXPECT_THAT([&path] { ValueFile::read(path); },
                    ThrowsMessage<tesk::InputOutputException>("error opening file '" + path +
                                                              "' for reading"));
        EXPECT_THAT([&path] { ValueFile::write(path, 1); },
                    ThrowsMessage<tesk::InputOutputException>("error opening file '" + path +
                                                              "' for writing"));
        EXPECT_FALSE(ValueFile::readText(path)) << path;
    }
    std::array<char, 3> left{};
    EXPECT_EQ(::read(bothEnds.get(), left.data(), left.size()), 2) << "the pipe was used";
}

TEST_F(ValueFileTest, AFileThatCannotBeOpenedIsAWarningWithTheReason) {
    const std::string missing = directory.path() / "nothing";
    EXPECT_THROW(ValueFile::read(missing), tesk::InputOutputException);
    expectWarning("file '" + missing + "' cannot be opened for reading: No such file or directory");
    const std::string other = directory.path() / "other";
    EXPECT_THROW(ValueFile::write(other, 1), tesk::InputOutputException);
    expectWarning("file '" + other + "' cannot be opened for writing: No such file or directory");
    const std::string folder = directory.path();
    EXPECT_THROW(ValueFile::read(folder), tesk::InputOutputException);
    expectWarning("file '" + folder + "' cannot be opened for reading: not a regular file");
}

TEST_F(ValueFileTest, AFileThatFailsAgainAndAgainIsOneWarningAMinute) {
    const std::string missing = directory.path() / "nothing";
    const std::string other = directory.path() / "other";
    for (int i = 0; i < 1000; ++i) {
        EXPECT_THROW(ValueFile::read(missing), tesk::InputOutputException);
        EXPECT_THROW(ValueFile::write(missing, 1), tesk::InputOutputException);
        EXPECT_THROW(ValueFile::read(other), tesk::InputOutputException);
    }
    EXPECT_EQ(log.lines().size(), 2U);
}

TEST_F(ValueFileTest, WhatGoesWellIsNoLine) {
    const std::string path = write("17\n");
    ValueFile::read(path);
    ValueFile::write(path, 2);
    ValueFile::read(write(""));
    ValueFile::read(write("none"));
    EXPECT_THAT(log.lines(), testing::IsEmpty());
}

TEST_F(ValueFileTest, OnlyTheFirst64KibibytesAreRead) {
    const std::string justBefore(ValueFile::MOST_TEXT - 2, ' ');
    EXPECT_EQ(readText(justBefore + "12"), 12);
    EXPECT_EQ(readText(justBefore + "123"), 12);
    EXPECT_EQ(readText(justBefore + "  3"), 0);
    EXPECT_EQ(readText(std::string(ValueFile::MOST_TEXT - 1, '0') + "12"), 1);
}

TEST_F(ValueFileTest, TellsAnEmptyFileFromAZero) {
    EXPECT_EQ(ValueFile::readUnlessEmpty(write("0\n")), 0);
    EXPECT_EQ(ValueFile::readUnlessEmpty(write("\n")), 0);
    EXPECT_EQ(ValueFile::readUnlessEmpty(write("none")), 0);
    EXPECT_EQ(ValueFile::readUnlessEmpty(write("-7")), -7);
    EXPECT_EQ(ValueFile::readUnlessEmpty(write("")), std::nullopt);
    EXPECT_EQ(ValueFile::readUnlessEmpty(noPageAtZero()), std::nullopt);
}

TEST_F(ValueFileTest, ReadsAWholeText) {
    for (const int length : {0, 1, 4095, 4096, 4097, 10'000}) {
        const std::string text(static_cast<std::size_t>(length), 'x');
        EXPECT_EQ(ValueFile::readText(write(text)), text);
    }
    EXPECT_EQ(ValueFile::readText(directory.path() / "nothing"), std::nullopt);
}

TEST_F(ValueFileTest, LeavesNoFileOpen) {
    const auto openFiles = [] {
        const std::filesystem::directory_iterator entries("/proc/self/fd");
        return std::distance(begin(entries), end(entries));
    };
    const std::string path = write("1");
    const auto before = openFiles();
    ValueFile::read(path);
    ValueFile::write(path, 2);
    EXPECT_THROW(ValueFile::read(directory.path()), tesk::InputOutputException);
    EXPECT_EQ(openFiles(), before);
}

}  // namespace
