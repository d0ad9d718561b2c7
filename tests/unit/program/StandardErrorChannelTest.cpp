// SPDX-License-Identifier: MIT
#include "program/StandardErrorChannel.h"

#include <Poco/AutoPtr.h>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <thread>
#include <vector>

#include "Process.h"
#include "TemporaryDirectory.h"

namespace {

using testing::ElementsAre;

/// Puts a file descriptor in the place of standard error while it lives.
class Redirection {
 public:
    explicit Redirection(int target) : saved(dup(STDERR_FILENO)) { dup2(target, STDERR_FILENO); }
    ~Redirection() {
        dup2(saved, STDERR_FILENO);
        close(saved);
    }
    Redirection(const Redirection&) = delete;
    Redirection& operator=(const Redirection&) = delete;

 private:
    int saved;
};

class StandardErrorChannelTest : public testing::Test {
 protected:
    void log(const std::string& text) {
        channel->log(Poco::Message("source", text, Poco::Message::PRIO_ERROR));
    }

    /// What one or more messages print, one element per system call.
    std::vector<std::string> printed(const std::vector<std::string>& texts) {
        std::array<int, 2> ends{};
        EXPECT_EQ(socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends.data()), 0);
        {
            const Redirection redirection(ends[1]);
            for (const std::string& text : texts) {
                log(text);
            }
        }
        close(ends[1]);
        std::vector<std::string> pieces;
        std::array<char, 8192> piece{};
        for (ssize_t got = 0; (got = read(ends[0], piece.data(), piece.size())) > 0;) {
            pieces.emplace_back(piece.data(), static_cast<std::size_t>(got));
        }
        close(ends[0]);
        return pieces;
    }

    Poco::AutoPtr<StandardErrorChannel> channel{new StandardErrorChannel};
};

TEST_F(StandardErrorChannelTest, WritesEachMessageAsOneLineWithOneCall) {
    EXPECT_THAT(printed({"first", "second 100% %s"}), ElementsAre("first\n", "second 100% %s\n"));
}

TEST_F(StandardErrorChannelTest, DropsLineEndsAtTheEnd) {
    EXPECT_THAT(printed({"one\n", "two\r\n", "three\n\n\n", "four\r"}),
                ElementsAre("one\n", "two\n", "three\n", "four\n"));
}

TEST_F(StandardErrorChannelTest, MakesBlanksOfLineEndsWithin) {
    EXPECT_THAT(printed({"one\ntwo\n\nthree\n"}), ElementsAre("one two  three\n"));
}

TEST_F(StandardErrorChannelTest, AnEmptyTextIsAnEmptyLine) {
    EXPECT_THAT(printed({"", "\n\r\n"}), ElementsAre("\n", "\n"));
}

TEST_F(StandardErrorChannelTest, MakesBlanksOfControlCharactersAndKeepsOtherBytes) {
    const std::string nul("a\0b", 3);
    EXPECT_THAT(printed({"  in \t ", "\xff\xc3\xa4", nul, "\x1b[2Jone\rtwo\x7f"}),
                ElementsAre("  in   \n", "\xff\xc3\xa4\n", "a b\n", " [2Jone two \n"));
}

TEST_F(StandardErrorChannelTest, ALongTextIsOneLineToo) {
    const std::string text(5000, 'x');
    EXPECT_THAT(printed({text}), ElementsAre(text + "\n"));
}

TEST_F(StandardErrorChannelTest, AFailureToWriteIsPassedOver) {
    const int readOnly = open("/dev/null", O_RDONLY | O_CLOEXEC);
    {
        const Redirection redirection(readOnly);
        EXPECT_NO_THROW(log("nobody sees this"));
    }
    close(readOnly);
}

TEST_F(StandardErrorChannelTest, LinesOfSeveralThreadsDoNotMix) {
    constexpr int THREADS = 4;
    constexpr int LINES = 200;
    const TemporaryDirectory directory;
    const std::string path = directory.file("log", "");
    const int file = open(path.c_str(), O_WRONLY | O_APPEND | O_CLOEXEC);
    {
        const Redirection redirection(file);
        std::vector<std::thread> threads;
        for (int i = 0; i < THREADS; ++i) {
            threads.emplace_back([this, i] {
                for (int line = 0; line < LINES; ++line) {
                    log(std::string(500, static_cast<char>('a' + i)));
                }
            });
        }
        for (std::thread& thread : threads) {
            thread.join();
        }
    }
    close(file);
    std::array<int, THREADS> counts{};
    for (const std::string& line : Process::lines(readFile(path))) {
        ASSERT_EQ(line, std::string(500, line.empty() ? '?' : line[0]));
        ++counts.at(static_cast<std::size_t>(line[0] - 'a'));
    }
    EXPECT_THAT(counts, testing::Each(LINES));
}

}  // namespace
