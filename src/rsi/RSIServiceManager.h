// Tells whoever waits for a backend service whether the RSI side offers it.
//
// Contract: one subscription to the RSI root ("/" with the query name = service) per service
// name, however many callbacks wait for it; a later callback shares it and hears only later
// events. Availability comes from events alone: an event whose "data" array names the service
// first notifies true, an empty array notifies false, another name notifies nobody. Callbacks are
// called in registration order, on the client's event thread, without the manager's lock.
// Must be owned by a `std::shared_ptr`: it hands itself to the wrapper as weak handlers.
#pragma once

#include "common/Logger.h"
#include "common/Mutex.h"
#include "config/FrameworkConfig.h"
#include "core/IUpdateConditionCallback.h"
#include "rsi/EventHandler.h"
#include "rsi/IRSIClientWrapper.h"
#include "rsi/ResponseHandler.h"

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace qel::onlineservices::framework::core {

class RSIServiceManager : public qel::rsi::client::ResponseHandler,
                          public qel::rsi::client::EventHandler,
                          public std::enable_shared_from_this<RSIServiceManager> {
public:
    RSIServiceManager(std::shared_ptr<FrameworkConfig> const& config,
                      std::shared_ptr<IRSIClientWrapper> const& rsiClient);
    ~RSIServiceManager() override;

    void subscribe(std::string const& service, std::shared_ptr<IUpdateConditionCallback> const& callback);
    // Forgets every callback and subscription id; the backend subscriptions stay until the
    // wrapper disconnects, and later events still map to their service names.
    void _unsubscribe();
    // Sends the availability subscription for `service`.
    void _subscribe(std::string const& service);
    // Tells every callback registered for `service` whether it is available.
    void notify(std::string const& service, bool available);

    // An answer handed over as temporaries is handled like any other.
    void handleResponse(qel::rsi::client::RequestState&& state, qel::rsi::client::Response&& response) override {
        handleResponse(state, response);
    }
    void handleResponse(qel::rsi::client::RequestState const& state,
                        qel::rsi::client::Response const& response) override;
    void handleEvent(qel::rsi::client::RequestState&& state, qel::rsi::client::Response&& response) override {
        handleEvent(state, response);
    }
    void handleEvent(qel::rsi::client::RequestState const& state, qel::rsi::client::Response const& response) override;

private:
    // None when `requestId` names no subscribed service (logged).
    std::optional<std::string> serviceNameOf(std::uint32_t requestId);

    qel::common::logging::Logger const m_logger;
    std::shared_ptr<IRSIClientWrapper> const m_rsiClient;
    qel::common::system::Mutex m_lock;
    std::vector<std::string> m_serviceNames;                   // guarded by m_lock; index = requestId
    std::map<std::string, unsigned int> m_subscriptionIds;     // guarded by m_lock
    std::multimap<std::string, std::shared_ptr<IUpdateConditionCallback>> m_callbacks;  // guarded by m_lock
    std::uint32_t m_nextRequestId = 0;                         // guarded by m_lock
};

}  // namespace qel::onlineservices::framework::core
