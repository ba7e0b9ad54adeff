#include "commonapi/inprocess/InProcessFactory.h"

#include "common/Logger.h"
#include "commonapi/EventDispatcher.h"
#include "commonapi/Runtime.h"
#include "commonapi/inprocess/InProcessNetworkingProxy.h"

#include <algorithm>

namespace CommonAPI::inprocess {
namespace {

using qel::common::logging::LogLevel;
using v1::qel::networking::api::networking;
using v1::qel::networking::api::networkingStub;
using v1::qel::networking::api::networkingStubAdapter;

qel::common::logging::Logger const& logger() {
    static qel::common::logging::Logger const instance("CommonAPI.inprocess");
    return instance;
}

// Routes a stub's OCU events to the proxies of its address.
class Adapter : public networkingStubAdapter {
public:
    Adapter(std::weak_ptr<InProcessFactory> factory, Address address)
        : m_factory(std::move(factory)), m_address(std::move(address)) {}
    void fireOcuConnStateChangeEvent(bool const& value) override {
        if (auto const factory = m_factory.lock()) {
            factory->fireOcu(m_address, value);
        }
    }

private:
    std::weak_ptr<InProcessFactory> const m_factory;
    Address const m_address;
};

// One dispatcher thread for every in-process factory. A job may hold the last reference to a factory
// or a proxy, so the thread cannot belong to a factory (it would have to join itself); it lives until
// the library is unloaded. Defined before the registration below so that it outlives the factories.
class SharedDispatcher {
public:
    void post(std::function<void()> job) {
        std::lock_guard<std::mutex> guard(m_mutex);
        if (m_closed) {
            return;
        }
        if (!m_dispatcher) {
            m_dispatcher = std::make_unique<EventDispatcher>("capi-inproc");
        }
        m_dispatcher->post(std::move(job));
    }
    ~SharedDispatcher() {
        std::unique_ptr<EventDispatcher> dispatcher;
        {
            std::lock_guard<std::mutex> guard(m_mutex);
            m_closed = true;
            dispatcher.swap(m_dispatcher);
        }
        dispatcher.reset();  // runs what was posted, then joins, outside the lock
    }

private:
    std::mutex m_mutex;
    bool m_closed = false;                           // guarded by m_mutex
    std::unique_ptr<EventDispatcher> m_dispatcher;  // guarded by m_mutex; started on first use
};

SharedDispatcher sharedDispatcher;

[[maybe_unused]] bool const registered = Runtime::registerFactory(InProcessFactory::BINDING_NAME, std::make_shared<InProcessFactory>());

}  // namespace

InProcessFactory::~InProcessFactory() = default;

std::shared_ptr<Proxy> InProcessFactory::createProxy(std::string const& domain, std::string const& interface,
                                                     std::string const& instance, ConnectionId_t const& /*connectionId*/) {
    if (interface != networking::getInterface()) {
        logger() << LogLevel::Error << "No in-process proxy for interface " << interface;
        return nullptr;
    }
    Address const address(domain, interface, instance);
    auto const proxy = std::make_shared<InProcessNetworkingProxy>(address, shared_from_this());
    proxy->init();
    std::lock_guard<std::mutex> guard(m_mutex);
    auto& list = m_proxies[address];
    list.erase(std::remove_if(list.begin(), list.end(), [](auto const& weak) { return weak.expired(); }), list.end());
    list.push_back(proxy);
    proxy->setStatus(m_services.count(address) != 0 ? AvailabilityStatus::AVAILABLE
                                                     : AvailabilityStatus::NOT_AVAILABLE);
    return proxy;
}

bool InProcessFactory::registerStub(std::string const& domain, std::string const& interface,
                                    std::string const& instance, std::shared_ptr<StubBase> const& stub,
                                    ConnectionId_t const& /*connectionId*/) {
    auto const typed = std::dynamic_pointer_cast<networkingStub>(stub);
    if (!typed || interface != networking::getInterface()) {
        logger() << LogLevel::Error << "No in-process service for interface " << interface;
        return false;
    }
    Address const address(domain, interface, instance);
    auto const adapter = std::make_shared<Adapter>(weak_from_this(), address);
    {
        std::lock_guard<std::mutex> guard(m_mutex);
        if (!m_services.emplace(address, Registration{typed, adapter}).second) {
            logger() << LogLevel::Error << "A service is registered already at " << address.getAddress();
            return false;
        }
    }
    typed->initStubAdapter(adapter);
    logger() << LogLevel::Info << "Service registered at " << address.getAddress();
    announce(address, AvailabilityStatus::AVAILABLE);
    return true;
}

bool InProcessFactory::unregisterStub(std::string const& domain, std::string const& interface,
                                      std::string const& instance) {
    Address const address(domain, interface, instance);
    Registration registration;
    {
        std::lock_guard<std::mutex> guard(m_mutex);
        auto const found = m_services.find(address);
        if (found == m_services.end()) {
            return false;
        }
        registration = std::move(found->second);
        m_services.erase(found);
    }
    registration.stub->initStubAdapter(nullptr);
    logger() << LogLevel::Info << "Service unregistered at " << address.getAddress();
    announce(address, AvailabilityStatus::NOT_AVAILABLE);
    return true;
}

std::shared_ptr<networkingStub> InProcessFactory::stubAt(Address const& address) const {
    std::lock_guard<std::mutex> guard(m_mutex);
    auto const found = m_services.find(address);
    return found != m_services.end() ? found->second.stub : nullptr;
}

void InProcessFactory::post(std::function<void()> job) {
    sharedDispatcher.post(std::move(job));
}

std::vector<std::shared_ptr<InProcessNetworkingProxy>> InProcessFactory::proxiesAt(Address const& address) {
    std::vector<std::shared_ptr<InProcessNetworkingProxy>> live;
    std::lock_guard<std::mutex> guard(m_mutex);
    auto const found = m_proxies.find(address);
    if (found != m_proxies.end()) {
        for (auto const& weak : found->second) {
            if (auto proxy = weak.lock()) {
                live.push_back(std::move(proxy));
            }
        }
    }
    return live;
}

void InProcessFactory::announce(Address const& address, AvailabilityStatus status) {
    for (auto const& proxy : proxiesAt(address)) {
        proxy->setStatus(status);
        post([weak = std::weak_ptr<InProcessNetworkingProxy>(proxy), status] {
            if (auto const live = weak.lock()) {
                live->deliverStatus(status);
            }
        });
    }
}

void InProcessFactory::fireOcu(Address const& address, bool value) {
    for (auto const& proxy : proxiesAt(address)) {
        post([weak = std::weak_ptr<InProcessNetworkingProxy>(proxy), value] {
            if (auto const live = weak.lock()) {
                live->deliverOcu(value);
            }
        });
    }
}

}  // namespace CommonAPI::inprocess
