// SPDX-License-Identifier: MIT
#include "RegisterMap.h"

#include <Poco/File.h>
#include <algorithm>
#include <cassert>
#include <cstddef>
#include <cstdint>
#include <iterator>
#include <utility>

#include "BusContract.h"
#include "FileRegister.h"
#include "GpioRegister.h"
#include "MapFile.h"
#include "RegisterRequests.h"
#include "ReservedRegister.h"
#include "support/ExceptionText.h"
#include "support/Log.h"
#include "support/PathBelow.h"
#include "support/StartOrder.h"
#include "tesk/Exceptions.h"

namespace {

constexpr Pattern<std::string> PARSING_FILE("parsing file '%s'");
constexpr Pattern<std::string, std::string> FILE_UNREADABLE("map file '%s' cannot be read: %s");
constexpr Pattern<std::string> FAILED_IN_FILE("the fault is in map file '%s'");
constexpr Pattern<std::string, unsigned, std::string> FAILED_IN_FIELD(
    "the fault is in map file '%s', field io_mapping[%u], address %s");
constexpr Pattern<int> ADDRESS_DUPLICATED("address %d is duplicated");
constexpr Pattern<int> ADDRESS_NOT_FOUND("address '%d' not found");
constexpr Pattern<std::string> NEW_REGISTER("new register: %s");
constexpr Pattern<std::string, std::string> FELL_BACK("%s: virtual, switching nothing: %s");

constexpr Pattern<std::string> NOTIFICATION_READ_FAILED("error reading value for notification: %s");
constexpr Pattern<std::string> NOTIFICATION_SEND_FAILED("error sending notification: %s");
constexpr Pattern<int, int> NOTIFICATION_SENT("notification sent with value %d for address %d");

/// The addresses of a field with registers, "address 4" or "addresses 4-11".
std::string addressesOf(const MapFile::Field& field) {
    const std::string first = std::to_string(field.address);
    return field.count == 1 ? "address " + first
                            : "addresses " + first + "-" +
                                  std::to_string(std::int64_t{field.address} + field.count - 1);
}

}  // namespace

const std::string RegisterMap::DBUS_OBJECT_NAME [[gnu::init_priority(StartOrder::CONSTANTS)]] =
    BusContract::OBJECT_PATH;

const std::string RegisterMap::DBUS_INTROSPECTION_XML
    [[gnu::init_priority(StartOrder::CONSTANTS)]] = BusContract::INTROSPECTION_XML;

RegisterMap::RegisterMap(GDBusConnection* connection, const std::string& mapFilePath,
                         DriverManager& manager)
    : DBusObject("register-map", connection, BusContract::INTROSPECTION_XML,
                 BusContract::OBJECT_PATH),
      driverManager(manager),
      mapFile(mapFilePath),
      boards([this](DriverInterface& driver, const std::string& path) {
          configureFiles(driver, path);
      }) {}

RegisterMap::~RegisterMap() = default;

void RegisterMap::parse() {
    log(logger, Poco::Message::PRIO_INFORMATION, PARSING_FILE, mapFile);
    unsigned int index = 0;
    Poco::JSON::Array::Ptr fields;
    try {
        fields = MapFile::readFields(mapFile);
        for (; index < fields->size(); ++index) {
            if (!parseField(fields->get(index).extract<Poco::JSON::Object::Ptr>())) {
                throw tesk::ParseException("error parsing field");
            }
        }
    } catch (const std::exception&) {
        if (!fields.isNull()) {
            log(logger, Poco::Message::PRIO_NOTICE, FAILED_IN_FIELD, mapFile, index,
                MapFile::addressText(fields->get(index)));
        } else {
            const std::string fault = MapFile::readingFault(mapFile);
            if (!fault.empty() && Poco::File(mapFile).exists()) {
                log(logger, Poco::Message::PRIO_ERROR, FILE_UNREADABLE, mapFile, fault);
            }
            log(logger, Poco::Message::PRIO_NOTICE, FAILED_IN_FILE, mapFile);
        }
        throw;
    }
    boards.start();
}

bool RegisterMap::parseField(const Poco::SharedPtr<Poco::JSON::Object>& field) {
    const auto description = MapFile::readField(field, driverManager, logger);
    if (!description) {
        return false;
    }
    if (description->driver) {
        boards.add(*description->driver);
    }
    for (int index = 1; index <= description->count; ++index) {
        if (index == MapFile::BEYOND_ALL_FAULTS) {
            MapFile::requireMemoryFor(description->count);
        }
        const int address = description->address + (index - 1);
        if (addressExists(address)) {
            log(logger, Poco::Message::PRIO_ERROR, ADDRESS_DUPLICATED, address);
            return false;
        }
        const std::shared_ptr<Register> reg = createRegister(*description, address, index);
        addRegisterAndSorter(reg);
        if (logger.information()) {
            log(logger, Poco::Message::PRIO_INFORMATION, NEW_REGISTER, reg->toString());
        }
    }
    if (description->driver == nullptr && description->count > 0) {
        log(logger, Poco::Message::PRIO_NOTICE, FELL_BACK, addressesOf(*description),
            MapFile::whyVirtual(description->driverName));
    }
    ioFields.push_back(
        {description->driver.get(), description->type, description->address, description->count});
    return true;
}

std::shared_ptr<Register> RegisterMap::createRegister(const MapFile::Field& field, int address,
                                                      int index) {
    const auto onChange = [this](Register* reg) { createNotification(reg); };
    if (field.type == RegisterType::VIRTUAL) {
        return std::make_shared<Register>(address, field.type, index, field.size, onChange);
    }
    if (field.type == RegisterType::RESERVED) {
        return std::make_shared<ReservedRegister>(address, field.type, index, field.size);
    }
    if (field.driver->getDriverId() == DriverInterface::GPIOCHIP) {
        return std::make_shared<GpioRegister>(address, field.type, index, field.size, field.driver,
                                              onChange);
    }
    const auto onFileChange = [this](Register* reg) {
        // Only registers on files get this callback.
        announceFile(static_cast<FileRegister&>(*reg));  // NOLINT(*-static-cast-downcast)
    };
    return std::make_shared<FileRegister>(address, field.type, index, field.size, field.driver,
                                          onFileChange, latestOnIo(field, index));
}

/// @return null when there is no register on this IO yet
FileRegister* RegisterMap::latestOnIo(const MapFile::Field& field, int index) const {
    const auto known = std::find_if(ioFields.rbegin(), ioFields.rend(), [&](const IoField& f) {
        return f.driver == field.driver.get() && f.type == field.type && index <= f.count;
    });
    return known != ioFields.rend()
               ? dynamic_cast<FileRegister*>(placeOf(known->address + index - 1)->get())
               : nullptr;
}

/// The notifier keeps one callback for each file: that of the register that was made last. It
/// speaks for the registers before it, too.
void RegisterMap::announceFile(FileRegister& reg) {
    std::vector<FileRegister*> earlier;
    for (FileRegister* other = reg.earlierOnFile(); other != nullptr;
         other = other->earlierOnFile()) {
        earlier.push_back(other);
    }
    std::for_each(earlier.rbegin(), earlier.rend(),
                  [this](FileRegister* other) { createNotification(other); });
    createNotification(&reg);
}

/// Configures the registers on the value files at and below a path once more, as at the start.
void RegisterMap::configureFiles(DriverInterface& driver, const std::string& path) {
    for (const auto& [owner, type, address, count] : ioFields) {
        if (owner != &driver || type == RegisterType::VIRTUAL || type == RegisterType::RESERVED) {
            continue;
        }
        for (int index = 1; index <= count; ++index) {
            if (isAtOrBelow(driver.getIOFileName(type, index), path)) {
                auto& reg = dynamic_cast<FileRegister&>(**placeOf(address + index - 1));
                driver.configureIO(type, index, [this, &reg](int /*key*/) { announceFile(reg); });
            }
        }
    }
}

void RegisterMap::addRegisterAndSorter(const std::shared_ptr<Register>& reg) {
    registers.insert(lowerBound(reg->getAddress()), reg);
}

bool RegisterMap::addressIsValid(int address) const {
    return MapFile::addressIsValid(address);
}

bool RegisterMap::addressExists(int address) const {
    return find(address) != registers.end();
}

std::shared_ptr<Register> RegisterMap::getRegisterByAddress(int address) const {
    return *placeOf(address);
}

RegisterMap::Registers::const_iterator RegisterMap::placeOf(int address) const {
    const auto place = find(address);
    if (place == registers.end()) {
        throw tesk::NotFoundException(ADDRESS_NOT_FOUND(address));
    }
    return place;
}

/// @return the end where there is no register
RegisterMap::Registers::const_iterator RegisterMap::find(int address) const {
    const auto standsAt = [this, address](Registers::const_iterator place) {
        return place != registers.end() && (*place)->getAddress() == address;
    };
    if (registers.empty()) {
        return registers.end();
    }
    // Up to the first gap, registers stand as far from the first one as their addresses are.
    const std::int64_t distance = std::int64_t{address} - registers.front()->getAddress();
    if (distance >= 0 && distance < registers.end() - registers.begin()) {
        const auto guess = registers.begin() + static_cast<std::ptrdiff_t>(distance);
        // The first one among equals.
        if (standsAt(guess) && (distance == 0 || !standsAt(std::prev(guess)))) {
            return guess;
        }
    }
    const auto place = lowerBound(address);
    return standsAt(place) ? place : registers.end();
}

RegisterMap::Registers::const_iterator RegisterMap::lowerBound(int address) const {
    return std::lower_bound(
        registers.begin(), registers.end(), address,
        [](const std::shared_ptr<Register>& reg, int a) { return reg->getAddress() < a; });
}

void RegisterMap::onDBusObjMessage(const std::string& method, GVariant* parameters,
                                   GVariant** reply, GError** error) {
    RegisterRequests::carryOut(*this, logger, method, parameters, reply, error);
    if (*error != nullptr) {
        boards.hint();
    }
}

void RegisterMap::createNotification(Register* reg) {
    assert(reg != nullptr);
    int value = 0;
    try {
        value = reg->readValue();
    } catch (const std::exception& e) {
        log(logger, Poco::Message::PRIO_ERROR, NOTIFICATION_READ_FAILED, exceptionText(e));
        boards.hint();
        return;
    }
    GError* error = nullptr;
    GVariant* const change = g_variant_new("(ii)", reg->getAddress(), value);
    if (sendSignal(BusContract::CHANGE_SIGNAL, change, &error)) {
        log(logger, Poco::Message::PRIO_INFORMATION, NOTIFICATION_SENT, value, reg->getAddress());
    } else {
        const ErrorOwner owner(error);
        log(logger, Poco::Message::PRIO_ERROR, NOTIFICATION_SEND_FAILED, error->message);
    }
}
