// The networking proxy over D-Bus: method calls to the service's bus name, the OCU signal, and
// availability from the bus name's owner appearing and vanishing.
//
// Contract: built with its own connection and loop thread ("capi-dbus-loop"); events reach
// listeners on the binding's dispatcher thread, in the order the bus delivered them. The status
// is UNKNOWN until the bus has answered whether the name has an owner. `getInternetAccess`
// maps D-Bus errors to call statuses (see DBusNames.h) and leaves the out arguments alone then.
#pragma once

#include "commonapi/BindingEvent.h"
#include "commonapi/EventDispatcher.h"
#include "commonapi/dbus/DBusConnectionLoop.h"
#include "commonapi/dbus/DBusNames.h"
#include "commonapi/networking/networkingProxyBase.h"

#include <sdbus-c++/IProxy.h>

#include <atomic>
#include <memory>

namespace CommonAPI::dbus {

// Hidden like its connection loop: only this binding makes one; applications see the base.
class __attribute__((visibility("hidden"))) DBusNetworkingProxy
    : public v1::qel::networking::api::networkingProxyBase,
      public std::enable_shared_from_this<DBusNetworkingProxy> {
public:
    // Null (and a log line) when the bus cannot be reached.
    static std::shared_ptr<DBusNetworkingProxy> create(Address const& address,
                                                       std::shared_ptr<EventDispatcher> const& dispatcher);
    DBusNetworkingProxy(Address address, std::shared_ptr<EventDispatcher> dispatcher,
                        std::unique_ptr<DBusConnectionLoop> loop);
    ~DBusNetworkingProxy() override;

    Address const& getAddress() const override { return m_address; }
    bool isAvailable() const override { return m_status->load() == AvailabilityStatus::AVAILABLE; }
    ProxyStatusEvent& getProxyStatusEvent() override { return m_statusEvent; }
    OcuConnStateChangeEvent& getOcuConnStateChangeEvent() override { return m_ocuEvent; }

    void getInternetAccess(std::string _serviceId, CallStatus& _internalCallStatus,
                           v1::qel::networking::api::definitions::ClientData_s& _ipv4,
                           v1::qel::networking::api::definitions::ClientData_s& _ipv6,
                           v1::qel::networking::api::definitions::ResultCodes_e& _result,
                           CallInfo const* _info = nullptr) override;
    std::future<CallStatus> dropInternetAccessAsync(std::string const& _serviceId,
                                                    DropInternetAccessAsyncCallback _callback = nullptr,
                                                    CallInfo const* _info = nullptr) override;

private:
    using Status = std::atomic<AvailabilityStatus>;

    bool connect();
    // Runs on the loop thread: records the status and has the dispatcher tell the listeners.
    static void applyStatus(std::weak_ptr<DBusNetworkingProxy> const& proxy, Status& status,
                            EventDispatcher& dispatcher, AvailabilityStatus value);

    Address const m_address;
    DBusNames const m_names;
    std::shared_ptr<EventDispatcher> const m_dispatcher;
    // Shared with the loop thread's handlers, which never hold the proxy itself.
    std::shared_ptr<Status> const m_status;
    BindingEvent<AvailabilityStatus> m_statusEvent;
    BindingEvent<bool> m_ocuEvent;
    std::unique_ptr<DBusConnectionLoop> m_loop;  // stopped first in the destructor
    std::unique_ptr<sdbus::IProxy> m_proxy;
    std::unique_ptr<sdbus::IProxy> m_busProxy;
    sdbus::Slot m_ownerMatch;
};

}  // namespace CommonAPI::dbus
