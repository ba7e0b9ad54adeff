// The in-process binding: services and proxies of one process, matched by address. For tests,
// and for an application that hosts a service itself.
//
// Contract: a proxy is AVAILABLE while a service is registered at its address; registering and
// unregistering tell every proxy there. Status and OCU events reach listeners on the binding's
// own thread ("capi-inproc"). Registered as binding "inprocess" when the library is loaded.
#pragma once

#include "commonapi/Factory.h"
#include "commonapi/networking/networkingStub.h"

#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace CommonAPI::inprocess {

class InProcessNetworkingProxy;

class InProcessFactory : public Factory, public std::enable_shared_from_this<InProcessFactory> {
public:
    static constexpr char const* BINDING_NAME = "inprocess";

    InProcessFactory() = default;
    ~InProcessFactory() override;

    std::shared_ptr<Proxy> createProxy(std::string const& domain, std::string const& interface,
                                       std::string const& instance, ConnectionId_t const& connectionId) override;
    bool registerStub(std::string const& domain, std::string const& interface, std::string const& instance,
                      std::shared_ptr<StubBase> const& stub, ConnectionId_t const& connectionId) override;
    bool unregisterStub(std::string const& domain, std::string const& interface, std::string const& instance) override;

    // For the proxies.
    std::shared_ptr<v1::qel::networking::api::networkingStub> stubAt(Address const& address) const;
    void post(std::function<void()> job);
    void fireOcu(Address const& address, bool value);

private:
    std::vector<std::shared_ptr<InProcessNetworkingProxy>> proxiesAt(Address const& address);
    void announce(Address const& address, AvailabilityStatus status);

    struct Registration {
        std::shared_ptr<v1::qel::networking::api::networkingStub> stub;
        std::shared_ptr<v1::qel::networking::api::networkingStubAdapter> adapter;
    };

    mutable std::mutex m_mutex;
    std::map<Address, Registration> m_services;                                     // guarded by m_mutex
    std::map<Address, std::vector<std::weak_ptr<InProcessNetworkingProxy>>> m_proxies;  // guarded by m_mutex
};

}  // namespace CommonAPI::inprocess
