#include <onlineservices/framework/CommonApiConnector.h>

namespace qel::onlineservices::framework::utils {

using qel::common::logging::LogLevel;

namespace {

std::string orEmpty(std::string const& text) {
    return text.empty() ? "<empty>" : text;
}

}  // namespace

CommonApiConnector::CommonApiConnector(std::string const& domain, std::string const& instance,
                                       std::string const& connection, unsigned int first, unsigned int retryInterval)
    : m_domain(domain), m_instance(instance), m_connection(connection), m_first(first), m_retryInterval(retryInterval) {}

std::string CommonApiConnector::proxyDescription() const {
    return "( domain: " + orEmpty(m_domain) + " | instance: " + orEmpty(m_instance) +
           " | connection: " + orEmpty(m_connection) + " )";
}

bool CommonApiConnector::tryCreateRuntime() {
    if (m_runtime) {
        return true;
    }
    m_runtime = CommonAPI::Runtime::get();
    if (m_runtime) {
        m_logger << LogLevel::Info << "Successfully created CommonAPI runtime";
        return true;
    }
    m_logger << LogLevel::Info << "Could not create CommonAPI runtime";
    return false;
}

}  // namespace qel::onlineservices::framework::utils
