// Callback for the events of one subscription.
//
// Contract: the client calls the const-reference overload for every event, on a thread of its
// own, for as long as the handler is alive (it is held weakly). Both overloads do nothing by
// default; a derived class overriding one should bring the other into scope
// (`using EventHandler::handleEvent;`).
#pragma once

#include "rsi/RequestState.h"
#include "rsi/Response.h"

namespace qel::rsi::client {

class EventHandler {
public:
    virtual ~EventHandler() = default;
    virtual void handleEvent(RequestState const& /*state*/, Response const& /*response*/) {}
    virtual void handleEvent(RequestState&& /*state*/, Response&& /*response*/) {}
};

}  // namespace qel::rsi::client
