// SPDX-License-Identifier: MIT
//
// Loads any bytes as a map file. A map may be accepted, or refused with an exception. Everything
// else that goes wrong is a finding.

#include <Poco/JSON/Array.h>
#include <Poco/JSON/Object.h>
#include <Poco/Logger.h>

#include <cstddef>
#include <cstdint>
#include <exception>
#include <memory>
#include <sstream>
#include <string>

#include "DriverManager.h"
#include "MapFile.h"
#include "MemoryFile.h"
#include "PeerConnection.h"
#include "RegisterMap.h"
#include "SpecialDriver.h"
#include "VaduDriver.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace {

/// A map with more registers than this would take too much time for a round.
constexpr std::int64_t MOST_REGISTERS = 300;

/// How many registers the fields ask for, up to the first faulty field: there the load ends.
std::int64_t registersIn(const Poco::JSON::Array::Ptr& fields) {
    std::int64_t sum = 0;
    try {
        for (unsigned int i = 0; i < fields->size(); ++i) {
            const int count = fields->getObject(i)->getValue<int>("count");
            sum += count > 0 ? count : 0;
        }
    } catch (const std::exception&) {
        // The load is refused, too.
    }
    return sum;
}

/// What all rounds share.
struct Service {
    Service() {
        Poco::Logger::root().setLevel(Poco::Message::PRIO_TRACE);
        g_log_set_always_fatal(
            static_cast<GLogLevelFlags>(G_LOG_LEVEL_CRITICAL | G_LOG_FATAL_MASK));
        drivers.addDriver(std::make_shared<VaduDriver>());
        drivers.addDriver(std::make_shared<SpecialDriver>());
    }

    void load(const std::uint8_t* data, std::size_t size) {
        try {
            // Most texts are refused here. Neither a file nor the bus has to see them.
            std::istringstream text(std::string(data, data + size));
            if (registersIn(MapFile::parseFields(text, "")) <= MOST_REGISTERS) {
                file.replace(data, size);
                putOnBus();
            }
        } catch (const std::exception&) {
            // The map is refused.
        }
    }

 private:
    void putOnBus() {
        try {
            RegisterMap map(peer.service(), file.path(), drivers);
            map.parse();
        } catch (const std::exception&) {
            // A field is refused.
        }
        // The object that has left the bus is let go here.
        while (g_main_context_iteration(nullptr, FALSE) != FALSE) {
        }
    }

    MemoryFile file;
    DriverManager drivers;
    PeerConnection peer;
};

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static Service service;
    service.load(data, size);
    return 0;
}
