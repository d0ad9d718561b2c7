// SPDX-License-Identifier: MIT
//
// bare-notifier NAME OBJECT_PATH INTERFACE BOARD COUNT: the least that turns changes of a board's
// value files into signals, to measure the service against: a thread that waits for inotify, reads
// the file that has changed, and emits the signal. It checks nothing and logs nothing.
#include <fcntl.h>
#include <gio/gio.h>
#include <sys/inotify.h>
#include <unistd.h>

#include <array>
#include <cstdlib>
#include <string>
#include <thread>
#include <vector>

#include "support/FileDescriptor.h"
#include "support/GLibOwners.h"

namespace {

struct Notifier {
    const char* objectPath;
    const char* interface;
    /// By watch descriptor, which inotify counts from 1 in the order of the relays.
    std::vector<std::string> files;
};

gint32 readFileValue(const std::string& path) {
    std::array<char, 64> text;
    const FileDescriptor file(open(path.c_str(), O_RDONLY | O_CLOEXEC));
    const ssize_t got = read(file.get(), text.data(), text.size() - 1);
    text[static_cast<std::size_t>(got)] = '\0';
    return std::atoi(text.data());
}

void notifyForEver(const Notifier& notifier, GDBusConnection* bus) {
    const FileDescriptor inotify(inotify_init1(IN_CLOEXEC));
    for (std::size_t relay = 1; relay < notifier.files.size(); ++relay) {
        inotify_add_watch(inotify.get(), notifier.files[relay].c_str(), IN_MODIFY);
    }
    alignas(inotify_event) std::array<char, 32768> buffer;
    for (;;) {
        const char* const end = buffer.data() + read(inotify.get(), buffer.data(), buffer.size());
        for (const char* at = buffer.data(); at < end;) {
            const auto* const event = reinterpret_cast<const inotify_event*>(at);
            const auto relay = static_cast<std::size_t>(event->wd);
            g_dbus_connection_emit_signal(
                bus, nullptr, notifier.objectPath, notifier.interface, "OnValueChange",
                g_variant_new("(ii)", event->wd, readFileValue(notifier.files.at(relay))), nullptr);
            at += sizeof *event + event->len;
        }
    }
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 6) {
        g_printerr("usage: bare-notifier NAME OBJECT_PATH INTERFACE BOARD COUNT\n");
        return 2;
    }
    Notifier notifier{argv[2], argv[3], {""}};
    for (int relay = 1; relay <= std::atoi(argv[5]); ++relay) {
        notifier.files.push_back(std::string(argv[4]) + "/relays/" + std::to_string(relay) +
                                 "/value");
    }
    g_bus_own_name(
        G_BUS_TYPE_SYSTEM, argv[1], G_BUS_NAME_OWNER_FLAGS_NONE,
        [](GDBusConnection* bus, const gchar* /*name*/, gpointer user) {
            std::thread(notifyForEver, std::cref(*static_cast<Notifier*>(user)), bus).detach();
        },
        nullptr, nullptr, &notifier, nullptr);
    const MainLoopOwner loop(g_main_loop_new(nullptr, FALSE));
    g_main_loop_run(loop.get());
}
