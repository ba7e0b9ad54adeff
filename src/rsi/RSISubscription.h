// A subscription job: makes one subscription through the RSI client, screens its events, and
// makes it again whenever it fails or its connection closes.
//
// Contract: always owned by a `std::shared_ptr` (it hands the client a weak pointer to itself as
// event handler). A failed subscribe arms the next retry; a successful one restarts the retry
// schedule, so a subscription lost later waits 10 s again. A connection that closes while a
// subscribe is under way (even after the backend acknowledged it) leads to exactly one new try. Events of type "data" reach the
// caller's event handler unchanged; an "error" event (the connection closed) arms a re-subscribe;
// anything else is logged and dropped. The destructor unsubscribes what the client made, so
// whoever drops the last reference ends the subscription. `handleEvent` runs on the client's
// threads.
#pragma once

#include "common/LogLevel.h"
#include "rsi/EventHandler.h"
#include "rsi/IRSIJob.h"
#include "rsi/ISharedRsiClient.h"
#include "rsi/Request.h"
#include "rsi/ResponseHandler.h"

#include <atomic>
#include <cstdint>
#include <memory>

namespace qel::onlineservices::framework::core {

class RSISubscription : public IRSIJob,
                        public qel::rsi::client::EventHandler,
                        public std::enable_shared_from_this<RSISubscription> {
public:
    RSISubscription(std::shared_ptr<qel::rsi::client::Request> request,
                    std::weak_ptr<qel::rsi::client::ISharedRsiClient> client,
                    std::weak_ptr<qel::rsi::client::ResponseHandler> responseHandler,
                    std::weak_ptr<qel::rsi::client::EventHandler> eventHandler, std::uint32_t wrapperSubscriptionId,
                    qel::common::logging::Logger logger);
    ~RSISubscription() override;

    void process() override;
    void confirmRequestSuccess() override;

    void handleEvent(qel::rsi::client::RequestState&& state, qel::rsi::client::Response&& response) override {
        handleEvent(state, response);
    }
    void handleEvent(qel::rsi::client::RequestState const& state, qel::rsi::client::Response const& response) override;

    std::uint32_t subIdClient() const { return m_clientSubscriptionId.load(); }
    std::uint32_t subIdWrapper() const { return m_wrapperSubscriptionId; }
    void printEvent(qel::common::logging::LogLevel level, qel::rsi::client::RequestState const& state,
                    qel::rsi::client::Response const& response) const;

private:
    // Calls the client; true when the response handler must hear about it now.
    bool subscribeAtClient(qel::rsi::client::RequestState& state, qel::rsi::client::Response& response);
    void handleDataEvent(qel::rsi::client::RequestState const& state, qel::rsi::client::Response const& response);
    void rejectEvent(char const* reason, qel::rsi::client::RequestState const& state,
                     qel::rsi::client::Response const& response) const;

    std::shared_ptr<qel::rsi::client::Request> const m_request;
    std::weak_ptr<qel::rsi::client::ISharedRsiClient> const m_client;
    std::weak_ptr<qel::rsi::client::ResponseHandler> const m_responseHandler;
    std::weak_ptr<qel::rsi::client::EventHandler> const m_eventHandler;
    std::uint32_t const m_wrapperSubscriptionId;
    std::atomic<std::uint32_t> m_clientSubscriptionId{0};
    // Retries armed before the current subscribe began; worker thread only.
    std::uint64_t m_armCountAtSubscribe = 0;
};

}  // namespace qel::onlineservices::framework::core
