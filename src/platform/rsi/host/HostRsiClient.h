// The RSI client of a developer's PC: requests over HTTP/1.1, subscriptions over one WebSocket
// (docs/rsi-wire-protocol.md).
//
// Contract: as `ISharedRsiClient`. Nothing connects before the first call. Requests share one
// keep-alive connection. A request that could not be sent (name lookup, connection refused or
// reset before writing) is answered 503, which the framework retries; one sent but not answered
// in time, broken off or answered too big is answered like a gateway time-out (504) and never
// sent again. Subscriptions share one WebSocket with its own reader thread, on which events are
// delivered; when it closes, each live subscription gets one {"type":"error"} event. A cancelled
// call fails at once: a request as not sent (503) or, once it may have reached the backend, like a
// gateway time-out (504); a subscribe with no subscription made. HTTP answers are bounded by
// `maxMessageBytes`; the WebSocket's bounds (event and message sizes, idle and close time-outs)
// are `webSocket`. Name lookups of the endpoint's host run on lookup threads
// ("rsi-resolve") and are bounded by the time-outs too. The client may be released on its reader
// thread ("rsi-ws-reader") by a handler; that thread then ends on its own and is joined later
// (see `WebSocketSession`).
#pragma once

#include "rsi/ISharedRsiClient.h"
#include "rsi/host/HttpConnection.h"
#include "rsi/host/RsiEndpoint.h"
#include "rsi/host/WebSocketChannel.h"

#include <cstddef>
#include <cstdint>
#include <string>

namespace qel::rsi::client::host {

class HostRsiClient : public ISharedRsiClient {
public:
    struct Options {
        RsiEndpoint endpoint;
        std::uint32_t requestTimeoutMs = 10000;
        std::uint32_t subscribeTimeoutMs = 10000;  // also bounds connecting the WebSocket
        std::size_t maxMessageBytes = 4 * 1024 * 1024;  // per HTTP answer
        WebSocketLimits webSocket;
        // Finds the endpoint's addresses when its host is a name; empty: the system's lookup.
        NameResolver::Lookup lookup;
    };

    // The defaults, with the endpoint resolved by `RsiEndpoint::resolve` and the WebSocket's event
    // bound and idle time-out taken from the same ini section (RSI_SERVICE, keys
    // WS_MAX_EVENT_BYTES and WS_IDLE_TIMEOUT_MS) when set there to a positive number.
    static Options defaultOptions(std::string const& iniPath = RsiEndpoint::DEFAULT_INI_PATH);

    explicit HostRsiClient(Options const& options);

    RequestState request(Request const& request, Response& response) override;
    std::uint32_t subscribe(Request const& request, Response& response, RequestState& state,
                            std::weak_ptr<EventHandler> const& eventHandler, std::uint32_t options,
                            std::uint32_t timeoutMs) override;
    void unsubscribe(std::uint32_t subscriptionId) override;
    void cancelCall(std::thread::id caller) override;

private:
    HttpConnection m_http;
    WebSocketChannel m_subscriptions;
};

}  // namespace qel::rsi::client::host
