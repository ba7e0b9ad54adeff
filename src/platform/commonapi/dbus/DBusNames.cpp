#include "commonapi/dbus/DBusNames.h"

#include <cctype>

namespace CommonAPI::dbus {
namespace {

// Keeps letters, digits, "_" and the separators; anything else becomes "_", and an element
// that would start with a digit gets a leading "_".
std::string sanitized(std::string const& text, char separator, bool allowDash) {
    std::string result;
    bool elementStart = true;
    for (char const c : text) {
        if (c == separator) {
            result += c;
            elementStart = true;
            continue;
        }
        bool const allowed = std::isalnum(static_cast<unsigned char>(c)) != 0 || c == '_' || (allowDash && c == '-');
        if (elementStart && std::isdigit(static_cast<unsigned char>(c)) != 0) {
            result += '_';
        }
        result += allowed ? c : '_';
        elementStart = false;
    }
    return result;
}

std::string replaced(std::string text, char from, char to) {
    for (char& c : text) {
        if (c == from) {
            c = to;
        }
    }
    return text;
}

}  // namespace

DBusNames DBusNames::of(Address const& address) {
    DBusNames names;
    names.busName = sanitized(address.getDomain() + "." + address.getInstance(), '.', true);
    names.objectPath = "/" + sanitized(replaced(address.getInstance(), '.', '/'), '/', false);
    names.interfaceName = sanitized(replaced(address.getInterface(), ':', '.'), '.', false);
    return names;
}

std::string DBusNames::errorName(CallStatus status) {
    return ERROR_PREFIX + toString(status);
}

CallStatus DBusNames::statusOfError(std::string const& errorName) {
    std::string const prefix = ERROR_PREFIX;
    CallStatus status = CallStatus::REMOTE_ERROR;
    if (errorName.rfind(prefix, 0) == 0 && callStatusFromString(errorName.substr(prefix.size()), status) &&
        status != CallStatus::SUCCESS) {
        return status;
    }
    if (errorName == "org.freedesktop.DBus.Error.ServiceUnknown" ||
        errorName == "org.freedesktop.DBus.Error.NameHasNoOwner") {
        return CallStatus::NOT_AVAILABLE;
    }
    if (errorName == "org.freedesktop.DBus.Error.Disconnected" || errorName == "org.freedesktop.DBus.Error.NoServer") {
        return CallStatus::CONNECTION_FAILED;
    }
    return CallStatus::REMOTE_ERROR;
}

}  // namespace CommonAPI::dbus
