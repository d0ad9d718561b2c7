// SPDX-License-Identifier: MIT
#include <Poco/JSON/Array.h>

#include <algorithm>
#include <memory>

#include "Arguments.h"
#include "Commands.h"
#include "Output.h"
#include "client/Failure.h"
#include "tesk/Exceptions.h"

namespace {

struct Options {
    std::vector<std::string> assignments;
    bool json{false};
    bool raw{false};
};

using Assignments = std::vector<Assignment>;

std::string textOf(Assignments::const_iterator first, Assignments::const_iterator last) {
    std::string text;
    for (; first != last; ++first) {
        text += (text.empty() ? "" : " ") + std::to_string(first->address) + "=" +
                std::to_string(first->value);
    }
    return text.empty() ? "none" : text;
}

Poco::JSON::Object::Ptr jsonOf(const Assignment& assignment) {
    Poco::JSON::Object::Ptr object = newJsonObject();
    object->set("address", assignment.address);
    object->set("value", assignment.value);
    return object;
}

/// Prints what was written and, when `failed` is one of the assignments, what was refused and why.
void printJsonOutcome(const Assignments& assignments, Assignments::const_iterator failed,
                      const std::string& error) {
    Poco::JSON::Array::Ptr written = new Poco::JSON::Array;
    std::for_each(assignments.begin(), failed,
                  [&written](const Assignment& a) { written->add(jsonOf(a)); });
    Poco::JSON::Object::Ptr outcome = newJsonObject();
    outcome->set("written", written);
    if (failed != assignments.end()) {
        Poco::JSON::Object::Ptr refused = jsonOf(*failed);
        refused->set("error", error);
        outcome->set("failed", refused);
    }
    printJson(outcome);
}

/// An assignment whose value depends on the register's label and maximum.
struct Scaled {
    NamedAssignment named;
    std::size_t place;  ///< Among all assignments.
};

/// What to write, once all of it is known.
class Request {
 public:
    /// @throws UsageError an assignment has another form; that needs no bus
    Request(const Options& options, const Labels& deviceLabels) : labels(deviceLabels) {
        for (const std::string& text : options.assignments) {
            const NamedAssignment named = splitAssignment(text, labels);
            if (named.isByName && !options.raw) {
                scaled.push_back({named, assignments.size()});
                assignments.push_back({named.address, 0});
            } else {
                assignments.push_back(rawAssignment(named, text));
            }
        }
    }

    /// @throws Failure a value is not possible
    const Assignments& resolve(IoMapping& io) {
        for (const auto& [named, place] : scaled) {
            const Label& label = *labels.find(named.address);
            const unsigned int maximum = infoOf(io, named.address).maximum;
            try {
                assignments[place].value = label.rawOf(named.value, maximum);
            } catch (const Failure& e) {
                throw Failure(label.name + ": " + e.what());
            }
        }
        return assignments;
    }

 private:
    const Labels& labels;
    Assignments assignments;
    std::vector<Scaled> scaled;
};

void write(const Options& options) {
    const Labels labels = deviceLabels();
    Request request(options, labels);
    IoMapping io;
    const Assignments& assignments = request.resolve(io);
    auto next = assignments.cbegin();
    try {
        for (; next != assignments.cend(); ++next) {
            io.writeValue(next->address, next->value);
        }
    } catch (const tesk::InputOutputException& e) {
        const bool late = isTimeout(e);
        const std::string reason =
            reasonOf(e) + (late ? "; the write may still be carried out" : "");
        if (options.json) {
            printJsonOutcome(assignments, next, reason);
        }
        // Asking for the register's type would only time out again.
        std::string text =
            (late ? "register " + std::to_string(next->address) : nameOf(io, next->address)) +
            ": " + reason;
        if (assignments.size() > 1) {
            text += "; written before it: " + textOf(assignments.cbegin(), next);
        }
        throw Failure(text, exitStatusOf(e));
    }
    if (options.json) {
        printJsonOutcome(assignments, next, {});
    }
}

}  // namespace

void addWriteCommand(CLI::App& app) {
    const auto options = std::make_shared<Options>();
    CLI::App* command = app.add_subcommand(
        "write", "Write registers in the order given, up to the first that is refused");
    command->add_option("assignment", options->assignments, "What to write where")
        ->type_name("NAME=VALUE|ADDR=VALUE")
        ->required();
    command->add_flag("--raw", options->raw, "Take raw values also for names");
    command->add_flag("--json", options->json, "Print what was written as a JSON object");
    command->callback([options] { write(*options); });
}
