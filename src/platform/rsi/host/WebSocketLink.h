// What the subscription channel needs of its connection to the backend, and the bounds of it.
//
// Contract: `WebSocketSession` is the product's link (see there). Another link, such as one that
// hands messages straight to the channel so that its message handling can be exercised without a
// network, keeps the same contract: `onMessage` in arrival order, `onClosed` once at the end, and
// neither after the link was destroyed.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace qel::rsi::client::host {

// Bounds of the subscription WebSocket. The defaults notice a silent (half-open) link within
// 20 s and let an event carry an open-job list of a few thousand jobs.
struct WebSocketLimits {
    // An event over this is refused with a log line naming its subscription; the connection,
    // which other subscriptions share, stays.
    std::size_t maxEventBytes = 1024 * 1024;
    // A message over this ends the connection (the peer is told 1009, "too big"); it bounds the
    // memory one message may take before the event bound can be applied.
    std::size_t maxMessageBytes = 16 * 1024 * 1024;
    // After half of this without anything received a ping goes out; nothing received, not even
    // the pong, for the whole of it ends the connection.
    std::uint32_t idleTimeoutMs = 20000;
    // Our close handshake waits this long for the backend's answer before the socket is closed.
    std::uint32_t closeTimeoutMs = 1000;
};

class WebSocketLink {
public:
    struct Callbacks {
        std::function<void(std::string_view message)> onMessage;  // valid during the call
        std::function<void(std::string const& reason)> onClosed;
    };
    using Factory = std::function<std::unique_ptr<WebSocketLink>(Callbacks callbacks)>;

    virtual ~WebSocketLink() = default;

    // Connects to the first of `addresses` (address literals) that answers. False, with `error`
    // filled, when the connection could not be made; call once.
    virtual bool connect(std::vector<std::string> const& addresses, std::uint32_t timeoutMs, std::string& error) = 0;
    // Breaks off a `connect` running on another thread, which then fails; no effect once connected.
    virtual void cancelConnect() {}
    // Starts delivering messages after a successful `connect`.
    virtual void start() = 0;
    virtual void send(std::string message) = 0;
    // Starts the close handshake; `onClosed` follows.
    virtual void close() = 0;
};

}  // namespace qel::rsi::client::host
