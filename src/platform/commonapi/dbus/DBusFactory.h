// The D-Bus binding on the session bus. Registered as binding "dbus" when the library is loaded.
//
// Contract: each proxy and each registered service has its own connection and loop thread;
// events reach listeners on one dispatcher thread ("capi-dbus"). Names, paths and signatures:
// DBusNames.h and docs/networking-dbus.md.
#pragma once

#include "commonapi/EventDispatcher.h"
#include "commonapi/Factory.h"
#include "commonapi/dbus/DBusServiceEndpoint.h"

#include <map>
#include <memory>
#include <mutex>

namespace CommonAPI::dbus {

// Hidden like what it makes: the binding is reached through its registration, never by name.
class __attribute__((visibility("hidden"))) DBusFactory : public Factory {
public:
    static constexpr char const* BINDING_NAME = "dbus";

    ~DBusFactory() override;

    std::shared_ptr<Proxy> createProxy(std::string const& domain, std::string const& interface,
                                       std::string const& instance, ConnectionId_t const& connectionId) override;
    bool registerStub(std::string const& domain, std::string const& interface, std::string const& instance,
                      std::shared_ptr<StubBase> const& stub, ConnectionId_t const& connectionId) override;
    bool unregisterStub(std::string const& domain, std::string const& interface, std::string const& instance) override;

private:
    std::shared_ptr<EventDispatcher> dispatcher();

    std::mutex m_mutex;
    std::shared_ptr<EventDispatcher> m_dispatcher;                         // guarded by m_mutex
    std::map<Address, std::shared_ptr<DBusServiceEndpoint>> m_services;  // guarded by m_mutex
};

}  // namespace CommonAPI::dbus
