// Turns the application's description into the RSI entries it owns at the backend.
//
// Contract: pure functions; each returns a fresh entry with its description, service, resource,
// identifying keys, posted values and the two write flags. Capability keys are parsed by
// `CapabilityKeyParser`, which carries the host system and service id over from one key to the
// next when a key lacks them.
#pragma once

#include "rsi/IURIHandler.h"
#include "rsi/RSIEntry.h"

#include <onlineservices/framework/OnlineServiceClientConfig.h>

#include <memory>
#include <string>

namespace qel::onlineservices::framework::core {

std::shared_ptr<RSIEntry> makeKvsEntry(std::string const& key, std::weak_ptr<IURIHandler> const& uriHandler);
std::shared_ptr<RSIEntry> makeJobEntry(JobEntry const& job);
std::shared_ptr<RSIEntry> makeOperationEntry(OperationEntry const& operation);

// Reads capability keys "<serviceHostSystem>.<serviceId>.<name>" in order. The name is new for
// every key; host system and service id keep the previous key's value when a key has too few
// pieces, as the backend's registrations have always been read.
class CapabilityKeyParser {
public:
    std::shared_ptr<RSIEntry> makeEntry(std::string const& key, std::string const& value);

private:
    std::string m_serviceHostSystem;
    std::string m_serviceId;
};

}  // namespace qel::onlineservices::framework::core
