// SPDX-License-Identifier: MIT
//
// mainloop RELAY INPUT: has a GLib main loop of its own. A timer switches a relay on and off.
// Meanwhile the program prints every change of an input, and whether the service is there. SIGINT
// and SIGTERM end it. Build with: g++ mainloop.cpp -o mainloop $(pkg-config --cflags --libs
// iomapping glib-2.0)
#include <IoMapping.h>
#include <glib-unix.h>
#include <glib.h>

#include <csignal>
#include <iostream>
#include <string>

struct Application {
    IoMapping io;
    GMainLoop* loop = g_main_loop_new(nullptr, FALSE);
    int relay = 0;
    int input = 0;
    int state = 0;

    void print(int value) const { std::cout << "input " << input << ": " << value << std::endl; }

    // Reads anew what may have changed while nobody told.
    void refresh() {
        try {
            print(io.readValue(input));
        } catch (const ServiceError& e) {
            std::cerr << "mainloop: " << e.what() << '\n';
        }
    }
};

gboolean blink(gpointer data) {
    auto* const app = static_cast<Application*>(data);
    try {
        app->io.writeValue(app->relay, app->state = 1 - app->state);
    } catch (const ServiceError& e) {
        std::cerr << "mainloop: " << e.what() << '\n';
    }
    return G_SOURCE_CONTINUE;
}

gboolean quit(gpointer data) {
    g_main_loop_quit(static_cast<Application*>(data)->loop);
    return G_SOURCE_CONTINUE;
}

int main(int argc, char** argv) try {
    const std::vector<std::string> args(argv + 1, argv + argc);
    Application app;
    app.relay = std::stoi(args.at(0));
    app.input = std::stoi(args.at(1));
    app.io.enableNotifications(app.input, [&app](int, int value) { app.print(value); });
    app.io.watchService([&app](bool present) {
        std::cout << "service: " << (present ? "there" : "away") << std::endl;
        if (present) {
            app.refresh();
        }
    });
    if (app.io.isAlive()) {
        app.refresh();
    }
    g_timeout_add(500, blink, &app);
    g_unix_signal_add(SIGINT, quit, &app);
    g_unix_signal_add(SIGTERM, quit, &app);
    g_main_loop_run(app.loop);  // calls the functions above
    g_main_loop_unref(app.loop);
} catch (const std::logic_error&) {
    std::cerr << "usage: mainloop RELAY INPUT\n";
    return 2;
} catch (const std::exception& e) {
    std::cerr << "mainloop: " << e.what() << '\n';
    return 1;
}
