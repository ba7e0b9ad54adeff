// One WebSocket connection to the backend and its named reader thread.
//
// Contract: `connect` runs on the caller's thread, bounded by the time-out; `start` then launches
// the reader thread ("rsi-ws-reader"), which hands every text message to `onMessage`, in arrival order,
// as a view valid during the call,
// until the connection ends, then calls `onClosed` once with the reason and ends. `send` and
// `close` are thread-safe and never block on the network: they queue work for the reader thread.
// A message over the size bound ends the connection (the peer is told 1009, "too big"). The
// destructor closes the connection and joins the thread. Destroyed on the reader thread itself
// (the last owner let go during a callback), it calls back no more and leaves the thread to end on
// its own; such threads are joined by the next `connect`, or at exit.
#pragma once

#include "common/Logger.h"
#include "rsi/host/RsiEndpoint.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

namespace qel::rsi::client::host {

class WebSocketSession {
public:
    static constexpr char const* PATH = "/subscriptions";

    struct Callbacks {
        std::function<void(std::string_view message)> onMessage;
        std::function<void(std::string const& reason)> onClosed;
    };

    WebSocketSession(RsiEndpoint endpoint, std::size_t maxMessageBytes, Callbacks callbacks);
    ~WebSocketSession();
    WebSocketSession(WebSocketSession const&) = delete;
    WebSocketSession& operator=(WebSocketSession const&) = delete;

    // Connects to the first of `addresses` (address literals) that answers, at the endpoint's
    // port. False, with `error` filled, when the connection could not be made; call once.
    bool connect(std::vector<std::string> const& addresses, std::uint32_t timeoutMs, std::string& error);
    // Starts the reader thread after a successful `connect`.
    void start();
    void send(std::string message);
    void close();
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
