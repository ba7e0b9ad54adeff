// One WebSocket connection to the backend and its named reader thread.
//
// Contract: `connect` runs on the caller's thread, bounded by the time-out; `start` then launches
// the reader thread ("rsi-ws-reader"), which hands every text message to `onMessage`, in arrival
// order, as a view valid during the call, until the connection ends, then calls `onClosed` once
// with the reason and ends. `send` and
// `close` are thread-safe and never block on the network: they queue work for the reader thread.
// The connection's life is bounded (`WebSocketLimits`): a message over `maxMessageBytes` or any
// other protocol violation by the backend (reserved opcode or bit, masked frame, invalid UTF-8)
// is answered with a close frame and the socket is closed at once, without waiting for the
// backend to let go; a link silent for `idleTimeoutMs` (pinged half-way) counts as lost; our own
// close handshake waits at most `closeTimeoutMs`. The destructor closes the socket without a
// handshake and joins the thread, so it never waits on the backend. Destroyed on the reader
// thread itself (the last owner let go during a callback), it calls back no more and leaves the
// thread to end on its own; such threads are joined by the next `connect`, or at exit.
#pragma once

#include "common/Logger.h"
#include "rsi/host/RsiEndpoint.h"
#include "rsi/host/WebSocketLink.h"

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

namespace qel::rsi::client::host {

class WebSocketSession : public WebSocketLink {
public:
    static constexpr char const* PATH = "/subscriptions";

    WebSocketSession(RsiEndpoint endpoint, WebSocketLimits const& limits, Callbacks callbacks);
    ~WebSocketSession() override;
    WebSocketSession(WebSocketSession const&) = delete;
    WebSocketSession& operator=(WebSocketSession const&) = delete;

    // At the endpoint's port.
    bool connect(std::vector<std::string> const& addresses, std::uint32_t timeoutMs, std::string& error) override;
    void cancelConnect() override;
    // Starts the reader thread.
    void start() override;
    void send(std::string message) override;
    // Waits for the messages queued before to be written first; later ones are dropped.
    void close() override;
    // Waits for the reader thread to end (after `close`, or once the connection was lost).
    void join();

    // True on the reader thread of any session.
    static bool isReaderThread();

private:
    struct Impl;

    std::shared_ptr<Impl> m_impl;  // shared with the reader thread
    std::thread m_reader;  // started by connect, joined by join; touched by the owner only
};

}  // namespace qel::rsi::client::host
