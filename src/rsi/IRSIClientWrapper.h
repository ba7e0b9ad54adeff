// The one handle through which the framework's components reach the RSI backend.
//
// Contract: callers never block on the network. They hand over a request and weak handlers and
// receive the answer (and a subscription's events) later on other threads. A handler that has
// expired by then is skipped. `subscribe` returns the wrapper's id of the subscription (never 0
// for an accepted one) before the backend has answered. After `stop` everything is refused.
#pragma once

#include "rsi/EventHandler.h"
#include "rsi/Request.h"
#include "rsi/ResponseHandler.h"

#include <memory>

namespace qel::onlineservices::framework::core {

class IRSIClientWrapper {
public:
    virtual ~IRSIClientWrapper() = default;

    virtual void sendRequest(std::shared_ptr<qel::rsi::client::Request> const& request,
                             std::weak_ptr<qel::rsi::client::ResponseHandler> const& handler) = 0;
    virtual unsigned int subscribe(std::shared_ptr<qel::rsi::client::Request> const& request,
                                   std::weak_ptr<qel::rsi::client::ResponseHandler> const& responseHandler,
                                   std::weak_ptr<qel::rsi::client::EventHandler> const& eventHandler) = 0;
    virtual void unsubscribe(unsigned int subscriptionId) = 0;
    // Drops every subscription and cancels queued work; new work is accepted afterwards.
    virtual void disconnect() = 0;
    virtual void start() = 0;
    virtual void stop() = 0;
    // Gives up a request sent earlier that is still unanswered, e.g. one a newer request made
    // pointless: it is not tried again, and its handler hears of the cancel. A try already under
    // way finishes. A wrapper that never retries has nothing to give up, hence the default. Last,
    // so that the operations above keep their places.
    virtual void cancelRequest(std::shared_ptr<qel::rsi::client::Request> const& /*request*/) {}
};

}  // namespace qel::onlineservices::framework::core
