// SPDX-License-Identifier: MIT
#pragma once

#include <Poco/SharedPtr.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "BoardWatch.h"
#include "DBusObject.h"
#include "DriverManager.h"
#include "Register.h"

class FileRegister;
namespace Poco::JSON {
class Object;
}
namespace MapFile {
struct Field;
}

/// All registers of the device, sorted by address, as one object on D-Bus.
///
/// Several registers may be on one value file. A change of the file announces all of them, in the
/// order of the map file.
///
/// parse() fills the map once, on the thread that serves D-Bus. Afterwards the map is only read.
/// createNotification() may be called from any thread.
class RegisterMap : public DBusObject {
 public:
    using Registers = std::vector<std::shared_ptr<Register>>;

    /// The path of the object on the bus, "/org/mirel/register".
    static const std::string DBUS_OBJECT_NAME;
    /// The description of the interface "org.mirel.Register".
    static const std::string DBUS_INTROSPECTION_XML;

    /// Puts an empty map on the bus. The file is not read yet.
    ///
    /// @param connection borrowed; must outlive the map
    /// @param mapFilePath the JSON map file
    /// @param manager the drivers that the fields name; must outlive the map
    /// @throws tesk::InputOutputException see DBusObject
    RegisterMap(GDBusConnection* connection, const std::string& mapFilePath,
                DriverManager& manager);
    ~RegisterMap() override;

    /// Reads the map file and creates its registers. The first bad field ends the load; the
    /// registers created before it stay. Every failure logs one line at notice, which names the
    /// file and the field.
    ///
    /// @throws tesk::ParseException see MapFile::readFields(); "error parsing field" when a field
    ///         is refused, after an error line with the reason
    /// @throws tesk::NotFoundException "IO type '%s' not found"
    /// @throws std::bad_alloc there is not enough memory for the registers
    /// @throws std::exception what a register's constructor throws, or Poco for a JSON value of the
    ///         wrong type
    void parse();

    /// Creates the registers of one field.
    ///
    /// @param field a Poco::JSON::Object::Ptr
    /// @return false when the field is refused, after an error line with the reason
    /// @throws std::exception see parse()
    bool parseField(const Poco::SharedPtr<Poco::JSON::Object>& field);

    /// Inserts a register so that the addresses stay in ascending order.
    void addRegisterAndSorter(const std::shared_ptr<Register>& reg);

    /// Whether a field may start at an address: 1 to 1300 and 60001 to 60101.
    bool addressIsValid(int address) const;

    /// Whether there is a register at an address.
    bool addressExists(int address) const;

    /// The register at an address.
    ///
    /// @throws tesk::NotFoundException "address '%d' not found"
    std::shared_ptr<Register> getRegisterByAddress(int address) const;

    /// The registers in ascending order of their addresses.
    const Registers& allRegisters() const { return registers; }

    /// The place of the register at an address in allRegisters().
    ///
    /// @throws tesk::NotFoundException "address '%d' not found"
    Registers::const_iterator placeOf(int address) const;

    /// Broadcasts the value that a register reads at this moment. A read that fails sends nothing
    /// and logs one line at error.
    ///
    /// @param reg the register; null ends the process
    void createNotification(Register* reg);

    /// Carries out a request; see RegisterRequests::carryOut().
    void onDBusObjMessage(const std::string& method, GVariant* parameters, GVariant** reply,
                          GError** error) override;

 private:
    /// Consecutive registers on IOs 1 to `count` of a driver.
    struct IoField {
        DriverInterface* driver;
        RegisterType type;
        int address;
        int count;
    };

    std::shared_ptr<Register> createRegister(const MapFile::Field& field, int address, int index);
    FileRegister* latestOnIo(const MapFile::Field& field, int index) const;
    void announceFile(FileRegister& reg);
    void configureFiles(DriverInterface& driver, const std::string& path);
    Registers::const_iterator find(int address) const;
    Registers::const_iterator lowerBound(int address) const;

    DriverManager& driverManager;
    std::string mapFile;
    Registers registers;
    /// The fields loaded so far, in the order of the map file.
    std::vector<IoField> ioFields;
    BoardWatch boards;
};
