// SPDX-License-Identifier: MIT
/// @file
#pragma once

#include <cstddef>

/// What the service and its clients agree on: names on the D-Bus system bus, and the interface.
///
/// The constants need no initialisation, so that constructors of global objects may use them. Each
/// ends with a zero byte, as functions of C expect.
namespace BusContract {

/// The well-known name of the service.
inline constexpr const char* SERVICE_NAME = "org.mirel.IoMapping";

/// The path of the one object that the service exports.
inline constexpr const char* OBJECT_PATH = "/org/mirel/register";

/// The name of the object's one interface, as INTROSPECTION_XML states it.
inline constexpr const char* INTERFACE_NAME = "org.mirel.Register";

/// The name of the signal that announces the new value of a register.
inline constexpr const char* CHANGE_SIGNAL = "OnValueChange";

/// How many addresses one ReadList may name. The lists of one client that wait for their turn may
/// have as many together.
inline constexpr std::size_t MOST_ADDRESSES = 65'536;

/// The description of the interface: its methods, its signal, and their arguments.
inline constexpr const char* INTROSPECTION_XML = R"(<node>
  <interface name='org.mirel.Register'>
    <method name='GetAddrsPerType'>
      <arg type='i' name='type' direction='in'/>
      <arg type='v' name='indexes' direction='out'/>
    </method>
    <method name='Write'>
      <arg type='i' name='address' direction='in'/>
      <arg type='i' name='value' direction='in'/>
    </method>
    <method name='Read'>
      <arg type='i' name='address' direction='in'/>
      <arg type='i' name='value' direction='out'/>
    </method>
    <method name='ReadList'>
      <arg type='v' name='addresses' direction='in'/>
      <arg type='v' name='values' direction='out'/>
    </method>
    <method name='GetParams'>
      <arg type='i' name='address' direction='in'/>
      <arg type='i' name='type' direction='out'/>
      <arg type='i' name='index' direction='out'/>
      <arg type='i' name='maxValue' direction='out'/>
    </method>
    <signal name='OnValueChange'>
      <arg type='i' name='address'/>
      <arg type='i' name='value'/>
    </signal>
  </interface>
</node>
)";

}  // namespace BusContract
