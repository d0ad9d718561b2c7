// SPDX-License-Identifier: MIT
#pragma once

#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "DriverInterface.h"

/// A driver that keeps a record of every call and otherwise does what the test tells it.
///
/// Unless told otherwise it has no value files, leaves values as they are, takes every value and
/// has no IOs. It takes no lock: it belongs to one thread.
class FakeDriver : public DriverInterface {
 public:
    /// How many IOs of each kind it reports.
    struct Counts {
        int serialPorts{0};
        int relays{0};
        int digitalOutputs{0};
        int digitalInputs{0};
        int analogOutputs{0};
        int analogInputs{0};
    };

    explicit FakeDriver(Driver driver = KR62, int index = -1) : DriverInterface(driver, index) {}

    /// What the operations do after they are recorded; to be replaced as the test needs it.
    std::function<void(RegisterType type, int index)> onConfigure = [](RegisterType, int) {};
    std::function<std::string(RegisterType type, int index)> fileName = [](RegisterType, int) {
        return std::string();
    };
    std::function<int(RegisterType type, int value, int index)> convert =
        [](RegisterType, int value, int) { return value; };
    std::function<bool(RegisterType type, int value)> accept = [](RegisterType, int) {
        return true;
    };
    std::function<void(RegisterType type, int value, int index)> write = [](RegisterType, int,
                                                                            int) {};
    Counts counts;

    /// The calls so far, in order, with the names of the register types: "convertValue(relay, 17,
    /// 3)".
    const std::vector<std::string>& calls() const { return record; }

    /// Forgets the calls, but no notification function.
    void forgetCalls() { record.clear(); }

    /// The notification functions given to configureIO(), in order.
    const std::vector<std::function<void(int)>>& notifications() const { return callbacks; }

    void configureIO(RegisterType type, int index, std::function<void(int)> callback) override {
        note("configureIO", {getTypeName(type), std::to_string(index)});
        callbacks.push_back(std::move(callback));
        onConfigure(type, index);
    }
    std::string getIOFileName(RegisterType type, int index) const override {
        note("getIOFileName", {getTypeName(type), std::to_string(index)});
        return fileName(type, index);
    }
    int convertValue(RegisterType type, int value, int index) const override {
        note("convertValue", {getTypeName(type), std::to_string(value), std::to_string(index)});
        return convert(type, value, index);
    }
    bool isValueValid(RegisterType type, int value) const override {
        note("isValueValid", {getTypeName(type), std::to_string(value)});
        return accept(type, value);
    }
    void specificWriteValue(RegisterType type, int value, int index) override {
        note("specificWriteValue",
             {getTypeName(type), std::to_string(value), std::to_string(index)});
        write(type, value, index);
    }
    int getSerialPortsCount() const override {
        note("getSerialPortsCount");
        return counts.serialPorts;
    }
    int getRelaysCount() const override {
        note("getRelaysCount");
        return counts.relays;
    }
    int getDigitalOutputsCount() const override {
        note("getDigitalOutputsCount");
        return counts.digitalOutputs;
    }
    int getDigitalInputsCount() const override {
        note("getDigitalInputsCount");
        return counts.digitalInputs;
    }
    int getAnalogOutputsCount() const override {
        note("getAnalogOutputsCount");
        return counts.analogOutputs;
    }
    int getAnalogInputsCount() const override {
        note("getAnalogInputsCount");
        return counts.analogInputs;
    }

 private:
    void note(const std::string& operation, const std::vector<std::string>& arguments = {}) const {
        std::string list;
        for (const std::string& argument : arguments) {
            list += (list.empty() ? "" : ", ") + argument;
        }
        record.push_back(operation + "(" + list + ")");
    }

    mutable std::vector<std::string> record;
    std::vector<std::function<void(int)>> callbacks;
};
