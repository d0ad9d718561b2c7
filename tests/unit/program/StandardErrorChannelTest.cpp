// SPDX-License-Identifier: MIT
#include "program/StandardErrorChannel.h"

#include <Poco/AutoPtr.h>
#include <Poco/PatternFormatter.h>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <thread>
#include <utility>
#include <vector>

#include "Process.h"
#include "TemporaryDirectory.h"
#include "support/FileDescriptor.h"

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

/// Standard error that goes into a file descriptor, and a channel on it.
class Output {
 public:
    explicit Output(int target)
        : redirection(target),
          channel(new StandardErrorChannel(
              Poco::AutoPtr<Poco::Formatter>(new Poco::PatternFormatter("%t")))) {}

    void log(const std::string& text) {
        log(Poco::Message("source", text, Poco::Message::PRIO_ERROR));
    }
    void log(const Poco::Message& message) { channel->log(message); }
    void flush() { channel->flush(); }

 private:
    Redirection redirection;
    Poco::AutoPtr<StandardErrorChannel> channel;
};

/// Two ends, of which the first one is read.
using Ends = std::array<FileDescriptor, 2>;

Ends ownerOf(const std::array<int, 2>& ends) {
    return {FileDescriptor(ends[0]), FileDescriptor(ends[1])};
}

Ends pipeEnds() {
    std::array<int, 2> ends{};
    EXPECT_EQ(pipe2(ends.data(), O_CLOEXEC), 0);
    return ownerOf(ends);
}

/// A pipe that the process may write to, and must not open once more.
Ends foreignPipe() {
    Ends ends = pipeEnds();
    EXPECT_EQ(fchmod(ends[1].get(), 0), 0);
    return ends;
}

Ends socketEnds() {
    std::array<int, 2> ends{};
    EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends.data()), 0);
    return ownerOf(ends);
}

/// Logs numbered lines of a length until the output is full and one hundred of them are lost.
///
/// @return how many lines were logged
std::size_t overfill(Output& output, int readEnd, std::size_t length) {
    std::size_t logged = 0;
    int held = 0;
    for (std::size_t lost = 0; lost < 100;) {
        const std::string number = std::to_string(++logged);
        output.log(number + std::string(length - number.size(), 'x'));
        const int before = std::exchange(held, 0);
        EXPECT_EQ(ioctl(readEnd, FIONREAD, &held), 0);
        lost = held == before ? lost + 1 : 0;
    }
    return logged;
}

/// All that can be read at this moment.
std::string drained(int readEnd) {
    std::string text;
    std::array<char, 65536> piece{};
    fcntl(readEnd, F_SETFL, O_NONBLOCK);
    for (ssize_t got = 0; (got = read(readEnd, piece.data(), piece.size())) > 0;) {
        text.append(piece.data(), static_cast<std::size_t>(got));
    }
    return text;
}

class StandardErrorChannelTest : public testing::Test {
 protected:
    /// What one or more messages print, one element per system call.
    std::vector<std::string> printed(const std::vector<std::string>& texts) {
        std::array<int, 2> ends{};
        EXPECT_EQ(socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends.data()), 0);
        {
            Output output(ends[1]);
            for (const std::string& text : texts) {
                output.log(text);
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
        Output output(readOnly);
        EXPECT_NO_THROW(output.log("nobody sees this"));
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
        Output output(file);
        std::vector<std::thread> threads;
        for (int i = 0; i < THREADS; ++i) {
            threads.emplace_back([&output, i] {
                for (int line = 0; line < LINES; ++line) {
                    output.log(std::string(500, static_cast<char>('a' + i)) + std::to_string(line));
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
        ASSERT_EQ(line.substr(0, 500), std::string(500, line.empty() ? '?' : line[0]));
        ASSERT_LE(line.size(), 503U);
        ++counts.at(static_cast<std::size_t>(line[0] - 'a'));
    }
    EXPECT_THAT(counts, testing::Each(LINES));
}

TEST_F(StandardErrorChannelTest, AFullOutputLosesLinesAndTellsHowManyOnceItIsRead) {
    for (const auto& makeEnds : {pipeEnds, foreignPipe, socketEnds}) {
        const Ends ends = makeEnds();
        Output output(ends[1].get());
        const std::size_t logged = overfill(output, ends[0].get(), 100);
        const std::size_t written = Process::lines(drained(ends[0].get())).size();
        EXPECT_GT(written, 0U);
        output.log("read again");
        EXPECT_EQ(drained(ends[0].get()),
                  std::to_string(logged - written) +
                      " log lines before this one are lost: nobody read them\nread again\n");
        output.log("and again");
        EXPECT_EQ(drained(ends[0].get()), "and again\n");
    }
}

TEST_F(StandardErrorChannelTest, NoLineIsTornWhenTheOutputFillsUp) {
    for (const auto& makeEnds : {pipeEnds, foreignPipe, socketEnds}) {
        for (const std::size_t length : {99U, 3000U, 50'000U, 500'000U}) {
            const Ends ends = makeEnds();
            Output output(ends[1].get());
            const std::size_t logged = overfill(output, ends[0].get(), length);
            std::string text = drained(ends[0].get());
            // What is left of a long line comes with the next ones.
            for (const std::string& next : {std::string(length - 1, 'y'), std::string("end")}) {
                for (int i = 0; i < 100; ++i) {
                    output.log(next + (i % 2 == 0 ? '1' : '2'));
                    text += drained(ends[0].get());
                }
            }
            std::size_t whole = 0;
            for (const std::string& line : Process::lines(text)) {
                if (line.find(" log lines before ") == std::string::npos &&
                    line.substr(0, 3) != "end") {
                    ASSERT_EQ(line.size(), length);
                    ++whole;
                }
            }
            EXPECT_LT(whole, logged + 100);
            EXPECT_EQ(text.substr(text.size() - 6), "\nend2\n");
        }
    }
}

TEST_F(StandardErrorChannelTest, OthersWhoShareTheOutputStillWaitForRoom) {
    const Ends ends = pipeEnds();
    Output output(ends[1].get());
    output.log("a line");
    EXPECT_EQ(fcntl(ends[1].get(), F_GETFL) & O_NONBLOCK, 0);
}

TEST_F(StandardErrorChannelTest, TheSameLineIsWrittenThreeTimesAndThenCounted) {
    EXPECT_THAT(printed({"a", "a", "a", "b", "b", "b", "b", "c", "b"}),
                ElementsAre("a\n", "a\n", "a\n", "b\n", "b\n", "b\n",
                            "the last line came once more\n", "c\n", "b\n"));
    std::vector<std::string> flood(1000, "flood");
    flood.emplace_back("end");
    EXPECT_THAT(printed(flood), ElementsAre("flood\n", "flood\n", "flood\n",
                                            "the last line came 997 more times\n", "end\n"));
}

TEST_F(StandardErrorChannelTest, LinesOfAnotherPriorityOrSortOfSourceAreOthers) {
    const std::vector<Poco::Message> messages{
        {"register-5.1a", "missing", Poco::Message::PRIO_ERROR},
        {"register-5.2b", "missing", Poco::Message::PRIO_ERROR},
        {"register-5.1a", "missing", Poco::Message::PRIO_ERROR},
        {"register-5.2b", "missing", Poco::Message::PRIO_WARNING},
        {"register-6.1a", "missing", Poco::Message::PRIO_WARNING},
        {"register-6.2b", "missing", Poco::Message::PRIO_WARNING},
        {"register-6.1a", "missing", Poco::Message::PRIO_WARNING},
        {"register-6.2b", "missing", Poco::Message::PRIO_WARNING},
    };
    const Ends ends = pipeEnds();
    Output output(ends[1].get());
    for (const Poco::Message& message : messages) {
        output.log(message);
    }
    EXPECT_THAT(Process::lines(drained(ends[0].get())), testing::SizeIs(7));
    output.log("other");
    EXPECT_EQ(drained(ends[0].get()), "the last line came once more\nother\n");
}

TEST_F(StandardErrorChannelTest, AFloodIsToldOfEveryMinute) {
    constexpr int SECONDS = 200;
    const Ends ends = pipeEnds();
    Output output(ends[1].get());
    Poco::Message message("source", "flood", Poco::Message::PRIO_ERROR);
    for (int second = 0; second < SECONDS; ++second) {
        message.setTime(Poco::Timestamp::fromEpochTime(1000 + second));
        output.log(message);
    }
    EXPECT_EQ(drained(ends[0].get()),
              "flood\nflood\nflood\n"
              "the last line came 61 more times\nthe last line came 61 more times\n"
              "the last line came 61 more times\n");
    message.setTime(Poco::Timestamp::fromEpochTime(1));
    output.log(message);
    EXPECT_EQ(drained(ends[0].get()), "the last line came 15 more times\n")
        << "when the clock is set back";
}

TEST_F(StandardErrorChannelTest, WhatIsHeldBackAtTheEndIsFlushedOnce) {
    const Ends ends = pipeEnds();
    Output output(ends[1].get());
    for (int i = 0; i < 7; ++i) {
        output.log("flood");
    }
    EXPECT_EQ(drained(ends[0].get()), "flood\nflood\nflood\n");
    output.flush();
    output.flush();
    EXPECT_EQ(drained(ends[0].get()), "the last line came 4 more times\n");
    output.log("flood");
    EXPECT_EQ(drained(ends[0].get()), "");
}

TEST_F(StandardErrorChannelTest, NothingIsFlushedWhenNothingIsHeldBack) {
    const Ends ends = pipeEnds();
    Output output(ends[1].get());
    output.flush();
    EXPECT_EQ(drained(ends[0].get()), "");
}

TEST_F(StandardErrorChannelTest, AFlushDoesNotWaitForAFullOutput) {
    const Ends ends = foreignPipe();
    Output output(ends[1].get());
    overfill(output, ends[0].get(), 100);
    for (int i = 0; i < 5; ++i) {
        output.log("flood");
    }
    output.flush();
    EXPECT_THAT(drained(ends[0].get()), testing::Not(testing::HasSubstr("more")));
}

}  // namespace
