// The networking proxy an application holds; forwards to the binding's implementation.
//
//   auto proxy = CommonAPI::Runtime::get()->createProxy<v1::qel::networking::api::networkingProxy>(
//       "kalm", "qel.networking.api", "");
#pragma once

#include "commonapi/networking/networkingProxyBase.h"

#include <memory>
#include <utility>

namespace v1::qel::networking::api {

template <typename... _AttributeExtensions>
class networkingProxy : public networkingProxyBase, public _AttributeExtensions... {
public:
    explicit networkingProxy(std::shared_ptr<CommonAPI::Proxy> const& delegate)
        : delegate_(std::dynamic_pointer_cast<networkingProxyBase>(delegate)) {}

    static char const* getInterface() { return networking::getInterface(); }
    // False when the binding's proxy is not a networking proxy.
    bool hasDelegate() const { return delegate_ != nullptr; }

    CommonAPI::Address const& getAddress() const override { return delegate_->getAddress(); }
    bool isAvailable() const override { return delegate_->isAvailable(); }
    CommonAPI::ProxyStatusEvent& getProxyStatusEvent() override { return delegate_->getProxyStatusEvent(); }

    void getInternetAccess(std::string _serviceId, CommonAPI::CallStatus& _internalCallStatus,
                           definitions::ClientData_s& _ipv4, definitions::ClientData_s& _ipv6,
                           definitions::ResultCodes_e& _result, CommonAPI::CallInfo const* _info = nullptr) override {
        delegate_->getInternetAccess(std::move(_serviceId), _internalCallStatus, _ipv4, _ipv6, _result, _info);
    }
    std::future<CommonAPI::CallStatus> dropInternetAccessAsync(
        std::string const& _serviceId, DropInternetAccessAsyncCallback _callback = nullptr,
        CommonAPI::CallInfo const* _info = nullptr) override {
        return delegate_->dropInternetAccessAsync(_serviceId, std::move(_callback), _info);
    }
    OcuConnStateChangeEvent& getOcuConnStateChangeEvent() override { return delegate_->getOcuConnStateChangeEvent(); }

private:
    std::shared_ptr<networkingProxyBase> delegate_;
};

}  // namespace v1::qel::networking::api
