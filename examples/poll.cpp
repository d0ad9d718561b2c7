// SPDX-License-Identifier: MIT
//
// poll ADDRESS...: prints every change of these registers. Meanwhile it writes what standard input
// says, a line "ADDRESS VALUE" each, and ends with the input. One thread waits for both with
// poll(). Build with: g++ poll.cpp -o poll $(pkg-config --cflags --libs iomapping)
#include <IoMapping.h>
#include <poll.h>
#include <unistd.h>

#include <array>
#include <iostream>
#include <sstream>
#include <string>
#include <vector>

// Writes the registers that the lines say, and leaves the begun line.
void writeLines(IoMapping& io, std::string& input) {
    for (auto end = input.find('\n'); end != std::string::npos; end = input.find('\n')) {
        std::istringstream line(input.substr(0, end));
        input.erase(0, end + 1);
        int address = 0;
        int value = 0;
        if (!(line >> address >> value)) {
            std::cerr << "poll: expected ADDRESS VALUE\n";
            continue;
        }
        try {
            io.writeValue(address, value);
        } catch (const ServiceError& e) {
            // The next line may do better, unless the bus has gone.
            if (e.getCause() == ServiceError::Cause::NO_BUS) {
                throw;
            }
            std::cerr << "poll: " << e.what() << '\n';
        }
    }
}

int main(int argc, char** argv) try {
    IoMapping io;
    for (int i = 1; i < argc; ++i) {
        const int watched = std::stoi(argv[i]);
        io.enableNotifications(watched, [](int address, int value) {
            std::cout << address << ": " << value << std::endl;
        });
    }
    std::string input;
    for (;;) {
        std::vector<pollfd> descriptors{{STDIN_FILENO, POLLIN, 0}};
        const int timeout = io.beginWait(descriptors);
        poll(descriptors.data(), descriptors.size(), timeout);
        const bool typed = descriptors[0].revents != 0;
        io.endWait(descriptors);  // calls the functions for changes
        if (typed) {
            std::array<char, 256> piece{};
            const ssize_t length = read(STDIN_FILENO, piece.data(), piece.size());
            if (length <= 0) {
                break;
            }
            input.append(piece.data(), static_cast<std::size_t>(length));
            writeLines(io, input);
        }
    }
} catch (const std::logic_error&) {
    std::cerr << "usage: poll ADDRESS...\n";
    return 2;
} catch (const std::exception& e) {
    std::cerr << "poll: " << e.what() << '\n';
    return 1;
}
