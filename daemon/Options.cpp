// SPDX-License-Identifier: MIT
#include "Options.h"

#include <glib.h>

#include <array>
#include <cstdlib>
#include <iostream>
#include <memory>

#include "Version.h"
#include "program/LogOutput.h"
#include "program/UsageError.h"
#include "support/GLibOwners.h"

namespace {

using ContextOwner =
    std::unique_ptr<GOptionContext, GLibRelease<GOptionContext, g_option_context_free>>;

}  // namespace

Options readOptions(int argc, char** argv) {
    gchar* map = nullptr;
    gchar* level = nullptr;
    gchar* devices = nullptr;
    gchar* labels = nullptr;
    gboolean check = FALSE;
    gboolean json = FALSE;
    gboolean version = FALSE;
    const std::array<GOptionEntry, 8> entries{{
        {"map", 0, 0, G_OPTION_ARG_FILENAME, &map,
         "The map file (default: /etc/io-mapping/map.json)", "FILE"},
        {"log-level", 0, 0, G_OPTION_ARG_STRING, &level,
         "none, fatal, critical, error, warning, notice (default), information, debug or trace",
         "LEVEL"},
        {"check", 0, 0, G_OPTION_ARG_NONE, &check,
         "Check the map and print what is wrong with it, instead of serving it", nullptr},
        {"devices", 0, 0, G_OPTION_ARG_STRING, &devices,
         "With --check: check for a device with these drivers, such as kr62,pd5-1,gpiochip-0",
         "LIST"},
        {"labels", 0, 0, G_OPTION_ARG_FILENAME, &labels,
         "With --check: check these labels, too (default: /etc/io-mapping/labels.json, if there)",
         "FILE"},
        {"json", 0, 0, G_OPTION_ARG_NONE, &json, "With --check: print one JSON array", nullptr},
        {"version", 0, 0, G_OPTION_ARG_NONE, &version, "Print the version", nullptr},
        {},
    }};
    const ContextOwner context(g_option_context_new(nullptr));
    g_option_context_set_summary(context.get(),
                                 "Serves the registers of the device on the D-Bus system bus.");
    g_option_context_add_main_entries(context.get(), entries.data(), nullptr);

    GError* error = nullptr;
    const bool understood = g_option_context_parse(context.get(), &argc, &argv, &error) != FALSE;
    const StringOwner mapOwner(map);
    const StringOwner levelOwner(level);
    const StringOwner devicesOwner(devices);
    const StringOwner labelsOwner(labels);
    if (!understood) {
        const ErrorOwner errorOwner(error);
        throw UsageError(error->message);
    }
    if (argc > 1) {
        throw UsageError(std::string("unexpected argument '") + argv[1] + "'");
    }
    if (version != FALSE) {
        std::cout << versionLine("iomappingd") << '\n';
        std::exit(EXIT_SUCCESS);
    }
    if (check == FALSE && (devices != nullptr || json != FALSE)) {
        throw UsageError("--devices and --json need --check");
    }
    if (check == FALSE && labels != nullptr) {
        throw UsageError("--labels needs --check");
    }
    Options options;
    options.check = check != FALSE;
    options.json = json != FALSE;
    if (devices != nullptr) {
        options.devices = devices;
    }
    if (labels != nullptr) {
        options.labels = labels;
    }
    if (map != nullptr) {
        options.mapFile = map;
    }
    options.logLevel = parseLogLevel(level != nullptr ? level : "notice");
    return options;
}
