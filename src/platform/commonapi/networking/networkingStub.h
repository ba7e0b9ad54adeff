// The service side of the networking interface: a service implementation derives from
// `networkingStubDefault` and is registered with `CommonAPI::Runtime::registerService`.
//
// Contract: the binding calls the request operations on its own thread; each call is answered
// exactly once, through `reply` or through `fail` (a transport status instead of an answer), on
// any thread. `fireOcuConnStateChangeEvent` reaches every subscribed proxy while registered.
#pragma once

#include "commonapi/Stub.h"
#include "commonapi/networking/networking.h"
#include "commonapi/networking/networkingTypes.h"

#include <functional>
#include <memory>
#include <mutex>
#include <string>

namespace v1::qel::networking::api {

// What the binding offers a registered stub.
class networkingStubAdapter {
public:
    virtual ~networkingStubAdapter() = default;
    virtual void fireOcuConnStateChangeEvent(bool const& value) = 0;
};

class networkingStub : public CommonAPI::StubBase {
public:
    using StubInterface = networking;
    using getInternetAccessReply_t = std::function<void(definitions::ClientData_s _ipv4,
                                                        definitions::ClientData_s _ipv6,
                                                        definitions::ResultCodes_e _result)>;
    using dropInternetAccessReply_t = std::function<void(definitions::ResultCodes_e _result)>;

    virtual void getInternetAccess(std::shared_ptr<CommonAPI::ClientId> const _client, std::string _serviceId,
                                   getInternetAccessReply_t _reply, CommonAPI::CallFailure _fail) = 0;
    virtual void dropInternetAccess(std::shared_ptr<CommonAPI::ClientId> const _client, std::string _serviceId,
                                    dropInternetAccessReply_t _reply, CommonAPI::CallFailure _fail) = 0;
    virtual void fireOcuConnStateChangeEvent(bool const& _value) = 0;
    // The binding sets its adapter on registration and clears it on unregistration.
    virtual void initStubAdapter(std::shared_ptr<networkingStubAdapter> const& _adapter) = 0;
};

// Keeps the adapter; a service only implements the request operations.
class networkingStubDefault : public networkingStub {
public:
    void fireOcuConnStateChangeEvent(bool const& _value) override {
        std::shared_ptr<networkingStubAdapter> adapter;
        {
            std::lock_guard<std::mutex> guard(adapterMutex_);
            adapter = adapter_.lock();
        }
        if (adapter) {
            adapter->fireOcuConnStateChangeEvent(_value);
        }
    }
    void initStubAdapter(std::shared_ptr<networkingStubAdapter> const& _adapter) override {
        std::lock_guard<std::mutex> guard(adapterMutex_);
        adapter_ = _adapter;
    }

private:
    std::mutex adapterMutex_;
    std::weak_ptr<networkingStubAdapter> adapter_;  // guarded by adapterMutex_
};

}  // namespace v1::qel::networking::api
