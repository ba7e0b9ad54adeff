#include "rsi/RSIResponseHandler.h"

namespace qel::onlineservices::framework::core {

RSIResponseHandler::RSIResponseHandler(Function function) : m_function(std::move(function)) {}

void RSIResponseHandler::handleResponse(qel::rsi::client::RequestState const& state,
                                        qel::rsi::client::Response const& response) {
    m_function(state, response);  // throws std::bad_function_call when empty
}

}  // namespace qel::onlineservices::framework::core
