// SPDX-License-Identifier: MIT
#include <cstdint>
#include <memory>

#include "Arguments.h"
#include "Commands.h"
#include "Output.h"
#include "Writes.h"

namespace {

struct Options {
    std::vector<std::string> assignments;
    bool json{false};
    bool raw{false};
};

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
            const bool isScaled = named.isByName && !options.raw;
            if (isScaled) {
                scaled.push_back({named, assignments.size()});
            }
            const int value = isScaled ? 0 : rawValueOf(named, text);
            for (std::int64_t address = named.target.first; address <= named.target.last;
                 ++address) {
                assignments.push_back({static_cast<int>(address), value});
            }
        }
    }

    /// @throws Failure a value is not possible
    const std::vector<Assignment>& resolve(IoMapping& io) {
        for (const auto& [named, place] : scaled) {
            assignments[place].value = rawOfScaled(io, named, labels);
        }
        return assignments;
    }

 private:
    const Labels& labels;
    std::vector<Assignment> assignments;
    std::vector<Scaled> scaled;
};

void write(const Options& options) {
    const Labels labels = deviceLabels();
    Request request(options, labels);
    IoMapping io;
    writeAll(io, request.resolve(io), options.json);
}

}  // namespace

void addWriteCommand(CLI::App& app) {
    const auto options = std::make_shared<Options>();
    CLI::App* command = app.add_subcommand(
        "write", "Write registers in the order given; all or none, as far as can be told before");
    command->add_option("assignment", options->assignments, "What to write where")
        ->type_name("NAME=VALUE|ADDR=VALUE|FIRST-LAST=VALUE")
        ->required();
    command->add_flag("--raw", options->raw, "Take raw values also for names");
    command->add_flag("--json", options->json, "Print what was written as a JSON object");
    command->footer(
        "Examples:\n"
        "  iomap write door=open 300=0x7f\n"
        "  iomap write 1-4=0");
    command->callback([options] { write(*options); });
}
