// SPDX-License-Identifier: MIT
#pragma once

#include <Poco/Dynamic/Var.h>
#include <Poco/JSON/Parser.h>
#include <Poco/JSON/Stringifier.h>
#include <gmock/gmock.h>

#include <sstream>
#include <string>
#include <vector>

#include "BusFixture.h"
#include "Outcome.h"

/// A test of the command iomap against the real service.
class IomapFixture : public BusFixture {
 protected:
    /// The command line of iomap with these arguments.
    static std::vector<std::string> commandOf(const std::vector<std::string>& arguments) {
        std::vector<std::string> command{IOMAP};
        command.insert(command.end(), arguments.begin(), arguments.end());
        return command;
    }

    /// Runs iomap to its end.
    static Outcome iomap(const std::vector<std::string>& arguments) {
        return outcomeOf(commandOf(arguments));
    }

    /// The same where nothing may go wrong.
    ///
    /// @return what it printed
    static std::string iomapDone(const std::vector<std::string>& arguments) {
        return expectSuccess(iomap(arguments));
    }

    /// A JSON document in a form that equals that of another one with the same content. The order
    /// of keys does not count.
    static std::string json(const std::string& text) {
        std::ostringstream form;
        Poco::JSON::Stringifier::condense(Poco::JSON::Parser().parse(text), form);
        return form.str();
    }

    /// The JSON document that iomap prints, as its one and only line, when nothing goes wrong.
    static std::string iomapJson(const std::vector<std::string>& arguments) {
        const std::string output = iomapDone(arguments);
        EXPECT_THAT(Process::lines(output), testing::SizeIs(1));
        return json(output);
    }

    /// A failure that iomap reports on one line, and nothing on standard output.
    static void expectFailure(const Outcome& outcome, int status, const std::string& reason) {
        ::expectFailure(outcome, "iomap", status, reason);
    }
};
