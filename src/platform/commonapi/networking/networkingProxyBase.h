// The networking interface as a binding implements it on the proxy side.
//
// Contract: `getInternetAccess` blocks until the answer or the call's time-out; on any status
// but SUCCESS the out arguments are left untouched. `dropInternetAccessAsync` returns at once;
// its callback (if any) and the future complete on the binding's thread. The OCU event tells
// whether the connectivity unit is available.
#pragma once

#include "commonapi/Event.h"
#include "commonapi/Proxy.h"
#include "commonapi/Types.h"
#include "commonapi/networking/networking.h"
#include "commonapi/networking/networkingTypes.h"

#include <functional>
#include <future>
#include <string>

namespace v1::qel::networking::api {

class networkingProxyBase : public CommonAPI::Proxy {
public:
    using OcuConnStateChangeEvent = CommonAPI::Event<bool>;
    using DropInternetAccessAsyncCallback =
        std::function<void(CommonAPI::CallStatus const&, definitions::ResultCodes_e const&)>;

    virtual void getInternetAccess(std::string _serviceId, CommonAPI::CallStatus& _internalCallStatus,
                                   definitions::ClientData_s& _ipv4, definitions::ClientData_s& _ipv6,
                                   definitions::ResultCodes_e& _result, CommonAPI::CallInfo const* _info = nullptr) = 0;
    virtual std::future<CommonAPI::CallStatus> dropInternetAccessAsync(
        std::string const& _serviceId, DropInternetAccessAsyncCallback _callback = nullptr,
        CommonAPI::CallInfo const* _info = nullptr) = 0;
    virtual OcuConnStateChangeEvent& getOcuConnStateChangeEvent() = 0;
};

}  // namespace v1::qel::networking::api
