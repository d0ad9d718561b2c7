// SPDX-License-Identifier: MIT
//
// Calls methods of the service with any arguments. Each round is a sequence of calls. Some go right
// into the dispatcher, and some over a connection, where the arguments may have any type. Virtual
// registers must keep what was written, and every call must be answered as the interface says.

#include <Poco/Logger.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "BusContract.h"
#include "DriverManager.h"
#include "FuzzInput.h"
#include "MemoryFile.h"
#include "PeerConnection.h"
#include "RegisterMap.h"
#include "RegisterRequests.h"
#include "VaduDriver.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace {

constexpr int MOST_CALLS = 16;

constexpr const char* MAP = R"({"io_mapping": [
    {"address": 1, "size": 32, "count": 8},
    {"address": 100, "size": 8, "count": 4},
    {"address": 200, "size": 32, "count": 2, "type": "reserved"}]})";

/// A method, and the types of its arguments and of its reply.
struct Method {
    const char* name;
    const char* arguments;
    const char* reply;
};
constexpr std::array<Method, 6> METHODS{{
    {"Read", "(i)", "(i)"},
    {"Write", "(ii)", "()"},
    {"ReadList", "(v)", "(v)"},
    {"GetParams", "(i)", "(iii)"},
    {"GetAddrsPerType", "(i)", "(v)"},
    {"Reset", "()", nullptr},
}};

/// What a call has come to: one of the two.
struct Answer {
    VariantOwner reply;
    ErrorOwner error;
};

/// What the registers must hold. The reserved ones hold nothing and read as 0.
class Model {
 public:
    void check(const Method& method, GVariant* arguments, const Answer& answer) {
        if (answer.error) {
            requireError(method, arguments);
            return;
        }
        if (method.reply == nullptr ||
            g_variant_is_of_type(answer.reply.get(), G_VARIANT_TYPE(method.reply)) == FALSE) {
            fail(std::string(method.name) + " has a reply of another type");
        }
        const std::string name = method.name;
        if (name == "Write") {
            write(arguments);
        } else if (name == "Read") {
            requireValue(child(arguments, 0), child(answer.reply.get(), 0));
        } else if (name == "ReadList") {
            requireValues(unboxed(arguments), unboxed(answer.reply.get()));
        } else if (name == "GetParams") {
            requireParams(child(arguments, 0), answer.reply.get());
        }
    }

    /// Takes all registers for 0 again.
    ///
    /// @return the addresses of those that may hold something else
    std::vector<int> forget() {
        std::vector<int> addresses;
        for (const auto& [address, value] : values) {
            if (value != 0) {
                addresses.push_back(address);
            }
        }
        values.clear();
        return addresses;
    }

 private:
    static bool isVirtual(int address) {
        return (address >= 1 && address <= 8) || (address >= 100 && address <= 103);
    }
    static bool isReserved(int address) { return address == 200 || address == 201; }
    static std::uint32_t maximum(int address) {
        return address >= 100 && address <= 103 ? 255U : 4294967295U;
    }

    static gint32 child(GVariant* tuple, gsize index) {
        gint32 number = 0;
        g_variant_get_child(tuple, index, "i", &number);
        return number;
    }

    /// The numbers of a list in a variant, or one address that nobody has if it is no such list.
    static std::vector<gint32> unboxed(GVariant* tuple) {
        const VariantOwner boxed(g_variant_get_child_value(tuple, 0));
        const VariantOwner list(g_variant_get_variant(boxed.get()));
        std::vector<gint32> numbers;
        if (g_variant_is_of_type(list.get(), G_VARIANT_TYPE("ai")) == FALSE) {
            return {0};
        }
        for (gsize i = 0; i < g_variant_n_children(list.get()); ++i) {
            numbers.push_back(child(list.get(), i));
        }
        return numbers;
    }

    void write(GVariant* arguments) {
        const gint32 address = child(arguments, 0);
        const gint32 value = child(arguments, 1);
        if (!isVirtual(address) || static_cast<std::uint32_t>(value) > maximum(address)) {
            fail("a write that must fail has succeeded: " + std::to_string(address));
        }
        values[address] = value;
    }

    void requireValue(int address, int value) {
        if (!isVirtual(address) && !isReserved(address)) {
            fail("there is no register " + std::to_string(address));
        }
        if (value != values[address]) {
            fail("register " + std::to_string(address) + " holds " +
                 std::to_string(values[address]) + ", not " + std::to_string(value));
        }
    }

    void requireValues(const std::vector<gint32>& addresses, const std::vector<gint32>& read) {
        if (addresses.size() != read.size()) {
            fail("there are more or fewer values than addresses");
        }
        for (std::size_t i = 0; i < addresses.size(); ++i) {
            requireValue(addresses[i], read[i]);
        }
    }

    static void requireParams(int address, GVariant* reply) {
        const int index = address < 100 ? address : address % 100 + 1;
        const int type =
            static_cast<int>(isReserved(address) ? RegisterType::RESERVED : RegisterType::VIRTUAL);
        if (child(reply, 0) != type || child(reply, 1) != index ||
            static_cast<std::uint32_t>(child(reply, 2)) != maximum(address)) {
            fail("register " + std::to_string(address) + " has other properties");
        }
    }

    /// A call whose arguments are right may not fail.
    static void requireError(const Method& method, GVariant* arguments) {
        if (method.reply == nullptr ||
            g_variant_is_of_type(arguments, G_VARIANT_TYPE(method.arguments)) == FALSE) {
            return;
        }
        const std::string name = method.name;
        bool isGood = name == "GetAddrsPerType";
        if (name == "Read" || name == "GetParams") {
            const int address = child(arguments, 0);
            isGood = isVirtual(address) || isReserved(address);
        } else if (name == "Write") {
            const gint32 address = child(arguments, 0);
            isGood = isVirtual(address) &&
                     static_cast<std::uint32_t>(child(arguments, 1)) <= maximum(address);
        } else if (name == "ReadList") {
            isGood = true;
            for (const gint32 address : unboxed(arguments)) {
                isGood = isGood && (isVirtual(address) || isReserved(address));
            }
        }
        if (isGood) {
            fail(name + " has failed without a reason");
        }
    }

    std::map<int, int> values;
};

/// What all rounds share.
class Service {
 public:
    Service() {
        Poco::Logger::root().setLevel(Poco::Message::PRIO_TRACE);
        g_log_set_always_fatal(
            static_cast<GLogLevelFlags>(G_LOG_LEVEL_CRITICAL | G_LOG_FATAL_MASK));
        drivers.addDriver(std::make_shared<VaduDriver>());
        const std::string text(MAP);
        file.replace(reinterpret_cast<const std::uint8_t*>(text.data()), text.size());
        map = std::make_unique<RegisterMap>(peer.service(), file.path(), drivers);
        map->parse();
    }

    void round(FuzzInput input) {
        for (const int address : model.forget()) {
            map->getRegisterByAddress(address)->writeValue(0);
        }
        for (int i = 0; i < MOST_CALLS && !input.isEmpty(); ++i) {
            const std::uint8_t choice = input.byte();
            const Method& method = METHODS.at(choice % METHODS.size());
            const bool overBus = (choice & 0x80) != 0;
            const VariantOwner arguments = overBus ? input.tuple() : fitting(method, input);
            model.check(method, arguments.get(),
                        overBus ? send(method.name, arguments.get())
                                : dispatch(method.name, arguments.get()));
        }
    }

 private:
    /// Arguments of the types that GDBus lets through.
    static VariantOwner fitting(const Method& method, FuzzInput& input) {
        const std::string type = method.arguments;
        GVariant* arguments = nullptr;
        if (type == "(i)") {
            arguments = g_variant_new("(i)", input.number());
        } else if (type == "(ii)") {
            const gint32 first = input.number();
            arguments = g_variant_new("(ii)", first, input.number());
        } else if (type == "(v)") {
            const VariantOwner any = input.tuple();
            const VariantOwner first(g_variant_n_children(any.get()) > 0
                                         ? g_variant_get_child_value(any.get(), 0)
                                         : g_variant_ref(any.get()));
            arguments = g_variant_new("(v)", first.get());
        } else {
            arguments = g_variant_new_tuple(nullptr, 0);
        }
        return VariantOwner(g_variant_ref_sink(arguments));
    }

    Answer dispatch(const char* method, GVariant* arguments) {
        GVariant* reply = nullptr;
        GError* error = nullptr;
        RegisterRequests::carryOut(*map, Poco::Logger::get("fuzz"), method, arguments, &reply,
                                   &error);
        if (reply != nullptr && error != nullptr) {
            fail("there are a reply and an error");
        }
        if (reply == nullptr && error == nullptr) {
            reply = g_variant_new_tuple(nullptr, 0);
        }
        return {VariantOwner(reply != nullptr ? g_variant_ref_sink(reply) : nullptr),
                ErrorOwner(error)};
    }

    Answer send(const char* method, GVariant* arguments) {
        struct Wait {
            Answer answer;
            bool done;
        } wait{{}, false};
        g_dbus_connection_call(
            peer.client(), nullptr, BusContract::OBJECT_PATH, BusContract::INTERFACE_NAME, method,
            arguments, nullptr, G_DBUS_CALL_FLAGS_NONE, G_MAXINT, nullptr,
            [](GObject* connection, GAsyncResult* outcome, gpointer target) {
                auto& result = *static_cast<Wait*>(target);
                GError* error = nullptr;
                result.answer.reply.reset(
                    g_dbus_connection_call_finish(G_DBUS_CONNECTION(connection), outcome, &error));
                result.answer.error.reset(error);
                result.done = true;
            },
            &wait);
        while (!wait.done) {
            g_main_context_iteration(nullptr, TRUE);
        }
        return std::move(wait.answer);
    }

    MemoryFile file;
    DriverManager drivers;
    PeerConnection peer;
    std::unique_ptr<RegisterMap> map;
    Model model;
};

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static Service service;
    service.round({data, size});
    return 0;
}
