// SPDX-License-Identifier: MIT
//
// blink RELAY INPUT [COUNT [SECONDS]]: switches a relay on and off COUNT times. Meanwhile it prints
// every change of an input. RELAY and INPUT are register addresses.
// Build with: g++ blink.cpp -o blink $(pkg-config --cflags --libs iomapping)
#include <IoMapping.h>

#include <future>
#include <iostream>
#include <thread>

void print(int address, int value) {
    std::cout << "input " << address << ": " << value << std::endl;
}

int main(int argc, char** argv) try {
    const std::vector<std::string> args(argv + 1, argv + argc);
    const int relay = std::stoi(args.at(0));
    const int input = std::stoi(args.at(1));
    const int count = args.size() > 2 ? std::stoi(args[2]) : 10;
    const std::chrono::duration<double> interval(args.size() > 3 ? std::stod(args[3]) : 0.5);

    IoMapping io;
    io.enableNotifications(input, print);  // before the first read: no change is lost in between
    print(input, io.readValue(input));
    std::packaged_task<void()> blink([&] {
        for (int i = 1; i <= count; ++i) {
            io.writeValue(relay, i % 2);
            std::this_thread::sleep_for(interval);
        }
    });
    std::future<void> blinked = blink.get_future();
    std::thread thread([&] {
        blink();
        io.wakeup();
    });
    while (blinked.wait_for(std::chrono::seconds(0)) != std::future_status::ready) {
        io.run(true);  // calls print() for each change
    }
    thread.join();
    blinked.get();  // throws again what writeValue() has thrown
} catch (const std::logic_error&) {
    std::cerr << "usage: blink RELAY INPUT [COUNT [SECONDS]]\n";
    return 2;
} catch (const std::exception& e) {
    std::cerr << "blink: " << e.what() << '\n';
    return 1;
}
