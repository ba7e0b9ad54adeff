// Keeps the address of a CommonAPI service (domain, instance, connection), describes it for log
// lines and obtains the CommonAPI runtime once. For applications that reach a CommonAPI service
// of their own; the framework builds its own networking proxy directly.
//
// Contract: `tryCreateRuntime` makes one attempt per call and asks CommonAPI only while it holds
// no runtime; a caller that wants to retry waits `getRetryInterval_ms()` between calls. Not
// synchronised: use one connector from one thread. Nothing throws.
#pragma once

#include <onlineservices/framework/Export.h>

#include "common/Logger.h"
#include "commonapi/Runtime.h"

#include <cstdint>
#include <memory>
#include <string>

namespace qel::onlineservices::framework::utils {

// The address of one CommonAPI service and the runtime to reach it; see the file's contract.
class QEL_OSF_EXPORT CommonApiConnector {
public:
    // `first` is kept for callers that store a setting with the address; nothing reads it.
    CommonApiConnector(std::string const& domain, std::string const& instance, std::string const& connection,
                       unsigned int first, unsigned int retryInterval);

    // The service's domain, for example "local".
    void setDomain(std::string const& domain) { m_domain = domain; }
    // The service's instance name.
    void setInstance(std::string const& instance) { m_instance = instance; }
    // The connection (binding) name the service is reached through.
    void setConnection(std::string const& connection) { m_connection = connection; }
    // How long a caller waits between two `tryCreateRuntime` calls, in milliseconds.
    void setRetryInterval_ms(unsigned int const& retryInterval) { m_retryInterval = retryInterval; }
    // The domain as last set.
    std::string getDomain() const { return m_domain; }
    // The instance as last set.
    std::string getInstance() const { return m_instance; }
    // The connection as last set.
    std::string getConnection() const { return m_connection; }
    // The retry interval in milliseconds.
    unsigned int getRetryInterval_ms() const { return m_retryInterval; }

    // "( domain: D | instance: I | connection: C )", "<empty>" for an empty member.
    std::string proxyDescription() const;
    // True when the runtime is held: already, or obtained by this call (logged either way).
    bool tryCreateRuntime();
    // The runtime, null until a `tryCreateRuntime` succeeded.
    std::shared_ptr<CommonAPI::Runtime> const& getRuntime() const { return m_runtime; }

private:
    std::string m_domain;
    std::string m_instance;
    std::string m_connection;
    [[maybe_unused]] std::uint32_t m_first;  // kept, never read
    std::uint32_t m_retryInterval;
    std::shared_ptr<CommonAPI::Runtime> m_runtime;
    qel::common::logging::Logger m_logger{"CommonAPIConnector"};
};

}  // namespace qel::onlineservices::framework::utils
