#include "commonapi/inprocess/InProcessNetworkingProxy.h"

#include <chrono>
#include <mutex>

namespace CommonAPI::inprocess {
namespace {

using v1::qel::networking::api::definitions::ClientData_s;
using v1::qel::networking::api::definitions::ResultCodes_e;

// One answer per call, whichever of reply and failure comes first.
template <typename Answer>
struct OneAnswer {
    void set(Answer answer) {
        std::call_once(once, [&] { promise.set_value(std::move(answer)); });
    }
    std::once_flag once;
    std::promise<Answer> promise;
};

struct AccessAnswer {
    CallStatus status = CallStatus::UNKNOWN;
    ClientData_s ipv4;
    ClientData_s ipv6;
    ResultCodes_e result = ResultCodes_e::UNKNOWN_ERROR;
};

}  // namespace

InProcessNetworkingProxy::InProcessNetworkingProxy(Address address, std::shared_ptr<InProcessFactory> factory)
    : m_address(std::move(address)), m_factory(std::move(factory)) {}

void InProcessNetworkingProxy::init() {
    m_statusEvent.setListenerAddedHook([weak = weak_from_this()](ProxyStatusEvent::Subscription subscription) {
        auto const self = weak.lock();
        if (!self) {
            return;
        }
        // The status as the listener subscribed: a later change reaches it on its own.
        AvailabilityStatus const current = self->m_status.load();
        if (current == AvailabilityStatus::UNKNOWN) {
            return;
        }
        self->m_factory->post([weak, subscription, current] {
            if (auto const live = weak.lock()) {
                live->m_statusEvent.fireTo(subscription, current);
            }
        });
    });
}

void InProcessNetworkingProxy::getInternetAccess(std::string _serviceId, CallStatus& _internalCallStatus,
                                                 ClientData_s& _ipv4, ClientData_s& _ipv6, ResultCodes_e& _result,
                                                 CallInfo const* _info) {
    auto const stub = m_factory->stubAt(m_address);
    if (!stub) {
        _internalCallStatus = CallStatus::NOT_AVAILABLE;
        return;
    }
    auto const answer = std::make_shared<OneAnswer<AccessAnswer>>();
    auto future = answer->promise.get_future();
    stub->getInternetAccess(
        std::make_shared<ClientId>(), std::move(_serviceId),
        [answer](ClientData_s ipv4, ClientData_s ipv6, ResultCodes_e result) {
            answer->set({CallStatus::SUCCESS, std::move(ipv4), std::move(ipv6), result});
        },
        [answer](CallStatus status) { answer->set({status, {}, {}, ResultCodes_e::UNKNOWN_ERROR}); });
    if (future.wait_for(std::chrono::milliseconds(timeoutOf(_info))) != std::future_status::ready) {
        _internalCallStatus = CallStatus::REMOTE_ERROR;
        return;
    }
    AccessAnswer const received = future.get();
    _internalCallStatus = received.status;
    if (received.status == CallStatus::SUCCESS) {
        _ipv4 = received.ipv4;
        _ipv6 = received.ipv6;
        _result = received.result;
    }
}

std::future<CallStatus> InProcessNetworkingProxy::dropInternetAccessAsync(std::string const& _serviceId,
                                                                          DropInternetAccessAsyncCallback _callback,
                                                                          CallInfo const* /*_info*/) {
    struct DropState {
        OneAnswer<CallStatus> status;
        DropInternetAccessAsyncCallback callback;
        std::once_flag once;
        void complete(CallStatus callStatus, ResultCodes_e result) {
            std::call_once(once, [&] {
                status.set(callStatus);
                if (callback) {
                    callback(callStatus, result);
                }
            });
        }
    };
    auto const state = std::make_shared<DropState>();
    state->callback = std::move(_callback);
    auto future = state->status.promise.get_future();
    m_factory->post([factory = std::weak_ptr<InProcessFactory>(m_factory), address = m_address,
                     serviceId = _serviceId, state] {
        auto const live = factory.lock();
        auto const stub = live ? live->stubAt(address) : nullptr;
        if (!stub) {
            state->complete(CallStatus::NOT_AVAILABLE, ResultCodes_e::UNKNOWN_ERROR);
            return;
        }
        stub->dropInternetAccess(
            std::make_shared<ClientId>(), serviceId,
            [state](ResultCodes_e result) { state->complete(CallStatus::SUCCESS, result); },
            [state](CallStatus status) { state->complete(status, ResultCodes_e::UNKNOWN_ERROR); });
    });
    return future;
}

}  // namespace CommonAPI::inprocess
