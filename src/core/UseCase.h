// What the client is currently asked to do; selects the run state it walks towards.
//
// Contract: the numbers are fixed. Derived from the client's request flags, first match wins:
// stop -> SHUTDOWN, disconnected -> DISCONNECT, disable reason -> DISABLEREASON, paused -> PAUSE,
// otherwise RUNNING.
#pragma once

#include <cstdint>

namespace qel::onlineservices::framework::core {

enum class UseCase : std::uint32_t {
    RUNNING = 0,        // goal RESUMED
    PAUSE = 1,          // goal PAUSED
    DISABLEREASON = 2,  // goal STOPPED
    DISCONNECT = 3,     // goal DISCONNECTED
    SHUTDOWN = 4,       // goal DESTROYED
};

}  // namespace qel::onlineservices::framework::core
