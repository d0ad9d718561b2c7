// SPDX-License-Identifier: MIT
//
// A program of somebody else's, built against the installed library alone. It meets an exception
// that the library throws and must know it by its exact type.
#include <VaduDriver.h>
#include <tesk/Exceptions.h>

#include <iostream>
#include <typeinfo>

int main() {
    try {
        VaduDriver().readTempSensorAddress(1);
    } catch (const tesk::InputOutputException& e) {
        std::cout << (typeid(e) == typeid(tesk::InputOutputException) ? "exact: " : "derived: ")
                  << e.what() << '\n';
    }
}
