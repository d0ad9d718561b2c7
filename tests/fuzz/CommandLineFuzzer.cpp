// SPDX-License-Identifier: MIT
//
// Takes any lines as the arguments of iomap. The command line is parsed, and no subcommand does its
// work. The program must end with the status of a good or of a faulty command line. What it takes
// for an address, a value or a time must be in its range, and mean the same when written again.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <iostream>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

#include "FuzzInput.h"
#include "cli/Arguments.h"
#include "cli/Commands.h"
#include "client/Failure.h"
#include "program/CommandLine.h"
#include "program/ExitStatus.h"
#include "program/UsageError.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace {

using Texts = std::vector<std::string>;

constexpr std::size_t MOST_ARGUMENTS = 32;

/// Takes the place of a stream's output while it lives.
class CapturedStream {
 public:
    explicit CapturedStream(std::ostream& output) : stream(output), saved(output.rdbuf()) {
        stream.rdbuf(buffer.rdbuf());
    }
    ~CapturedStream() {
        stream.rdbuf(saved);
        stream.clear();
    }
    CapturedStream(const CapturedStream&) = delete;
    CapturedStream& operator=(const CapturedStream&) = delete;

    std::string text() const { return buffer.str(); }

 private:
    std::ostream& stream;
    std::streambuf* saved;
    std::ostringstream buffer;
};

void requireAddresses(const Texts& texts) {
    Texts again;
    for (const int address : parseAddresses(texts)) {
        if (address < 0) {
            fail("an address is negative");
        }
        // A range may hold tens of thousands.
        if (again.size() < 100) {
            again.push_back(std::to_string(address));
        }
    }
    if (parseAddresses(again).size() != again.size()) {
        fail("addresses have another meaning when written again");
    }
}

void requireAssignments(const Texts& texts) {
    for (const std::string& text : texts) {
        const std::vector<Assignment> all = parseAssignment(text);
        const auto [first, value] = all.front();
        const int last = all.back().address;
        const std::vector<Assignment> again = parseAssignment(
            std::to_string(first) + "-" + std::to_string(last) + "=" + std::to_string(value));
        if (first < 0 || last < first || again.size() != all.size() ||
            again.front().address != first || again.front().value != value ||
            again.back().address != last || again.back().value != value) {
            fail("'" + text + "' has another meaning when written again");
        }
    }
}

void requireTypes(const Texts& names) {
    const std::vector<RegisterType> types = parseTypes(names);
    for (std::size_t i = 0; i < names.size(); ++i) {
        if (getTypeName(types.at(i)) != names[i]) {
            fail("'" + names[i] + "' has become another type");
        }
    }
}

void requireSeconds(const Texts& texts) {
    for (const std::string& text : texts) {
        const double seconds = parseSeconds(text).count();
        if (!(seconds >= 0 && seconds <= 1e9)) {
            fail("'" + text + "' is a time out of range");
        }
    }
}

/// How the words behind an option of a subcommand are read; of any subcommand, unless it is named.
struct Reading {
    std::string_view subcommand;
    const char* option;
    void (*require)(const Texts& texts);
};
constexpr Reading READINGS[]{
    {"", "register", requireAddresses},   {"", "assignment", requireAssignments},
    {"", "--type", requireTypes},         {"", "--timeout", requireSeconds},
    {"", "--interval", requireSeconds},   {"read", "--wait", requireAssignments},
    {"status", "--wait", requireSeconds},
};

void readOptions(const CLI::App& command) {
    for (const Reading& reading : READINGS) {
        const CLI::Option* const option = command.get_option_no_throw(reading.option);
        const bool isMeant = reading.subcommand.empty() || reading.subcommand == command.get_name();
        if (option == nullptr || !isMeant) {
            continue;
        }
        try {
            reading.require(option->results());
        } catch (const UsageError&) {
            // The subcommand would refuse the command line.
        }
    }
}

void run(std::vector<std::string> arguments) {
    CLI::App app("", "iomap");
    app.set_version_flag("--version", "iomap");
    addCommands(app);
    // Comes right before the work of the subcommand.
    app.parse_complete_callback([&app] {
        if (!app.get_subcommands().empty()) {
            throw CLI::Success();
        }
    });
    std::vector<char*> words;
    for (std::string& argument : arguments) {
        words.push_back(argument.data());
    }
    words.push_back(nullptr);
    int status = 0;
    std::string complaint;
    {
        const CapturedStream output(std::cout);
        const CapturedStream errors(std::cerr);
        status = runProgram(app, static_cast<int>(arguments.size()), words.data(), reasonOf);
        complaint = errors.text();
    }
    if (status != EXIT_SUCCESS && status != EXIT_USAGE) {
        fail("status " + std::to_string(status) + ": " + complaint);
    }
    if ((status == EXIT_SUCCESS) != complaint.empty()) {
        fail("status " + std::to_string(status) + " with the complaint '" + complaint + "'");
    }
    if (status == EXIT_SUCCESS) {
        for (const CLI::App* const command : app.get_subcommands()) {
            readOptions(*command);
        }
    }
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    std::vector<std::string> arguments{"iomap"};
    // A program's arguments hold no zero byte.
    std::istringstream lines(std::string(data, std::find(data, data + size, 0)));
    for (std::string line; arguments.size() < MOST_ARGUMENTS && std::getline(lines, line);) {
        arguments.push_back(line);
    }
    run(std::move(arguments));
    return 0;
}
