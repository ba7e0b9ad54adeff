#include "commonapi/dbus/DBusFactory.h"

#include "common/Logger.h"
#include "commonapi/Runtime.h"
#include "commonapi/dbus/DBusNetworkingProxy.h"

namespace CommonAPI::dbus {
namespace {

using qel::common::logging::LogLevel;
using v1::qel::networking::api::networking;
using v1::qel::networking::api::networkingStub;

qel::common::logging::Logger const& logger() {
    static qel::common::logging::Logger const instance("CommonAPI.dbus");
    return instance;
}

[[maybe_unused]] bool const registered =
    Runtime::registerFactory(DBusFactory::BINDING_NAME, std::make_shared<DBusFactory>());

}  // namespace

DBusFactory::~DBusFactory() {
    std::map<Address, std::shared_ptr<DBusServiceEndpoint>> services;
    {
        std::lock_guard<std::mutex> guard(m_mutex);
        services.swap(m_services);
    }
    services.clear();  // leaves the bus outside the lock
}

std::shared_ptr<EventDispatcher> DBusFactory::dispatcher() {
    std::lock_guard<std::mutex> guard(m_mutex);
    if (!m_dispatcher) {
        m_dispatcher = std::make_shared<EventDispatcher>("capi-dbus");
    }
    return m_dispatcher;
}

std::shared_ptr<Proxy> DBusFactory::createProxy(std::string const& domain, std::string const& interface,
                                                std::string const& instance, ConnectionId_t const& /*connectionId*/) {
    if (interface != networking::getInterface()) {
        logger() << LogLevel::Error << "No D-Bus proxy for interface " << interface;
        return nullptr;
    }
    return DBusNetworkingProxy::create(Address(domain, interface, instance), dispatcher());
}

bool DBusFactory::registerStub(std::string const& domain, std::string const& interface, std::string const& instance,
                               std::shared_ptr<StubBase> const& stub, ConnectionId_t const& /*connectionId*/) {
    auto const typed = std::dynamic_pointer_cast<networkingStub>(stub);
    if (!typed || interface != networking::getInterface()) {
        logger() << LogLevel::Error << "No D-Bus service for interface " << interface;
        return false;
    }
    Address const address(domain, interface, instance);
    {
        std::lock_guard<std::mutex> guard(m_mutex);
        if (m_services.count(address) != 0) {
            logger() << LogLevel::Error << "A service is registered already at " << address.getAddress();
            return false;
        }
    }
    auto const endpoint = DBusServiceEndpoint::create(address, typed);
    if (!endpoint) {
        return false;
    }
    {
        std::lock_guard<std::mutex> guard(m_mutex);
        m_services[address] = endpoint;
    }
    typed->initStubAdapter(endpoint);
    return true;
}

bool DBusFactory::unregisterStub(std::string const& domain, std::string const& interface,
                                 std::string const& instance) {
    std::shared_ptr<DBusServiceEndpoint> endpoint;
    {
        std::lock_guard<std::mutex> guard(m_mutex);
        auto const found = m_services.find(Address(domain, interface, instance));
        if (found == m_services.end()) {
            return false;
        }
        endpoint = std::move(found->second);
        m_services.erase(found);
    }
    endpoint->close();
    return true;
}

}  // namespace CommonAPI::dbus
