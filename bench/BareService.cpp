// SPDX-License-Identifier: MIT
//
// bare-service NAME INTROSPECTION_XML OBJECT_PATH VALUE_FILE [silent|board|kept]: the least that a
// GDBus service of the register interface must do, to measure the real one against. It answers from
// an array, reads the value file for the addresses that have one, checks nothing and logs nothing.
// When told to be silent it also leaves out the signal that the interface promises after a write.
// VALUE_FILE may have a %d for the number of the file: each address then has a file of its own
// ("board"), which may also stay open from one read to the next ("kept").
#include <fcntl.h>
#include <gio/gio.h>
#include <sys/resource.h>
#include <unistd.h>

#include <array>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "Layout.h"
#include "support/FileDescriptor.h"
#include "support/GLibOwners.h"

namespace {

struct Cell {
    gint32 type;
    gint32 index;
    gint32 maxValue;
    gint32 value;
};

std::array<Cell, REGISTER_COUNT> cells;
const char* objectPath;
const char* valueFile;
bool silent;
/// By address, where each has a file of its own.
std::vector<std::string> boardFiles;
/// The same, open, where they stay open.
std::vector<FileDescriptor> keptFiles;

void fillCells() {
    constexpr gint32 CPU_TEMP = 13;
    constexpr gint32 VIRTUAL = 29;
    gint32 index = 0;
    for (int place = 0; place < REGISTER_COUNT; ++place) {
        const bool first = place == FILE_COUNT || place == LOW_COUNT;
        index = first ? 1 : index + 1;
        cells[static_cast<unsigned>(place)] = {place < FILE_COUNT ? CPU_TEMP : VIRTUAL, index, -1,
                                               0};
    }
}

Cell& cellAt(gint32 address) {
    return cells[static_cast<unsigned>(placeOf(address))];
}

gint32 valueIn(std::array<char, 64>& text, ssize_t length) {
    text[static_cast<std::size_t>(length)] = '\0';
    return std::atoi(text.data());
}

gint32 readFileValue(const char* path) {
    std::array<char, 64> text;
    const FileDescriptor file(open(path, O_RDONLY | O_CLOEXEC));
    return valueIn(text, read(file.get(), text.data(), text.size() - 1));
}

gint32 readKeptValue(const FileDescriptor& file) {
    std::array<char, 64> text;
    return valueIn(text, pread(file.get(), text.data(), text.size() - 1, 0));
}

gint32 readValue(gint32 address) {
    const auto place = static_cast<std::size_t>(address);
    if (address >= VIRTUAL_FIRST) {
        return cellAt(address).value;
    }
    if (!keptFiles.empty()) {
        return readKeptValue(keptFiles[place]);
    }
    return readFileValue(boardFiles.empty() ? valueFile : boardFiles[place].c_str());
}

/// Names the files of the addresses, and opens those that stay open.
void prepareBoard(bool kept) {
    rlimit limit{};
    getrlimit(RLIMIT_NOFILE, &limit);
    limit.rlim_cur = limit.rlim_max;
    setrlimit(RLIMIT_NOFILE, &limit);
    for (int number = 0; number < VIRTUAL_FIRST; ++number) {
        std::string path = valueFile;
        boardFiles.push_back(path.replace(path.find("%d"), 2, std::to_string(number)));
        if (kept) {
            keptFiles.emplace_back(open(boardFiles.back().c_str(), O_RDONLY | O_CLOEXEC));
        }
    }
}

GVariant* intArray(const gint32* numbers, gsize count) {
    return g_variant_new(
        "(v)", g_variant_new_fixed_array(G_VARIANT_TYPE_INT32, numbers, count, sizeof(gint32)));
}

GVariant* addressesOfType(GVariant* parameters) {
    gint32 type = 0;
    g_variant_get(parameters, "(i)", &type);
    std::array<gint32, REGISTER_COUNT> addresses;
    gsize count = 0;
    for (int place = 0; place < REGISTER_COUNT; ++place) {
        if (cells[static_cast<unsigned>(place)].type == type) {
            addresses[count++] = addressAt(place);
        }
    }
    return intArray(addresses.data(), count);
}

GVariant* readList(GVariant* parameters) {
    GVariant* content = nullptr;
    g_variant_get(parameters, "(v)", &content);
    const VariantOwner list(content);
    gsize count = 0;
    const auto* addresses =
        static_cast<const gint32*>(g_variant_get_fixed_array(list.get(), &count, sizeof(gint32)));
    const std::unique_ptr<gint32[], GLibRelease<gint32, g_free>> values(g_new(gint32, count));
    for (gsize i = 0; i < count; ++i) {
        values[i] = readValue(addresses[i]);
    }
    return intArray(values.get(), count);
}

void write(GDBusConnection* connection, const gchar* interface, GVariant* parameters) {
    gint32 address = 0;
    gint32 value = 0;
    g_variant_get(parameters, "(ii)", &address, &value);
    cellAt(address).value = value;
    if (!silent) {
        g_dbus_connection_emit_signal(connection, nullptr, objectPath, interface, "OnValueChange",
                                      g_variant_new("(ii)", address, value), nullptr);
    }
}

void handleCall(GDBusConnection* connection, const gchar* /*sender*/, const gchar* /*path*/,
                const gchar* interface, const gchar* method, GVariant* parameters,
                GDBusMethodInvocation* invocation, gpointer /*userData*/) {
    GVariant* reply = nullptr;
    gint32 address = 0;
    if (std::strcmp(method, "Read") == 0) {
        g_variant_get(parameters, "(i)", &address);
        reply = g_variant_new("(i)", readValue(address));
    } else if (std::strcmp(method, "ReadList") == 0) {
        reply = readList(parameters);
    } else if (std::strcmp(method, "Write") == 0) {
        write(connection, interface, parameters);
    } else if (std::strcmp(method, "GetParams") == 0) {
        g_variant_get(parameters, "(i)", &address);
        const Cell& cell = cellAt(address);
        reply = g_variant_new("(iii)", cell.type, cell.index, cell.maxValue);
    } else {
        reply = addressesOfType(parameters);
    }
    g_dbus_method_invocation_return_value(invocation, reply);
}

void onBusAcquired(GDBusConnection* connection, const gchar* /*name*/, gpointer xml) {
    static const GDBusInterfaceVTable vtable{handleCall, nullptr, nullptr, {}};
    const NodeInfoOwner node(g_dbus_node_info_new_for_xml(static_cast<const char*>(xml), nullptr));
    g_dbus_connection_register_object(connection, objectPath, node->interfaces[0], &vtable, nullptr,
                                      nullptr, nullptr);
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 5) {
        g_printerr(
            "usage: bare-service NAME INTROSPECTION_XML OBJECT_PATH VALUE_FILE "
            "[silent|board|kept]\n");
        return 2;
    }
    objectPath = argv[3];
    valueFile = argv[4];
    const std::string_view mode = argc > 5 ? argv[5] : "";
    silent = mode == "silent";
    if (mode == "board" || mode == "kept") {
        prepareBoard(mode == "kept");
    }
    fillCells();
    g_bus_own_name(
        G_BUS_TYPE_SYSTEM, argv[1], G_BUS_NAME_OWNER_FLAGS_NONE, onBusAcquired, nullptr,
        [](GDBusConnection* /*connection*/, const gchar* name, gpointer /*userData*/) {
            g_printerr("bare-service: cannot own %s on the system bus\n", name);
            std::_Exit(EXIT_FAILURE);
        },
        argv[2], nullptr);
    const MainLoopOwner loop(g_main_loop_new(nullptr, FALSE));
    g_main_loop_run(loop.get());
}
