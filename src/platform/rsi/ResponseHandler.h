// Callback for the answer to one request or subscribe call.
//
// Contract: the client calls the const-reference overload on the thread that made the call (the
// framework's worker). Both overloads do nothing by default; a derived class overriding one should
// bring the other into scope (`using ResponseHandler::handleResponse;`).
#pragma once

#include "rsi/RequestState.h"
#include "rsi/Response.h"

namespace qel::rsi::client {

class ResponseHandler {
public:
    virtual ~ResponseHandler() = default;
    virtual void handleResponse(RequestState const& /*state*/, Response const& /*response*/) {}
    virtual void handleResponse(RequestState&& /*state*/, Response&& /*response*/) {}
};

}  // namespace qel::rsi::client
