// The answer an application gives to a backend job; the framework sends it to the backend.
//
// Contract: the numbers never change. On the wire they read "success", "invalidPayload" and
// "unknownError".
#pragma once

#include <cstdint>

namespace qel::onlineservices::framework::core {

enum class BackendJobAcknowledgeCode : std::uint32_t {
    SUCCESS = 0,          // the job was accepted
    INVALID_PAYLOAD = 1,  // the job's payload could not be used
    UNKNOWN_ERROR = 2,    // anything else; also what the backend hears when no listener answered
};

}  // namespace qel::onlineservices::framework::core
