// The call and availability vocabulary of the CommonAPI runtime, as far as the framework uses it.
//
// Contract: the numeric values are part of the interface (the framework prints them).
#pragma once

#include <cstdint>
#include <string>

namespace CommonAPI {

enum class CallStatus : std::int32_t {
    SUCCESS = 0,
    OUT_OF_MEMORY = 1,
    NOT_AVAILABLE = 2,
    CONNECTION_FAILED = 3,
    REMOTE_ERROR = 4,
    UNKNOWN = 5,
    INVALID_VALUE = 6,
    SUBSCRIPTION_REFUSED = 7,
    SERIALIZATION_ERROR = 8,
};

enum class AvailabilityStatus : std::int32_t {
    UNKNOWN = 0,
    AVAILABLE = 1,
    NOT_AVAILABLE = 2,
};

using ConnectionId_t = std::string;
using Timeout_t = std::int32_t;  // milliseconds
using Sender_t = std::uint32_t;

constexpr Timeout_t DEFAULT_SEND_TIMEOUT_MS = 5000;

// Per-call options; a null `CallInfo*` means the defaults.
struct CallInfo {
    CallInfo() = default;
    explicit CallInfo(Timeout_t timeout, Sender_t sender = 0) : timeout_(timeout), sender_(sender) {}
    Timeout_t timeout_ = DEFAULT_SEND_TIMEOUT_MS;
    Sender_t sender_ = 0;
};

inline Timeout_t timeoutOf(CallInfo const* info) {
    return info != nullptr ? info->timeout_ : DEFAULT_SEND_TIMEOUT_MS;
}

// Text of a call status for logs and the D-Bus error names ("UNKNOWN" for values outside the table).
std::string toString(CallStatus status);
// The status whose text is `name`; false when none is.
bool callStatusFromString(std::string const& name, CallStatus& status);

}  // namespace CommonAPI
