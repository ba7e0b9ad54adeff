// Receives the backend's element id of something posted or found on the caller's behalf.
//
// Contract: `handleURI` may be called on the RSI worker thread, once per posting run and possibly
// with an empty id when none is known yet. Held weakly by whoever reports to it.
#pragma once

#include <string>

namespace qel::onlineservices::framework::core {

class IURIHandler {
public:
    virtual ~IURIHandler() = default;
    virtual void handleURI(std::string const& uri) = 0;
};

}  // namespace qel::onlineservices::framework::core
