// SPDX-License-Identifier: MIT
#include <chrono>
#include <iostream>
#include <memory>
#include <optional>
#include <thread>

#include "Arguments.h"
#include "Commands.h"
#include "Output.h"
#include "client/Failure.h"

namespace {

constexpr std::chrono::milliseconds POLL_INTERVAL{100};

struct Options {
    std::string wait{"0"};
    bool json{false};
};

/// What the service says of the device.
struct Status {
    std::size_t registers{0};
    std::vector<std::pair<RegisterType, std::size_t>> perType;
    std::optional<Reading> firmware;
    std::optional<Reading> hardware;
};

std::unique_ptr<IoMapping> connect() {
    auto io = std::make_unique<IoMapping>();
    if (!io->isAlive()) {
        throw Failure("the service is not running; start iomappingd");
    }
    return io;
}

/// Connects as soon as the service runs. Every attempt has a connection of its own, as the bus,
/// too, may come and go.
std::unique_ptr<IoMapping> waitForService(std::chrono::duration<double> time) {
    const auto end = std::chrono::steady_clock::now() + time;
    for (;;) {
        try {
            return connect();
        } catch (const std::exception&) {
            if (std::chrono::steady_clock::now() >= end) {
                throw;
            }
        }
        std::this_thread::sleep_for(POLL_INTERVAL);
    }
}

Status ask(IoMapping& io) {
    Status status;
    for (const RegisterType type : getAllTypes()) {
        const std::vector<int> addresses = io.getAddrsPerType(type);
        if (addresses.empty()) {
            continue;
        }
        status.registers += addresses.size();
        status.perType.emplace_back(type, addresses.size());
        if (type == RegisterType::FW_VERSION) {
            status.firmware = readEach(io, {addresses.front()}).front();
        } else if (type == RegisterType::HW_TYPE) {
            status.hardware = readEach(io, {addresses.front()}).front();
        }
    }
    return status;
}

void printText(const Status& status) {
    std::cout << "service: running\nregisters: " << status.registers << '\n';
    for (const auto& [type, count] : status.perType) {
        std::cout << "  " << getTypeName(type) << ": " << count << '\n';
    }
    if (status.firmware) {
        std::cout << "firmware: " << textOf(*status.firmware);
        // Its three parts are hexadecimal digits.
        if (status.firmware->error.empty()) {
            std::cout << " (0x" << std::hex << status.firmware->value << std::dec << ")";
        }
        std::cout << '\n';
    }
    if (status.hardware) {
        std::cout << "hardware: " << textOf(*status.hardware) << '\n';
    }
}

void printJsonStatus(const Status& status) {
    Poco::JSON::Object::Ptr types = newJsonObject();
    for (const auto& [type, count] : status.perType) {
        types->set(getTypeName(type), count);
    }
    Poco::JSON::Object::Ptr object = newJsonObject();
    object->set("alive", true);
    object->set("registers", status.registers);
    object->set("types", types);
    if (status.firmware) {
        setReading(*object, *status.firmware, "firmware", "firmware_error");
    }
    if (status.hardware) {
        setReading(*object, *status.hardware, "hardware", "hardware_error");
    }
    printJson(object);
}

void status(const Options& options) {
    const std::chrono::duration<double> wait = parseSeconds(options.wait);
    std::unique_ptr<IoMapping> io;
    try {
        io = waitForService(wait);
    } catch (const std::exception&) {
        if (options.json) {
            Poco::JSON::Object::Ptr object = newJsonObject();
            object->set("alive", false);
            printJson(object);
        }
        throw;
    }
    if (options.json) {
        printJsonStatus(ask(*io));
    } else {
        printText(ask(*io));
    }
}

}  // namespace

void addStatusCommand(CLI::App& app) {
    const auto options = std::make_shared<Options>();
    CLI::App* command = app.add_subcommand(
        "status", "Show whether the service runs and what it serves; status 0 only if it runs");
    command->add_option("--wait", options->wait, "Wait up to this long for the service")
        ->type_name("SECONDS");
    command->add_flag("--json", options->json, "Print a JSON object");
    command->callback([options] { status(*options); });
}
