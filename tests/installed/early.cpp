// SPDX-License-Identifier: MIT
//
// A program of somebody else's whose global objects use the library before main(). What they need
// must be there by then, also when the library is part of the program.
#include <IoMapping.h>
#include <KR62Driver.h>
#include <PD5Driver.h>
#include <RegisterType.h>
#include <Server.h>
#include <VaduDriver.h>

#include <iostream>
#include <string>

namespace {

const std::string SERVICE = Server::DBUS_SERVICE_NAME;
const std::string RELAY = getTypeName(RegisterType::RELAY);
const RegisterType LAST = getAllTypes().back();
const std::string DRIVER = VaduDriver().getName();
const std::string KR62_TREE = KR62Driver::KR62_BASE_PATH;
const std::string LAST_COLOR = KR62Driver::LED_COLORS.back();
const std::string PD5_TREES = PD5Driver::PD5_BASE_PATH;
IoMapping io;

}  // namespace

int main() {
    std::cout << SERVICE << ' ' << RELAY << ' ' << getTypeName(LAST) << ' ' << DRIVER << '\n'
              << KR62_TREE << ' ' << LAST_COLOR << ' ' << PD5_TREES << '\n';
    try {
        io.readValue(1);
    } catch (const std::exception& e) {
        std::cout << e.what() << '\n';
    }
}
