// SPDX-License-Identifier: MIT
#include "cli/LineOutput.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <future>
#include <string>

#include "Deadline.h"
#include "support/FileDescriptor.h"

namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

/// So many such lines are more than a pipe takes.
const std::string LONG_LINE(100, 'x');
constexpr std::size_t LINES_BEYOND_A_PIPE = 2000;

class LineOutputTest : public testing::Test {
 protected:
    LineOutputTest() {
        std::array<int, 2> ends{};
        EXPECT_EQ(pipe2(ends.data(), O_CLOEXEC), 0);
        readEnd.reset(ends[0]);
        writeEnd.reset(ends[1]);
        std::signal(SIGPIPE, SIG_IGN);
    }
    ~LineOutputTest() override { std::signal(SIGPIPE, SIG_DFL); }

    /// A listener that keeps what it hears.
    LineOutput::Listener listener() {
        return {[this] { ++losses; }, [this](std::size_t lost) { resumed.set_value(lost); },
                [this] { failure.set_value(); }};
    }

    /// Reads until the last thing read is a text.
    std::string readUntil(const std::string& last) const {
        std::string text;
        std::array<char, 65536> buffer{};
        while (text.size() < last.size() ||
               text.compare(text.size() - last.size(), last.size(), last) != 0) {
            const ssize_t got = read(readEnd.get(), buffer.data(), buffer.size());
            if (got <= 0) {
                ADD_FAILURE() << "the end came before " << last;
                break;
            }
            text.append(buffer.data(), static_cast<std::size_t>(got));
        }
        return text;
    }

    /// Fills the pipe, so that no line of the output fits before somebody reads.
    ///
    /// @return how many bytes the pipe took
    std::size_t fillThePipe() const {
        const int flags = fcntl(writeEnd.get(), F_GETFL);
        EXPECT_EQ(fcntl(writeEnd.get(), F_SETFL, flags | O_NONBLOCK), 0);
        std::size_t size = 0;
        while (write(writeEnd.get(), "", 1) == 1) {
            ++size;
        }
        EXPECT_EQ(errno, EAGAIN);
        EXPECT_EQ(fcntl(writeEnd.get(), F_SETFL, flags), 0);
        return size;
    }

    template <typename Promise>
    static void expectSet(Promise& promise) {
        EXPECT_EQ(promise.wait_for(PATIENCE), std::future_status::ready);
    }

    FileDescriptor readEnd;
    FileDescriptor writeEnd;
    int losses{0};
    std::promise<std::size_t> resumed;
    std::promise<void> failure;
};

TEST_F(LineOutputTest, LinesComeInOrder) {
    LineOutput output(writeEnd.get(), listener());
    std::string expected;
    for (int line = 0; line < 1000; ++line) {
        output.print(std::to_string(line));
        expected += std::to_string(line) + "\n";
    }
    EXPECT_EQ(readUntil("\n999\n"), expected);
    EXPECT_EQ(output.finish({}), 0);
    EXPECT_EQ(losses, 0);
}

TEST_F(LineOutputTest, TheCallerNeverWaitsAndTheOldestLinesAreLost) {
    const std::size_t filled = fillThePipe();
    LineOutput output(writeEnd.get(), listener());
    // More than what waits and what the writer holds, whether or not the writer runs meanwhile.
    const std::size_t count = LineOutput::MOST_WAITING + LINES_BEYOND_A_PIPE;
    std::string newest;
    for (std::size_t line = 0; line < count; ++line) {
        const std::string text = LONG_LINE + std::to_string(line);
        output.print(text);
        if (line >= count - LineOutput::MOST_WAITING) {
            newest += text + "\n";
        }
    }
    EXPECT_EQ(losses, 1);
    const std::string text = readUntil(LONG_LINE + std::to_string(count - 1) + "\n").substr(filled);
    auto lost = resumed.get_future();
    expectSet(lost);
    const auto lines = static_cast<std::size_t>(std::count(text.begin(), text.end(), '\n'));
    EXPECT_EQ(lines + lost.get(), count);
    ASSERT_GE(text.size(), newest.size());
    EXPECT_EQ(text.substr(text.size() - newest.size()), newest);
    EXPECT_FALSE(output.hasFailed());
    EXPECT_EQ(output.finish({}), 0);
}

TEST_F(LineOutputTest, WhatNobodyReadsIsGivenUpAtTheEnd) {
    LineOutput output(writeEnd.get(), listener());
    for (std::size_t line = 0; line < LINES_BEYOND_A_PIPE; ++line) {
        output.print(LONG_LINE);
    }
    const auto start = steady_clock::now();
    EXPECT_GT(output.finish(start + milliseconds(100)), 0);
    EXPECT_GE(steady_clock::now() - start, milliseconds(100));
    // The thread that was left behind ends.
    readEnd.reset();
    auto failed = failure.get_future();
    expectSet(failed);
}

TEST_F(LineOutputTest, AFailureIsHeardAndEndsTheOutput) {
    LineOutput output(writeEnd.get(), listener());
    EXPECT_FALSE(output.hasFailed());
    readEnd.reset();
    output.print("for nobody");
    auto failed = failure.get_future();
    expectSet(failed);
    EXPECT_TRUE(output.hasFailed());
    output.print("for nobody either");
    output.finish({});
}

}  // namespace
