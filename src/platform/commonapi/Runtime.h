// The process-wide CommonAPI runtime: builds proxies and registers services through a binding.
//
// Contract: `get()` always returns the same runtime. The binding is chosen per call by the
// environment variable QEL_COMMONAPI_BINDING: "dbus" (the default; the session bus) or
// "inprocess" (service and proxy in one process), or a path to a binding library. A binding
// already linked into the process registers itself at load; otherwise the runtime loads
// "libqel.commonapi.<name>.so.1". Failures are a log line and a null/false result.
#pragma once

#include "commonapi/Factory.h"
#include "commonapi/Proxy.h"
#include "commonapi/Stub.h"
#include "commonapi/Types.h"

#include <memory>
#include <string>

namespace CommonAPI {

class Runtime {
public:
    static constexpr char const* BINDING_VARIABLE = "QEL_COMMONAPI_BINDING";
    static constexpr char const* DEFAULT_BINDING = "dbus";

    static std::shared_ptr<Runtime> get();
    // Called by a binding library when it is loaded.
    static bool registerFactory(std::string const& bindingName, std::shared_ptr<Factory> const& factory);

    template <template <typename...> class ProxyClass_, typename... AttributeExtensions_>
    std::shared_ptr<ProxyClass_<AttributeExtensions_...>> createProxy(std::string const& domain,
                                                                      std::string const& instance,
                                                                      ConnectionId_t const& connectionId = {}) {
        auto const proxy =
            createProxy(domain, ProxyClass_<AttributeExtensions_...>::getInterface(), instance, connectionId);
        if (!proxy) {
            return nullptr;
        }
        auto typed = std::make_shared<ProxyClass_<AttributeExtensions_...>>(proxy);
        return typed->hasDelegate() ? typed : nullptr;
    }

    template <typename Stub_>
    bool registerService(std::string const& domain, std::string const& instance, std::shared_ptr<Stub_> service,
                         ConnectionId_t const& connectionId = {}) {
        return registerStub(domain, Stub_::StubInterface::getInterface(), instance, service, connectionId);
    }

    bool unregisterService(std::string const& domain, std::string const& interface, std::string const& instance);

    std::shared_ptr<Proxy> createProxy(std::string const& domain, std::string const& interface,
                                       std::string const& instance, ConnectionId_t const& connectionId);
    bool registerStub(std::string const& domain, std::string const& interface, std::string const& instance,
                      std::shared_ptr<StubBase> const& stub, ConnectionId_t const& connectionId);

    // The binding the next call uses, by the rule above.
    static std::string bindingName();

private:
    std::shared_ptr<Factory> factory();
};

}  // namespace CommonAPI
