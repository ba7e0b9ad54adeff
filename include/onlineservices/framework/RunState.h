// The run state of an online service client, as run-state listeners receive it.
//
// Contract: the numbers are part of the client's interface and never change. A client starts in
// INVALID, normally walks INVALID -> CREATED -> STARTED -> RESUMED (fully running), goes to
// PAUSED when paused, on to STOPPED while the backend disables a service, to DISCONNECTED while
// the vehicle's connectivity unit is unavailable, and ends in DESTROYED after `stop`, which it
// never leaves.
#pragma once

#include <cstdint>

namespace qel::onlineservices::framework::core {

enum class RunState : std::uint32_t {
    INVALID = 0,
    CREATED = 1,
    STARTED = 2,
    RESUMED = 3,
    PAUSED = 4,
    STOPPED = 5,
    DESTROYED = 6,
    DISCONNECTED = 7,
};

}  // namespace qel::onlineservices::framework::core
