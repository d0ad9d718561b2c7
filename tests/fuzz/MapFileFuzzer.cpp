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
#include "MemoryFile.h"
#include "PeerConnection.h"
#include "RegisterMap.h"
#include "SpecialDriver.h"
#include "VaduDriver.h"
#include "tesk/Json.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace {

/// A map with more registers than this would take too much time and memory for a round.
constexpr std::int64_t MOST_REGISTERS = 5000;

/// How many registers a text asks for before it turns out to be faulty; 0 when it is no map.
std::int64_t registersAskedFor(const std::string& text) {
    std::int64_t sum = 0;
    try {
        std::istringstream in(text);
        const Poco::JSON::Object::Ptr root = tesk::jsonParse(in);
        const Poco::JSON::Array::Ptr fields = root->getArray("io_mapping");
        for (unsigned int i = 0; i < fields->size(); ++i) {
            const int count = fields->getObject(i)->getValue<int>("count");
            sum += count > 0 ? count : 0;
        }
    } catch (const std::exception&) {
        // The load ends here too, or earlier.
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
        file.replace(data, size);
        try {
            RegisterMap map(peer.service(), file.path(), drivers);
            map.parse();
        } catch (const std::exception&) {
            // The map is refused.
        }
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
    const std::string text(data, data + size);
    if (registersAskedFor(text) <= MOST_REGISTERS) {
        service.load(data, size);
    }
    return 0;
}
