// SPDX-License-Identifier: MIT
#include "Check.h"

#include <Poco/AutoPtr.h>
#include <Poco/Channel.h>
#include <Poco/File.h>
#include <Poco/Logger.h>
#include <Poco/Message.h>

#include <algorithm>
#include <cstdlib>
#include <iostream>

#include "Devices.h"
#include "LabelCheck.h"
#include "MapCheck.h"
#include "StandIns.h"
#include "client/Labels.h"

namespace {

/// Turns lines of the log into findings: what is wrong with the boards of this device.
class FindingChannel : public Poco::Channel {
 public:
    void log(const Poco::Message& line) override {
        findings.push_back({false, std::nullopt, std::nullopt, "", line.getText(),
                            "correct the device, or check the map with --devices"});
    }

    std::vector<Finding> findings;
};

bool holdsFault(const std::vector<Finding>& findings) {
    return std::any_of(findings.begin(), findings.end(),
                       [](const Finding& finding) { return finding.isFault; });
}

/// What is wrong with the boards of this device, whose drivers are then known.
std::vector<Finding> findBoards(DriverManager& drivers, const std::string& mapFile) {
    const Poco::AutoPtr<FindingChannel> channel(new FindingChannel);
    Poco::Logger::setChannel("", channel);
    Poco::Logger::setLevel("", Poco::Message::PRIO_WARNING);
    addDrivers(drivers, mapFile);
    return channel->findings;
}

/// @param map the map when it has been checked; null if it has faults, and so no certain registers
std::vector<Finding> findingsOfLabels(const Options& options, const MapCheck* map) {
    const std::string file = options.labels.value_or(Labels::file());
    if (!options.labels && !Poco::File(file).exists()) {
        return {};
    }
    return map == nullptr
               ? checkLabels(file, {})
               : checkLabels(file, [map](int address) { return map->hasRegister(address); });
}

std::vector<Finding> findingsOf(const Options& options) {
    DriverManager drivers;
    std::vector<Finding> findings;
    if (options.devices) {
        addStandIns(drivers, *options.devices);
    } else {
        findings = findBoards(drivers, options.mapFile);
    }
    const auto append = [&findings](const std::vector<Finding>& more) {
        findings.insert(findings.end(), more.begin(), more.end());
    };
    MapCheck map(drivers, !options.devices);
    append(map.check(options.mapFile));
    append(findingsOfLabels(options, holdsFault(findings) ? nullptr : &map));
    return findings;
}

}  // namespace

int checkMap(const Options& options) {
    const std::vector<Finding> findings = findingsOf(options);
    if (options.json) {
        printJson(std::cout, findings);
    } else {
        printLines(std::cout, options.mapFile, findings);
    }
    return holdsFault(findings) ? EXIT_FAILURE : EXIT_SUCCESS;
}
