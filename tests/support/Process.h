// SPDX-License-Identifier: MIT
#pragma once

#include <sys/types.h>

#include <map>
#include <string>
#include <vector>

#include "support/FileDescriptor.h"

/// A program started by a test. It is killed when the owner goes, or when the test program dies.
///
/// Everything it prints is kept. All waits are bounded and throw `std::runtime_error` with what was
/// printed so far when the time is up.
class Process {
 public:
    /// @param command the program, found in PATH, and its arguments
    /// @param environment variables set in addition to those of the test
    explicit Process(const std::vector<std::string>& command,
                     const std::map<std::string, std::string>& environment = {});
    ~Process();
    Process(const Process&) = delete;
    Process& operator=(const Process&) = delete;

    pid_t pid() const { return child; }

    void signal(int number) const;

    /// Waits for a whole line with a text on standard output or standard error.
    ///
    /// @return the line
    std::string waitForLine(const std::string& part);

    /// Waits for the end of the program.
    ///
    /// @return its exit status, or 128 plus the number of the signal that ended it
    int waitForExit();

    /// Takes what it has printed until now, without a wait.
    void look() { readMore(0); }

    /// What was printed until the last wait or look; all of it after waitForExit().
    const std::string& standardOutput() const { return streams[0].text; }
    const std::string& standardError() const { return streams[1].text; }

    /// The lines of a text.
    static std::vector<std::string> lines(const std::string& text);

 private:
    struct Stream {
        FileDescriptor end;
        std::string text;
        std::size_t searched{0};
    };

    /// Reads what is there, or waits for more; false when both streams are closed.
    bool readMore(int timeoutMilliseconds);
    [[noreturn]] void giveUp(const std::string& awaited) const;

    pid_t child{-1};
    int exitStatus{-1};
    std::string program;
    Stream streams[2];
};
