// SPDX-License-Identifier: MIT
#pragma once

#include <Poco/JSON/Array.h>
#include <Poco/JSON/Object.h>

#include <array>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "DBusObject.h"
#include "DriverManager.h"
#include "Register.h"

/// All registers of the device, sorted by address, and their face on D-Bus.
///
/// Filled once by parse(), on the thread that serves D-Bus, and only read afterwards.
/// createNotification() may be called from any thread.
class RegisterMap : public DBusObject {
 public:
    /// The path of the object on the bus, "/org/mirel/register".
    static const std::string DBUS_OBJECT_NAME;
    /// The description of the interface "org.mirel.Register".
    static const std::string DBUS_INTROSPECTION_XML;

    /// Puts an empty map on the bus; the file is not read yet.
    ///
    /// @param connection borrowed; must outlive the map
    /// @param mapFilePath the JSON map file
    /// @param manager the drivers that the fields name; must outlive the map
    /// @throws tesk::InputOutputException see DBusObject
    RegisterMap(GDBusConnection* connection, const std::string& mapFilePath,
                DriverManager& manager);
    ~RegisterMap() override;

    /// Reads the map file and creates its registers. The first bad field ends the load; what was
    /// created before stays. Whatever fails, a line at notice says in which file and field.
    ///
    /// @throws tesk::ParseException "map file not found"; "error parsing file '%s'" when the root
    ///         is no object; "io mapping not found" without the key "io_mapping"; "error parsing
    ///         field" when a field is refused, after an error line with the reason; or the JSON
    ///         parser's words
    /// @throws tesk::NotFoundException "IO type '%s' not found"
    /// @throws std::exception what a register's constructor throws, or Poco for a JSON value of the
    ///         wrong type
    void parse();

    /// Creates the registers of one field.
    ///
    /// @return false when the field is refused, after an error line with the reason
    /// @throws std::exception see parse()
    bool parseField(const Poco::JSON::Object::Ptr& field);

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

    /// Broadcasts what a register reads at this moment. A read that fails sends nothing and logs
    /// one error line.
    ///
    /// @param reg the register; null ends the process
    void createNotification(Register* reg);

    /// Carries out GetAddrsPerType, Write, Read, ReadList or GetParams. Any other name leaves the
    /// error `G_DBUS_ERROR_UNKNOWN_METHOD` "Method %s not found"; a failure leaves
    /// `G_DBUS_ERROR_FAILED` with the failure's own text, or nothing when that text is empty.
    void onDBusObjMessage(const std::string& method, GVariant* parameters, GVariant** reply,
                          GError** error) override;

 private:
    /// What the map file says of one field.
    struct Field {
        int address;
        unsigned int size;
        int count;
        RegisterType type;
        std::shared_ptr<DriverInterface> driver;
    };

    /// One D-Bus method: its name, and what turns its arguments into the reply's tuple.
    struct Method {
        const char* name;
        GVariant* (RegisterMap::*run)(GVariant* parameters) const;
    };
    static const std::array<Method, 5> METHODS;

    using Registers = std::vector<std::shared_ptr<Register>>;

    Poco::JSON::Array::Ptr readFields() const;
    void parseElement(const Poco::Dynamic::Var& element);
    std::optional<Field> readField(const Poco::JSON::Object::Ptr& field) const;
    std::shared_ptr<Register> createRegister(const Field& field, int address, int index);
    Registers::const_iterator lowerBound(int address) const;

    GVariant* getAddrsPerType(GVariant* parameters) const;
    GVariant* write(GVariant* parameters) const;
    GVariant* read(GVariant* parameters) const;
    GVariant* readList(GVariant* parameters) const;
    GVariant* getParams(GVariant* parameters) const;

    DriverManager& driverManager;
    std::string mapFile;
    Registers registers;
};
