// SPDX-License-Identifier: MIT
#pragma once

#include <functional>
#include <string>

#include "RegisterType.h"
#include "tesk/ObjectBase.h"

/// One cell of the register map: an integer with an address, a type and an upper bound.
///
/// The base class keeps its value in memory, which is all that a "virtual" register does. Registers
/// on hardware derive from it. It takes no lock: reads and writes belong to one thread.
class Register : public tesk::ObjectBase {
 public:
    /// @param registerAddress the address, unique within a map
    /// @param registerType the type
    /// @param registerIndex the position within the field, counted from 1
    /// @param size the width in bits, which sets the largest value: 0 allows only 0, 32 and more
    ///        allow every value. The width is taken modulo 256.
    /// @param changeCallback called with this register after every accepted write, on the writing
    ///        thread; may be empty
    Register(int registerAddress, RegisterType registerType, int registerIndex, unsigned int size,
             const std::function<void(Register*)>& changeCallback);
    ~Register() override;

    int getAddress() const { return address; }
    RegisterType getType() const { return type; }
    int getIndex() const { return index; }
    /// The largest value that may be written.
    unsigned int getMaxValue() const { return maxValue; }

    /// Whether a value is **within** the limit, in spite of the name: true when `candidate` is at
    /// most the largest value, both taken as unsigned.
    bool isValueAboveLimits(int candidate) const;

    /// The current value: for a virtual register the one last written, 0 before that.
    virtual int readValue();

    /// Stores a value and calls the change callback, also when the value is the old one. An
    /// exception of the callback passes out; the value is stored by then.
    ///
    /// @throws tesk::InvalidArgumentsException "value %?u is higher than max value %?u"; nothing is
    ///         changed
    virtual void writeValue(int newValue);

    /// "address 12, type 'relay', index '3', max value '1'"
    std::string toString() const;

 protected:
    /// Writes the line that registers log for a read.
    void logRead(int readResult) const;

 private:
    int address;
    RegisterType type;
    int index;
    unsigned int maxValue;
    int value{0};
    std::function<void(Register*)> onChange;
};
