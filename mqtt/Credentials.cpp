// SPDX-License-Identifier: MIT
#include "Credentials.h"

#include <unistd.h>

#include "client/BoundedFile.h"
#include "client/Failure.h"

namespace {

constexpr const char* PASSWORD = "mqtt-password";
constexpr const char* KEY = "mqtt-key";
constexpr std::size_t LONGEST_PASSWORD = 1024;

}  // namespace

Credentials Credentials::read(const std::string& directory, const BrokerSettings& broker) {
    Credentials credentials;
    const std::string place = directory + "/";
    if (!directory.empty()) {
        credentials.password = readBoundedFile(place + PASSWORD, LONGEST_PASSWORD).value_or("");
        std::string& password = credentials.password;
        password.erase(password.find_last_not_of("\r\n") + 1);
    }
    if (!credentials.password.empty() && broker.user.empty()) {
        throw Failure("there is a credential 'mqtt-password', but broker.user is missing");
    }
    if (!broker.certificate.empty()) {
        credentials.keyFile = place + KEY;
        if (directory.empty() || ::access(credentials.keyFile.c_str(), R_OK) != 0) {
            throw Failure("broker.certificate_file needs its key as the credential 'mqtt-key'");
        }
    }
    return credentials;
}
