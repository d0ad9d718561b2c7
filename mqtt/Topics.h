// SPDX-License-Identifier: MIT
#pragma once

#include <string>

/// The topics of a device.
struct Topics {
    /// @param prefix of all devices, such as "iomap"
    /// @param device the id of the device
    Topics(const std::string& prefix, const std::string& device)
        : root(prefix + "/" + device + "/"),
          status(root + "status"),
          info(root + "info"),
          data(root + "data"),
          replay(root + "replay"),
          snapshot(root + "snapshot"),
          ack(root + "ack"),
          values(root + "r/"),
          get(root + "get"),
          set(root + "set/") {}

    std::string root;      ///< What all topics of the device begin with.
    std::string status;    ///< "online" or "offline".
    std::string info;      ///< What the device is.
    std::string data;      ///< Changes.
    std::string replay;    ///< Changes of the time without a broker.
    std::string snapshot;  ///< Answers to `get`.
    std::string ack;       ///< Answers to `set`, and to requests that cannot be carried out.
    std::string values;    ///< Followed by address or name: the value of a register.
    std::string get;       ///< Requests of values.
    std::string set;       ///< Followed by address or name: requests to write a register.
};
