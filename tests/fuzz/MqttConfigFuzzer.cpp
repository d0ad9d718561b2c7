// SPDX-License-Identifier: MIT
//
// Reads any bytes as the configuration of iomap-mqtt. The file must be taken, or refused with its
// faults. What is taken must keep the promises that no configuration can break.

#include <arpa/inet.h>

#include <cstddef>
#include <cstdint>
#include <string>

#include "FuzzInput.h"
#include "MemoryFile.h"
#include "client/Failure.h"
#include "mqtt/Settings.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace {

bool staysHere(const std::string& host) {
    in_addr address{};
    return host == "localhost" || host == "::1" ||
           (::inet_pton(AF_INET, host.c_str(), &address) == 1 && host.rfind("127.", 0) == 0);
}

void requireTopicPart(const std::string& text, const char* what) {
    if (text.find_first_of(std::string("+#\0", 3)) != std::string::npos ||
        (!text.empty() && (text.front() == '/' || text.back() == '/' || text.front() == '$'))) {
        fail(std::string(what) + " does not do for topics: '" + text + "'");
    }
}

void requireGood(const Settings& settings) {
    const BrokerSettings& broker = settings.broker;
    if (!broker.tls && !staysHere(broker.host)) {
        fail("the broker '" + broker.host + "' is reached without TLS");
    }
    if (broker.port < 1 || broker.port > 65'535 || broker.keepAlive < 5 || broker.host.empty()) {
        fail("the broker cannot be reached so");
    }
    requireTopicPart(settings.prefix, "the prefix");
    requireTopicPart(settings.device, "the id of the device");
    if (settings.prefix.empty() || settings.labelsFile.empty() ||
        settings.labelsFile.front() != '/') {
        fail("something that is needed is missing");
    }
    if (settings.homeAssistant) {
        requireTopicPart(settings.homeAssistant->prefix, "the prefix of Home Assistant");
        if (settings.homeAssistant->expireAfter < 10) {
            fail("values expire sooner than they can be told");
        }
    }
    if (settings.outage.memory < 1024 || settings.outage.files < 1024) {
        fail("nothing can be kept");
    }
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const MemoryFile file;
    file.replace(data, size);
    const auto faults = Settings::faultsOf(file.path());
    for (const std::string& fault : faults) {
        if (fault.empty()) {
            fail("a fault has no words");
        }
    }
    try {
        const Settings settings = Settings::read(file.path());
        if (!faults.empty()) {
            fail("a file with faults is taken");
        }
        requireGood(settings);
    } catch (const Failure& e) {
        if (faults.empty()) {
            fail(std::string("a file without faults is refused: ") + e.what());
        }
    }
    return 0;
}
