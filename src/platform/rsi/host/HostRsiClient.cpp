#include "rsi/host/HostRsiClient.h"

namespace qel::rsi::client::host {

HostRsiClient::Options HostRsiClient::defaultOptions() {
    Options options;
    options.endpoint = RsiEndpoint::resolve();
    return options;
}

HostRsiClient::HostRsiClient(Options const& options)
    : m_http(options.endpoint, options.requestTimeoutMs, options.maxMessageBytes, options.lookup),
      m_subscriptions(options.endpoint, options.subscribeTimeoutMs, options.webSocket, options.lookup) {}

RequestState HostRsiClient::request(Request const& request, Response& response) {
    return m_http.exchange(request, response);
}

std::uint32_t HostRsiClient::subscribe(Request const& request, Response& response, RequestState& state,
                                       std::weak_ptr<EventHandler> const& eventHandler, std::uint32_t /*options*/,
                                       std::uint32_t timeoutMs) {
    return m_subscriptions.subscribe(request, response, state, eventHandler, timeoutMs);
}

void HostRsiClient::unsubscribe(std::uint32_t subscriptionId) {
    m_subscriptions.unsubscribe(subscriptionId);
}

void HostRsiClient::cancelCall(std::thread::id caller) {
    m_http.cancel(caller);
    m_subscriptions.cancel(caller);
}

}  // namespace qel::rsi::client::host
