// SPDX-License-Identifier: MIT
#include "Check.h"

#include <Poco/AutoPtr.h>
#include <Poco/Channel.h>
#include <Poco/Logger.h>
#include <Poco/Message.h>

#include <algorithm>
#include <cstdlib>
#include <iostream>

#include "Devices.h"
#include "MapCheck.h"
#include "StandIns.h"

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

std::vector<Finding> findingsOf(const Options& options) {
    DriverManager drivers;
    if (options.devices) {
        addStandIns(drivers, *options.devices);
        return MapCheck(drivers, false).check(options.mapFile);
    }
    const Poco::AutoPtr<FindingChannel> channel(new FindingChannel);
    Poco::Logger::setChannel("", channel);
    Poco::Logger::setLevel("", Poco::Message::PRIO_WARNING);
    addDrivers(drivers, options.mapFile);
    std::vector<Finding> findings = channel->findings;
    const auto more = MapCheck(drivers, true).check(options.mapFile);
    findings.insert(findings.end(), more.begin(), more.end());
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
    const bool isRefused = std::any_of(findings.begin(), findings.end(),
                                       [](const Finding& finding) { return finding.isFault; });
    return isRefused ? EXIT_FAILURE : EXIT_SUCCESS;
}
