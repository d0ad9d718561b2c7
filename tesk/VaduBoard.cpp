// SPDX-License-Identifier: MIT
#include "tesk/VaduBoard.h"

#include <glib.h>

#include <array>
#include <filesystem>
#include <memory>

#include "tesk/Exceptions.h"

namespace tesk {

namespace {

constexpr const char* IMAGE_FILE = "/etc/os-release";
constexpr const char* VENDOR_FILE = "/usr/lib/os-release";
constexpr std::array<const char*, 2> VERSION_KEYS{"IMAGE_VERSION", "VERSION_ID"};

/// The os-release file in force; GLib, which reads it, falls back on the kernel's version when
/// there is none, and that is no firmware version.
std::string osReleaseFile() {
    for (const char* file : {IMAGE_FILE, VENDOR_FILE}) {
        std::error_code ignored;
        if (std::filesystem::exists(file, ignored)) {
            return file;
        }
    }
    throw NotFoundException(std::string("no firmware version: neither ") + IMAGE_FILE + " nor " +
                            VENDOR_FILE + " exists");
}

}  // namespace

std::string VaduBoard::readFwVersion() {
    const std::string file = osReleaseFile();
    for (const char* key : VERSION_KEYS) {
        const std::unique_ptr<gchar, decltype(&g_free)> version(g_get_os_info(key), g_free);
        if (version) {
            return version.get();
        }
    }
    throw NotFoundException("no firmware version: " + file +
                            " states neither IMAGE_VERSION nor VERSION_ID");
}

}  // namespace tesk
