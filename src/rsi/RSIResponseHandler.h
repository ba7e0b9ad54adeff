// Turns a function into a `ResponseHandler`, so that a caller can bind its own member function
// (and the context it needs) to one request. The wrapper holds handlers weakly: the caller keeps
// this object alive until the answer came.
#pragma once

#include "rsi/ResponseHandler.h"

#include <functional>

namespace qel::onlineservices::framework::core {

class RSIResponseHandler : public qel::rsi::client::ResponseHandler {
public:
    using Function = std::function<void(qel::rsi::client::RequestState const&, qel::rsi::client::Response const&)>;

    explicit RSIResponseHandler(Function function);

    // An answer handed over as temporaries is handled like any other.
    void handleResponse(qel::rsi::client::RequestState&& state, qel::rsi::client::Response&& response) override {
        handleResponse(state, response);
    }
    // An empty function is a programming error: it throws std::bad_function_call, so the fault
    // shows at once instead of leaving a request without an answer.
    void handleResponse(qel::rsi::client::RequestState const& state,
                        qel::rsi::client::Response const& response) override;

private:
    Function const m_function;
};

}  // namespace qel::onlineservices::framework::core
