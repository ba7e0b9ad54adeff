#include "rsi/RSIRequest.h"

namespace qel::onlineservices::framework::core {

using qel::common::logging::LogLevel;
using qel::rsi::client::RequestState;
using qel::rsi::client::RequestStateSucceeded;
using qel::rsi::client::Response;

namespace {
constexpr std::int16_t HTTP_OK = 200;
constexpr std::int16_t HTTP_CREATED = 201;
constexpr std::int16_t HTTP_GATEWAY_TIMEOUT = 504;
}  // namespace

RSIRequest::RSIRequest(std::shared_ptr<qel::rsi::client::Request> request,
                       std::weak_ptr<qel::rsi::client::ISharedRsiClient> client,
                       std::weak_ptr<qel::rsi::client::ResponseHandler> handler, qel::common::logging::Logger logger)
    : IRSIJob(std::move(logger)),
      m_request(std::move(request)),
      m_client(std::move(client)),
      m_handler(std::move(handler)) {}

void RSIRequest::process() {
    RequestState const state(RequestStateSucceeded, "Value set to RequestStateSucceeded by default from RSIClientWrapper");
    Response response;
    if (isCancelRequested()) {
        m_logger << LogLevel::Warning << "Cancel requested - abort request retry";
    } else if (!send(response)) {
        return;
    }
    report(state, response);
}

bool RSIRequest::send(Response& response) {
    std::int32_t const tries = countTry();
    if (tries > 1) {
        m_logger << LogLevel::Info << "RSI request try number " << tries;
    }
    auto const client = m_client.lock();
    if (!client) {
        m_logger << LogLevel::Warning << "RSI client expired";
        return true;
    }
    client->request(*m_request, response);  // the outcome is judged by the status alone
    std::int16_t const status = response.getStatus();
    if (status == HTTP_OK || status == HTTP_CREATED) {
        confirmRequestSuccess();
        return true;
    }
    if (isCancelRequested()) {
        // Cut short by a shutdown: reported like any cancelled job, never retried.
        m_logger << LogLevel::Warning << "Cancel requested - abort request retry";
        response = Response();
        return true;
    }
    m_logger << LogLevel::Error << "RSI request failed with HTTP " << status;
    if (status == HTTP_GATEWAY_TIMEOUT) {
        return true;
    }
    return !activateRetry();
}

void RSIRequest::report(RequestState const& state, Response const& response) const {
    if (auto const handler = m_handler.lock()) {
        handler->handleResponse(state, response);
    }
}

void RSIRequest::confirmRequestSuccess() {
    clearRetry();
    m_sent.store(true);
}

}  // namespace qel::onlineservices::framework::core
