// The binding-independent side of every proxy: where it points and whether its service is there.
//
// Contract: the status event delivers AVAILABLE / NOT_AVAILABLE on the binding's thread; a new
// listener first hears the current status once it is known.
#pragma once

#include "commonapi/Event.h"
#include "commonapi/Types.h"

#include <string>
#include <utility>

namespace CommonAPI {

using ProxyStatusEvent = Event<AvailabilityStatus>;

// A service's address: domain, interface (name and version) and instance.
class Address {
public:
    Address() = default;
    Address(std::string domain, std::string interface, std::string instance)
        : domain_(std::move(domain)), interface_(std::move(interface)), instance_(std::move(instance)) {}
    std::string const& getDomain() const { return domain_; }
    std::string const& getInterface() const { return interface_; }
    std::string const& getInstance() const { return instance_; }
    // "domain:interface:instance"
    std::string getAddress() const { return domain_ + ":" + interface_ + ":" + instance_; }
    bool operator<(Address const& other) const { return getAddress() < other.getAddress(); }

private:
    std::string domain_;
    std::string interface_;
    std::string instance_;
};

class Proxy {
public:
    virtual ~Proxy() = default;
    virtual Address const& getAddress() const = 0;
    virtual bool isAvailable() const = 0;
    virtual ProxyStatusEvent& getProxyStatusEvent() = 0;
};

}  // namespace CommonAPI
