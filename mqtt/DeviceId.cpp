// SPDX-License-Identifier: MIT
#include "DeviceId.h"

#include <glib.h>

#include <algorithm>
#include <cctype>

#include "client/BoundedFile.h"
#include "client/Failure.h"
#include "support/GLibOwners.h"

namespace {

/// What is hashed with the machine's id; another program makes another id of the same machine.
constexpr const char* PURPOSE = "iomap-mqtt";
constexpr std::size_t DIGITS = 32;
constexpr std::size_t LONGEST_FILE = 4096;

}  // namespace

std::string deviceIdOf(const std::string& file) {
    std::string machine = readBoundedFile(file, LONGEST_FILE).value_or("");
    machine.erase(machine.find_last_not_of('\n') + 1);
    const auto isDigit = [](unsigned char c) { return std::isxdigit(c) != 0; };
    if (machine.size() != DIGITS || !std::all_of(machine.begin(), machine.end(), isDigit)) {
        throw Failure("'" + file + "' has no id of the machine; name the device with \"device\"");
    }
    const StringOwner hash(g_compute_hmac_for_string(
        G_CHECKSUM_SHA256, reinterpret_cast<const guchar*>(machine.data()), machine.size(), PURPOSE,
        -1));
    return std::string(hash.get()).substr(0, DIGITS);
}
