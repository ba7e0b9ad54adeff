#include "rsi/host/HostRsiClient.h"

#include "common/Logger.h"
#include "ini/IniFileHandler.h"

namespace qel::rsi::client::host {
namespace {

// A positive integer setting of the endpoint's ini section; anything else keeps `value`.
template <typename Number>
void readPositive(onlineservices::common::ini::IniFileHandler const& ini, char const* key, Number& value) {
    int setting = 0;
    if (!ini.getValue("RSI_SERVICE", key, setting)) {
        return;
    }
    if (setting <= 0) {
        common::logging::Logger("rsi.host") << common::logging::LogLevel::Warning << "Ignoring RSI_SERVICE/" << key
                                            << " " << setting;
        return;
    }
    value = static_cast<Number>(setting);
}

}  // namespace

HostRsiClient::Options HostRsiClient::defaultOptions(std::string const& iniPath) {
    Options options;
    options.endpoint = RsiEndpoint::resolve(iniPath);
    // A deployment tunes the WebSocket's bounds where it sets the endpoint.
    onlineservices::common::ini::IniFileHandler const ini(iniPath);
    readPositive(ini, "WS_MAX_EVENT_BYTES", options.webSocket.maxEventBytes);
    readPositive(ini, "WS_IDLE_TIMEOUT_MS", options.webSocket.idleTimeoutMs);
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
