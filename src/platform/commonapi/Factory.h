// What a binding offers the runtime: proxies and service registrations for the interfaces it knows.
//
// Contract: failures are a log line and a null/false result, never an exception.
#pragma once

#include "commonapi/Proxy.h"
#include "commonapi/Stub.h"
#include "commonapi/Types.h"

#include <memory>
#include <string>

namespace CommonAPI {

class Factory {
public:
    virtual ~Factory() = default;
    virtual std::shared_ptr<Proxy> createProxy(std::string const& domain, std::string const& interface,
                                               std::string const& instance, ConnectionId_t const& connectionId) = 0;
    virtual bool registerStub(std::string const& domain, std::string const& interface, std::string const& instance,
                              std::shared_ptr<StubBase> const& stub, ConnectionId_t const& connectionId) = 0;
    virtual bool unregisterStub(std::string const& domain, std::string const& interface,
                                std::string const& instance) = 0;
};

}  // namespace CommonAPI
