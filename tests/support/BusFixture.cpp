// SPDX-License-Identifier: MIT
#include "BusFixture.h"

const std::string BusFixture::DAEMON = IOMAPPINGD;

Process& BusFixture::startService(const std::string& map, const std::vector<std::string>& options) {
    daemon = launch(map, options);
    BusClient().waitForService();
    return *daemon;
}

std::unique_ptr<Process> BusFixture::launch(const std::string& map,
                                            const std::vector<std::string>& options,
                                            const std::map<std::string, std::string>& environment) {
    std::vector<std::string> command{DAEMON, "--map", directory.file("map.json", map)};
    command.insert(command.end(), options.begin(), options.end());
    return std::make_unique<Process>(command, environment);
}

std::string BusFixture::mapOf(const std::vector<std::string>& fields) {
    std::string text;
    for (const std::string& field : fields) {
        text += (text.empty() ? "" : ",\n") + field;
    }
    return "{\"io_mapping\": [" + text + "]}";
}
