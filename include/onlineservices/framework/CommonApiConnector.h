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

class QEL_OSF_EXPORT CommonApiConnector {
public:
    // `first` is kept for callers that store a setting with the address; nothing reads it.
    CommonApiConnector(std::string const& domain, std::string const& instance, std::string const& connection,
                       unsigned int first, unsigned int retryInterval);

    void setDomain(std::string const& domain) { m_domain = domain; }
    void setInstance(std::string const& instance) { m_instance = instance; }
    void setConnection(std::string const& connection) { m_connection = connection; }
    void setRetryInterval_ms(unsigned int const& retryInterval) { m_retryInterval = retryInterval; }
    std::string getDomain() const { return m_domain; }
    std::string getInstance() const { return m_instance; }
    std::string getConnection() const { return m_connection; }
    unsigned int getRetryInterval_ms() const { return m_retryInterval; }

    // "( domain: D | instance: I | connection: C )", "<empty>" for an empty member.
    std::string proxyDescription() const;
    // True when the runtime is held: already, or obtained by this call (logged either way).
    bool tryCreateRuntime();
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
