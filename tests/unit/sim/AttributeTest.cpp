// SPDX-License-Identifier: MIT
#include <gmock/gmock.h>
#include <sys/inotify.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <future>
#include <set>
#include <string>
#include <thread>

#include "Deadline.h"
#include "TemporaryDirectory.h"
#include "sim/Attribute.h"
#include "sim/Error.h"

namespace {

using testing::HasSubstr;
using testing::ThrowsMessage;

/// Hears of the modifications of a file.
class Modifications {
 public:
    explicit Modifications(const std::filesystem::path& file)
        : fd(inotify_init1(IN_NONBLOCK | IN_CLOEXEC)) {
        inotify_add_watch(fd, file.c_str(), IN_MODIFY);
    }
    ~Modifications() { close(fd); }
    Modifications(const Modifications&) = delete;
    Modifications& operator=(const Modifications&) = delete;

    /// How many there have been since the last call. Equal ones are merged until they are taken.
    std::size_t take() const {
        alignas(inotify_event) std::array<char, 4096> buffer{};
        const ssize_t size = read(fd, buffer.data(), buffer.size());
        return size < 0 ? 0 : static_cast<std::size_t>(size) / sizeof(inotify_event);
    }

 private:
    int fd;
};

class AttributeTest : public testing::Test {
 protected:
    TemporaryDirectory directory;
    sim::Attribute attribute{directory.path() / "inputs/1/value"};
};

TEST_F(AttributeTest, IsMadeWithItsDirectories) {
    attribute.create(-17);
    EXPECT_EQ(attribute.text(), "-17");
    EXPECT_EQ(attribute.number(), -17);
    EXPECT_EQ(readFile(attribute.path()), "-17        \n");
}

TEST_F(AttributeTest, KeepsItsLengthWhateverTheValue) {
    attribute.create(0);
    for (const char* value : {"2147483647", "-2147483648", "7", "", "rising"}) {
        attribute.set(value);
        EXPECT_EQ(attribute.text(), value);
        EXPECT_EQ(std::filesystem::file_size(attribute.path()), sim::Attribute::LONGEST + 1);
    }
}

TEST_F(AttributeTest, AWordIsNoNumber) {
    attribute.create("both");
    EXPECT_EQ(attribute.number(), 0);
}

TEST_F(AttributeTest, ReadsWhatAClientHasWritten) {
    writeFile(attribute.path(), "42");
    EXPECT_EQ(attribute.number(), 42);
    writeFile(attribute.path(), "");
    EXPECT_EQ(attribute.text(), "");
}

TEST_F(AttributeTest, AChangeIsOneModification) {
    attribute.create(0);
    const Modifications modifications(attribute.path());
    for (const int value : {1, 0, 123456, 9, -2147483647 - 1}) {
        attribute.set(value);
        EXPECT_EQ(modifications.take(), 1U) << value;
    }
}

TEST_F(AttributeTest, AValueThatFitsIntoWhatAClientHasWrittenIsOneModificationToo) {
    attribute.create(0);
    writeFile(attribute.path(), "1");
    const Modifications modifications(attribute.path());
    attribute.set(0);
    EXPECT_EQ(modifications.take(), 1U);
    EXPECT_EQ(readFile(attribute.path()), "0          \n");
}

TEST_F(AttributeTest, ReadersNeverFindAnythingButAWholeValue) {
    if (EMULATED) {
        GTEST_SKIP() << "the kernel copies a file in memory without a lock, and this processor "
                        "does not copy eight bytes in one piece";
    }
    constexpr int ROUNDS = 50000;
    const std::array<std::string, 3> values{"199999", "7", "-2000000"};
    const std::set<std::string> whole(values.begin(), values.end());
    attribute.create(values[0]);
    std::atomic<bool> isOver{false};
    auto reader = std::async(std::launch::async, [&] {
        std::size_t found = 0;
        while (!isOver || found == 0) {
            const std::string text = attribute.text();
            EXPECT_EQ(whole.count(text), 1U) << "found '" << text << "'";
            ++found;
        }
        return found;
    });
    for (int round = 0; round < ROUNDS; ++round) {
        attribute.set(values[static_cast<std::size_t>(round) % values.size()]);
    }
    isOver = true;
    EXPECT_GT(reader.get(), 0U);
}

TEST_F(AttributeTest, AFileThatAClientHasShortenedGetsItsLengthBack) {
    attribute.create(0);
    for (const char* text : {"", "1", "99\n"}) {
        writeFile(attribute.path(), text);
        attribute.set(123456);
        EXPECT_EQ(readFile(attribute.path()), "123456     \n") << text;
    }
}

TEST_F(AttributeTest, WhatIsTooLongIsRefusedAndChangesNothing) {
    attribute.create(5);
    EXPECT_THAT([this] { attribute.set("123456789012"); },
                ThrowsMessage<sim::Error>("the value '123456789012' is longer than 11 characters"));
    EXPECT_EQ(attribute.text(), "5");
}

TEST_F(AttributeTest, AFileThatIsMissingIsNotMadeBySettingIt) {
    const auto missing = HasSubstr("there is no " + attribute.path().string() + ";");
    EXPECT_THAT([this] { attribute.set(1); }, ThrowsMessage<sim::Error>(missing));
    EXPECT_THAT([this] { attribute.text(); }, ThrowsMessage<sim::Error>(missing));
    EXPECT_THAT([this] { attribute.waitFor("1", std::chrono::seconds(0)); },
                ThrowsMessage<sim::Error>(missing));
    EXPECT_FALSE(std::filesystem::exists(attribute.path()));
}

TEST_F(AttributeTest, WaitsUntilAClientHasWrittenTheValue) {
    attribute.create(0);
    std::thread client([this] {
        for (int value = 1; value <= 100; ++value) {
            std::ofstream(attribute.path()) << value;
        }
    });
    EXPECT_TRUE(attribute.waitFor("100", std::chrono::seconds(30)));
    client.join();
    EXPECT_TRUE(attribute.waitFor("100", std::chrono::seconds(0)));
}

TEST_F(AttributeTest, StopsWaitingWhenTheTimeIsOver) {
    attribute.create(0);
    const auto start = std::chrono::steady_clock::now();
    EXPECT_FALSE(attribute.waitFor("1", std::chrono::milliseconds(50)));
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(50));
}

}  // namespace
