#include "rsi/RSIResponseHandler.h"

namespace qel::onlineservices::framework::core {

using qel::common::logging::LogLevel;

RSIResponseHandler::RSIResponseHandler(Function function) : m_function(std::move(function)) {}

void RSIResponseHandler::handleResponse(qel::rsi::client::RequestState const& state,
                                        qel::rsi::client::Response const& response) {
    if (!m_function) {
        qel::common::logging::Logger("RSIResponseHandler") << LogLevel::Error << "No function to handle the response";
        return;
    }
    m_function(state, response);
}

}  // namespace qel::onlineservices::framework::core
