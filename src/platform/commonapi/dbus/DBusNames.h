// How a CommonAPI address appears on D-Bus, and how call statuses travel as D-Bus errors.
//
//   domain "kalm", interface "qel.networking.api.networking:v1_0", instance "qel.networking.api"
//   bus name        kalm.qel.networking.api          (domain "." instance)
//   object path     /qel/networking/api              ("/" + instance, "." -> "/")
//   interface name  qel.networking.api.networking.v1_0  (":" -> ".")
// Characters D-Bus does not allow become "_". A service that fails a call with a call status
// answers the D-Bus error "qel.CommonAPI.Error.<STATUS>"; any other error (and a time-out) is
// REMOTE_ERROR to the caller, a missing service NOT_AVAILABLE.
#pragma once

#include "commonapi/Proxy.h"
#include "commonapi/Types.h"

#include <string>

namespace CommonAPI::dbus {

struct DBusNames {
    static constexpr char const* ERROR_PREFIX = "qel.CommonAPI.Error.";

    static DBusNames of(Address const& address);
    static std::string errorName(CallStatus status);
    static CallStatus statusOfError(std::string const& errorName);

    std::string busName;
    std::string objectPath;
    std::string interfaceName;
};

}  // namespace CommonAPI::dbus
