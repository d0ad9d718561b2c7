// SPDX-License-Identifier: MIT
#include "Process.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <cstdlib>
#include <sstream>
#include <stdexcept>
#include <thread>

#include "Deadline.h"

Process::Process(const std::vector<std::string>& command,
                 const std::map<std::string, std::string>& environment)
    : program(command.front()) {
    // All that allocates happens before the fork: the test program may have threads.
    std::vector<std::string> variables;
    for (char** entry = environ; *entry != nullptr; ++entry) {
        const std::string variable(*entry);
        if (environment.count(variable.substr(0, variable.find('='))) == 0) {
            variables.push_back(variable);
        }
    }
    for (const auto& [name, value] : environment) {
        variables.push_back(name + "=" + value);
    }
    const auto pointers = [](const std::vector<std::string>& texts) {
        std::vector<char*> result;
        for (const std::string& text : texts) {
            result.push_back(const_cast<char*>(text.c_str()));
        }
        result.push_back(nullptr);
        return result;
    };
    const std::vector<char*> arguments = pointers(command);
    const std::vector<char*> childEnvironment = pointers(variables);
    std::array<FileDescriptor, 2> writeEnds;
    for (std::size_t i = 0; i < writeEnds.size(); ++i) {
        std::array<int, 2> ends{};
        if (pipe2(ends.data(), O_CLOEXEC) != 0) {
            throw std::runtime_error("no pipe for " + program);
        }
        streams[i].end.reset(ends[0]);
        writeEnds.at(i).reset(ends[1]);
    }
    child = fork();
    if (child == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        dup2(writeEnds[0].get(), STDOUT_FILENO);
        dup2(writeEnds[1].get(), STDERR_FILENO);
        execvpe(program.c_str(), arguments.data(), childEnvironment.data());
        _exit(127);
    }
    if (child < 0) {
        throw std::runtime_error("cannot fork for " + program);
    }
}

Process::~Process() {
    if (exitStatus < 0) {
#ifdef COUNTS_LINES
        // A process that is killed does not write which of its lines have run.
        signal(SIGTERM);
        signal(SIGCONT);
        siginfo_t end{};
        const Deadline deadline;
        while (waitid(P_PID, static_cast<id_t>(child), &end, WEXITED | WNOHANG | WNOWAIT) == 0 &&
               end.si_pid == 0 && !deadline.passed()) {
            std::this_thread::yield();
        }
#endif
        kill(child, SIGKILL);
        waitpid(child, nullptr, 0);
    }
}

void Process::signal(int number) const {
    kill(child, number);
}

std::string Process::waitForLine(const std::string& part) {
    const Deadline deadline;
    for (;;) {
        for (Stream& stream : streams) {
            std::size_t end = 0;
            while ((end = stream.text.find('\n', stream.searched)) != std::string::npos) {
                const std::string line = stream.text.substr(stream.searched, end - stream.searched);
                stream.searched = end + 1;
                if (line.find(part) != std::string::npos) {
                    return line;
                }
            }
        }
        if (deadline.passed() || !readMore(deadline.milliseconds())) {
            giveUp("a line with '" + part + "'");
        }
    }
}

int Process::waitForExit() {
    const Deadline deadline;
    while (readMore(deadline.milliseconds())) {
        if (deadline.passed()) {
            giveUp("its end");
        }
    }
    int status = 0;
    while (exitStatus < 0) {
        if (waitpid(child, &status, 0) == child) {
            exitStatus = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
        }
    }
    return exitStatus;
}

bool Process::readMore(int timeoutMilliseconds) {
    std::array<pollfd, 2> set{
        {{streams[0].end.get(), POLLIN, 0}, {streams[1].end.get(), POLLIN, 0}}};
    if (set[0].fd < 0 && set[1].fd < 0) {
        return false;
    }
    poll(set.data(), set.size(), timeoutMilliseconds);
    for (std::size_t i = 0; i < set.size(); ++i) {
        if (set.at(i).revents == 0) {
            continue;
        }
        std::array<char, 65536> buffer{};
        const ssize_t got = read(streams[i].end.get(), buffer.data(), buffer.size());
        if (got > 0) {
            streams[i].text.append(buffer.data(), static_cast<std::size_t>(got));
        } else {
            streams[i].end.reset();
        }
    }
    return streams[0].end.isOpen() || streams[1].end.isOpen();
}

void Process::giveUp(const std::string& awaited) const {
    throw std::runtime_error("waited in vain for " + awaited + " of " + program +
                             "; it has printed:\n" + streams[0].text + streams[1].text);
}

std::vector<std::string> Process::lines(const std::string& text) {
    std::vector<std::string> result;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);) {
        result.push_back(line);
    }
    return result;
}
