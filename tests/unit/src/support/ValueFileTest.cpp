// SPDX-License-Identifier: MIT
#include "support/ValueFile.h"

#include <gmock/gmock.h>
#include <sys/fsuid.h>
#include <sys/stat.h>

#include <filesystem>
#include <fstream>
#include <limits>
#include <map>
#include <random>
#include <string_view>

#include "TemporaryDirectory.h"
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

    TemporaryDirectory directory;
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
    const std::string noPageAtZero = "/proc/self/mem";
    EXPECT_EQ(ValueFile::read(noPageAtZero), 0);
    EXPECT_EQ(extractFrom(noPageAtZero), 0);
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

TEST_F(ValueFileTest, AnErrorAfterTheFileIsOpenIsNotReported) {
    EXPECT_NO_THROW(ValueFile::write("/dev/full", 1));
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
