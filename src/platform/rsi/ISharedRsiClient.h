// The process-wide RSI client: requests, subscriptions and their events.
//
// Contract: `request` and `subscribe` are synchronous; they return when the answer arrived or the
// call failed, with `response` (and `state`) filled. A request is judged by the response's status;
// a subscription by `state`. After a successful `subscribe` the client calls the event handler,
// while it is alive, for every event of the subscription, on a thread of its own, until
// `unsubscribe` is called with the returned id. `cancelCall` lets an owner that shuts down end the
// call its thread is blocked in instead of waiting out the time-outs; a client without it leaves
// the call to end on its own. Implementations are thread-safe and never throw.
#pragma once

#include "rsi/EventHandler.h"
#include "rsi/Request.h"
#include "rsi/RequestState.h"
#include "rsi/Response.h"

#include <cstdint>
#include <memory>
#include <thread>

namespace qel::rsi::client {

class ISharedRsiClient {
public:
    virtual ~ISharedRsiClient() = default;

    virtual RequestState request(Request const& request, Response& response) = 0;
    // `options` and `timeoutMs` of 0 select the client's defaults. Returns the client's id of the
    // subscription (0 when none was made).
    virtual std::uint32_t subscribe(Request const& request, Response& response, RequestState& state,
                                    std::weak_ptr<EventHandler> const& eventHandler, std::uint32_t options,
                                    std::uint32_t timeoutMs) = 0;
    virtual void unsubscribe(std::uint32_t subscriptionId) = 0;
    // Ends at once the `request` or `subscribe` that thread `caller` is blocked in (nothing when it
    // is in none), failed as the call's other failures are; calls of other threads go on.
    virtual void cancelCall(std::thread::id caller) { static_cast<void>(caller); }
};

}  // namespace qel::rsi::client
