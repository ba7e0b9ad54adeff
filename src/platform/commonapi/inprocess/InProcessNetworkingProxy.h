// The in-process networking proxy: calls the service registered at its address directly.
//
// Contract: `getInternetAccess` runs the service on the caller's thread and waits for its answer
// up to the call's time-out (REMOTE_ERROR after it); without a service the status is
// NOT_AVAILABLE. `dropInternetAccessAsync` runs the service on the binding's thread. Events come
// on the binding's thread; a new status listener hears the current status first.
#pragma once

#include "commonapi/BindingEvent.h"
#include "commonapi/networking/networkingProxyBase.h"
#include "commonapi/inprocess/InProcessFactory.h"

#include <atomic>
#include <memory>

namespace CommonAPI::inprocess {

class InProcessNetworkingProxy : public v1::qel::networking::api::networkingProxyBase,
                                 public std::enable_shared_from_this<InProcessNetworkingProxy> {
public:
    InProcessNetworkingProxy(Address address, std::shared_ptr<InProcessFactory> factory);
    // Connects the status event to the binding; called once by the factory.
    void init();

    Address const& getAddress() const override { return m_address; }
    bool isAvailable() const override { return m_status.load() == AvailabilityStatus::AVAILABLE; }
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

    // From the factory: the status changes now, listeners hear it on the binding's thread.
    void setStatus(AvailabilityStatus status) { m_status.store(status); }
    void deliverStatus(AvailabilityStatus status) { m_statusEvent.fire(status); }
    void deliverOcu(bool value) { m_ocuEvent.fire(value); }

private:
    Address const m_address;
    std::shared_ptr<InProcessFactory> const m_factory;
    std::atomic<AvailabilityStatus> m_status{AvailabilityStatus::UNKNOWN};
    BindingEvent<AvailabilityStatus> m_statusEvent;
    BindingEvent<bool> m_ocuEvent;
};

}  // namespace CommonAPI::inprocess
